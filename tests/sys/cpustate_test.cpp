#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"

using fakes::Lines;

namespace {

// What realloc leaves in the bytes that it adds, so that what nobody wrote can be told; the C
// library's own realloc while it is negative.
int fill = -1;
constexpr int kZero = 0, kElevens = 0x11;
int reallocs_until_failure = 0;  // 1: the next one; 0: none
std::vector<size_t> sizes;       // asked for, in order
std::map<void *, size_t> blocks;

constexpr int kNotAllowed = 77;

struct Sample {
  int ncpu = -1;
  CpuState *cpu = reinterpret_cast<CpuState *>(1);
};

Sample sample() {
  Sample taken;
  syscpu(&taken.ncpu, &taken.cpu);
  return taken;
}

Sample sample_of(const std::string &text) {
  fakes::Host host;
  host.file("/proc/stat", text);
  return sample();
}

std::vector<float> slots(const CpuState &state) { return {state.slot, state.slot + 5}; }
using Slots = std::vector<float>;

}  // namespace

extern "C" void *realloc(void *data, size_t size) noexcept {
  static void *(*next)(void *, size_t);
  if (next == nullptr)
    next = reinterpret_cast<void *(*)(void *, size_t)>(dlsym(RTLD_NEXT, "realloc"));
  if (fill < 0) return next(data, size);
  const int filled = std::exchange(fill, -1);
  sizes.push_back(size);
  if (reallocs_until_failure > 0 && --reallocs_until_failure == 0) {
    errno = ENOMEM;
    return nullptr;  // what follows is the report's own business
  }
  const size_t old_size = data == nullptr ? 0 : blocks[data];
  void *grown = next(data, size);
  blocks[grown] = size;
  memset(static_cast<char *>(grown) + old_size, filled, size - old_size);
  fill = filled;
  return grown;
}

TEST(syscpu, gives_the_shares_since_boot_at_the_first_call) {
  fill = kZero;
  const Sample taken = sample_of(
      "cpu  100 0 0 100\n"
      "cpu0 10 20 30 40\n"
      "intr 5\n");
  EXPECT_EQ(taken.ncpu, 1);
  EXPECT_EQ(slots(taken.cpu[0]), (Slots{30, 30, 0, 40, 0}));
}

TEST(syscpu, gives_the_shares_between_two_calls_from_four_column_lines) {
  sample_of("cpu  0 0 0 0\ncpu0 10 20 30 40\ncpu1 1000 0 500 7000\nintr 5\n");
  const Sample taken = sample_of("cpu  0 0 0 0\ncpu0 20 30 50 100\ncpu1 1001 0 501 7002\nintr 5\n");
  EXPECT_EQ(taken.ncpu, 2);
  EXPECT_EQ(slots(taken.cpu[0]), (Slots{20, 20, 0, 60, 0}));
  EXPECT_EQ(slots(taken.cpu[1]), (Slots{25, 25, 0, 50, 0}));
}

TEST(syscpu, counts_nice_as_user_time) {
  sample_of("cpu  0 0 0 0\ncpu0 0 0 0 0\n");
  EXPECT_EQ(slots(sample_of("cpu  0 0 0 0\ncpu0 1 2 0 1\n").cpu[0]), (Slots{75, 0, 0, 25, 0}));
}

TEST(syscpu, gives_0_for_a_processor_whose_counters_did_not_move) {
  const std::string text = "cpu  0 0 0 0\ncpu0 10 20 30 40\ncpu1 1 2 3 4\n";
  sample_of(text);
  const Sample taken = sample_of(text);
  EXPECT_EQ(slots(taken.cpu[0]), (Slots{0, 0, 0, 0, 0}));
  EXPECT_EQ(slots(taken.cpu[1]), (Slots{0, 0, 0, 0, 0}));
}

TEST(syscpu, takes_a_counter_that_went_back_as_an_unsigned_step) {
  sample_of("cpu  0 0 0 0\ncpu0 0 0 0 5\n");
  const Sample taken = sample_of("cpu  0 0 0 0\ncpu0 0 0 0 4\n");
  EXPECT_EQ(slots(taken.cpu[0]), (Slots{0, 0, 0, 100, 0}));
  // user moves 2^64 - 1, as do the others: each a third
  sample_of("cpu  0 0 0 0\ncpu0 5 0 5 5\n");
  const Slots thirds = slots(sample_of("cpu  0 0 0 0\ncpu0 4 0 4 4\n").cpu[0]);
  EXPECT_FLOAT_EQ(thirds[0], 33.333333f);
  EXPECT_FLOAT_EQ(thirds[1], 33.333333f);
  EXPECT_FLOAT_EQ(thirds[3], 33.333333f);
}

