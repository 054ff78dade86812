#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"

namespace {

// What the library's call of sigaction looked like.
struct Seen {
  int calls = 0;
  int number = 0;
  struct sigaction action = {};
  bool asked_for_old = false;
  int error = 0;  // to fail with
};
Seen *seen = nullptr;

}  // namespace

extern "C" int sigaction(int number, const struct sigaction *action,
                         struct sigaction *old) noexcept {
  if (seen != nullptr) {
    ++seen->calls;
    seen->number = number;
    seen->action = *action;
    seen->asked_for_old = old != nullptr;
    if (seen->error != 0) {
      errno = seen->error;
      return -1;
    }
  }
  static const auto next = reinterpret_cast<decltype(&sigaction)>(dlsym(RTLD_NEXT, "sigaction"));
  return next(number, action, old);
}

TEST(ignoreSIGPIPE, installs_SIG_IGN_with_an_empty_mask_and_SA_RESTART_alone) {
  Seen call;
  seen = &call;
  ignoreSIGPIPE();
  seen = nullptr;
  EXPECT_EQ(call.calls, 1);
  EXPECT_EQ(call.number, 13);
  EXPECT_EQ(call.action.sa_handler, SIG_IGN);
  EXPECT_EQ(call.action.sa_flags, SA_RESTART);
  for (int number = 1; number <= 64; ++number)
    EXPECT_EQ(sigismember(&call.action.sa_mask, number), 0) << number;
  EXPECT_FALSE(call.asked_for_old);
}

TEST(ignoreSIGPIPE, lets_a_write_without_a_reader_fail_with_EPIPE) {
  const auto outcome = fakes::in_child([] {
    ignoreSIGPIPE();
    ignoreSIGPIPE();  // does no harm
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    EXPECT_EQ(write(ends[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    struct sigaction now;
    sigaction(SIGALRM, nullptr, &now);
    EXPECT_EQ(now.sa_handler, SIG_DFL);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log, fakes::Lines{});
}

TEST(ignoreSIGPIPE, ends_the_process_when_the_handler_cannot_be_installed) {
  const auto outcome = fakes::in_child([] {
    Seen call;
    call.error = EINVAL;
    seen = &call;
    ignoreSIGPIPE();
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log,
            fakes::Lines{"elog_die(1): *stack*Unexpected failure: ignoreSIGPIPE in file "
                         "ignoreSIGPIPE.cpp, line 15\n"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{EINVAL});
}
