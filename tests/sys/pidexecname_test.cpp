#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"
#include "tests/fakes/process.h"

using fakes::Lines;
using namespace std::string_literals;

namespace {

bool no_memory = false;

std::string execname(int pid) {
  char *text = pidexecname(pid);
  if (text == nullptr) return "(null)";
  const std::string copy = text;
  free(text);
  return copy;
}

std::string execname_of(const std::string &text) {
  fakes::Host host;
  host.file("/proc/77/cmdline", text);
  return execname(77);
}

}  // namespace

extern "C" char *strdup(const char *text) noexcept {
  if (no_memory) return nullptr;
  char *copy = static_cast<char *>(malloc(strlen(text) + 1));
  return copy == nullptr ? nullptr : strcpy(copy, text);
}

TEST(pidexecname, is_sleep_for_sleep_100) {
  const fakes::Process child("/bin/sleep", {"sleep", "100"});
  EXPECT_EQ(execname(child.pid()), "sleep");
}

TEST(pidexecname, keeps_the_path_by_which_the_program_was_started) {
  const fakes::Process child("/bin/sleep", {"/bin/../bin/sleep", "100"});
  EXPECT_EQ(execname(child.pid()), "/bin/../bin/sleep");
}

TEST(pidexecname, is_the_whole_text_without_a_blank) { EXPECT_EQ(execname_of("init\0"s), "init"); }

TEST(pidexecname, ends_at_a_blank_inside_the_name) {
  EXPECT_EQ(execname_of("my program\0x\0"s), "my");
}

TEST(pidexecname, does_not_end_at_a_tab) {
  EXPECT_EQ(execname_of("my\tprogram\0x\0"s), "my\tprogram");
}

TEST(pidexecname, is_empty_before_a_leading_blank) { EXPECT_EQ(execname_of("\0x\0"s), ""); }

TEST(pidexecname, is_empty_when_the_command_line_is) {
  fakes::Host host;
  host.missing("/proc/77/cmdline", ENOENT);
  EXPECT_EQ(execname(77), "");
  for (const int pid : {0, -5, INT_MIN}) EXPECT_EQ(execname(pid), "");
  EXPECT_EQ(host.calls(), Lines{"open /proc/77/cmdline"});
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(pidexecname, is_null_only_without_memory) {
  no_memory = true;
  EXPECT_EQ(pidexecname(getpid()), nullptr);
  no_memory = false;
  EXPECT_NE(execname(getpid()), "");
}

TEST(pidexecname, keeps_nothing_over_ten_thousand_calls) {
  // Once before: the allocator keeps a few blocks at hand of each size that it has met.
  for (int k = 0; k < 10000; ++k) free(pidexecname(k % 2 == 0 ? getpid() : k - 5000));
  const int descriptors = fakes::open_descriptors();
  const int mappings = fakes::mappings();
  const size_t bytes = fakes::bytes_in_use();
  for (int k = 0; k < 10000; ++k) free(pidexecname(k % 2 == 0 ? getpid() : k - 5000));
  EXPECT_LE(fakes::bytes_in_use(), bytes + 8192);  // other processes come and go
  EXPECT_EQ(fakes::mappings(), mappings);
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
}
