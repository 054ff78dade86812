#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "frame/vestan.h"
#include "tests/fakes/child.h"

namespace {

std::atomic<int> error_writes{0};
std::atomic<int> interruptions{0};            // so many writes to standard error fail with EINTR
std::atomic<size_t> longest_write{SIZE_MAX};  // ... and all others write at most that much

std::atomic<pid_t> pretended{0};  // what getpid tells instead, when it is not 0

std::string read_all(FILE *stream) {
  rewind(stream);
  std::string text;
  for (int c; (c = getc(stream)) != EOF;) text.push_back(static_cast<char>(c));
  return text;
}

// The status that a child of ours ended with.
int status_of(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

class Log : public testing::Test {
 protected:
  void SetUp() override { program_invocation_short_name = name_; }
  char name_[8] = "tool";
};
using log_calls = Log;
using elog_die_ = Log;

// A death test that starts the program anew, so that nothing in it is a forked child.
class Ends : public Log {
 protected:
  void SetUp() override {
    Log::SetUp();
    GTEST_FLAG_SET(death_test_style, "threadsafe");
  }
};
using elog_die_in_a_started_program = Ends;

}  // namespace

extern "C" ssize_t write(int fd, const void *data, size_t size) {
  if (fd == STDERR_FILENO) {
    ++error_writes;
    if (interruptions > 0) {
      --interruptions;
      errno = EINTR;
      return -1;
    }
    size = std::min(size, longest_write.load());
  }
  return syscall(SYS_write, fd, data, size);
}

extern "C" pid_t getpid() noexcept {
  return pretended != 0 ? pretended.load() : static_cast<pid_t>(syscall(SYS_getpid));
}

TEST_F(log_calls, write_program_severity_and_message) {
  const auto outcome = fakes::in_child([] {
    elog_log(0, "no such service: %s (%d)", "sysmem", 7);
    elog_complain(0, "host %s is unknown", "nowhere");
    elog_log(0, "%s", "");
  });
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "tool: error: no such service: sysmem (7)\n"
            "tool: warning: host nowhere is unknown\n"
            "tool: error: \n");
}

TEST_F(log_calls, add_the_text_of_errno_when_syserr_is_1) {
  const auto outcome = fakes::in_child([] {
    errno = ENOENT;
    elog_log(1, "can't stat %s", "/nowhere");
    errno = EACCES;
    elog_complain(1, "can't open %s", "/etc/mtab");
    errno = 0;
    elog_log(1, "zero");
    errno = 4321;
    elog_log(1, "strange");
    errno = -1;
    elog_log(1, "stranger");
    errno = ENOENT;
    elog_log(0, "not asked for");
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"  // %m is the C library's own
    elog_log(0, "%m");
#pragma GCC diagnostic pop
  });
  EXPECT_EQ(outcome.err,
            "tool: error: can't stat /nowhere: No such file or directory\n"
            "tool: warning: can't open /etc/mtab: Permission denied\n"
            "tool: error: zero: Success\n"
            "tool: error: strange: Unknown error 4321\n"
            "tool: error: stranger: Unknown error -1\n"
            "tool: error: not asked for\n"
            "tool: error: No such file or directory\n");
}

TEST_F(log_calls, end_an_entry_with_one_newline_and_keep_those_inside) {
  const auto outcome = fakes::in_child([] {
    errno = ENOMEM;
    elog_log(1, "Out of memory in %s\n\tCan't malloc %lu bytes for cpu\n", "syscpu", 5UL);
    elog_log(0, "one\n\ntwo\n\n\n");
    elog_log(0, "\n");
  });
  EXPECT_EQ(outcome.err,
            "tool: error: Out of memory in syscpu\n"
            "\tCan't malloc 5 bytes for cpu: Cannot allocate memory\n"
            "tool: error: one\n\ntwo\n"
            "tool: error: \n");
}

TEST_F(log_calls, leave_errno_alone) {
  const auto outcome = fakes::in_child([] {
    errno = EBUSY;
    elog_log(1, "a");
    EXPECT_EQ(errno, EBUSY);
    close(STDERR_FILENO);
    elog_complain(1, "%s", std::string(10000, 'x').c_str());
    EXPECT_EQ(errno, EBUSY);
  });
  EXPECT_EQ(outcome.exit_code, 0);
}

