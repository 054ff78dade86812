#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
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

// The answer as a string, freed.
std::string cmdline(int pid) {
  char *text = pidcmdline(pid);
  if (text == nullptr) return "(null)";
  const std::string copy = text;
  free(text);
  return copy;
}

// What pidcmdline makes of this text of the kernel.
std::string cmdline_of(const std::string &text) {
  fakes::Host host;
  host.file("/proc/77/cmdline", text);
  return cmdline(77);
}

// A /proc/PID/cmdline of `size` bytes: one argument, its NUL included.
std::string argument(size_t size) { return std::string(size - 2, 'a') + "z" + "\0"s; }

}  // namespace

extern "C" char *strdup(const char *text) noexcept {
  if (no_memory) return nullptr;
  char *copy = static_cast<char *>(malloc(strlen(text) + 1));
  return copy == nullptr ? nullptr : strcpy(copy, text);
}

TEST(pidcmdline, joins_the_arguments_by_single_blanks) {
  EXPECT_EQ(cmdline_of("a\0b\0c\0"s), "a b c");
  EXPECT_EQ(cmdline_of("sleep\0"s), "sleep");
}

TEST(pidcmdline, shows_an_argument_with_a_blank_like_two) {
  EXPECT_EQ(cmdline_of("a\0b\0c\0"s), cmdline_of("a\0b c\0"s));
}

TEST(pidcmdline, keeps_empty_arguments_as_blanks) {
  EXPECT_EQ(cmdline_of("a\0\0b\0\0"s), "a  b ");
  EXPECT_EQ(cmdline_of("\0"s), "");
}

TEST(pidcmdline, loses_the_last_character_of_a_text_without_a_final_nul) {
  EXPECT_EQ(cmdline_of("server: ready"), "server: read");
  EXPECT_EQ(cmdline_of("x"), "");
}

TEST(pidcmdline, opens_reads_once_and_closes) {
  fakes::Host host;
  host.file("/proc/77/cmdline", "a\0b\0"s);
  EXPECT_EQ(cmdline(77), "a b");
  EXPECT_EQ(host.calls(), (Lines{"open /proc/77/cmdline", "read", "close"}));
}

TEST(pidcmdline, is_empty_without_touching_proc_for_no_pid) {
  fakes::Host host;
  for (const int pid : {0, -1, -5, INT_MIN}) EXPECT_EQ(cmdline(pid), "") << pid;
  EXPECT_EQ(host.calls(), Lines{});
}

TEST(pidcmdline, formats_the_largest_pid) {
  fakes::Host host;
  EXPECT_EQ(cmdline(INT_MAX), "");
  EXPECT_EQ(host.calls(), Lines{"open /proc/2147483647/cmdline"});
}

TEST(pidcmdline, is_empty_when_the_file_cannot_be_opened) {
  fakes::Host host;
  host.missing("/proc/77/cmdline", EACCES);
  EXPECT_EQ(cmdline(77), "");
  EXPECT_EQ(host.calls(), Lines{"open /proc/77/cmdline"});
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(pidcmdline, is_empty_when_the_read_fails) {
  const int descriptors = fakes::open_descriptors();
  {
    fakes::Host host;
    host.file("/proc/77/cmdline", "a\0b\0"s);
    host.fail("read", EIO);
    EXPECT_EQ(cmdline(77), "");
    EXPECT_EQ(host.calls(), (Lines{"open /proc/77/cmdline", "read", "close"}));
  }
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(pidcmdline, is_empty_when_nothing_is_read) { EXPECT_EQ(cmdline_of(""), ""); }

TEST(pidcmdline, takes_what_one_short_read_gives) {
  fakes::Host host;
  host.file("/proc/77/cmdline", "abc\0def\0"s);
  host.short_reads(6);
  EXPECT_EQ(cmdline(77), "abc d");
}

TEST(pidcmdline, is_null_only_without_memory) {
  no_memory = true;
  EXPECT_EQ(pidcmdline(getpid()), nullptr);
  no_memory = false;
  EXPECT_NE(cmdline(getpid()), "");
}

TEST(pidcmdline, keeps_every_character_up_to_8191) {
  EXPECT_EQ(cmdline_of(argument(8190)), std::string(8188, 'a') + "z");
  EXPECT_EQ(cmdline_of(argument(8191)), std::string(8189, 'a') + "z");
  EXPECT_EQ(cmdline_of(argument(8192)), std::string(8190, 'a') + "z");
}

TEST(pidcmdline, loses_the_last_character_of_a_text_that_fills_the_buffer) {
  EXPECT_EQ(cmdline_of(argument(8193)), std::string(8191, 'a'));
  EXPECT_EQ(cmdline_of("x\0"s + argument(20000)), "x " + std::string(8189, 'a'));
}

TEST(pidcmdline, gives_8191_characters_of_a_longer_live_command_line) {
  const fakes::Process child("/bin/sh", {"sh", "-c", "sleep 100; :", std::string(9000, 'a')});
  const std::string start = "sh -c sleep 100; : ";
  EXPECT_EQ(cmdline(child.pid()), start + std::string(8191 - start.size(), 'a'));
}

TEST(pidcmdline, agrees_with_the_kernel_about_live_command_lines_around_the_buffer) {
  const std::string start = "sh -c sleep 100; : ";
  for (const size_t size : {8190u, 8191u, 8192u, 8193u}) {
    // With the final NUL the kernel's text has `size` bytes.
    const std::string padding(size - 1 - start.size(), 'a');
    const fakes::Process child("/bin/sh", {"sh", "-c", "sleep 100; :", padding});
    const std::string whole = start + padding;
    EXPECT_EQ(cmdline(child.pid()), size <= 8192 ? whole : whole.substr(0, 8191)) << size;
  }
}

TEST(pidcmdline, reads_a_live_process) {
  const fakes::Process child("/bin/sleep", {"a name", "100"});
  EXPECT_EQ(cmdline(child.pid()), "a name 100");
}

TEST(pidcmdline, is_empty_for_a_kernel_thread) {
  std::ifstream name("/proc/2/comm");
  std::string text;
  if (!std::getline(name, text) || text != "kthreadd") GTEST_SKIP() << "no kernel threads in sight";
  EXPECT_EQ(cmdline(2), "");
}

TEST(pidcmdline, is_empty_for_a_child_that_has_ended_and_was_not_waited_for) {
  const pid_t pid = fork();
  if (pid == 0) _exit(0);
  siginfo_t ended;
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(pid_exists(pid), 1);
  EXPECT_EQ(cmdline(pid), "");
  waitpid(pid, nullptr, 0);
}

TEST(pidcmdline, keeps_nothing_over_ten_thousand_calls) {
  // Once before: the allocator keeps a few blocks at hand of each size that it has met.
  for (int k = 0; k < 10000; ++k) free(pidcmdline(k % 2 == 0 ? getpid() : k - 5000));
  const int descriptors = fakes::open_descriptors();
  const int mappings = fakes::mappings();
  const size_t bytes = fakes::bytes_in_use();
  for (int k = 0; k < 10000; ++k) free(pidcmdline(k % 2 == 0 ? getpid() : k - 5000));
  EXPECT_LE(fakes::bytes_in_use(), bytes + 8192);  // other processes come and go
  EXPECT_EQ(fakes::mappings(), mappings);
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_EQ(fakes::log(), Lines{});
}
