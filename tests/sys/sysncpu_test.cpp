#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <random>
#include <string>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"

using fakes::Lines;

namespace {

constexpr int kNotAllowed = 77;

int count_in(const std::string &text) {
  fakes::Host host;
  host.file("/proc/stat", text);
  return sysncpu();
}

// The rule, one character at a time.
int model(std::string text) {
  text.resize(std::min<size_t>(text.size(), 8191));
  size_t line = 0;
  const auto to_next_line = [&] {
    while (line < text.size() && text[line] != '\n') ++line;
    if (line < text.size()) ++line;
  };
  to_next_line();
  int count = 0;
  while (line + 2 < text.size() && text[line] == 'c' && text[line + 1] == 'p' &&
         text[line + 2] == 'u') {
    ++count;
    to_next_line();
  }
  return count;
}

}  // namespace

TEST(sysncpu, counts_the_lines_that_begin_with_cpu_behind_the_first) {
  fakes::Host host;
  host.file("/proc/stat", "cpu  1 2 3\ncpu0 1\ncpu1 2\ncpu2 3\nintr 5\ncpu3 4\n");
  EXPECT_EQ(sysncpu(), 3);
  EXPECT_EQ(host.calls(), (Lines{"open /proc/stat", "read", "close"}));
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(sysncpu, looks_at_three_characters_only) {
  EXPECT_EQ(count_in("whatever 1\ncpuset\ncpu\ncpux\nCPU0\n"), 3);
}

TEST(sysncpu, returns_0_when_the_second_line_does_not_begin_with_cpu) {
  EXPECT_EQ(count_in("cpu  1 2 3\nintr 5\ncpu0 1 2\n"), 0);
  EXPECT_EQ(count_in("cpu  1 2 3\n\ncpu0 1 2\n"), 0);
  EXPECT_EQ(count_in("cpu  1 2 3\n cpu0 1 2\n"), 0);
}

TEST(sysncpu, returns_0_when_nothing_follows_the_first_line) {
  EXPECT_EQ(count_in("cpu  1 2 3\n"), 0);
  EXPECT_EQ(count_in("cpu  1 2 3 4 5 6"), 0);
  EXPECT_EQ(count_in("cpu  1 2 3\ncp"), 0);
}

TEST(sysncpu, counts_a_last_line_without_an_end) {
  EXPECT_EQ(count_in("cpu  1 2 3\ncpu0 1\ncpu"), 2);
}

TEST(sysncpu, skips_an_empty_first_line) { EXPECT_EQ(count_in("\ncpu0 1\ncpu1 2\n"), 2); }

TEST(sysncpu, logs_a_file_that_cannot_be_opened_and_returns_1) {
  fakes::Host host;
  host.missing("/proc/stat", ENOENT);
  EXPECT_EQ(sysncpu(), 1);
  EXPECT_EQ(host.calls(), Lines{"open /proc/stat"});
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): Can't read /proc/stat"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{ENOENT});
}

TEST(sysncpu, logs_a_file_that_cannot_be_read_and_returns_1) {
  fakes::Host host;
  host.file("/proc/stat", "cpu  1 2 3\ncpu0 1\ncpu1 2\n");
  host.fail("read", EIO);
  host.fail("close", EBADF);  // must not cover the cause
  EXPECT_EQ(sysncpu(), 1);
  EXPECT_EQ(host.calls(), (Lines{"open /proc/stat", "read", "close"}));
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): Can't read /proc/stat"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{EIO});
}

TEST(sysncpu, logs_9_bytes_and_returns_1_but_takes_10) {
  EXPECT_EQ(count_in("c\ncpu\ncpu"), 1);
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): Can't read /proc/stat"});
  fakes::clear_log();
  EXPECT_EQ(count_in("c\ncpu\ncpu\n"), 2);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(sysncpu, takes_what_one_short_read_gives) {
  fakes::Host host;
  host.file("/proc/stat", "cpu  1 2 3\ncpu0 1\ncpu1 2\n");
  host.short_reads(20);  // "cpu  1 2 3\ncpu0 1\ncp"
  EXPECT_EQ(sysncpu(), 1);
  host.short_reads(21);
  EXPECT_EQ(sysncpu(), 2);
}

TEST(sysncpu, looks_at_8191_bytes_only) {
  // The second processor's "cpu" ends with the 8190th, 8191st or 8192nd byte.
  for (const size_t end : {8190u, 8191u, 8192u}) {
    std::string text = "cpu  ";
    text += std::string(8000, '7') + "\ncpu0 ";
    text += std::string(end - 4 - text.size(), '7') + "\ncpu\ncpu2 1\n";
    EXPECT_EQ(count_in(text), end <= 8191 ? 2 : 1) << end;
  }
}

TEST(sysncpu, stays_within_texts_of_8191_8192_and_8193_bytes) {
  for (const size_t size : {8191u, 8192u, 8193u})
    for (const char *piece : {"c", "cp", "cpu", "cpu\n", "\n", "cpu0 1 2 3 4\n"}) {
      std::string text;
      while (text.size() < size) text += piece;
      text.resize(size);
      EXPECT_EQ(count_in(text), model(text)) << size << " bytes of " << piece;
    }
}

TEST(sysncpu, counts_random_text_as_the_model_does) {
  std::mt19937 random(7);
  const char letters[] = {'c', 'p', 'u', '\n', ' ', '1', '\0'};
  for (int k = 0; k < 5000; ++k) {
    std::string text;
    const size_t lines = random() % 8;
    for (size_t line = 0; line < lines; ++line) text += "cpu0 1 2 3 4\n";
    for (size_t spoiled = random() % 12 + 10; spoiled > 0; --spoiled)
      text.insert(random() % (text.size() + 1), 1, letters[random() % sizeof letters]);
    ASSERT_EQ(count_in(text), model(text)) << text;
  }
}

TEST(sysncpu, counts_a_text_cut_at_every_byte) {
  const std::string text = "cpu  1 2 3\ncpu0 1 2\ncpu1 1 2\nintr 5\n";
  const size_t first = text.find("cpu0") + 3, second = text.find("cpu1") + 3;
  for (size_t cut = 10; cut <= text.size(); ++cut)
    EXPECT_EQ(count_in(text.substr(0, cut)), (cut >= first) + (cut >= second)) << cut;
}

TEST(sysncpu, reads_the_real_path_of_the_host) {
  const auto outcome = fakes::in_child([] {
    if (!fakes::mount_over("/proc/stat", "cpu  0\ncpu0 1\ncpu1 1\ncpu2 1\ncpu3 1\ncpu4 1\n"))
      _exit(kNotAllowed);
    EXPECT_EQ(sysncpu(), 5);
  });
  if (outcome.exit_code == kNotAllowed) GTEST_SKIP() << "no mount namespaces here";
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(sysncpu, agrees_with_getconf_on_the_live_host) {
  FILE *output = popen("getconf _NPROCESSORS_ONLN", "r");
  ASSERT_NE(output, nullptr);
  int processors = 0;
  ASSERT_EQ(fscanf(output, "%d", &processors), 1);
  pclose(output);
  EXPECT_EQ(sysncpu(), processors);
}

TEST(sysncpu, keeps_nothing_over_10000_calls) {
  const int descriptors = fakes::open_descriptors(), mappings = fakes::mappings();
  const size_t heap = fakes::heap_bytes();
  for (int k = 0; k < 10000; ++k) sysncpu();
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_LE(fakes::mappings(), mappings + 64);  // a sanitizer maps its own
  EXPECT_LE(fakes::heap_bytes(), heap + 4096);
}
