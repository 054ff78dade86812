#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <string>

#include "frame/vestan.h"
#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"
#include "tests/fakes/process.h"

namespace {

std::string asked_for;
int scripted_answer = -1;

}  // namespace

extern "C" int is_present(const char *path) {
  asked_for = path;
  if (scripted_answer >= 0) return scripted_answer;
  static const auto real = reinterpret_cast<int (*)(const char *)>(dlsym(RTLD_NEXT, "is_present"));
  return real(path);
}

TEST(pid_exists, finds_this_process_and_its_child) {
  EXPECT_EQ(pid_exists(getpid()), 1);
  const fakes::Process child("/bin/sleep", {"sleep", "100"});
  EXPECT_EQ(pid_exists(child.pid()), 1);
}

TEST(pid_exists, does_not_find_a_process_that_has_ended) {
  int pid;
  {
    const fakes::Process child("/bin/sleep", {"sleep", "100"});
    pid = child.pid();
  }
  EXPECT_EQ(pid_exists(pid), 0);
}

TEST(pid_exists, does_not_find_zero_negative_and_impossible_pids) {
  for (const int pid : {0, -1, -5, INT_MIN, INT_MAX}) EXPECT_EQ(pid_exists(pid), 0) << pid;
}

TEST(pid_exists, asks_for_the_folder_in_proc_whatever_the_pid) {
  scripted_answer = 0;
  const std::pair<int, const char *> cases[] = {{1, "/proc/1"},
                                                {0, "/proc/0"},
                                                {-5, "/proc/-5"},
                                                {INT_MAX, "/proc/2147483647"},
                                                {INT_MIN, "/proc/-2147483648"}};
  for (const auto &[pid, path] : cases) {
    EXPECT_EQ(pid_exists(pid), 0);
    EXPECT_EQ(asked_for, path);
  }
}

TEST(pid_exists, answers_one_for_any_nonzero_presence) {
  for (const int answer : {1, 7, INT_MAX}) {
    scripted_answer = answer;
    EXPECT_EQ(pid_exists(1), 1) << answer;
  }
}

TEST(pid_exists, logs_and_keeps_nothing_over_ten_thousand_calls) {
  pid_exists(getpid());
  const int descriptors = fakes::open_descriptors();
  const int mappings = fakes::mappings();
  const size_t bytes = fakes::bytes_in_use();
  for (int k = 0; k < 10000; ++k) pid_exists(k - 5000);
  EXPECT_LT(fakes::bytes_in_use(), bytes + 10000 * 8);
  EXPECT_EQ(fakes::mappings(), mappings);
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_EQ(fakes::log(), fakes::Lines{});
}
