#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"

using fakes::Lines;

TEST(is_nfs, a_local_mount_gives_0) {
  fakes::Host host;
  host.file("/etc/mtab", "/dev/sda1 / ext4 rw 0 0\n");
  EXPECT_EQ(is_nfs("/tmp"), 0);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(is_nfs, a_remote_mount_gives_1) {
  fakes::Host host;
  host.file("/etc/mtab", "/dev/sda1 / ext4 rw 0 0\nserver:/export /tmp nfs rw 0 0\n");
  EXPECT_EQ(is_nfs("/tmp"), 1);
  EXPECT_EQ(is_nfs("/usr"), 0);
}

TEST(is_nfs, a_remote_mount_on_the_first_line_gives_0_because_it_has_no_host) {
  fakes::Host host;
  host.file("/etc/mtab", "server:/export / nfs rw 0 0\n");
  EXPECT_EQ(is_nfs("/tmp"), 0);
}

TEST(is_nfs, a_path_that_does_not_exist_gives_minus_1) {
  EXPECT_EQ(is_nfs("/nowhere/at/all"), -1);
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): can't stat /nowhere/at/all"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{ENOENT});
}

TEST(is_nfs, a_path_on_no_mount_gives_minus_1_and_says_nothing) {
  fakes::Host host;
  host.file("/etc/mtab", "/dev/sda1 /elsewhere ext4 rw 0 0\n");
  EXPECT_EQ(is_nfs("/tmp"), -1);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(is_nfs, a_table_that_cannot_be_opened_gives_minus_1) {
  fakes::Host host;
  host.missing("/etc/mtab", ENOENT);
  EXPECT_EQ(is_nfs("/tmp"), -1);
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): can't open /etc/mtab"});
}
