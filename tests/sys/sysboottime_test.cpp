#include <gtest/gtest.h>
#include <time.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"

using fakes::Lines;

namespace {

constexpr int kNotAllowed = 77;
double clock_now = 1731660824.999;
int clock_calls = 0;

// What the first call of a process answers.
long first_call_with(const std::string &text, Lines *log = nullptr) {
  const auto outcome = fakes::in_child([&] {
    fakes::Host host;
    host.file("/proc/stat", text);
    printf("%ld", sysboottime());
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  if (log != nullptr) *log = outcome.log;
  return atol(outcome.out.c_str());
}

const Lines kComplaint{
    "elog_complain(0): Failed to read boot time (btime) in first 16384 bytes of /proc/stat"};

}  // namespace

extern "C" double std_now(void) {
  ++clock_calls;
  return clock_now;
}

TEST(sysboottime, reads_what_follows_btime) {
  fakes::Host host;
  host.file("/proc/stat", "cpu  1 2 3 4\nintr 5\nctxt 9\nbtime 1700000007\nprocesses 6\n");
  EXPECT_EQ(sysboottime(), 1700000007);
  EXPECT_EQ(host.calls(), (Lines{"open /proc/stat", "read", "close"}));
  EXPECT_EQ(clock_calls, 0);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(sysboottime, reads_the_file_once_in_a_process) {
  fakes::Host host;
  host.file("/proc/stat", "cpu  1 2 3 4\nbtime 1700000007\n");
  sysboottime();
  host.file("/proc/stat", "cpu  1 2 3 4\nbtime 5\n");
  host.clear_calls();
  EXPECT_EQ(sysboottime(), 1700000007);
  EXPECT_EQ(host.calls(), Lines{});
}

TEST(sysboottime, reads_again_after_a_boot_time_of_0) {
  fakes::Host host;
  host.file("/proc/stat", "cpu  1 2 3 4\nbtime 0\n");
  EXPECT_EQ(sysboottime(), 0);
  EXPECT_EQ(fakes::log(), Lines{});
  host.file("/proc/stat", "cpu  1 2 3 4\nbtime 5\n");
  EXPECT_EQ(sysboottime(), 5);
}

TEST(sysboottime, complains_without_btime_and_takes_the_time_in_whole_seconds) {
  fakes::Host host;
  host.file("/proc/stat", "cpu  1 2 3 4\nprocesses 6\n");
  EXPECT_EQ(sysboottime(), 1731660824);
  EXPECT_EQ(fakes::log(), kComplaint);
}

TEST(sysboottime, answers_the_same_time_on_every_later_call_without_btime) {
  fakes::Host host;
  host.file("/proc/stat", "cpu  1 2 3 4\nprocesses 6\n");
  sysboottime();
  clock_now += 100;
  host.clear_calls();
  EXPECT_EQ(sysboottime(), 1731660824);
  EXPECT_EQ(sysboottime(), 1731660824);
  EXPECT_EQ(host.calls(), Lines{});
  EXPECT_EQ(clock_calls, 1);
  EXPECT_EQ(fakes::log(), kComplaint);
}

TEST(sysboottime, needs_the_blank_behind_btime) {
  Lines log;
  EXPECT_EQ(first_call_with("cpu  1 2 3 4\nbtime\t77\n", &log), 1731660824);
  EXPECT_EQ(log, kComplaint);
  EXPECT_EQ(first_call_with("cpu  1 2 3 4\nbtime", &log), 1731660824);
  EXPECT_EQ(log, kComplaint);
}

TEST(sysboottime, takes_the_first_btime_anywhere) {
  Lines log;
  EXPECT_EQ(first_call_with("cpu  1 2 3 4 xbtime 77\nbtime 99\n", &log), 77);
  EXPECT_EQ(log, Lines{});
}

TEST(sysboottime, reads_octal_and_hexadecimal_numbers) {
  EXPECT_EQ(first_call_with("cpu  1 2 3 4\nbtime 0x20\n"), 32);
  EXPECT_EQ(first_call_with("cpu  1 2 3 4\nbtime 020\n"), 16);
  EXPECT_EQ(first_call_with("cpu  1 2 3 4\nbtime   12\n"), 12);
  EXPECT_EQ(first_call_with("cpu  1 2 3 4\nbtime -5\n"), -5);
  EXPECT_EQ(first_call_with("cpu  1 2 3 4\nbtime 99999999999999999999\n"), -1);
}

TEST(sysboottime, answers_0_when_no_number_follows) {
  EXPECT_EQ(first_call_with("cpu  1 2 3 4\nbtime soon\n"), 0);
  EXPECT_EQ(first_call_with("cpu  1 2 3 4\nbtime "), 0);
}

TEST(sysboottime, ends_the_process_when_the_file_cannot_be_opened) {
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.missing("/proc/stat", EACCES);
    sysboottime();
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Can't read /proc/stat"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{EACCES});
}

TEST(sysboottime, ends_the_process_when_the_file_cannot_be_read) {
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.file("/proc/stat", "cpu  1 2 3 4\nbtime 1700000007\n");
    host.fail("read", EIO);
    host.fail("close", EBADF);  // must not cover the cause
    sysboottime();
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Can't read /proc/stat"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{EIO});
}

TEST(sysboottime, ends_the_process_after_9_bytes_and_goes_on_after_10) {
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.file("/proc/stat", "btime 123");
    sysboottime();
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Can't read /proc/stat"});
  EXPECT_EQ(first_call_with("btime 1234"), 1234);
}

TEST(sysboottime, looks_at_16383_bytes) {
  for (const size_t size : {16382u, 16383u, 16384u, 16385u}) {
    const std::string line = "btime 1234";
    Lines log;
    EXPECT_EQ(first_call_with(std::string(size - line.size(), '.') + line, &log),
              size <= 16383   ? 1234
              : size == 16384 ? 123
                              : 12)
        << size;
    EXPECT_EQ(log, Lines{});
  }
  Lines log;
  EXPECT_EQ(first_call_with(std::string(16383 - 5, '.') + "btime 1234\n", &log), 1731660824);
  EXPECT_EQ(log, kComplaint);
  EXPECT_EQ(first_call_with(std::string(16383 - 6, '.') + "btime 1234\n", &log), 0);
  EXPECT_EQ(log, Lines{});
}

TEST(sysboottime, reads_a_text_cut_at_every_byte) {
  const std::string text = "cpu  1 2 3 4\nbtime 1700\nprocesses 6\n";
  const size_t number = text.find("1700");
  for (size_t cut = 10; cut <= text.size(); ++cut) {
    long expected = 1731660824;
    if (cut >= number) expected = atol(text.substr(number, cut - number).c_str());
    EXPECT_EQ(first_call_with(text.substr(0, cut)), expected) << cut;
  }
}

TEST(sysboottime, reads_random_text_as_a_literal_search_does) {
  std::mt19937 random(11);
  for (int k = 0; k < 150; ++k) {
    std::string text = "cpu  1 2 3\n";
    while (text.size() < 40) {
      const char *pieces[] = {"btime", "btime ", " ", "0x", "0", "17", "999999", "\n", "b", "-"};
      text += pieces[random() % std::size(pieces)];
    }
    if (k % 8 == 0) text[random() % text.size()] = '\0';
    const std::string seen = text.c_str();
    long expected = 1731660824;
    for (size_t at = 0; at + 6 <= seen.size(); ++at)
      if (memcmp(seen.data() + at, "btime ", 6) == 0) {
        expected = static_cast<long>(strtoul(seen.c_str() + at + 6, nullptr, 0));
        break;
      }
    ASSERT_EQ(first_call_with(text), expected) << text;
  }
}

TEST(sysboottime, reads_the_real_path_of_the_host) {
  const auto outcome = fakes::in_child([] {
    if (!fakes::mount_over("/proc/stat", "cpu  1 2 3 4\nbtime 86400\n")) _exit(kNotAllowed);
    EXPECT_EQ(sysboottime(), 86400);
  });
  if (outcome.exit_code == kNotAllowed) GTEST_SKIP() << "no mount namespaces here";
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(sysboottime, agrees_with_uptime_on_the_live_host) {
  timespec now, running;
  clock_gettime(CLOCK_REALTIME, &now);
  clock_gettime(CLOCK_BOOTTIME, &running);
  EXPECT_NEAR(static_cast<double>(sysboottime()), static_cast<double>(now.tv_sec - running.tv_sec),
              2);
}

TEST(sysboottime, keeps_nothing_over_10000_calls) {
  const int descriptors = fakes::open_descriptors(), mappings = fakes::mappings();
  const size_t heap = fakes::heap_bytes();
  for (int k = 0; k < 10000; ++k) sysboottime();
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_LE(fakes::mappings(), mappings + 64);  // a sanitizer maps its own
  EXPECT_LE(fakes::heap_bytes(), heap + 4096);
}
