#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"
#include "tests/io/scratch.h"

using fakes::Lines;

namespace {

double time_after_setting(const Scratch &file, time_t seconds, long nanoseconds) {
  const timespec times[2] = {{1, 0}, {seconds, nanoseconds}};  // accessed, modified
  if (utimensat(AT_FDCWD, file.path(), times, 0) != 0) abort();
  return dfiletime(file.path());
}

}  // namespace

TEST(dfiletime, gives_the_modification_time_with_its_fraction) {
  const Scratch file("");
  EXPECT_EQ(time_after_setting(file, 1234567890, 500000000), 1234567890.5);
  EXPECT_EQ(time_after_setting(file, 1234567890, 0), 1234567890.0);
  EXPECT_EQ(time_after_setting(file, 0, 250000000), 0.25);
  EXPECT_NEAR(time_after_setting(file, 1, 999999999), 1.999999999, 1e-12);
}

TEST(dfiletime, gives_times_before_the_epoch) {
  const Scratch file("");
  EXPECT_EQ(time_after_setting(file, -10, 500000000), -9.5);
}

TEST(dfiletime, gives_the_fixed_value_for_a_missing_file_and_leaves_errno) {
  errno = 4711;
  EXPECT_EQ(dfiletime("/nowhere/at/all"), -9999999999.999);
  EXPECT_EQ(errno, 4711);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(dfiletime, leaves_errno_also_when_it_answers) {
  fakes::Host host;
  host.fail("stat", EINTR);
  errno = 4711;
  EXPECT_GT(dfiletime("/tmp"), 0);
  EXPECT_EQ(errno, 4711);
}

TEST(dfiletime, repeats_stat_while_it_is_interrupted) {
  const Scratch file("");
  fakes::Host host;
  host.fail("stat", EINTR);
  EXPECT_GT(dfiletime(file.path()), 0);
  EXPECT_EQ(host.count("stat"), 2);
}

TEST(dfiletime, gives_up_at_any_other_failure) {
  const Scratch file("");
  fakes::Host host;
  host.fail("stat", EACCES);
  EXPECT_EQ(dfiletime(file.path()), -9999999999.999);
  EXPECT_EQ(host.count("stat"), 1);
}

TEST(dfiletime, ten_thousand_calls_leave_nothing_behind) {
  const int descriptors = fakes::open_descriptors();
  for (int k = 0; k < 10000; ++k) {
    ASSERT_GT(dfiletime("/tmp"), 0);
    ASSERT_LT(dfiletime("/nowhere"), 0);
  }
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
}