TEST(syscpu, shares_add_up_to_100) {
  sample_of("cpu  0 0 0 0\ncpu0 0 0 0 0\n");
  const Slots shares = slots(sample_of("cpu  0 0 0 0\ncpu0 123456 789 4567 8901234\n").cpu[0]);
  EXPECT_NEAR(shares[0] + shares[1] + shares[3], 100, 1e-4);
}

TEST(syscpu, takes_the_second_processor_from_the_rest_of_a_ten_column_line) {
  fill = kZero;
  const Sample taken = sample_of(
      "cpu  0 0 0 0 0 0 0 0 0 0\n"
      "cpu0 10 20 30 40 50 50 60 40 90 99\n"
      "cpu1 1 1 1 1 1 1 1 1 1 1\n"
      "intr 5\n");
  EXPECT_EQ(taken.ncpu, 2);
  EXPECT_EQ(slots(taken.cpu[0]), (Slots{30, 30, 0, 40, 0}));
  EXPECT_EQ(slots(taken.cpu[1]), (Slots{50, 30, 0, 20, 0}));  // 50 + 50, 60, 40
}

TEST(syscpu, resumes_a_third_processor_behind_the_eighth_column) {
  sample_of("cpu \ncpu0 0 0 0 0\ncpu1 0 0 0 0\ncpu2 0 0 0 0\n");
  const Sample taken = sample_of(
      "cpu  0 0 0 0 0 0 0 0 0 0\n"
      "cpu0 10 20 30 40 50 50 60 40 7 9\n"
      "cpu1 1 1 1 1 1 1 1 1 1 1\n"
      "cpu2 1 1 1 1 1 1 1 1 1 1\n");
  // Behind the blank come 7 and 9; "cpu1" is no number and ends them.
  EXPECT_EQ(slots(taken.cpu[2]), (Slots{100, 0, 0, 0, 0}));
}

TEST(syscpu, skips_empty_lines_between_processors) {
  // They end the count as well, so the second processor is known from before.
  sample_of("cpu  0\ncpu0 0 0 0 0\ncpu1 0 0 0 0\n");
  const Sample taken = sample_of("cpu  0\ncpu0 1 0 1 2\n\n\ncpu1 3 0 0 1\n");
  EXPECT_EQ(taken.ncpu, 2);
  EXPECT_EQ(slots(taken.cpu[1]), (Slots{75, 0, 0, 25, 0}));
}

TEST(syscpu, reads_octal_and_hexadecimal_numbers) {
  fill = kZero;
  EXPECT_EQ(slots(sample_of("cpu  0\ncpu0 0x10 0 020 040\n").cpu[0]), (Slots{25, 25, 0, 50, 0}));
}

TEST(syscpu, takes_its_numbers_across_the_end_of_a_short_line) {
  fill = kZero;
  const Sample taken = sample_of("cpu  0\ncpu0 1\n2\n1\n4\n");
  EXPECT_EQ(taken.ncpu, 1);
  EXPECT_EQ(slots(taken.cpu[0]), (Slots{37.5, 12.5, 0, 50, 0}));
}

TEST(syscpu, stores_0_and_a_null_array_without_processor_lines) {
  for (const char *text : {"cpu  1 2 3 4\nintr 5\ncpu0 1 2 3 4\n", "cpu  1 2 3 4\n",
                           "cpu  1 2 3 4 without an end of line"}) {
    const Sample taken = sample_of(text);
    EXPECT_EQ(taken.ncpu, 0);
    EXPECT_EQ(taken.cpu, nullptr);
  }
}

TEST(syscpu, stores_the_count_of_an_earlier_call_without_processor_lines) {
  sample_of("cpu  0\ncpu0 1 1 1 1\ncpu1 1 1 1 1\n");
  const Sample taken = sample_of("cpu  1 2 3 4\nintr 5\n");
  EXPECT_EQ(taken.ncpu, 2);
  // The walk reads on in what is there: "5", then nothing.
  EXPECT_NE(taken.cpu, nullptr);
}

