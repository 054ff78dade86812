#include <gtest/gtest.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"

namespace {

// What statfs answers; the real one while there is no answer.
struct Answer {
  int result;
  int error;
  struct statfs figures;
};
const Answer *answer = nullptr;
std::string asked;
int calls = 0;

// Every byte of a statvfs that nobody wrote.
struct statvfs untouched() {
  struct statvfs st;
  memset(&st, 0x5a, sizeof st);
  return st;
}

struct statfs figures() {
  struct statfs sfs;
  memset(&sfs, 0x33, sizeof sfs);
  sfs.f_bsize = 4096;
  sfs.f_frsize = 512;
  sfs.f_blocks = 1000000;
  sfs.f_bfree = 400001;
  sfs.f_bavail = 350002;
  sfs.f_files = 65536;
  sfs.f_ffree = 60003;
  return sfs;
}

}  // namespace

extern "C" int statfs(const char *path, struct statfs *sfs) noexcept {
  ++calls;
  asked = path;
  if (answer == nullptr) return static_cast<int>(syscall(SYS_statfs, path, sfs));
  if (answer->result == 0) *sfs = answer->figures;
  errno = answer->error;
  return answer->result;
}

TEST(std_statvfs, takes_each_figure_from_statfs) {
  const Answer good{0, 0, figures()};
  answer = &good;
  auto st = untouched();
  EXPECT_EQ(std_statvfs("/some/where", &st), 0);
  EXPECT_EQ(asked, "/some/where");
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(st.f_bsize, 4096u);
  EXPECT_EQ(st.f_blocks, 1000000u);
  EXPECT_EQ(st.f_bfree, 400001u);
  EXPECT_EQ(st.f_bavail, 350002u);
  EXPECT_EQ(st.f_files, 65536u);
  EXPECT_EQ(st.f_ffree, 60003u);
}

TEST(std_statvfs, gives_the_block_size_as_f_frsize) {
  const Answer good{0, 0, figures()};
  answer = &good;
  auto st = untouched();
  std_statvfs("/", &st);
  EXPECT_EQ(st.f_frsize, 4096u);
}

TEST(std_statvfs, gives_the_free_inodes_as_f_favail) {
  const Answer good{0, 0, figures()};
  answer = &good;
  auto st = untouched();
  std_statvfs("/", &st);
  EXPECT_EQ(st.f_favail, 60003u);
}

TEST(std_statvfs, gives_the_free_blocks_as_f_fsid) {
  const Answer good{0, 0, figures()};
  answer = &good;
  auto st = untouched();
  std_statvfs("/", &st);
  EXPECT_EQ(st.f_fsid, 400001u);
}

TEST(std_statvfs, leaves_every_other_byte_alone) {
  const Answer good{0, 0, figures()};
  answer = &good;
  auto st = untouched();
  std_statvfs("/", &st);
  auto expected = untouched();
  expected.f_bsize = 4096;
  expected.f_frsize = 4096;
  expected.f_blocks = 1000000;
  expected.f_bfree = 400001;
  expected.f_bavail = 350002;
  expected.f_files = 65536;
  expected.f_ffree = 60003;
  expected.f_favail = 60003;
  expected.f_fsid = 400001;
  EXPECT_EQ(memcmp(&st, &expected, sizeof st), 0);
  EXPECT_EQ(st.f_flag, 0x5a5a5a5a5a5a5a5a);
  EXPECT_EQ(st.f_namemax, 0x5a5a5a5a5a5a5a5a);
}

TEST(std_statvfs, marks_missing_file_counts_with_2147483648) {
  Answer good{0, 0, figures()};
  good.figures.f_files = 0;
  good.figures.f_ffree = 17;  // means nothing then
  answer = &good;
  auto st = untouched();
  EXPECT_EQ(std_statvfs("/", &st), 0);
  EXPECT_EQ(st.f_files, 2147483648u);
  EXPECT_EQ(st.f_ffree, 2147483648u);
  EXPECT_EQ(st.f_favail, 2147483648u);
}

