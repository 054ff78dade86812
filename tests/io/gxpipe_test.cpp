// Lines out of commands: how they are started, collected and let go, and what fails on the way.

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"
#include "tests/fakes/process.h"
#include "tests/io/scratch.h"

using fakes::Lines;

namespace {

bool no_strdup;  // strdup finds no memory

Lines output_of(const std::string &command) {
  int fd = -1;
  const int handle = gxpipe(command.c_str(), nullptr, &fd);
  const Lines lines = lines_of(handle);
  gxclose(handle);
  return lines;
}

std::string target(int fd) {
  char text[256];
  const ssize_t length =
      readlink(std::string("/proc/self/fd/").append(std::to_string(fd)).c_str(), text, sizeof text);
  return length < 0 ? "" : std::string(text, static_cast<size_t>(length));
}

bool is_open(int fd) { return fcntl(fd, F_GETFD) != -1; }

// A shell script to run as a command.
class Script : public Scratch {
 public:
  explicit Script(const std::string &body) : Scratch("#!/bin/sh\n" + body + "\n", 0755) {}
};

}  // namespace

extern "C" char *strdup(const char *text) noexcept {
  if (no_strdup) {
    errno = ENOMEM;
    return nullptr;
  }
  return reinterpret_cast<decltype(&strdup)>(dlsym(RTLD_NEXT, "strdup"))(text);
}