TEST(syscpu, still_reports_4_processors_after_4_then_2) {
  fill = kElevens;
  sample_of("cpu  0\ncpu0 0 0 0 0\ncpu1 0 0 0 0\ncpu2 8 0 8 8\ncpu3 8 0 8 8\n");
  const Sample four = sample_of("cpu  0\ncpu0 0 0 0 0\ncpu1 0 0 0 0\ncpu2 8 0 8 8\ncpu3 8 0 8 8\n");
  sizes.clear();
  const Sample two = sample_of("cpu  0\ncpu0 1 0 1 2\ncpu1 3 0 0 1\n");
  fill = -1;
  EXPECT_EQ(two.ncpu, 4);
  EXPECT_EQ(two.cpu, four.cpu);
  EXPECT_EQ(sizes, std::vector<size_t>{});  // never shrunk
  EXPECT_EQ(slots(two.cpu[0]), (Slots{25, 25, 0, 50, 0}));
  EXPECT_EQ(slots(two.cpu[1]), (Slots{75, 0, 0, 25, 0}));
  // Parsed at the end of the text: every counter went from 8 to 0.
  for (int i : {2, 3})
    for (int k : {0, 1, 3}) EXPECT_FLOAT_EQ(two.cpu[i].slot[k], 33.333333f) << i << " " << k;
}

TEST(syscpu, grows_the_three_arrays_in_order) {
  fill = kElevens;
  sample_of("cpu  0\ncpu0 0 0 0 0\ncpu1 0 0 0 0\n");
  EXPECT_EQ(sizes, (std::vector<size_t>{40, 80, 80}));
  sizes.clear();
  sample_of("cpu  0\ncpu0 0 0 0 0\ncpu1 0 0 0 0\ncpu2 0 0 0 0\n");
  EXPECT_EQ(sizes, (std::vector<size_t>{60, 120, 120}));
  sizes.clear();
  sample_of("cpu  0\ncpu0 0 0 0 0\ncpu1 0 0 0 0\ncpu2 0 0 0 0\n");
  EXPECT_EQ(sizes, std::vector<size_t>{});
  fill = -1;
}

// Five floats for each processor, where five 64-bit counters are kept.
TEST(syscpu, zeroes_exactly_n_times_20_bytes_of_old_at_the_first_call) {
  constexpr uint64_t kLeft = 0x1111111111111111;
  fill = kElevens;
  const std::string line = " 1229782938247303441 0 1229782938247303441 1229782938247303442\n";
  const Sample taken = sample_of("cpu  0\ncpu0 1 0 1 2\ncpu1" + line + "cpu2" + line);
  fill = -1;
  ASSERT_EQ(taken.ncpu, 3);
  // 60 bytes: the first record, and of the second two counters and the low half of the third.
  EXPECT_EQ(slots(taken.cpu[0]), (Slots{25, 25, 0, 50, 0}));
  const float user = static_cast<float>(kLeft),
              idle = static_cast<float>(kLeft + 1 - 0x1111111100000000);
  const float total = user + user + idle;
  EXPECT_EQ(taken.cpu[1].slot[0], static_cast<float>(user * 100.0 / total));
  EXPECT_EQ(taken.cpu[1].slot[1], static_cast<float>(user * 100.0 / total));
  EXPECT_EQ(taken.cpu[1].slot[3], static_cast<float>(idle * 100.0 / total));
  // The third is compared with what the allocation left: only idle moved, by one.
  EXPECT_EQ(slots(taken.cpu[2]), (Slots{0, 0, 0, 100, 0}));
}

TEST(syscpu, zeroes_exactly_n_times_20_bytes_of_old_when_it_grows) {
  fill = kElevens;
  const std::string two = "cpu  0\ncpu0 4 0 4 8\ncpu1 4 0 4 8\n";
  sample_of(two);
  const std::string left = " 1229782938247303441 0 1229782938247303441 1229782938247303444\n";
  const Sample taken = sample_of(two + "cpu2" + left + "cpu3" + left);
  fill = -1;
  ASSERT_EQ(taken.ncpu, 4);
  EXPECT_EQ(slots(taken.cpu[0]), (Slots{25, 25, 0, 50, 0}));  // since boot again
  EXPECT_EQ(slots(taken.cpu[1]), (Slots{25, 25, 0, 50, 0}));
  EXPECT_EQ(slots(taken.cpu[2]), (Slots{0, 0, 0, 100, 0}));
  EXPECT_EQ(slots(taken.cpu[3]), (Slots{0, 0, 0, 100, 0}));
}

