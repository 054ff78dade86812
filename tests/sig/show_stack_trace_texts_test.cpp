// show_stack_trace and show_stack_trace_string over scripted stacks.

#include <execinfo.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/memory.h"

namespace {

using Frames = std::vector<std::string>;

struct Stack {
  Frames frames;
  bool without_memory = false;
  // What the library did with it.
  std::vector<void **> asked_into;
  std::vector<int> asked_for;
  std::vector<void *> resolved;  // the addresses that backtrace_symbols was given
  char **texts = nullptr;        // and its answer
  std::vector<std::string> order;
};
Stack *stack = nullptr;

// One piece of memory, pointers first, as the C library does it.
char **in_one_piece(const Frames &frames) {
  size_t size = 8 + frames.size() * sizeof(char *);
  for (const auto &frame : frames) size += frame.size() + 1;
  char **texts = static_cast<char **>(malloc(size));
  char *end = reinterpret_cast<char *>(texts + frames.size());
  for (size_t k = 0; k < frames.size(); ++k) {
    texts[k] = end;
    memcpy(end, frames[k].c_str(), frames[k].size() + 1);
    end += frames[k].size() + 1;
  }
  return texts;
}

}  // namespace

extern "C" int backtrace(void **addresses, int size) {
  if (stack == nullptr) return 0;
  stack->order.push_back("backtrace");
  stack->asked_into.push_back(addresses);
  stack->asked_for.push_back(size);
  const int count = std::min(size, static_cast<int>(stack->frames.size()));
  for (int k = 0; k < count; ++k) addresses[k] = reinterpret_cast<void *>(0x1000L + k);
  return count;
}

extern "C" char **backtrace_symbols(void *const *addresses, int count) noexcept {
  if (stack == nullptr) return nullptr;
  stack->order.push_back("backtrace_symbols");
  stack->resolved.assign(addresses, addresses + count);
  if (stack->without_memory) return nullptr;
  stack->texts = in_one_piece(stack->frames);
  return stack->texts;
}

