#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "include/plintor.h"
#include "tests/fakes/log.h"

namespace {

// An unlinked file of our own.
int scratch() {
  char name[] = "/tmp/plintor-tell-XXXXXX";
  const int fd = mkstemp(name);
  unlink(name);
  return fd;
}

}  // namespace

TEST(tell, gives_the_offset_and_leaves_it) {
  const int fd = scratch();
  EXPECT_EQ(tell(fd), 0);
  ASSERT_EQ(write(fd, "12345", 5), 5);
  EXPECT_EQ(tell(fd), 5);
  EXPECT_EQ(tell(fd), 5);
  close(fd);
}

TEST(tell, gives_offsets_above_32_bits) {
  const int fd = scratch();
  ASSERT_EQ(lseek(fd, 0x123456789aL, SEEK_SET), 0x123456789aL);
  EXPECT_EQ(tell(fd), 0x123456789aL);
  close(fd);
}

TEST(tell, gives_minus_1_with_errno_for_a_descriptor_that_is_not_open) {
  errno = 0;
  EXPECT_EQ(tell(-1), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_TRUE(fakes::log().empty());
}

TEST(tell, gives_minus_1_with_errno_for_a_pipe) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  errno = 0;
  EXPECT_EQ(tell(ends[0]), -1);
  EXPECT_EQ(errno, ESPIPE);
  close(ends[0]);
  close(ends[1]);
}