TEST(syscpu, makes_one_open_one_read_and_one_close) {
  fakes::Host host;
  host.file("/proc/stat", "cpu  0\ncpu0 1 0 1 2\n");
  sample();
  EXPECT_EQ(host.calls(), (Lines{"open /proc/stat", "read", "close"}));
}

TEST(syscpu, ends_the_process_when_the_file_cannot_be_opened) {
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.missing("/proc/stat", EACCES);
    sample();
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Can't read /proc/stat"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{EACCES});
}

TEST(syscpu, ends_the_process_when_the_file_cannot_be_read) {
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.file("/proc/stat", "cpu  0\ncpu0 1 0 1 2\n");
    host.fail("read", EIO);
    host.fail("close", EBADF);  // must not cover the cause
    sample();
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Can't read /proc/stat"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{EIO});
}

TEST(syscpu, ends_the_process_after_9_bytes_and_goes_on_after_10) {
  const auto outcome = fakes::in_child([] { sample_of("cpu  0 0\n"); });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Can't read /proc/stat"});
  EXPECT_EQ(sample_of("cpu  0 0\nc").ncpu, 0);
}

TEST(syscpu, reports_exhausted_memory_for_each_of_its_arrays) {
  const char *objects[] = {"cpu", "new", "old"};
  const char *lines[] = {"56", "57", "58"};
  for (int k = 0; k < 3; ++k) {
    const auto outcome = fakes::in_child([k] {
      reallocs_until_failure = k + 1;
      fill = kElevens;
      sample_of("cpu  0\ncpu0 0 0 0 0\ncpu1 0 0 0 0\ncpu2 0 0 0 0\n");
    });
    EXPECT_EQ(outcome.exit_code, fakes::kDied);
    EXPECT_EQ(outcome.log,
              Lines{std::string("elog_die(1): Out of memory in syscpu at line ") + lines[k] +
                    " of 'cpustate.cpp'\n\tCan't malloc 3 bytes for " + objects[k] + "\n"});
    EXPECT_EQ(outcome.log_errors, std::vector<int>{ENOMEM});
  }
}

TEST(syscpu, looks_at_8191_bytes_only) {
  // The second line's last number is cut by the limit, one digit earlier or later.
  for (const size_t size : {8190u, 8191u, 8192u, 8193u}) {
    const auto outcome = fakes::in_child([size] {
      std::string text = "cpu  ";
      text += std::string(8000, '0') + "\n";
      text += "cpu0 0 0 0 ";
      text += std::string(8188 - text.size(), ' ') + "345";  // 3 is the 8189th byte
      text.resize(size, '6');
      fakes::Host host;
      host.file("/proc/stat", text);
      sample();
      // Compared with a text that is short: the step is what was read before.
      host.file("/proc/stat",
                size == 8190 ? "cpu  0\ncpu0 34 0 0 34\n" : "cpu  0\ncpu0 345 0 0 345\n");
      const Sample taken = sample();
      EXPECT_EQ(taken.ncpu, 1);
      EXPECT_EQ(slots(taken.cpu[0]), (Slots{100, 0, 0, 0, 0}));  // idle did not move
    });
    EXPECT_EQ(outcome.exit_code, 0) << size << outcome.err;
  }
}

TEST(syscpu, counts_processors_up_to_the_limit) {
  // Behind a first line of 11, 12 or 13 bytes 2045 lines fit, 2044 and three bytes, or 2044 and
  // two.
  for (const auto &[first, count] : {std::pair<const char *, int>{"cpu  1 2 3\n", 2045},
                                     {"cpu  1 2 33\n", 2045},
                                     {"cpu  1 2 333\n", 2044}}) {
    const auto outcome = fakes::in_child([first = first, count = count] {
      std::string text = first;
      while (text.size() < 9000) text += "cpu\n";
      EXPECT_EQ(sample_of(text).ncpu, count);
    });
    EXPECT_EQ(outcome.exit_code, 0) << first << outcome.err;
  }
}

// ---- Against the walk, spelled out one character at a time

namespace {

struct Model {
  struct Ticks {
    uint64_t slot[3] = {0, 0, 0};
  };
  std::vector<Ticks> old;
  std::vector<CpuState> states;
  std::string text;
  size_t at = 0;