TEST(std_statvfs, reports_0_free_files_when_files_are_counted) {
  Answer good{0, 0, figures()};
  good.figures.f_files = 1;
  good.figures.f_ffree = 0;
  answer = &good;
  auto st = untouched();
  EXPECT_EQ(std_statvfs("/", &st), 0);
  EXPECT_EQ(st.f_files, 1u);
  EXPECT_EQ(st.f_ffree, 0u);
  EXPECT_EQ(st.f_favail, 0u);
}

TEST(std_statvfs, keeps_all_64_bits) {
  Answer good{0, 0, figures()};
  good.figures.f_blocks = 0xfedcba9876543210;
  good.figures.f_bfree = 0x8000000000000001;
  good.figures.f_bavail = UINT64_MAX;
  good.figures.f_files = 0x100000000;
  good.figures.f_ffree = 0xffffffffffffffff;
  answer = &good;
  auto st = untouched();
  EXPECT_EQ(std_statvfs("/", &st), 0);
  EXPECT_EQ(st.f_blocks, 0xfedcba9876543210);
  EXPECT_EQ(st.f_bfree, 0x8000000000000001);
  EXPECT_EQ(st.f_fsid, 0x8000000000000001);
  EXPECT_EQ(st.f_bavail, UINT64_MAX);
  EXPECT_EQ(st.f_files, 0x100000000u);
  EXPECT_EQ(st.f_ffree, UINT64_MAX);
}

TEST(std_statvfs, returns_the_failure_with_errno_and_zeros_logging_nothing) {
  const Answer bad{-1, EACCES, {}};
  answer = &bad;
  auto st = untouched();
  errno = 0;
  EXPECT_EQ(std_statvfs("/secret", &st), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(st.f_bsize, 0u);
  EXPECT_EQ(st.f_frsize, 0u);
  EXPECT_EQ(st.f_blocks, 0u);
  EXPECT_EQ(st.f_bfree, 0u);
  EXPECT_EQ(st.f_bavail, 0u);
  EXPECT_EQ(st.f_files, 2147483648u);  // 0 files: none counted
  EXPECT_EQ(st.f_ffree, 2147483648u);
  EXPECT_EQ(st.f_favail, 2147483648u);
  EXPECT_EQ(st.f_fsid, 0u);
  EXPECT_EQ(st.f_flag, 0x5a5a5a5a5a5a5a5a);
  EXPECT_EQ(fakes::log(), fakes::Lines{});
}

TEST(std_statvfs, fails_on_the_live_host_where_there_is_nothing) {
  auto st = untouched();
  EXPECT_EQ(std_statvfs("/nowhere/at/all", &st), -1);
  EXPECT_EQ(errno, ENOENT);
}

// stat -f prints what the same file system says to another program.
TEST(std_statvfs, agrees_with_stat_f_on_the_live_host) {
  for (const char *path : {"/", "/proc", "/dev", "/tmp"}) {
    const std::string command = std::string("stat -f -c '%s %b %c %i' ") + path;
    FILE *output = popen(command.c_str(), "r");
    ASSERT_NE(output, nullptr);
    unsigned long size = 0, blocks = 0, files = 0;
    char id[64] = "";
    ASSERT_EQ(fscanf(output, "%lu %lu %lu %63s", &size, &blocks, &files, id), 4) << path;
    pclose(output);
    auto st = untouched();
    EXPECT_EQ(std_statvfs(path, &st), 0);
    EXPECT_EQ(st.f_bsize, size) << path;
    EXPECT_EQ(st.f_blocks, blocks) << path;
    EXPECT_EQ(st.f_files, files == 0 ? 2147483648u : files) << path;
  }
}

TEST(std_statvfs, keeps_nothing) {
  const int descriptors = fakes::open_descriptors(), mappings = fakes::mappings();
  const size_t heap = fakes::heap_bytes();
  struct statvfs st;
  for (int k = 0; k < 10000; ++k) ASSERT_EQ(std_statvfs("/", &st), 0);
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_LE(fakes::mappings(), mappings + 64);  // a sanitizer maps its own
  EXPECT_LE(fakes::heap_bytes(), heap + 4096);
}
