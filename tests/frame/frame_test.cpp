#include <gtest/gtest.h>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"

using fakes::Lines;

TEST(unimplemented, logs_the_name_and_returns_its_second_argument) {
  EXPECT_EQ(UNIMPLEMENTED("sysmem", -1), -1);
  EXPECT_EQ(fakes::log(), Lines{"elog_log(0): sysmem is unimplemented on this platform"});
  EXPECT_EQ(UNIMPLEMENTED("sysmem", 0), 0);
}

TEST(nomem, returns_0_and_logs_nothing) {
  int x = 7;
  EXPECT_EQ(nomem(nullptr, 0), 0);
  EXPECT_EQ(nomem(&x, 12), 0);
  EXPECT_EQ(x, 7);
  EXPECT_EQ(fakes::log(), Lines{});
}