  int here() const { return at < text.size() ? static_cast<unsigned char>(text[at]) : -1; }

  // strtoul with base 0.
  uint64_t number() {
    const size_t start = at;
    while (here() == ' ' || (here() >= '\t' && here() <= '\r')) ++at;
    bool negative = false;
    if (here() == '+' || here() == '-') negative = text[at++] == '-';
    unsigned base = 10;
    if (here() == '0') {
      base = 8;
      const bool x = at + 1 < text.size() && (text[at + 1] == 'x' || text[at + 1] == 'X');
      if (x && at + 2 < text.size() && isxdigit(static_cast<unsigned char>(text[at + 2]))) {
        base = 16;
        at += 2;
      }
    }
    bool any = false, over = false;
    uint64_t value = 0;
    for (;; ++at) {
      const int c = here();
      unsigned digit = 99;
      if (c >= '0' && c <= '9') digit = static_cast<unsigned>(c - '0');
      if (c >= 'a' && c <= 'f') digit = static_cast<unsigned>(c - 'a' + 10);
      if (c >= 'A' && c <= 'F') digit = static_cast<unsigned>(c - 'A' + 10);
      if (digit >= base) break;
      any = true;
      over |= __builtin_mul_overflow(value, base, &value);
      over |= __builtin_add_overflow(value, digit, &value);
    }
    if (!any) {
      at = start;
      return 0;
    }
    if (over) return UINT64_MAX;
    return negative ? -value : value;
  }

  void call(const std::string &file) {
    text = file.substr(0, 8191);
    size_t first = 0;
    while (first < text.size() && text[first] != '\n') ++first;
    if (first < text.size()) ++first;
    size_t count = 0;
    for (size_t line = first; text.compare(line, 3, "cpu") == 0; ++count) {
      while (line < text.size() && text[line] != '\n') ++line;
      if (line < text.size()) ++line;
    }
    if (count > old.size()) {
      // The array's bytes: the old ones, 0x11 in the added ones, then count * 20 zeros.
      std::vector<uint64_t> raw(count * 5, 0x1111111111111111);
      for (size_t i = 0; i < old.size(); ++i) {
        for (size_t k = 0; k < 3; ++k) raw[i * 5 + k] = old[i].slot[k];
        raw[i * 5 + 3] = 0;
      }
      memset(raw.data(), 0, count * 20);
      old.resize(count);
      states.resize(count);
      for (size_t i = 0; i < count; ++i)
        for (size_t k = 0; k < 3; ++k) old[i].slot[k] = raw[i * 5 + k];
    }
    at = first;
    for (size_t i = 0; i < old.size(); ++i) {
      while (at < text.size()) {
        ++at;
        if (text[at - 1] == ' ') break;
      }
      const uint64_t user = number(), nice = number(), system = number(), idle = number();
      while (here() == '\n') ++at;
      const uint64_t now[3] = {user + nice, system, idle};
      float step[3];
      for (int k = 0; k < 3; ++k) {
        step[k] = static_cast<float>(now[k] - old[i].slot[k]);
        old[i].slot[k] = now[k];
      }
      float total = step[0] + step[1];
      total += step[2];
      if (total == 0) total = 1;
      const int where[3] = {0, 1, 3};
      states[i] = {};
      for (int k = 0; k < 3; ++k)
        states[i].slot[where[k]] =
            static_cast<float>(static_cast<double>(step[k]) * 100.0 / static_cast<double>(total));
    }
  }
};

std::string random_stat(std::mt19937 &random) {
  const auto below = [&random](unsigned limit) { return random() % limit; };
  std::string text = below(20) == 0 ? "" : "cpu  1 2 3 4 5 6 7 8 9 10\n";
  const unsigned lines = below(below(10) == 0 ? 300 : 6);
  for (unsigned i = 0; i < lines; ++i) {
    text += "cpu" + std::to_string(i);
    const unsigned columns = below(3) == 0 ? below(12) : below(2) == 0 ? 4 : 10;
    for (unsigned k = 0; k < columns; ++k) {
      text += below(30) == 0 ? "  " : " ";
      const uint64_t wide = (static_cast<uint64_t>(random()) << 32) + random();
      text += std::to_string(wide >> below(64));
    }
    text += "\n";
  }
  text += "intr 1 2 3 4 5\nctxt 6\nbtime 7\n";
  // Mutations: some texts stay as they are.
  const char spoilers[] = " \n\t0xX-+cpu9a\0\xff";
  for (unsigned k = below(4) * below(8); k > 0; --k) {
    const size_t place = below(static_cast<unsigned>(text.size()));
    const char spoiler = spoilers[below(sizeof spoilers - 1)];
    switch (below(3)) {
      case 0:
        text[place] = spoiler;
        break;
      case 1:
        text.insert(place, 1 + below(3), spoiler);
        break;
      default:
        text.erase(place, 1 + below(8));
    }
    if (text.size() < 20) text += "cpu0 1 2 3 4\ncpu1 1 2 3 4\n";
  }
  if (below(4) == 0) text.resize(10 + below(static_cast<unsigned>(text.size()) - 10));
  return text;
}

void expect_model(Model &model, const std::string &text) {
  model.call(text);
  const Sample taken = sample_of(text);
  ASSERT_EQ(taken.ncpu, static_cast<int>(model.states.size())) << text;
  for (size_t i = 0; i < model.states.size(); ++i)
    ASSERT_EQ(slots(taken.cpu[i]), slots(model.states[i])) << i << " of " << text;
}

}  // namespace