TEST(gxpipe, collects_what_the_command_prints) {
  int fd = -1;
  const int handle = gxpipe("/bin/echo one  two", nullptr, &fd);
  ASSERT_EQ(handle, 0);
  EXPECT_GE(fd, 3);
  char line[64];
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_STREQ(line, "one  two");
  EXPECT_EQ(gxline(handle, line, sizeof line), 0);
  EXPECT_EQ(gxclose(handle), 0);
  EXPECT_EQ(fakes::children(), 0);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(gxpipe, gives_the_command_the_environment_asked_for_and_nothing_else) {
  char variable[] = "LANG=C";
  char *const envp[] = {variable, nullptr};
  int fd;
  const int handle = gxpipe("/usr/bin/env", envp, &fd);
  EXPECT_EQ(lines_of(handle), Lines{"LANG=C"});
  gxclose(handle);
}

TEST(gxpipe, without_an_environment_the_command_inherits_the_callers) {
  clearenv();
  setenv("PLINTOR_TEST", "inherited", 1);
  EXPECT_EQ(output_of("/usr/bin/env"), Lines{"PLINTOR_TEST=inherited"});
}

TEST(gxpipe, standard_output_and_error_come_in_the_order_written) {
  const Script script("echo out; echo err >&2; echo out again; echo err again >&2");
  EXPECT_EQ(output_of(script.path()), (Lines{"out", "err", "out again", "err again"}));
}

TEST(gxpipe, every_blank_separates_and_two_enclose_an_empty_argument) {
  const Script script("for word in \"$@\"; do echo \"<$word>\"; done");
  EXPECT_EQ(output_of(std::string(script.path()) + " a  b "), (Lines{"<a>", "<>", "<b>", "<>"}));
}

TEST(gxpipe, a_tab_or_a_quote_is_an_ordinary_character) {
  const Script script("for word in \"$@\"; do echo \"<$word>\"; done");
  EXPECT_EQ(output_of(std::string(script.path()) + " a\tb 'c d' $HOME *"),
            (Lines{"<a\tb>", "<'c>", "<d'>", "<$HOME>", "<*>"}));
}

TEST(gxpipe, leaves_the_command_text_alone) {
  char command[] = "/bin/echo a b";
  int fd;
  const int handle = gxpipe(command, nullptr, &fd);
  EXPECT_STREQ(command, "/bin/echo a b");
  lines_of(handle);
  gxclose(handle);
}

TEST(gxpipe, the_commands_input_is_at_its_end) {
  const Script script("cat; echo done");
  EXPECT_EQ(output_of(script.path()), Lines{"done"});
}

TEST(gxpipe, the_first_gxline_waits_for_the_command_to_end) {
  const Script script("echo early; sleep 0.3; echo late");
  int fd;
  const int handle = gxpipe(script.path(), nullptr, &fd);
  char line[64];
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
  EXPECT_STREQ(line, "early");
  EXPECT_EQ(lines_of(handle), Lines{"late"});
  gxclose(handle);
}

TEST(gxpipe, the_exit_status_does_not_matter) {
  const Script script("echo before; kill -9 $$");
  EXPECT_EQ(output_of(script.path()), Lines{"before"});
  const Script failing("echo before; exit 3");
  EXPECT_EQ(output_of(failing.path()), Lines{"before"});
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(gxpipe, its_descriptor_is_the_read_end_of_the_commands_input_until_the_first_gxline) {
  int fd = -1;
  const int handle = gxpipe("/bin/echo x", nullptr, &fd);
  EXPECT_EQ(target(fd).substr(0, 5), "pipe:");
  EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_RDONLY);
  char line[8];
  gxline(handle, line, sizeof line);
  EXPECT_FALSE(is_open(fd));
  gxclose(handle);
}

TEST(gxpipe, the_output_file_has_no_name) {
  int fd = -1;
  const int handle = gxpipe("/bin/echo x", nullptr, &fd);
  int files = 0;
  for (int other = 3; other < 64; ++other) {
    const std::string name = target(other);
    if (!name.starts_with("/tmp/gxpipe")) continue;
    ++files;
    EXPECT_TRUE(name.ends_with(" (deleted)")) << name;
  }
  EXPECT_EQ(files, 1);
  gxclose(handle);
}

TEST(gxpipe, starts_in_that_order) {
  fakes::Host host;
  int fd;
  const int handle = gxpipe("/bin/echo x", nullptr, &fd);
  EXPECT_EQ(host.calls(), (Lines{"pipe", "mkstemp", "calloc", "unlink", "fork", "close"}));
  host.clear_calls();
  char line[8];
  gxline(handle, line, sizeof line);
  EXPECT_EQ(host.calls(), (Lines{"close", "waitpid", "fstat", "mmap", "close"}));
  host.clear_calls();
  gxline(handle, line, sizeof line);
  EXPECT_EQ(host.calls(), Lines{});
  gxclose(handle);
  EXPECT_EQ(host.calls(), Lines{"munmap"});
}

TEST(gxpipe, before_the_first_gxline_only_offset_0_can_be_set) {
  int fd;
  const int handle = gxpipe("/bin/echo x", nullptr, &fd);
  EXPECT_EQ(gxtell(handle), 0);
  EXPECT_EQ(gxseek(handle, 0), 0);
  EXPECT_EQ(gxseek(handle, 1), -1);
  EXPECT_EQ(gxseek(handle, -1), -1);
  char line[8];
  gxline(handle, line, sizeof line);
  EXPECT_EQ(gxseek(handle, 2), 0);
  EXPECT_EQ(gxseek(handle, 3), -1);
  gxclose(handle);
}

TEST(gxpipe, a_length_below_1_does_not_collect_the_output) {
  int fd;
  const int handle = gxpipe("/bin/echo x", nullptr, &fd);
  char line[8];
  EXPECT_EQ(gxline(handle, line, 0), 0);
  EXPECT_TRUE(is_open(fd));
  EXPECT_EQ(lines_of(handle), Lines{"x"});
  gxclose(handle);
}

TEST(gxpipe, a_length_of_1_collects_the_output_and_does_not_move) {
  int fd;
  const int handle = gxpipe("/bin/echo x", nullptr, &fd);
  char line[] = "###";
  EXPECT_EQ(gxline(handle, line, 1), 0);
  EXPECT_EQ(std::string(line, 3), std::string("\0##", 3));
  EXPECT_FALSE(is_open(fd));
  EXPECT_EQ(gxtell(handle), 0);
  EXPECT_EQ(lines_of(handle), Lines{"x"});
  gxclose(handle);
}

TEST(gxpipe, output_without_a_byte_is_logged_then_there_is_no_pid) {
  const int before = fakes::open_descriptors();
  int fd;
  const int handle = gxpipe("/bin/true", nullptr, &fd);
  char line[8] = "before";
  EXPECT_EQ(gxline(handle, line, sizeof line), 0);
  EXPECT_STREQ(line, "");
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): output is empty"});
  for (int k = 0; k < 2; ++k) EXPECT_EQ(gxline(handle, line, sizeof line), 0);
  EXPECT_EQ(fakes::log(),
            (Lines{"elog_log(1): output is empty", "elog_log(0): no pid", "elog_log(0): no pid"}));
  EXPECT_EQ(fakes::children(), 0);
  EXPECT_EQ(fakes::open_descriptors(), before + 1);  // the output file, until gxclose
  EXPECT_EQ(gxclose(handle), 0);
  EXPECT_EQ(fakes::open_descriptors(), before);
}

