#include <gtest/gtest.h>
#include <locale.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "frame/vestan.h"
#include "tests/fakes/child.h"

namespace {

// Where the pattern matches: "1-3", or "no".
std::string match(const char *string, const char *pattern) {
  long start = -7;
  long end = -7;
  if (strcontains(string, pattern, nullptr, &start, &end) != 0)
    return std::to_string(start) + "-" + std::to_string(end);
  EXPECT_EQ(start, -7);  // untouched without a match
  EXPECT_EQ(end, -7);
  return "no";
}

}  // namespace

TEST(strcontains, finds_the_leftmost_longest_match) {
  EXPECT_EQ(match("xabcbcd", "a(b|bc)*"), "1-6");
  EXPECT_EQ(match("aXbXXXc", "X+"), "1-2");
  EXPECT_EQ(match("abc", ""), "0-0");
  EXPECT_EQ(match("", "^$"), "0-0");
  EXPECT_EQ(match("abc", "d"), "no");
  EXPECT_EQ(match("", "a"), "no");
}

TEST(strcontains, knows_extended_expressions) {
  EXPECT_EQ(match("run -k now", "-k"), "4-6");
  EXPECT_EQ(match("3.1/bin/korvex", "^[^/]+"), "0-3");
  EXPECT_EQ(match("/bin/korvex", "^[^/]+"), "no");
  EXPECT_EQ(match("aab", "a{2}b?$"), "0-3");
  EXPECT_EQ(match("cat or dog", "dog|bird"), "7-10");
  EXPECT_EQ(match("one 42 two", "[[:digit:]]+"), "4-6");
  EXPECT_EQ(
      match("/opt/vestan/3.1/bin/korvex -x /opt/vestan/a/bin/korvex", "/opt/vestan/.*/bin/korvex"),
      "0-54");
  EXPECT_EQ(match("sh /opt/vestan/3.1/bin/korvex", "/opt/vestan/.*/bin/korvex"), "3-29");
  EXPECT_EQ(match("/opt/vestan/bin/korvex", "/opt/vestan/.*/bin/korvex"), "no");
}

TEST(strcontains, keeps_the_compiled_pattern_in_the_hook) {
  static void *hook = nullptr;
  long start = 0;
  long end = 0;
  EXPECT_EQ(strcontains("none here", "x+", &hook, &start, &end), 0);
  void *const compiled = hook;
  EXPECT_NE(compiled, nullptr);
  EXPECT_EQ(strcontains("abxx", "x+", &hook, &start, &end), 1);
  EXPECT_EQ(hook, compiled);
  EXPECT_EQ(start, 2);
  EXPECT_EQ(end, 4);
  // A hook stands for its pattern: another text beside it is not looked at.
  EXPECT_EQ(strcontains("abxx", "never compiled (", &hook, nullptr, nullptr), 1);
}

TEST(strcontains, may_be_asked_without_bounds) {
  EXPECT_EQ(strcontains("abc", "b", nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(strcontains("abc", "x", nullptr, nullptr, nullptr), 0);
}

TEST(strcontains, finds_nothing_in_or_for_null) {
  static void *hook = nullptr;
  EXPECT_EQ(strcontains(nullptr, "a", &hook, nullptr, nullptr), 0);
  EXPECT_EQ(strcontains("a", nullptr, &hook, nullptr, nullptr), 0);
  EXPECT_EQ(hook, nullptr);
}

TEST(strcontains, complains_about_a_pattern_that_is_none) {
  char name[] = "tool";
  program_invocation_short_name = name;
  const auto outcome = fakes::in_child([] {
    static void *hook = nullptr;
    long start = -7;
    EXPECT_EQ(strcontains("a", "a(", &hook, &start, nullptr), 0);
    EXPECT_EQ(hook, nullptr);
    EXPECT_EQ(start, -7);
    EXPECT_EQ(strcontains("a", "[z-a]", nullptr, nullptr, nullptr), 0);
  });
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err,
            "tool: warning: can't compile pattern 'a(': Unmatched ( or \\(\n"
            "tool: warning: can't compile pattern '[z-a]': Invalid range end\n");
}

TEST(strcontains, leaves_errno_alone) {
  errno = EBUSY;
  strcontains("abc", "b", nullptr, nullptr, nullptr);
  EXPECT_EQ(errno, EBUSY);
}

TEST(strcontains, matches_bytes_in_every_locale) {
  if (setlocale(LC_ALL, "C.UTF-8") == nullptr) GTEST_SKIP() << "no UTF-8 locale here";
  // Latin-1 in a path: no character at all in UTF-8.
  EXPECT_EQ(match("/opt/vestan/\xe9t\xe9/bin/korvex", "/opt/vestan/.*/bin/korvex"), "0-26");
  EXPECT_EQ(match("\xc3\xa9z", "^..z"), "0-3");
  EXPECT_STREQ(setlocale(LC_ALL, nullptr), "C.UTF-8");
}

TEST(strcontains, may_be_first_in_eight_threads_at_once) {
  static void *hooks[50];
  for (void *&hook : hooks) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
      threads.emplace_back([&hook] {
        for (int k = 0; k < 20; ++k) {
          long start = 0;
          long end = 0;
          ASSERT_EQ(strcontains("abcacb", "c.b", &hook, &start, &end), 0);
          ASSERT_EQ(strcontains("xxcabx", "c.b", &hook, &start, &end), 1);
          ASSERT_EQ(start, 2);
          ASSERT_EQ(end, 5);
        }
      });
    for (auto &thread : threads) thread.join();
    ASSERT_NE(hook, nullptr);
  }
}
