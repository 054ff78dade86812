// The call stack as it is. What happens to scripted ones: show_stack_trace_texts_test.cpp.

#include <execinfo.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"
#include "tests/fakes/memory.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define OTHER_MALLOC 1
#endif

namespace {

std::vector<std::string> lines_of(const std::string &text) {
  std::vector<std::string> lines;
  for (size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
    lines.push_back(text.substr(start, end - start));
  return lines;
}

// Below `depth` more calls: prints the frames that there are to standard output, those that
// show_stack_trace sees to standard error, and the string form behind a line "----".
__attribute__((noinline)) int descend(int depth) {
  if (depth == 0) {
    static void *addresses[8192];
    const int frames = backtrace(addresses, 8192);
    char **texts = backtrace_symbols(addresses, frames);
    for (int k = 0; k < frames; ++k) printf("%s\n", texts[k]);
    free(texts);
    fflush(stdout);
    show_stack_trace();
    static char text[1 << 20];
    show_stack_trace_string(sizeof text, text);
    fprintf(stderr, "----%s", text);
    return 0;
  }
  const int result = descend(depth - 1) + 1;
  asm volatile("" ::: "memory");  // no tail call
  return result;
}

void expect_the_frames_at(int depth) {
  const auto outcome = fakes::in_child([=] { EXPECT_EQ(descend(depth), depth); });
  ASSERT_EQ(outcome.exit_code, 0) << outcome.signal;
  const auto there = lines_of(outcome.out);
  ASSERT_GT(there.size(), static_cast<size_t>(depth));
  const size_t cut = outcome.err.find("----\n\nStack\n");
  ASSERT_NE(cut, std::string::npos);
  const auto printed = lines_of(outcome.err.substr(0, cut));
  const auto written = lines_of(outcome.err.substr(cut + 12));

  // The function itself comes first, then the frames that are there, 1024 in all.
  const size_t expected = std::min(there.size() + 1, size_t{1024});
  ASSERT_EQ(printed.size(), expected);
  ASSERT_EQ(written.size(), expected);
  // The leaf stands at another place when it makes another call, so the comparison begins at 2.
  for (size_t k = 2; k + 1 < expected; ++k) {
    ASSERT_EQ(printed[k + 1], there[k]) << k;
    ASSERT_EQ(written[k + 1], there[k]) << k;
  }
}

}  // namespace

TEST(show_stack_trace, begins_with_itself) {
  const auto outcome = fakes::in_child([] { show_stack_trace(); });
  EXPECT_EQ(outcome.exit_code, 0);
#ifndef OTHER_MALLOC  // a sanitizer's interceptor comes first
  EXPECT_NE(lines_of(outcome.err)[0].find("libplintor.so.3(show_stack_trace+0x"), std::string::npos)
      << outcome.err;
#endif
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.log, fakes::Lines{});
}

TEST(show_stack_trace, shows_a_stack_10_deep) { expect_the_frames_at(10); }
TEST(show_stack_trace, shows_a_stack_127_deep) { expect_the_frames_at(127); }
TEST(show_stack_trace, shows_a_stack_128_deep) { expect_the_frames_at(128); }
TEST(show_stack_trace, shows_a_stack_129_deep) { expect_the_frames_at(129); }
TEST(show_stack_trace, shows_1024_frames_of_a_stack_1024_deep) { expect_the_frames_at(1024); }
TEST(show_stack_trace, shows_1024_frames_of_a_stack_5000_deep) { expect_the_frames_at(5000); }

TEST(show_stack_trace, shows_every_depth_around_128_and_1024_frames) {
  for (const int depth : {100, 110, 115, 120, 1000, 1005, 1010, 1015}) expect_the_frames_at(depth);
}

TEST(show_stack_trace, frees_its_texts) {
#ifdef OTHER_MALLOC
  GTEST_SKIP() << "the sanitizer counts leaks itself";
#else
  const auto outcome = fakes::in_child([] {
    show_stack_trace();
    const auto before = mallinfo2().uordblks;
    for (int k = 0; k < 100; ++k) show_stack_trace();
    EXPECT_EQ(mallinfo2().uordblks, before);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
#endif
}

TEST(show_stack_trace_string, does_not_free_its_texts) {
#ifdef OTHER_MALLOC
  GTEST_SKIP() << "the sanitizer counts memory itself";
#else
  const auto outcome = fakes::in_child([] {
    static char text[65536];
    show_stack_trace_string(sizeof text, text);
    const auto before = mallinfo2().uordblks;
    for (int k = 0; k < 100; ++k) show_stack_trace_string(sizeof text, text);
    EXPECT_GT(mallinfo2().uordblks, before + 100 * 100);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
#endif
}

TEST(show_stack_trace_string, writes_nothing_to_standard_error) {
  const auto outcome = fakes::in_child([] {
    static char text[65536];
    show_stack_trace_string(sizeof text, text);
    printf("%s", text);
  });
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.log, fakes::Lines{});
  EXPECT_EQ(outcome.out.find("\n\nStack\n"), 0u);
  EXPECT_NE(outcome.out.find("libplintor.so.3(show_stack_trace_string+0x"), std::string::npos)
      << outcome.out;
}

TEST(show_stack_trace_string, fills_a_real_trace_that_is_cut_to_size_less_1) {
  const auto outcome = fakes::in_child([] {
    fakes::Guarded memory(4096);
    char *text = reinterpret_cast<char *>(memory.last(100));
    show_stack_trace_string(100, text);
    EXPECT_EQ(strlen(text), 99u);
    EXPECT_EQ(text[98], '\n');
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}