TEST(gxpipe, handles_are_reused_and_shared_with_gxopen) {
  const Scratch file("one\n");
  int fd;
  EXPECT_EQ(gxopen(file.path()), 0);
  EXPECT_EQ(gxpipe("/bin/echo x", nullptr, &fd), 1);
  EXPECT_EQ(gxopen(file.path()), 2);
  EXPECT_EQ(lines_of(1), Lines{"x"});
  gxclose(1);
  EXPECT_EQ(gxpipe("/bin/echo y", nullptr, &fd), 1);
  EXPECT_EQ(lines_of(1), Lines{"y"});
  for (int handle = 0; handle < 3; ++handle) EXPECT_EQ(gxclose(handle), 0);
}

TEST(gxclose, a_command_never_read_is_not_reaped_and_its_pipe_stays_open) {
  const int before = fakes::open_descriptors();
  int fd;
  const int handle = gxpipe("/bin/echo x", nullptr, &fd);
  EXPECT_EQ(gxclose(handle), 0);
  EXPECT_EQ(fakes::children(), 1);
  EXPECT_TRUE(is_open(fd));
  EXPECT_EQ(fakes::open_descriptors(), before + 1);
  close(fd);
  EXPECT_GT(waitpid(-1, nullptr, 0), 0);
}

// ---- A program that cannot be executed -------------------------------------------------------

