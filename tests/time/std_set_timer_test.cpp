#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"

using fakes::Lines;

namespace {

// The three calls under std_set_timer: recorded, failing when told to, else the real ones.
Lines calls;
std::string failing;
struct sigaction installed;
itimerval armed;
bool asked_for_the_old_value;

bool fails(const char *call) {
  calls.push_back(call);
  if (failing != call) return false;
  errno = EACCES;
  return true;
}

template <typename Function>
Function *next(const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

volatile sig_atomic_t alarms = 0;
volatile sig_atomic_t alarm_number = 0;
volatile sig_atomic_t blocked_while_it_ran = -1;

void on_alarm(int number) {
  sigset_t mask;
  sigprocmask(SIG_BLOCK, nullptr, &mask);
  blocked_while_it_ran = sigismember(&mask, SIGALRM);
  alarm_number = number;
  alarms = alarms + 1;
}

void other_handler(int) {}

double pending() {
  itimerval value;
  next<int(int, itimerval *)>("getitimer")(ITIMER_REAL, &value);
  EXPECT_EQ(value.it_interval.tv_sec, 0);
  EXPECT_EQ(value.it_interval.tv_usec, 0);
  return static_cast<double>(value.it_value.tv_sec) +
         1e-6 * static_cast<double>(value.it_value.tv_usec);
}

auto current_handler() {
  struct sigaction action;
  next<int(int, const struct sigaction *, struct sigaction *)>("sigaction")(SIGALRM, nullptr,
                                                                            &action);
  return action.sa_handler;
}

}  // namespace

extern "C" int sigaction(int number, const struct sigaction *action,
                         struct sigaction *old) noexcept {
  if (number == SIGALRM && action != nullptr && old == nullptr) {
    if (fails("sigaction")) return -1;
    installed = *action;
  }
  return next<int(int, const struct sigaction *, struct sigaction *)>("sigaction")(number, action,
                                                                                   old);
}

extern "C" int getitimer(__itimer_which_t which, itimerval *value) noexcept {
  if (fails("getitimer")) return -1;
  return next<int(int, itimerval *)>("getitimer")(which, value);
}

extern "C" int setitimer(__itimer_which_t which, const itimerval *value, itimerval *old) noexcept {
  if (which == ITIMER_REAL) armed = *value;
  asked_for_the_old_value = old != nullptr;
  if (fails("setitimer")) return -1;
  return next<int(int, const itimerval *, itimerval *)>("setitimer")(which, value, old);
}

TEST(std_set_timer, arms_2_s_and_500000_us_for_two_and_a_half_seconds) {
  EXPECT_EQ(std_set_timer(on_alarm, 2.5), 0);
  EXPECT_EQ(armed.it_value.tv_sec, 2);
  EXPECT_EQ(armed.it_value.tv_usec, 500000);
  EXPECT_EQ(armed.it_interval.tv_sec, 0);
  EXPECT_EQ(armed.it_interval.tv_usec, 0);
  EXPECT_FALSE(asked_for_the_old_value);
  EXPECT_EQ(calls, (Lines{"sigaction", "getitimer", "setitimer"}));
  EXPECT_GT(pending(), 2.0);
  EXPECT_LE(pending(), 2.5);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(std_set_timer, installs_the_handler_with_an_empty_mask_and_no_flags) {
  EXPECT_EQ(std_set_timer(on_alarm, 0), 0);
  EXPECT_EQ(installed.sa_handler, on_alarm);
  EXPECT_EQ(installed.sa_flags, 0);
  for (int number = 1; number < NSIG; ++number)
    EXPECT_EQ(sigismember(&installed.sa_mask, number), 0) << number;
}

TEST(std_set_timer, disarms_a_pending_alarm_with_0_and_installs_the_handler) {
  EXPECT_EQ(std_set_timer(other_handler, 100), 0);
  EXPECT_GT(pending(), 99);
  EXPECT_EQ(std_set_timer(on_alarm, 0), 0);
  EXPECT_EQ(pending(), 0);
  EXPECT_EQ(current_handler(), on_alarm);
}

TEST(std_set_timer, cuts_the_time_to_whole_microseconds) {
  struct {
    double seconds;
    long sec, usec;
  } const cases[] = {{0.000001, 0, 1},
                     {0.0000019, 0, 1},
                     {0.0000009, 0, 0},
                     {0.999999875, 0, 999999},
                     {1.0, 1, 0},
                     {86399.75, 86399, 750000},
                     {4294967296.5, 4294967296, 500000}};
  for (const auto &[seconds, sec, usec] : cases) {
    EXPECT_EQ(std_set_timer(SIG_IGN, seconds), 0) << seconds;
    EXPECT_EQ(armed.it_value.tv_sec, sec) << seconds;
    EXPECT_EQ(armed.it_value.tv_usec, usec) << seconds;
  }
}

TEST(std_set_timer, logs_a_negative_time_that_the_kernel_refuses_with_the_handler_installed) {
  EXPECT_EQ(std_set_timer(on_alarm, -0.5), -1);
  EXPECT_EQ(armed.it_value.tv_sec, -1);
  EXPECT_EQ(armed.it_value.tv_usec, 500000);
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): setitimer fails"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{EINVAL});
  EXPECT_EQ(current_handler(), on_alarm);
}

TEST(std_set_timer, refuses_a_time_that_is_no_number_or_that_no_timer_holds) {
  const double infinity = std::numeric_limits<double>::infinity();
  const double refused[] = {std::nan(""),          infinity, -infinity, 1e300, -1e300,
                            9223372036854775808.0, -1.0,     -1e-18};
  for (const double seconds : refused) {
    fakes::clear_log();
    EXPECT_EQ(std_set_timer(on_alarm, seconds), -1) << seconds;
    EXPECT_EQ(fakes::log(), Lines{"elog_log(1): setitimer fails"}) << seconds;
    EXPECT_EQ(fakes::log_errors(), std::vector<int>{EINVAL}) << seconds;
  }
  EXPECT_EQ(pending(), 0);
}

TEST(std_set_timer, splits_any_time_as_floor_does) {
  std::mt19937_64 random(1);
  for (int k = 0; k < 20000; ++k) {
    const int exponent = static_cast<int>(random() % 100) - 40;  // both sides of 2^52
    double seconds = std::ldexp(static_cast<double>(random() % 1000000007) + 0.5, exponent - 30);
    if (k % 2 == 1) seconds = -seconds;
    failing = "setitimer";  // only what it is given counts
    std_set_timer(SIG_IGN, seconds);
    ASSERT_EQ(armed.it_value.tv_sec, static_cast<long>(std::floor(seconds))) << seconds;
    ASSERT_EQ(armed.it_value.tv_usec, static_cast<long>((seconds - std::floor(seconds)) * 1000000))
        << seconds;
  }
}

// The text names the virtual-time signal, although the real-time one is meant.
TEST(std_set_timer, dies_naming_SIGVTALRM_when_the_handler_cannot_be_installed) {
  const auto outcome = fakes::in_child([] {
    failing = "sigaction";
    std_set_timer(on_alarm, 1);
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Couldn't intercept signal SIGVTALRM\n"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{EACCES});
}

TEST(std_set_timer, logs_a_failed_getitimer_and_leaves_the_alarm_alone) {
  EXPECT_EQ(std_set_timer(other_handler, 100), 0);
  calls.clear();
  failing = "getitimer";
  EXPECT_EQ(std_set_timer(on_alarm, 1), -1);
  failing = "";
  EXPECT_EQ(calls, (Lines{"sigaction", "getitimer"}));
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): getitimer fails"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{EACCES});
  EXPECT_EQ(current_handler(), on_alarm);
  EXPECT_GT(pending(), 99);
}

TEST(std_set_timer, logs_a_failed_setitimer) {
  failing = "setitimer";
  EXPECT_EQ(std_set_timer(on_alarm, 1), -1);
  EXPECT_EQ(calls, (Lines{"sigaction", "getitimer", "setitimer"}));
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): setitimer fails"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{EACCES});
  EXPECT_EQ(current_handler(), on_alarm);
}

TEST(std_set_timer, fires_once_blocked_while_the_handler_runs_and_restarts_no_call) {
  EXPECT_EQ(std_set_timer(on_alarm, 0.02), 0);
  EXPECT_EQ(poll(nullptr, 0, 10000), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(alarms, 1);
  EXPECT_EQ(alarm_number, SIGALRM);
  EXPECT_EQ(blocked_while_it_ran, 1);
  EXPECT_EQ(pending(), 0);
  EXPECT_EQ(poll(nullptr, 0, 60), 0);
  EXPECT_EQ(alarms, 1);
  EXPECT_EQ(current_handler(), on_alarm);
}

TEST(std_set_timer, interrupts_a_read_for_good) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  EXPECT_EQ(std_set_timer(on_alarm, 0.02), 0);
  char byte;
  EXPECT_EQ(read(ends[0], &byte, 1), -1);
  EXPECT_EQ(errno, EINTR);
  close(ends[0]);
  close(ends[1]);
}

TEST(std_set_timer, replaces_handler_and_alarm_of_the_call_before) {
  EXPECT_EQ(std_set_timer(other_handler, 100), 0);
  EXPECT_EQ(std_set_timer(on_alarm, 50), 0);
  EXPECT_EQ(current_handler(), on_alarm);
  EXPECT_GT(pending(), 49);
  EXPECT_LE(pending(), 50);
  EXPECT_EQ(std_set_timer(on_alarm, 0), 0);
}

TEST(std_set_timer, keeps_nothing) {
  const int descriptors = fakes::open_descriptors(), mappings = fakes::mappings();
  const size_t heap = fakes::heap_bytes();
  for (int k = 0; k < 10000; ++k) {
    calls.clear();
    ASSERT_EQ(std_set_timer(SIG_IGN, 100.5), 0);
  }
  EXPECT_EQ(std_set_timer(SIG_IGN, 0), 0);
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_LE(fakes::mappings(), mappings + 64);  // a sanitizer maps its own
  EXPECT_LE(fakes::heap_bytes(), heap + 4096);
}