TEST(syscpu, walks_random_and_mutated_text_as_the_model_does) {
  for (unsigned batch = 0; batch < 60; ++batch) {
    const auto outcome = fakes::in_child([batch] {
      std::mt19937 random(batch);
      Model model;
      fill = kElevens;
      for (int k = 0; k < 100 && !::testing::Test::HasFailure(); ++k)
        expect_model(model, random_stat(random));
    });
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  }
}

TEST(syscpu, walks_a_text_cut_at_every_byte_as_the_model_does) {
  const std::string text =
      "cpu  3879 0 1895 215791 277 0 24 11 0 0\n"
      "cpu0 1745 0 737 108465 10 0 7 3 0 0\n"
      "cpu1 2134 0 1157 107325 266 0 17 8 0 0\n"
      "intr 134718 0 0\n";
  Model model;
  fill = kElevens;
  for (size_t cut = 10; cut <= text.size(); ++cut) {
    expect_model(model, text);
    expect_model(model, text.substr(0, cut));
  }
  fill = -1;
}

// ---- The host as it is

TEST(syscpu, reads_the_real_path_of_the_host) {
  const auto outcome = fakes::in_child([] {
    if (!fakes::mount_over("/proc/stat", "cpu  0 0 0 0\ncpu0 10 20 30 40\nintr 5\n"))
      _exit(kNotAllowed);
    fill = kZero;
    const Sample taken = sample();
    EXPECT_EQ(taken.ncpu, 1);
    EXPECT_EQ(slots(taken.cpu[0]), (Slots{30, 30, 0, 40, 0}));
  });
  if (outcome.exit_code == kNotAllowed) GTEST_SKIP() << "no mount namespaces here";
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(syscpu, agrees_with_proc_stat_of_the_live_host) {
  fill = kZero;
  std::ifstream stat("/proc/stat");
  std::string line, name;
  std::getline(stat, line);
  std::getline(stat, line);
  uint64_t user, nice, system, idle;
  std::istringstream(line) >> name >> user >> nice >> system >> idle;
  ASSERT_EQ(name, "cpu0");
  const double total = static_cast<double>(user + nice + system + idle);
  const Sample taken = sample();
  EXPECT_NEAR(taken.cpu[0].slot[0], 100 * static_cast<double>(user + nice) / total, 0.5);
  EXPECT_NEAR(taken.cpu[0].slot[1], 100 * static_cast<double>(system) / total, 0.5);
  EXPECT_NEAR(taken.cpu[0].slot[3], 100 * static_cast<double>(idle) / total, 0.5);
  EXPECT_EQ(taken.ncpu, sysncpu());
}

TEST(syscpu, keeps_nothing_more_over_10000_calls) {
  sample();
  const int descriptors = fakes::open_descriptors(), mappings = fakes::mappings();
  const size_t heap = fakes::heap_bytes();
  for (int k = 0; k < 10000; ++k) sample();
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_LE(fakes::mappings(), mappings + 64);  // a sanitizer maps its own
  EXPECT_LE(fakes::heap_bytes(), heap + 4096);
  EXPECT_EQ(fakes::log(), Lines{});
}
