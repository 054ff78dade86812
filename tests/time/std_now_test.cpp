#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cmath>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"

namespace {

// What gettimeofday answers; the real time while it is negative.
timeval scripted{-1, 0};
int calls = 0;

double realtime() {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

}  // namespace

extern "C" int gettimeofday(timeval *time, void *) noexcept {
  ++calls;
  if (scripted.tv_sec < 0) return static_cast<int>(syscall(SYS_gettimeofday, time, nullptr));
  *time = scripted;
  return 0;
}

TEST(std_now, is_seconds_plus_microseconds) {
  scripted = {1731660824, 250000};
  EXPECT_EQ(std_now(), 1731660824.25);
  scripted = {0, 1};
  EXPECT_EQ(std_now(), 0.000001);
  EXPECT_EQ(calls, 2);
}

TEST(std_now, has_a_fraction_of_at_most_999999_microseconds) {
  scripted = {1731660824, 999999};
  const double now = std_now();
  EXPECT_EQ(std::floor(now), 1731660824.0);
  EXPECT_NEAR(now - 1731660824.0, 0.999999, 3e-7);  // a double's grain at this size
  scripted = {5, 999999};
  EXPECT_EQ(std_now(), 5.999999);
}

TEST(std_now, underscored_name_is_the_same_clock) {
  scripted = {77, 500000};
  EXPECT_EQ(std_now_(), 77.5);
  EXPECT_EQ(calls, 1);
}

TEST(std_now, lies_between_two_readings_of_the_hosts_clock) {
  for (int k = 0; k < 1000; ++k) {
    const double before = realtime();
    const double now = k % 2 == 0 ? std_now() : std_now_();
    const double after = realtime();
    EXPECT_GE(now, before - 2e-6);  // cut to a whole microsecond
    EXPECT_LE(now, after + 1e-6);
  }
}

TEST(std_now, never_decreases_from_call_to_call) {
  double last = 0;
  for (int k = 0; k < 100000; ++k) {
    const double now = std_now();
    ASSERT_GE(now, last);
    last = now;
  }
}

TEST(std_now, logs_and_keeps_nothing) {
  const int descriptors = fakes::open_descriptors(), mappings = fakes::mappings();
  const size_t heap = fakes::heap_bytes();
  for (int k = 0; k < 10000; ++k) std_now_();
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_LE(fakes::mappings(), mappings + 64);  // a sanitizer maps its own
  EXPECT_LE(fakes::heap_bytes(), heap + 4096);
  EXPECT_EQ(fakes::log(), fakes::Lines{});
}