TEST(gxpipe, the_reader_finds_why_a_program_could_not_be_executed) {
  const auto outcome = fakes::in_child([] {
    int fd = -1;
    const int handle = gxpipe("/nowhere/at-all -a b", nullptr, &fd);
    EXPECT_EQ(handle, 0);
    EXPECT_GE(fd, 3);
    EXPECT_EQ(lines_of(handle),
              Lines{"elog_die(1): Couldn't exec '/nowhere/at-all' : '/nowhere/at-all -a b'"});
    EXPECT_EQ(gxclose(handle), 0);
    EXPECT_EQ(fakes::log(), Lines{});  // it is the child's report alone
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log,
            Lines{"elog_die(1): Couldn't exec '/nowhere/at-all' : '/nowhere/at-all -a b'"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{ENOENT});
}

TEST(gxpipe, a_failed_execve_is_reported_like_a_failed_execv) {
  const Scratch file("no program", 0644);
  const std::string command = std::string(file.path()) + " x";
  const auto outcome = fakes::in_child([&command] {
    char *const envp[] = {nullptr};
    int fd;
    const int handle = gxpipe(command.c_str(), envp, &fd);
    EXPECT_EQ(lines_of(handle).size(), 1u);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Couldn't exec '" + std::string(file.path()) + "' : '" +
                               command + "'"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{EACCES});
}

TEST(gxpipe, path_is_not_searched) {
  setenv("PATH", "/bin:/usr/bin", 1);
  ASSERT_EQ(chdir("/"), 0);
  EXPECT_EQ(output_of("echo x"), Lines{"elog_die(1): Couldn't exec 'echo' : 'echo x'"});
}

TEST(gxpipe, an_empty_command_or_a_leading_blank_names_no_program) {
  EXPECT_EQ(output_of(""), Lines{"elog_die(1): Couldn't exec '' : ''"});
  EXPECT_EQ(output_of(" /bin/echo"), Lines{"elog_die(1): Couldn't exec '' : ' /bin/echo'"});
}

TEST(gxpipe, without_memory_for_the_arguments_the_child_reports_it) {
  const auto outcome = fakes::in_child([] {
    no_strdup = true;
    int fd = -1;
    const int handle = gxpipe("/bin/echo x", nullptr, &fd);
    no_strdup = false;
    EXPECT_EQ(handle, 0);
    EXPECT_EQ(lines_of(handle).size(), 1u);
    gxclose(handle);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Couldn't exec '/bin/echo x' : '/bin/echo x'"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{ENOMEM});
}

TEST(gxpipe, unwritten_output_of_the_caller_is_written_once) {
  if (kUnderThreadSanitizer) GTEST_SKIP() << "its _exit writes out what stdio holds";
  const auto outcome = fakes::in_child([] {
    printf("pending");
    int fd;
    const int handle = gxpipe("/nowhere", nullptr, &fd);
    EXPECT_EQ(lines_of(handle).size(), 1u);
  });
  EXPECT_EQ(outcome.out, "pending");
}

// ---- Failures of starting --------------------------------------------------------------------

TEST(gxpipe, fails_where_no_pipe_can_be_made) {
  const int before = fakes::open_descriptors();
  fakes::Host host;
  host.fail("pipe", EMFILE);
  int fd = 4711;
  EXPECT_EQ(gxpipe("/bin/echo x", nullptr, &fd), -1);
  EXPECT_EQ(fd, 4711);
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): Couldn't create pipes"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{EMFILE});
  EXPECT_EQ(host.calls(), Lines{"pipe"});
  EXPECT_EQ(fakes::open_descriptors(), before);
  EXPECT_EQ(gxtell(0), -1);
}

TEST(gxpipe, without_an_output_file_it_fails_and_the_pipe_stays_open) {
  const int before = fakes::open_descriptors();
  fakes::Host host;
  host.fail("mkstemp", ENOSPC);
  int fd = 4711;
  EXPECT_EQ(gxpipe("/bin/echo x", nullptr, &fd), -1);
  EXPECT_EQ(fd, 4711);
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): mkstemp failed'"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{ENOSPC});
  EXPECT_EQ(host.calls(), (Lines{"pipe", "mkstemp"}));
  EXPECT_EQ(fakes::open_descriptors(), before + 2);
  EXPECT_EQ(gxtell(0), -1);
}

TEST(gxpipe, after_a_failed_fork_the_record_stays_in_its_slot_with_its_descriptors) {
  const int before = fakes::open_descriptors();
  fakes::Host host;
  host.fail("fork", EAGAIN);
  int fd = 4711;
  EXPECT_EQ(gxpipe("/bin/echo x", nullptr, &fd), -1);
  EXPECT_EQ(fd, 4711);
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): fork failed"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{EAGAIN});
  EXPECT_EQ(host.calls(), (Lines{"pipe", "mkstemp", "calloc", "unlink", "fork"}));
  EXPECT_EQ(fakes::open_descriptors(), before + 3);
  EXPECT_EQ(fakes::children(), 0);
  EXPECT_EQ(gxtell(0), 0);  // the lost handle
  EXPECT_EQ(gxpipe("/bin/echo x", nullptr, &fd), 1);
  gxclose(1);
}

// ---- Failures of collecting ------------------------------------------------------------------

TEST(gxline, output_that_cannot_be_examined_is_logged) {
  const int before = fakes::open_descriptors();
  int fd;
  const int handle = gxpipe("/bin/echo x", nullptr, &fd);
  fakes::Host host;
  host.fail("fstat", EIO);
  char line[8] = "before";
  EXPECT_EQ(gxline(handle, line, sizeof line), 0);
  EXPECT_STREQ(line, "");
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): fstat failed\n"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{EIO});
  EXPECT_EQ(host.calls(), (Lines{"close", "waitpid", "fstat"}));
  EXPECT_EQ(gxline(handle, line, sizeof line), 0);
  EXPECT_EQ(fakes::log().back(), "elog_log(0): no pid");
  EXPECT_EQ(fakes::open_descriptors(), before + 1);
  EXPECT_EQ(gxclose(handle), 0);
  EXPECT_EQ(fakes::open_descriptors(), before);
}

TEST(gxline, output_that_cannot_be_mapped_is_closed_and_not_logged) {
  const int before = fakes::open_descriptors();
  int fd;
  const int handle = gxpipe("/bin/echo x", nullptr, &fd);
  fakes::Host host;
  host.fail("mmap", ENOMEM);
  char line[8] = "before";
  EXPECT_EQ(gxline(handle, line, sizeof line), 0);
  EXPECT_STREQ(line, "");
  EXPECT_EQ(fakes::log(), Lines{});
  EXPECT_EQ(host.calls(), (Lines{"close", "waitpid", "fstat", "mmap", "close"}));
  EXPECT_EQ(fakes::open_descriptors(), before);
  EXPECT_EQ(gxline(handle, line, sizeof line), 0);
  EXPECT_EQ(fakes::log(), Lines{"elog_log(0): no pid"});
  EXPECT_EQ(gxclose(handle), 0);
}

TEST(gxclose, after_a_failed_mapping_it_closes_the_number_again_whoever_has_it) {
  int fd;
  const int handle = gxpipe("/bin/echo x", nullptr, &fd);
  int output = -1;
  for (int other = 3; other < 64; ++other)
    if (target(other).starts_with("/tmp/gxpipe")) output = other;
  ASSERT_GE(output, 3);
  fakes::Host host;
  host.fail("mmap", ENOMEM);
  char line[8];
  gxline(handle, line, sizeof line);
  EXPECT_FALSE(is_open(output));
  ASSERT_EQ(dup2(STDERR_FILENO, output), output);  // somebody else's now
  EXPECT_EQ(gxclose(handle), 0);
  EXPECT_FALSE(is_open(output));
}

TEST(gxline, an_interrupted_waitpid_is_repeated) {
  int fd;
  const int handle = gxpipe("/bin/echo x", nullptr, &fd);
  fakes::Host host;
  host.fail("waitpid", EINTR);
  EXPECT_EQ(lines_of(handle), Lines{"x"});
  EXPECT_EQ(host.count("waitpid"), 2);
  EXPECT_EQ(fakes::children(), 0);
  gxclose(handle);
}

TEST(gxline, output_is_delivered_when_somebody_else_reaped_the_child) {
  int fd;
  const int handle = gxpipe("/bin/echo x", nullptr, &fd);
  EXPECT_GT(waitpid(-1, nullptr, 0), 0);
  EXPECT_EQ(lines_of(handle), Lines{"x"});
  EXPECT_EQ(fakes::log(), Lines{});
  gxclose(handle);
}

TEST(gxline, output_is_complete_when_the_program_ignores_sigchld) {
  signal(SIGCHLD, SIG_IGN);
  const Script script("sleep 0.2; echo late");
  EXPECT_EQ(output_of(script.path()), Lines{"late"});
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(gxline, output_is_complete_under_an_alarm_every_millisecond) {
  const fakes::Alarms alarms;
  const Script script("sleep 0.2; echo late");
  int fd;
  const int handle = gxpipe(script.path(), nullptr, &fd);
  char line[16];
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_STREQ(line, "late");
  EXPECT_GT(alarms.count(), 20);
  gxclose(handle);
}

// ---- Descriptors -----------------------------------------------------------------------------

namespace {

// What is open in the command: its three, and the one with which ls reads the folder.
const Lines kJustThree = {"0", "1", "2", "3"};

void close_on_exec_all_others() { close_range(3, ~0U, CLOSE_RANGE_CLOEXEC); }

}  // namespace

TEST(gxpipe, the_command_has_no_descriptors_but_its_three) {
  const auto outcome = fakes::in_child([] {
    close_on_exec_all_others();
    EXPECT_EQ(output_of("/bin/ls /proc/self/fd"), kJustThree);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(gxpipe, the_command_has_no_descriptor_of_another_handle) {
  const auto outcome = fakes::in_child([] {
    close_on_exec_all_others();
    int fd;
    const int first = gxpipe("/bin/echo x", nullptr, &fd);
    const int second = gxpipe("/bin/true", nullptr, &fd);
    const int empty = gxpipe("/bin/true", nullptr, &fd);
    lines_of(empty);  // keeps its file until it is closed
    EXPECT_EQ(output_of("/bin/ls /proc/self/fd"), kJustThree);
    for (const int handle : {first, second, empty}) gxclose(handle);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(gxpipe, the_command_inherits_the_callers_own_descriptors) {
  const auto outcome = fakes::in_child([] {
    close_on_exec_all_others();
    const int own = fcntl(STDOUT_FILENO, F_DUPFD, 50);
    const Lines lines = output_of("/bin/ls /proc/self/fd");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), std::to_string(own)), 1);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(gxpipe, works_with_any_of_the_standard_descriptors_closed) {
  const Script script("cat; echo out; echo err >&2; ls /proc/self/fd");
  for (int closed = 0; closed < 8; ++closed) {
    for (const bool missing : {false, true}) {
      const auto outcome = fakes::in_child([&] {
        close_on_exec_all_others();
        fakes::close_standard(closed);
        const int before = fakes::open_descriptors();
        int fd = -1;
        const int handle = gxpipe(missing ? "/nowhere" : script.path(), nullptr, &fd);
        const Lines lines = lines_of(handle);
        const Lines expected = missing ? Lines{"elog_die(1): Couldn't exec '/nowhere' : '/nowhere'"}
                                       : Lines{"out", "err", "0", "1", "2", "3"};
        EXPECT_EQ(lines, expected);
        EXPECT_EQ(gxclose(handle), 0);
        EXPECT_EQ(fakes::open_descriptors(), before);
        for (int k = 0; k < 3; ++k) EXPECT_EQ(is_open(k), (closed >> k & 1) == 0);
      });
      EXPECT_EQ(outcome.exit_code, 0) << "closed: " << closed << "\n" << outcome.err;
    }
  }
}

TEST(gxpipe, works_with_the_last_three_descriptors_that_the_process_may_have) {
  const Script script("cat; echo out; echo err >&2");
  for (int closed = 0; closed < 8; ++closed) {
    const auto outcome = fakes::in_child([&] {
      close_on_exec_all_others();
      const rlimit limit = {40, 40};
      setrlimit(RLIMIT_NOFILE, &limit);
      while (open("/dev/null", O_RDONLY | O_CLOEXEC) >= 0) {
      }
      int to_free = 3;
      for (int fd = 0; fd < 3; ++fd)
        if ((closed >> fd & 1) != 0) to_free -= close(fd) == 0;
      for (int fd = 30; to_free > 0; ++fd, --to_free) close(fd);
      int fd = -1;
      const int handle = gxpipe(script.path(), nullptr, &fd);
      EXPECT_EQ(lines_of(handle), (Lines{"out", "err"}));
    });
    EXPECT_EQ(outcome.exit_code, 0) << "closed: " << closed << "\n" << outcome.err;
  }
}

// ---- Many times, many threads ----------------------------------------------------------------

TEST(gxpipe, three_hundred_commands_leave_nothing_behind) {
  const auto once = [](int k) {
    int fd;
    const int handle = gxpipe(k % 3 == 0 ? "/bin/true" : "/bin/echo x", nullptr, &fd);
    lines_of(handle);
    ASSERT_EQ(gxclose(handle), 0);
    fakes::clear_log();
  };
  for (int k = 0; k < 10; ++k) once(k);
  const int descriptors = fakes::open_descriptors(), mappings = fakes::mappings();
  const size_t memory = mallinfo2().uordblks;
  for (int k = 0; k < 300; ++k) once(k);
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_NEAR(fakes::mappings(), mappings, 10);  // a sanitizer makes some of its own
  EXPECT_EQ(mallinfo2().uordblks, memory);
  EXPECT_EQ(fakes::children(), 0);
}

TEST(gxpipe, eight_threads_run_commands_of_their_own) {
  std::vector<std::thread> threads;
  std::vector<int> right(8);
  const Scratch file("from a file\n");
  for (size_t t = 0; t < 8; ++t) {
    threads.emplace_back([t, &right, &file] {
      const std::string name = std::to_string(t);
      for (int k = 0; k < 10; ++k) {
        const int other = gxopen(file.path());
        const bool printed = output_of("/bin/echo " + name) == Lines{name};
        right[t] += printed && lines_of(other) == Lines{"from a file"} && gxclose(other) == 0;
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(right, std::vector<int>(8, 10));
}

// ---- Along PATH ------------------------------------------------------------------------------

namespace {

// A folder with programs that print their own path, and whatever else it is given.
class Folder {
 public:
  Folder() {
    if (mkdtemp(name_) == nullptr) abort();
  }
  ~Folder() { std::filesystem::remove_all(path()); }
  Folder(const Folder &) = delete;
  Folder &operator=(const Folder &) = delete;
  std::string path() const { return name_; }

  std::string program(const std::string &name, mode_t mode = 0755) const {
    const std::string file = path() + "/" + name;
    FILE *stream = fopen(file.c_str(), "w");
    fputs("#!/bin/sh\necho \"$0\" \"$@\"\n", stream);
    fclose(stream);
    chmod(file.c_str(), mode);
    return file;
  }

 private:
  char name_[32] = "/tmp/plintor-path-XXXXXX";
};

Lines found_along(const std::string &path, const std::string &command) {
  setenv("PATH", path.c_str(), 1);
  int fd = -1;
  const int handle = gxpipex(command.c_str(), &fd);
  const Lines lines = lines_of(handle);
  gxclose(handle);
  return lines;
}

Lines not_executed(const std::string &program, const std::string &command) {
  return {"elog_die(1): Couldn't exec '" + program + "' : '" + command + "'"};
}

}  // namespace

TEST(gxpipex, runs_the_first_program_of_that_name_along_path_with_its_arguments) {
  const Folder first, second, third;
  const std::string program = second.program("tool");
  third.program("tool");
  EXPECT_EQ(found_along(first.path() + ":" + second.path() + ":" + third.path(), "tool one two"),
            Lines{program + " one two"});
}

TEST(gxpipex, a_command_of_one_word_ends_with_the_string) {
  const Folder folder;
  const std::string program = folder.program("tool");
  EXPECT_EQ(found_along(folder.path(), "tool"), Lines{program});
}

TEST(gxpipex, the_command_inherits_the_callers_environment) {
  setenv("PLINTOR_TEST", "inherited", 1);
  const Lines lines = found_along("/bin:/usr/bin", "env");
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "PLINTOR_TEST=inherited"), 1);
}

TEST(gxpipex, a_command_that_begins_with_a_slash_is_not_looked_up) {
  const Folder folder;
  ASSERT_EQ(mkdir((folder.path() + "/bin").c_str(), 0755), 0);
  folder.program("bin/echo");
  EXPECT_EQ(found_along(folder.path(), "/bin/echo x"), Lines{"x"});
  EXPECT_EQ(found_along(folder.path(), "/nowhere x"), not_executed("/nowhere", "/nowhere x"));
}

TEST(gxpipex, a_word_with_a_slash_further_on_is_looked_up) {
  const Folder folder;
  ASSERT_EQ(mkdir((folder.path() + "/sub").c_str(), 0755), 0);
  const std::string program = folder.program("sub/tool");
  EXPECT_EQ(found_along(folder.path(), "sub/tool x"), Lines{program + " x"});
}

TEST(gxpipex, passes_over_what_is_no_regular_file_or_has_no_execute_bit) {
  const Folder first, second, third;
  ASSERT_EQ(mkdir((first.path() + "/tool").c_str(), 0755), 0);
  second.program("tool", 0644);
  const std::string program = third.program("tool");
  EXPECT_EQ(found_along(first.path() + ":" + second.path() + ":" + third.path(), "tool"),
            Lines{program});
}

TEST(gxpipex, one_execute_bit_of_any_class_is_enough_to_be_chosen) {
  for (const mode_t mode : {0100, 0010, 0001}) {
    const Folder first, second;
    const std::string program = first.program("tool", 0444 | mode);
    second.program("tool");
    const Lines lines = found_along(first.path() + ":" + second.path(), "tool");
    // Chosen it is, whether or not this user may execute it.
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines == Lines{program} || lines == not_executed(program, program)) << lines[0];
  }
}

TEST(gxpipex, a_word_that_is_not_found_is_run_as_it_is_from_the_working_directory) {
  const Folder folder, elsewhere;
  folder.program("tool");
  ASSERT_EQ(chdir(folder.path().c_str()), 0);
  EXPECT_EQ(found_along(elsewhere.path(), "tool x"), Lines{"tool x"});
  EXPECT_EQ(found_along(elsewhere.path(), "other x"), not_executed("other", "other x"));
  ASSERT_EQ(chdir("/"), 0);
}

TEST(gxpipex, without_path_the_word_is_run_as_it_is) {
  unsetenv("PATH");
  ASSERT_EQ(chdir("/"), 0);
  int fd;
  const int handle = gxpipex("echo x", &fd);
  EXPECT_EQ(lines_of(handle), not_executed("echo", "echo x"));
  gxclose(handle);
}

TEST(gxpipex, an_empty_entry_of_path_is_the_root_directory) {
  const Folder here;
  here.program("tool");
  ASSERT_EQ(chdir(here.path().c_str()), 0);
  for (const std::string path : {"", ":", "/nowhere::", ":/nowhere"}) {
    fakes::Host host;
    host.file("/tool", "#!/bin/sh\necho from the root \"$@\"\n", 0755);
    EXPECT_EQ(found_along(path, "tool x"), Lines{"from the root x"}) << path;
  }
  ASSERT_EQ(chdir("/"), 0);
}

TEST(gxpipex, with_leading_blanks_nothing_is_found) {
  const Folder folder;
  folder.program("tool");
  EXPECT_EQ(found_along(folder.path(), " tool x"), not_executed("", " tool x"));
  EXPECT_EQ(found_along(folder.path(), "\ttool x"), not_executed("\ttool", "\ttool x"));
}

TEST(gxpipex, leading_blanks_belong_to_the_word) {
  const Folder folder;
  folder.program(" \ttool");
  // It is found under that name, and then cut at its own blank.
  EXPECT_EQ(found_along(folder.path(), " \ttool x"),
            not_executed(folder.path() + "/", folder.path() + "/ \ttool x"));
}

TEST(gxpipex, a_tab_ends_the_word_but_does_not_separate_it) {
  const Folder folder;
  const std::string program = folder.program("tool");
  EXPECT_EQ(found_along(folder.path(), "tool\tx y"),
            not_executed(program + "\tx", program + "\tx y"));
}

TEST(gxpipex, an_empty_command_is_run_as_it_is) {
  EXPECT_EQ(found_along("/bin", ""), not_executed("", ""));
}

TEST(gxpipex, a_word_of_255_bytes_is_looked_up_and_one_of_256_is_not) {
  const Folder folder;
  const std::string longest(255, 'w');
  const std::string program = folder.program(longest);
  EXPECT_EQ(found_along(folder.path(), longest + " x"), Lines{program + " x"});
  fakes::Host host;
  const std::string longer(256, 'w');
  EXPECT_EQ(found_along(folder.path(), longer + " x"), not_executed(longer, longer + " x"));
  EXPECT_EQ(host.count("stat"), 0);
}

TEST(gxpipex, path_entries_too_long_are_tried_as_they_are_cut) {
  const Folder folder;
  // Folders in folders, so that the last one's path has just 1020 characters.
  std::string deep = folder.path();
  while (deep.size() < 1020) {
    const size_t left = 1020 - deep.size() - 1;
    deep += '/';
    deep.append(left <= 200 ? left : left < 300 ? 100 : 200, 'd');
    ASSERT_EQ(mkdir(deep.c_str(), 0755), 0);
  }
  ASSERT_EQ(deep.size(), 1020u);
  const std::string cut = deep + "/to";  // all that 1023 characters hold of deep/tool
  const std::string program = folder.program("tool");

  EXPECT_EQ(found_along(deep + ":" + folder.path(), "tool x"), Lines{program + " x"});
  FILE *stream = fopen(cut.c_str(), "w");
  fputs("#!/bin/sh\necho cut \"$@\"\n", stream);
  fclose(stream);
  chmod(cut.c_str(), 0755);
  EXPECT_EQ(found_along(deep + ":" + folder.path(), "tool x"), Lines{"cut x"});
  EXPECT_EQ(found_along(deep, "to x"), Lines{"cut x"});
  EXPECT_EQ(found_along(std::string(5000, 'x') + ":" + folder.path(), "tool x"),
            Lines{program + " x"});
}

TEST(gxpipex, without_memory_for_a_copy_of_path_the_word_is_run_as_it_is) {
  const Folder folder;
  folder.program("tool");
  setenv("PATH", folder.path().c_str(), 1);
  fakes::Host host;
  int fd;
  no_strdup = true;
  const int handle = gxpipex("tool", &fd);
  no_strdup = false;
  EXPECT_EQ(host.count("stat"), 0);
  lines_of(handle);
  gxclose(handle);
}

TEST(gxpipex, ends_the_process_without_memory_for_the_resolved_command) {
  const auto outcome = fakes::in_child([] {
    setenv("PATH", "/nowhere:/bin", 1);
    fakes::Host host;
    host.fail("calloc", ENOMEM);
    int fd;
    gxpipex("echo one two", &fd);
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  // "/bin/echo" and " one two"
  EXPECT_EQ(outcome.log,
            Lines{"elog_die(1): Out of memory in gxpipex at line 155 of 'gxline.cpp'\n\t"
                  "Can't malloc 17 bytes for fixed\n"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{ENOMEM});
}

TEST(gxpipex, asks_for_each_candidate_once_and_leaves_errno) {
  setenv("PATH", "/nowhere:/bin:/usr/bin", 1);
  fakes::Host host;
  host.fail("stat", EINTR);  // repeated
  int fd;
  errno = 4711;
  const int handle = gxpipex("echo x", &fd);
  EXPECT_EQ(errno, 4711);
  EXPECT_EQ(host.calls(),
            (Lines{"stat /nowhere/echo", "stat /nowhere/echo", "stat /bin/echo", "calloc", "pipe",
                   "mkstemp", "calloc", "unlink", "fork", "close"}));
  EXPECT_EQ(lines_of(handle), Lines{"x"});
  gxclose(handle);
}

TEST(gxpipex, fails_as_gxpipe_fails) {
  setenv("PATH", "/bin", 1);
  fakes::Host host;
  host.fail("pipe", EMFILE);
  int fd = 4711;
  EXPECT_EQ(gxpipex("echo x", &fd), -1);
  EXPECT_EQ(fd, 4711);
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): Couldn't create pipes"});
}

TEST(gxpipex, three_hundred_commands_leave_nothing_behind) {
  setenv("PATH", "/nowhere:/bin", 1);
  const auto once = [] {
    int fd;
    const int handle = gxpipex("echo x", &fd);
    lines_of(handle);
    gxclose(handle);
  };
  for (int k = 0; k < 10; ++k) once();
  const int descriptors = fakes::open_descriptors(), mappings = fakes::mappings();
  const size_t memory = mallinfo2().uordblks;
  for (int k = 0; k < 300; ++k) once();
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_NEAR(fakes::mappings(), mappings, 10);  // a sanitizer makes some of its own
  EXPECT_EQ(mallinfo2().uordblks, memory);
  EXPECT_EQ(fakes::children(), 0);
}