TEST_F(log_calls, write_an_entry_of_any_length_whole_and_at_once) {
  for (const size_t length : {3000u, 4000u, 4096u, 100000u}) {
    for (size_t k = length - 70; k < length + 4; ++k) {
      const std::string message(k, 'm');
      const auto outcome = fakes::in_child([&] {
        errno = ENOENT;
        elog_log(1, "%s", message.c_str());
        EXPECT_EQ(error_writes, 1);
      });
      ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
      ASSERT_TRUE(outcome.err == "tool: error: " + message + ": No such file or directory\n") << k;
    }
  }
}

TEST_F(log_calls, go_on_after_an_interruption_and_a_short_write) {
  const auto outcome = fakes::in_child([] {
    interruptions = 2;
    longest_write = 5;
    elog_log(0, "a rather long message");
  });
  EXPECT_EQ(outcome.err, "tool: error: a rather long message\n");
}

TEST_F(log_calls, cut_a_long_program_name) {
  const std::string name(5000, 'p');
  const auto outcome = fakes::in_child([&] {
    program_invocation_short_name = const_cast<char *>(name.c_str());
    errno = ENOENT;
    elog_log(1, "%s", "message");
  });
  EXPECT_EQ(outcome.err, std::string(1023, 'p') + "message: No such file or directory\n");
}

TEST_F(log_calls, write_the_format_itself_when_it_cannot_be_filled_in) {
  const auto outcome = fakes::in_child([] {
    const wchar_t outside[] = {0x20ac, 0};  // not a character of the C locale
    elog_log(0, "wide %ls", outside);
  });
  EXPECT_EQ(outcome.err, "tool: error: wide %ls\n");
}