namespace {

const Frames kThree = {"./prog(inner+0x12) [0x4011aa]", "./prog(main+0x5) [0x401234]",
                       "/lib/libc.so.6(__libc_start_main+0x85) [0x7f0000001234]"};

std::string printed(const Frames &frames, bool without_memory = false) {
  const auto outcome = fakes::in_child([&] {
    Stack scripted{frames, without_memory, {}, {}, {}, nullptr, {}};
    stack = &scripted;
    show_stack_trace();
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.signal;
  return outcome.err;
}

// What the buffer holds: the header, the lines that fit, the next one cut so that it ends with a
// newline, never more than size - 1 characters.
std::string expected(int size, const Frames &frames) {
  const std::string header = "\n\nStack\n";
  if (size <= 0) return "";
  const size_t most = static_cast<size_t>(size) - 1;
  if (most < header.size()) return header.substr(0, most);
  std::string text = header;
  for (const auto &frame : frames) {
    if (text.size() + frame.size() + 1 > most) {
      const size_t left = most - text.size();
      if (left > 0) text += frame.substr(0, left - 1) + "\n";
      return text;
    }
    text += frame + "\n";
  }
  return text;
}

// The string form in a buffer that ends at a guard page; checks what lies around the text.
std::string written(int size, Stack &scripted) {
  static fakes::Guarded memory(8192);
  const auto all = memory.all();
  std::fill(all.begin(), all.end(), uint8_t{0xAA});
  const size_t bytes = size > 0 ? static_cast<size_t>(size) : 0;
  char *buffer = reinterpret_cast<char *>(memory.last(bytes));
  stack = &scripted;
  show_stack_trace_string(size, buffer);
  stack = nullptr;
  free(scripted.texts);
  for (size_t k = 0; k < all.size() - bytes; ++k) {
    if (all[k] != 0xAA) {
      ADD_FAILURE() << "wrote before the buffer";
      break;
    }
  }
  if (bytes == 0) return "";
  const size_t length = strnlen(buffer, bytes);
  EXPECT_LT(length, bytes) << "no end of string";
  for (size_t k = length; k < bytes; ++k) EXPECT_EQ(buffer[k], '\0') << size << " " << k;
  return {buffer, length};
}

std::string written(int size, const Frames &frames) {
  Stack scripted{frames, false, {}, {}, {}, nullptr, {}};
  return written(size, scripted);
}

}  // namespace

TEST(show_stack_trace, prints_one_line_a_frame_innermost_first) {
  EXPECT_EQ(printed(kThree),
            "./prog(inner+0x12) [0x4011aa]\n"
            "./prog(main+0x5) [0x401234]\n"
            "/lib/libc.so.6(__libc_start_main+0x85) [0x7f0000001234]\n");
}

TEST(show_stack_trace, prints_texts_as_they_are) {
  EXPECT_EQ(printed({"100%s %n %d", ""}), "100%s %n %d\n\n");
}

TEST(show_stack_trace, prints_nothing_without_frames) { EXPECT_EQ(printed({}), ""); }

TEST(show_stack_trace, prints_nothing_when_memory_is_exhausted) {
  EXPECT_EQ(printed(kThree, true), "");
}

TEST(show_stack_trace, asks_for_1024_frames) {
  Stack scripted;
  stack = &scripted;
  show_stack_trace();
  char text[100];
  show_stack_trace_string(100, text);
  stack = nullptr;
  free(scripted.texts);
  EXPECT_EQ(scripted.asked_for, (std::vector<int>{1024, 1024}));
}

TEST(show_stack_trace, and_the_string_form_have_arrays_of_their_own) {
  Stack scripted;
  stack = &scripted;
  show_stack_trace();
  show_stack_trace();
  char text[100];
  show_stack_trace_string(100, text);
  free(scripted.texts);
  show_stack_trace_string(100, text);
  free(scripted.texts);
  stack = nullptr;
  const auto &into = scripted.asked_into;
  EXPECT_EQ(into[0], into[1]);
  EXPECT_EQ(into[2], into[3]);
  EXPECT_GE(std::abs(into[0] - into[2]), 1024);  // neither overruns the other
}

// Under AddressSanitizer an address behind the room would end the test.
TEST(show_stack_trace, has_room_for_128_frames_and_for_the_896_beyond) {
  for (const size_t count : {127u, 128u, 129u, 1023u, 1024u, 1025u, 5000u}) {
    const Frames frames(count, "f");
    Stack scripted{frames, false, {}, {}, {}, nullptr, {}};
    static char text[65536];
    stack = &scripted;
    show_stack_trace_string(sizeof text, text);
    stack = nullptr;
    free(scripted.texts);
    const size_t given = std::min(count, size_t{1024});
    ASSERT_EQ(scripted.resolved.size(), given);
    for (size_t k = 0; k < given; ++k)
      ASSERT_EQ(scripted.resolved[k], reinterpret_cast<void *>(0x1000 + k));
    EXPECT_EQ(strlen(text), 8 + 2 * given);
    std::string lines;
    for (size_t k = 0; k < given; ++k) lines += "f\n";
    EXPECT_EQ(printed(frames), lines) << count;
  }
}

TEST(show_stack_trace_string, fills_buffers_of_0_to_2000_bytes) {
  const std::vector<Frames> stacks = {
      {},
      {""},
      {"", "", ""},
      {"f"},
      {"f", "g"},
      kThree,
      {std::string(500, 'a'), "b", std::string(700, 'c')},
      {std::string(3000, 'x')},
      Frames(50, "./prog(function+0x123) [0x401234]"),
  };
  for (const auto &frames : stacks)
    for (int size = 0; size <= 2000; ++size)
      ASSERT_EQ(written(size, frames), expected(size, frames)) << size << " " << frames.size();
}

TEST(show_stack_trace_string, leaves_four_characters_of_the_header_in_5_bytes) {
  EXPECT_EQ(written(5, kThree), "\n\nSt");
}

TEST(show_stack_trace_string, leaves_an_empty_text_in_1_byte) { EXPECT_EQ(written(1, kThree), ""); }

TEST(show_stack_trace_string, cuts_the_header_at_8_bytes_and_fits_it_in_9) {
  EXPECT_EQ(written(8, kThree), "\n\nStack");
  EXPECT_EQ(written(9, kThree), "\n\nStack\n");
}

TEST(show_stack_trace_string, writes_nothing_for_a_size_of_0_or_less) {
  for (const int size : {0, -1, -9, INT_MIN}) EXPECT_EQ(written(size, kThree), "") << size;
}

TEST(show_stack_trace_string, ends_a_cut_line_with_a_newline) {
  // Header 8, first line 30, and of the second line 11 characters and the newline.
  EXPECT_EQ(written(51, kThree), "\n\nStack\n./prog(inner+0x12) [0x4011aa]\n./prog(main\n");
  // One place is left: the newline takes it.
  EXPECT_EQ(written(40, kThree), "\n\nStack\n./prog(inner+0x12) [0x4011aa]\n\n");
  // None is left.
  EXPECT_EQ(written(39, kThree), "\n\nStack\n./prog(inner+0x12) [0x4011aa]\n");
}

TEST(show_stack_trace_string, stops_at_the_first_line_that_does_not_fit) {
  // The third line would fit where the second is cut.
  EXPECT_EQ(written(14, {"a", "long line", "b"}), "\n\nStack\na\nlo\n");
}

TEST(show_stack_trace_string, cuts_inside_the_array_of_texts) {
  Stack scripted{kThree, false, {}, {}, {}, nullptr, {}};
  char text[51];
  stack = &scripted;
  show_stack_trace_string(51, text);
  stack = nullptr;
  EXPECT_STREQ(scripted.texts[0], "./prog(inner+0x12) [0x4011aa]");
  EXPECT_STREQ(scripted.texts[1], "./prog(main\n");
  EXPECT_STREQ(scripted.texts[2], kThree[2].c_str());
  free(scripted.texts);
}

TEST(show_stack_trace_string, leaves_only_the_header_without_frames) {
  EXPECT_EQ(written(100, Frames{}), "\n\nStack\n");
}

TEST(show_stack_trace_string, leaves_only_the_header_when_memory_is_exhausted) {
  Stack scripted{kThree, true, {}, {}, {}, nullptr, {}};
  EXPECT_EQ(written(100, scripted), "\n\nStack\n");
}

TEST(show_stack_trace_string, captures_even_when_only_the_header_fits) {
  Stack scripted{kThree, false, {}, {}, {}, nullptr, {}};
  EXPECT_EQ(written(5, scripted), "\n\nSt");
  EXPECT_EQ(scripted.order, (std::vector<std::string>{"backtrace", "backtrace_symbols"}));
}
