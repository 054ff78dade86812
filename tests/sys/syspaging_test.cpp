#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"

using fakes::Lines;

namespace {

constexpr int kNotAllowed = 77;
const std::string kText = "nr_free_pages 1\npgpgin 1000\npgpgout 2000\npswpin 3\n";

double clock_now = 0;
Lines calls;

// Another C library's scan, one that would skip the key: shows what is done with the counters.
bool scans_past_the_key = false;
Lines scanned;

struct Rates {
  double in = -1, out = -1;
};

Rates rates() {
  Rates asked;
  syspaging(0, &asked.in, &asked.out);
  return asked;
}

Rates rates_in(const std::string &text) {
  fakes::Host host;
  host.file("/proc/vmstat", text);
  return rates();
}

int scan(const char *text, const char *format, va_list arguments) {
  if (!scans_past_the_key) return vsscanf(text, format, arguments);
  scanned.push_back(std::string(text, 6) + " " + format);
  while (*text != ' ' && *text != '\0') ++text;
  return vsscanf(text, format, arguments);
}

}  // namespace

extern "C" double std_now(void) {
  calls.push_back("std_now");
  return clock_now;
}

// The names under which sscanf goes, by the age of the C library.
extern "C" int __isoc99_sscanf(const char *text, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = scan(text, format, arguments);
  va_end(arguments);
  return result;
}
extern "C" int __isoc23_sscanf(const char *text, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = scan(text, format, arguments);
  va_end(arguments);
  return result;
}