TEST_F(log_calls, cut_a_format_that_cannot_be_filled_in) {
  const std::string format = "wide %ls" + std::string(9000, 'f');
  const auto outcome = fakes::in_child([&] {
    const wchar_t outside[] = {0x20ac, 0};
    errno = ENOENT;
    elog_log(1, format.c_str(), outside);
  });
  const std::string start = "tool: error: ";
  const std::string end = ": No such file or directory\n";
  EXPECT_EQ(outcome.err, start + format.substr(0, 4096 - start.size() - end.size() - 1) + end);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(log_calls, cut_a_long_entry_but_not_its_cause_without_memory) {
  const auto outcome = fakes::in_child([] {
    const rlimit little{64 << 20, 64 << 20};
    setrlimit(RLIMIT_AS, &little);
    errno = ENOMEM;
    elog_log(1, "%268435456s", "far");
  });
  const std::string start = "tool: error: ";
  const std::string end = ": Cannot allocate memory\n";
  EXPECT_EQ(outcome.err, start + std::string(4096 - start.size() - end.size() - 1, ' ') + end);
}
#endif

TEST_F(log_calls, keep_the_lines_of_eight_threads_whole) {
  constexpr int kThreads = 8;
  constexpr int kEach = 250;
  const auto outcome = fakes::in_child([] {
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
      threads.emplace_back([t] {
        for (int k = 0; k < kEach; ++k) {
          errno = t % 2 == 0 ? ENOENT : EACCES;
          elog_log(1, "thread %d entry %d %s", t, k, std::string(100, 'a' + t).c_str());
        }
      });
    for (auto &thread : threads) thread.join();
  });
  std::map<int, int> next;  // by thread
  std::istringstream lines(outcome.err);
  for (std::string line; std::getline(lines, line);) {
    int t = -1;
    ASSERT_EQ(sscanf(line.c_str(), "tool: error: thread %d", &t), 1) << line;
    const std::string cause = t % 2 == 0 ? "No such file or directory" : "Permission denied";
    ASSERT_EQ(line, "tool: error: thread " + std::to_string(t) + " entry " +
                        std::to_string(next[t]++) + " " +
                        std::string(100, static_cast<char>('a' + t)) + ": " + cause);
  }
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(next[t], kEach);
}

TEST_F(log_calls, work_in_a_child_forked_while_threads_log) {
  const auto outcome = fakes::in_child([] {
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
      threads.emplace_back([&] {
        while (!done) {
          errno = ENOENT;
          elog_log(1, "from a thread");
        }
      });
    for (int k = 0; k < 50; ++k) {
      const pid_t pid = fork();
      if (pid == 0) {
        alarm(30);  // a lock that nobody opens would be the end
        errno = EACCES;
        elog_complain(1, "from a child");
        _exit(17);
      }
      EXPECT_EQ(WEXITSTATUS(status_of(pid)), 17);
    }
    done = true;
    for (auto &thread : threads) thread.join();
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err.substr(outcome.err.size() - 500);
  int children = 0;
  for (size_t at = 0; (at = outcome.err.find("tool: warning: from a child: Permission denied\n",
                                             at)) != std::string::npos;
       ++at)
    ++children;
  EXPECT_EQ(children, 50);
}

// ---- elog_die

TEST_F(elog_die_, writes_its_entry_and_ends_with_status_1) {
  const auto outcome = fakes::in_child([] {
    errno = EMFILE;
    elog_die(1, "can't go on with %d", 3);
  });
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err, "tool: fatal: can't go on with 3: Too many open files\n");
}

TEST_F(elog_die_, in_a_forked_child_leaves_the_parents_output_to_the_parent) {
  FILE *stream = tmpfile();
  fputs("once", stream);
  static bool handled = false;
  atexit([] {
    if (handled) _exit(99);  // only in the child, which inherits it
  });
  handled = true;
  const pid_t pid = fork();
  if (pid == 0) elog_die(0, "child");
  const int status = status_of(pid);
  handled = false;
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_EQ(read_all(stream), "once");
  fclose(stream);
}

TEST_F(elog_die_, knows_a_child_that_was_made_without_fork_handlers) {
  FILE *stream = tmpfile();
  fputs("once", stream);
  const pid_t pid = _Fork();
  if (pid == 0) elog_die(0, "child");
  EXPECT_EQ(WEXITSTATUS(status_of(pid)), 1);
  EXPECT_EQ(read_all(stream), "once");
  fclose(stream);
}

TEST_F(elog_die_, knows_a_child_with_its_parents_number) {
  pretended = getpid();  // both are 1, each in a process namespace of its own
  FILE *stream = tmpfile();
  fputs("once", stream);
  const pid_t pid = fork();
  if (pid == 0) elog_die(0, "child");
  EXPECT_EQ(WEXITSTATUS(status_of(pid)), 1);
  EXPECT_EQ(read_all(stream), "once");
  fclose(stream);
  pretended = 0;
}

TEST_F(elog_die_, knows_the_child_of_a_child) {
  FILE *stream = tmpfile();
  fputs("once", stream);
  const pid_t pid = fork();
  if (pid == 0) {
    const pid_t grandchild = fork();
    if (grandchild == 0) elog_die(0, "grandchild");
    _exit(WEXITSTATUS(status_of(grandchild)));
  }
  EXPECT_EQ(WEXITSTATUS(status_of(pid)), 1);
  EXPECT_EQ(read_all(stream), "once");
  fclose(stream);
}

TEST_F(elog_die_, in_the_parent_of_a_child_is_the_ordinary_end) {
  // The child's end must not have made the parent one that ends through _exit.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const pid_t pid = fork();
        if (pid == 0) elog_die(0, "child");
        status_of(pid);
        atexit([] { fputs("handler ran\n", stderr); });
        elog_die(0, "parent");
      },
      testing::ExitedWithCode(1), "handler ran");
}

TEST_F(elog_die_in_a_started_program, writes_its_streams_out) {
  EXPECT_EXIT(
      {
        FILE *stream = fdopen(dup(STDERR_FILENO), "w");
        setvbuf(stream, nullptr, _IOFBF, 4096);
        fputs("kept", stream);
        elog_die(0, "the end");
      },
      testing::ExitedWithCode(1), "tool: fatal: the end\nkept");
}

TEST_F(elog_die_in_a_started_program, lets_exit_handlers_finish_when_eight_threads_die) {
  EXPECT_EXIT(
      {
        atexit([] {
          usleep(200000);  // time for the others to get as far
          fputs("[handler]\n", stderr);
        });
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t) threads.emplace_back([] { elog_die(0, "thread"); });
        for (auto &thread : threads) thread.join();
      },
      testing::ExitedWithCode(1), "tool: fatal: thread\n(.*\n)*\\[handler\\]\n$");
}

TEST_F(elog_die_in_a_started_program, ends_when_an_exit_handler_dies) {
  EXPECT_EXIT(
      {
        alarm(30);
        atexit([] { elog_die(0, "in the handler"); });
        elog_die(0, "first");
      },
      testing::ExitedWithCode(1), "fatal: first\n.*fatal: in the handler\n");
}
