#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

#include "include/plintor.h"
#include "tests/fakes/log.h"
#include "tests/fakes/memory.h"

namespace {

struct Row {
  const char *name;
  int number;
};

// clang-format off
const Row kRows[] = {
    {"HUP", 1}, {"INT", 2}, {"QUIT", 3}, {"ILL", 4}, {"TRAP", 5}, {"IOT", 6}, {"ABRT", 6},
    {"FPE", 8}, {"BUS", 7}, {"SEGV", 11}, {"SYS", 31}, {"PIPE", 13}, {"ALRM", 14}, {"TERM", 15},
    {"USR1", 10}, {"USR2", 12}, {"CLD", 17}, {"CHLD", 17}, {"PWR", 30}, {"WINCH", 28},
    {"URG", 23}, {"POLL", 29}, {"TSTP", 20}, {"CONT", 18}, {"TTIN", 21}, {"TTOU", 22},
    {"VTALRM", 26}, {"PROF", 27}, {"XCPU", 24}, {"XFSZ", 25},
};

// What sig2str writes for 0 to 64; "" is unknown.
const char *const kNames[65] = {
    "",          "SIGHUP",  "SIGINT",  "SIGQUIT", "SIGILL",    "SIGTRAP", "SIGIOT",   "SIGBUS",
    "SIGFPE",    "",        "SIGUSR1", "SIGSEGV", "SIGUSR2",   "SIGPIPE", "SIGALRM",  "SIGTERM",
    "",          "SIGCLD",  "SIGCONT", "",        "SIGTSTP",   "SIGTTIN", "SIGTTOU",  "SIGURG",
    "SIGXCPU",   "SIGXFSZ", "SIGVTALRM", "SIGPROF", "SIGWINCH", "SIGPOLL", "SIGPWR",  "SIGSYS",
};
// clang-format on

// The number that str2sig stores, 4711 when it stores none.
int stored(const char *name, int result) {
  int number = 4711;
  EXPECT_EQ(str2sig(name, &number), result) << name;
  return number;
}

}  // namespace

TEST(str2sig, knows_thirty_names_with_and_without_prefix) {
  for (const Row &row : kRows) {
    EXPECT_EQ(stored(row.name, 0), row.number) << row.name;
    EXPECT_EQ(stored((std::string("SIG") + row.name).c_str(), 0), row.number) << row.name;
  }
  EXPECT_EQ(std::size(kRows), 30u);
}

TEST(str2sig, skips_one_prefix_only) { EXPECT_EQ(stored("SIGSIGHUP", -1), 4711); }

TEST(str2sig, refuses_other_spellings_and_leaves_the_number_alone) {
  for (const char *name : {"",     "SIG",  "hup",     "Hup",      "sighup",     "sigHUP", "Sighup",
                           "HUP ", " HUP", "SIG HUP", "SIGHUP\n", "HU",         "HUPP",   "SI",
                           "S",    "1",    "SIG1",    "RTMIN",    "SIGRTMIN+1", "EMT",    "CHILD"})
    EXPECT_EQ(stored(name, -1), 4711) << name;
  EXPECT_EQ(fakes::log(), fakes::Lines{});
}

TEST(str2sig, gives_6_for_IOT_and_for_ABRT) {
  EXPECT_EQ(stored("IOT", 0), 6);
  EXPECT_EQ(stored("ABRT", 0), 6);
}

TEST(str2sig, gives_17_for_CLD_and_for_CHLD) {
  EXPECT_EQ(stored("SIGCLD", 0), 17);
  EXPECT_EQ(stored("SIGCHLD", 0), 17);
}

TEST(str2sig, does_not_know_KILL_STOP_STKFLT_and_IO) {
  for (const char *name :
       {"KILL", "SIGKILL", "STOP", "SIGSTOP", "STKFLT", "SIGSTKFLT", "IO", "SIGIO"})
    EXPECT_EQ(stored(name, -1), 4711) << name;
}

TEST(str2sig, reads_nothing_behind_the_name) {
  fakes::Guarded memory(16);
  for (const char *name : {"", "S", "SI", "SIG", "SIGHUP", "HUP", "X"}) {
    const size_t size = strlen(name) + 1;
    char *text = reinterpret_cast<char *>(memory.last(size));
    memcpy(text, name, size);
    int number = 0;
    EXPECT_EQ(str2sig(text, &number), strstr(name, "HUP") ? 0 : -1) << name;
  }
}

TEST(sig2str, names_every_number_of_the_host) {
  for (int number = 0; number <= 64; ++number) {
    const std::string expected = kNames[number] == nullptr ? "" : kNames[number];
    char name[10] = "untouched";
    EXPECT_EQ(sig2str(number, name), expected.empty() ? -1 : 0) << number;
    EXPECT_EQ(name, expected) << number;
  }
  EXPECT_EQ(fakes::log(), fakes::Lines{});
}

TEST(sig2str, names_6_SIGIOT_and_17_SIGCLD) {
  char name[10];
  EXPECT_EQ(sig2str(6, name), 0);
  EXPECT_STREQ(name, "SIGIOT");
  EXPECT_EQ(sig2str(17, name), 0);
  EXPECT_STREQ(name, "SIGCLD");
}

TEST(sig2str, leaves_an_empty_text_for_9) {
  char name[10] = "untouched";
  EXPECT_EQ(sig2str(9, name), -1);
  EXPECT_STREQ(name, "");
}

TEST(sig2str, names_31_SIGSYS_and_29_SIGPOLL) {
  char name[10];
  EXPECT_EQ(sig2str(31, name), 0);
  EXPECT_STREQ(name, "SIGSYS");
  EXPECT_EQ(sig2str(29, name), 0);
  EXPECT_STREQ(name, "SIGPOLL");
}

TEST(sig2str, refuses_numbers_that_are_no_signals) {
  for (const int number : {INT_MIN, -1, 0, 32, 33, 64, 65, 128, 128 + 9, 256 + 1, INT_MAX}) {
    char name[10] = "untouched";
    EXPECT_EQ(sig2str(number, name), -1) << number;
    EXPECT_STREQ(name, "") << number;
  }
}

TEST(sig2str, writes_one_byte_when_the_number_is_unknown_and_10_at_most) {
  fakes::Guarded memory(16);
  EXPECT_EQ(sig2str(9, reinterpret_cast<char *>(memory.last(1))), -1);
  char *name = reinterpret_cast<char *>(memory.last(10));
  EXPECT_EQ(sig2str(26, name), 0);
  EXPECT_STREQ(name, "SIGVTALRM");
}
