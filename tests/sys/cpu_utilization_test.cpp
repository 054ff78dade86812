#include <gtest/gtest.h>
#include <sys/resource.h>
#include <time.h>

#include <cerrno>
#include <cmath>
#include <string>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"

using fakes::Lines;

namespace {

// What getrusage and the library's clock answer while scripted.
bool scripted = false;
rusage usage;
int failure = 0;
double clock_now = 0;
Lines calls;

double processor_seconds() {
  timespec used;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) + 1e-9 * static_cast<double>(used.tv_nsec);
}

double wall_seconds() {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

void spin(double seconds) {
  for (const double end = processor_seconds() + seconds; processor_seconds() < end;) {
  }
}

}  // namespace

extern "C" double std_now(void) {
  calls.push_back("std_now");
  return scripted ? clock_now : wall_seconds();
}

extern "C" int getrusage(__rusage_who_t who, struct rusage *answer) noexcept {
  calls.push_back("getrusage " + std::to_string(who));
  if (failure != 0) {
    errno = EFAULT;
    return failure;
  }
  *answer = usage;
  if (!scripted) {
    timespec used;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    answer->ru_utime = {used.tv_sec, used.tv_nsec / 1000};
    answer->ru_stime = {0, 0};
  }
  return 0;
}

TEST(cpu_utilization, is_processor_seconds_per_second_between_two_calls) {
  scripted = true;
  clock_now = 1000;
  usage.ru_utime = {3, 250000};
  usage.ru_stime = {1, 500000};
  cpu_utilization();
  clock_now = 1004;
  usage.ru_utime = {4, 500000};  // 1.25 more
  usage.ru_stime = {2, 250000};  // 0.75 more
  EXPECT_EQ(cpu_utilization(), 0.5);
  clock_now = 1005;
  usage.ru_utime = {7, 500000};  // three processors
  EXPECT_EQ(cpu_utilization(), 3.0);
  clock_now = 1006;
  EXPECT_EQ(cpu_utilization(), 0.0);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(cpu_utilization, divides_by_the_time_since_1970_at_the_first_call) {
  scripted = true;
  clock_now = 1600000000;
  usage.ru_utime = {16, 0};
  EXPECT_EQ(cpu_utilization(), 1e-8);
}

TEST(cpu_utilization, asks_the_clock_first_then_for_the_usage_of_the_process) {
  cpu_utilization();
  EXPECT_EQ(calls, (Lines{"std_now", "getrusage 0"}));  // RUSAGE_SELF
}

TEST(cpu_utilization, adds_user_and_system_time_in_order) {
  scripted = true;
  clock_now = 1;
  usage.ru_utime = {123456789, 999999};
  usage.ru_stime = {987654321, 123457};
  EXPECT_EQ(cpu_utilization(), ((123456789.0 + 1e-6 * 999999.0) + 987654321.0) + 1e-6 * 123457.0);
}

TEST(cpu_utilization, logs_a_failed_getrusage_and_answers_0) {
  for (const int result : {-1, 22}) {
    fakes::clear_log();
    failure = result;
    EXPECT_EQ(cpu_utilization(), 0.0);
    EXPECT_EQ(fakes::log(), Lines{"elog_log(1): getrusage returned " + std::to_string(result)});
    EXPECT_EQ(fakes::log_errors(), std::vector<int>{EFAULT});
  }
}

TEST(cpu_utilization, leaves_the_interval_alone_after_a_failure) {
  scripted = true;
  clock_now = 100;
  usage.ru_utime = {10, 0};
  cpu_utilization();
  clock_now = 103;
  usage.ru_utime = {12, 0};
  failure = -1;
  EXPECT_EQ(cpu_utilization(), 0.0);
  failure = 0;
  clock_now = 104;
  usage.ru_utime = {13, 0};
  EXPECT_EQ(cpu_utilization(), 0.75);  // 3 seconds out of 4, counted from the first call
}

TEST(cpu_utilization, divides_by_zero_within_one_instant) {
  scripted = true;
  clock_now = 100;
  usage.ru_utime = {10, 0};
  cpu_utilization();
  EXPECT_TRUE(std::isnan(cpu_utilization()));
  usage.ru_utime = {11, 0};
  EXPECT_EQ(cpu_utilization(), HUGE_VAL);
}

TEST(cpu_utilization, agrees_with_the_process_clock_on_the_live_host) {
  cpu_utilization();
  const double used = processor_seconds(), start = wall_seconds();
  spin(0.2);
  const double got = cpu_utilization();
  const double expected = (processor_seconds() - used) / (wall_seconds() - start);
  EXPECT_NEAR(got, expected, 0.05 * expected + 0.01);
}

TEST(cpu_utilization, keeps_nothing_more_over_10000_calls) {
  const int descriptors = fakes::open_descriptors(), mappings = fakes::mappings();
  const size_t heap = fakes::heap_bytes();
  for (int k = 0; k < 10000; ++k) {
    calls.clear();
    cpu_utilization();
  }
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_LE(fakes::mappings(), mappings + 64);  // a sanitizer maps its own
  EXPECT_LE(fakes::heap_bytes(), heap + 4096);
}
