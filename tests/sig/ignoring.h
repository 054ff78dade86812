// What the two functions that ignore a signal have to do alike, seen at their call of sigaction.

#ifndef TESTS_SIG_IGNORING_H
#define TESTS_SIG_IGNORING_H

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <cerrno>
#include <string>
#include <vector>

#include "tests/fakes/child.h"
#include "tests/fakes/log.h"

namespace ignoring {

// What the library's call of sigaction looked like.
struct Seen {
  int calls = 0;
  int number = 0;
  struct sigaction action = {};
  bool asked_for_old = false;
  int error = 0;  // to fail with
};
inline Seen *seen = nullptr;

inline void expect_installed(void (*ignore)(), int number) {
  Seen call;
  seen = &call;
  ignore();
  seen = nullptr;
  EXPECT_EQ(call.calls, 1);
  EXPECT_EQ(call.number, number);
  EXPECT_EQ(call.action.sa_handler, SIG_IGN);
  EXPECT_EQ(call.action.sa_flags, SA_RESTART);
  for (int other = 1; other <= 64; ++other)
    EXPECT_EQ(sigismember(&call.action.sa_mask, other), 0) << other;
  EXPECT_FALSE(call.asked_for_old);
}

inline void expect_end_without_handler(void (*ignore)(), const std::string &message) {
  const auto outcome = fakes::in_child([ignore] {
    Seen call;
    call.error = EINVAL;
    seen = &call;
    ignore();
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, fakes::Lines{message});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{EINVAL});
}

inline auto handler_of(int number) {
  struct sigaction now;
  sigaction(number, nullptr, &now);
  return now.sa_handler;
}

}  // namespace ignoring

extern "C" int sigaction(int number, const struct sigaction *action,
                         struct sigaction *old) noexcept {
  if (ignoring::Seen *const seen = ignoring::seen) {
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

#endif