TEST(syspaging, gives_0_on_every_call_because_the_scan_starts_on_the_key) {
  for (int k = 0; k < 5; ++k) {
    clock_now = 1000 + k;
    const Rates got = rates_in("nr_free_pages 1\npgpgin " + std::to_string(1000 * k) +
                               "\npgpgout " + std::to_string(2000 * k) + "\n");
    EXPECT_EQ(got.in, 0.0);
    EXPECT_EQ(got.out, 0.0);
  }
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(syspaging, ignores_its_first_argument) {
  fakes::Host host;
  host.file("/proc/vmstat", kText);
  for (const int ignored : {-2147483647 - 1, -1, 0, 1, 2147483647}) {
    Rates got;
    syspaging(ignored, &got.in, &got.out);
    EXPECT_EQ(got.in, 0.0);
    EXPECT_EQ(got.out, 0.0);
  }
}

TEST(syspaging, makes_one_open_one_read_and_one_close_before_it_asks_the_clock) {
  fakes::Host host;
  host.file("/proc/vmstat", kText);
  rates();
  EXPECT_EQ(host.calls(), (Lines{"open /proc/vmstat", "read", "close"}));
  EXPECT_EQ(calls, Lines{"std_now"});
}

TEST(syspaging, leaves_minus_1_in_both_counters) {
  clock_now = 1000;
  rates_in(kText);
  scans_past_the_key = true;
  clock_now = 1002;
  const Rates got = rates_in("pgpgin 5\npgpgout 7\n");
  EXPECT_EQ(got.in, 3.0);   // (5 - -1) / 2
  EXPECT_EQ(got.out, 4.0);  // (7 - -1) / 2
}

TEST(syspaging, would_divide_the_steps_of_counters_by_the_seconds_between_two_calls) {
  scans_past_the_key = true;
  clock_now = 1000;
  EXPECT_EQ(rates_in(kText).in, 0.0);  // the first call has nothing to compare with
  EXPECT_EQ(scanned, (Lines{"pgpgin %ld", "pgpgou %ld"}));
  clock_now = 1004;
  const Rates got = rates_in("pgpgin 1010\npgpgout 2100\n");
  EXPECT_EQ(got.in, 2.5);
  EXPECT_EQ(got.out, 25.0);
}

TEST(syspaging, would_take_a_counter_that_went_back_as_an_unsigned_step) {
  scans_past_the_key = true;
  clock_now = 1000;
  rates_in(kText);
  clock_now = 1001;
  EXPECT_EQ(rates_in("pgpgin 999\npgpgout 2000\n").in, 18446744073709551615.0);
}

TEST(syspaging, would_give_0_while_a_counter_is_missing) {
  scans_past_the_key = true;
  clock_now = 1000;
  rates_in(kText);
  clock_now = 1001;
  const Rates without = rates_in("pgpgin 2000\nno more here\n");
  EXPECT_EQ(without.in, 0.0);
  EXPECT_EQ(without.out, 0.0);
  clock_now = 1002;
  const Rates again = rates_in("pgpgin 2010\npgpgout 19\n");
  EXPECT_EQ(again.in, 10.0);
  EXPECT_EQ(again.out, 20.0);  // from -1
}

TEST(syspaging, ends_the_process_when_the_file_cannot_be_opened) {
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.missing("/proc/vmstat", EACCES);
    rates();
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Can't read /proc/vmstat"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{EACCES});
}

TEST(syspaging, ends_the_process_when_the_file_cannot_be_read) {
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.file("/proc/vmstat", kText);
    host.fail("read", EIO);
    host.fail("close", EBADF);  // must not cover the cause
    rates();
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Can't read /proc/vmstat"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{EIO});
}

TEST(syspaging, ends_the_process_after_9_bytes_and_goes_on_after_10) {
  const auto outcome = fakes::in_child([] { rates_in("pgpgin 1\n"); });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Can't read /proc/vmstat"});
  EXPECT_EQ(rates_in("pgpgin 10\n").in, 0.0);
}

TEST(syspaging, takes_keys_beyond_8191_bytes_as_missing) {
  scans_past_the_key = true;
  // The first call leaves -1 in a counter whose key it did not see whole, else what it read.
  for (const size_t size : {8190u, 8191u, 8192u, 8193u}) {
    const auto outcome = fakes::in_child([size] {
      const std::string line = "pgpgin 4\npgpgout 7";
      clock_now = 1000;
      rates_in(std::string(size - line.size(), '.') + line);
      clock_now = 1001;
      const Rates got = rates_in("pgpgin 4\npgpgout 7\n");
      EXPECT_EQ(got.in, 0.0);
      // Cut by one byte, the number of the line is missing; the scan then yields nothing.
      EXPECT_EQ(got.out, size <= 8191 ? 0.0 : 8.0);
    });
    EXPECT_EQ(outcome.exit_code, 0) << size << outcome.err;
  }
}

TEST(syspaging, survives_a_text_cut_at_every_byte) {
  for (size_t cut = 10; cut <= kText.size(); ++cut) {
    const Rates got = rates_in(kText.substr(0, cut));
    EXPECT_EQ(got.in, 0.0) << cut;
    EXPECT_EQ(got.out, 0.0) << cut;
  }
}

TEST(syspaging, survives_hostile_text) {
  std::mt19937 random(5);
  for (const size_t size : {10u, 100u, 8191u, 8192u, 8193u}) {
    for (int k = 0; k < 100; ++k) {
      std::string text;
      while (text.size() < size) {
        const char *pieces[] = {"pgpgin", "pgpgout", "-", "99999999999999999999", " ", "\n", "%ld"};
        text += pieces[random() % std::size(pieces)];
        if (random() % 4 == 0) text.push_back(static_cast<char>(random()));
      }
      text.resize(size);
      const Rates got = rates_in(text);
      ASSERT_EQ(got.in, 0.0);
      ASSERT_EQ(got.out, 0.0);
    }
  }
}

TEST(syspaging, reads_the_real_path_of_the_host) {
  const auto outcome = fakes::in_child([] {
    scans_past_the_key = true;
    if (!fakes::mount_over("/proc/vmstat", "pgpgin 41\npgpgout 17\n")) _exit(kNotAllowed);
    clock_now = 5;
    rates();
    clock_now = 6;
    const Rates got = rates_in("pgpgin 42\npgpgout 19\n");
    EXPECT_EQ(got.in, 1.0);
    EXPECT_EQ(got.out, 2.0);
  });
  if (outcome.exit_code == kNotAllowed) GTEST_SKIP() << "no mount namespaces here";
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(syspaging, gives_0_on_the_live_host_whose_file_has_both_counters) {
  std::ifstream file("/proc/vmstat");
  const std::string text(std::istreambuf_iterator<char>(file), {});
  EXPECT_NE(text.find("\npgpgin "), text.npos);
  EXPECT_NE(text.find("\npgpgout "), text.npos);
  for (int k = 0; k < 3; ++k) {
    ++clock_now;
    const Rates got = rates();
    EXPECT_EQ(got.in, 0.0);
    EXPECT_EQ(got.out, 0.0);
  }
}

TEST(syspaging, keeps_nothing_more_over_10000_calls) {
  const int descriptors = fakes::open_descriptors(), mappings = fakes::mappings();
  const size_t heap = fakes::heap_bytes();
  for (int k = 0; k < 10000; ++k) {
    calls.clear();
    rates();
  }
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_LE(fakes::mappings(), mappings + 64);  // a sanitizer maps its own
  EXPECT_LE(fakes::heap_bytes(), heap + 4096);
}
