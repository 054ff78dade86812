// std_set_timer: a one-shot alarm, real time, that calls a handler of the caller's.

#include "include/plintor.h"

#include <signal.h>
#include <sys/time.h>

#include "frame/truncate.h"
#include "frame/vestan.h"

namespace {

// A double of this size or more has no fraction.
constexpr double kWhole = 4503599627370496.0;  // 2^52

// What the C library's floor answers, without loading its mathematics.
double floor_of(double x) {
  if (!(-kWhole < x && x < kWhole)) return x;  // a NaN too
  const auto whole = static_cast<double>(trunc64(x));
  return whole > x ? whole - 1 : whole;
}

}  // namespace

extern "C" int std_set_timer(void (*handler)(int), double seconds) {
  struct sigaction action {};  // empty mask; no flags: the alarm interrupts system calls for good
  action.sa_handler = handler;
  // Kept: the text names another signal than the one that is intercepted.
  if (sigaction(SIGALRM, &action, nullptr) != 0)
    elog_die(1, "Couldn't intercept signal SIGVTALRM\n");

  itimerval pending;  // only asked for to see that the timer can be used
  if (getitimer(ITIMER_REAL, &pending) != 0) {
    elog_log(1, "getitimer fails");
    return -1;
  }

  // What 64 bits cannot hold, a NaN too, becomes the smallest number, which the kernel refuses.
  // Kept: the handler of a time that is refused stays installed.
  const double whole = floor_of(seconds);
  itimerval once{};  // no interval: it fires a single time
  once.it_value.tv_sec = trunc64(whole);
  once.it_value.tv_usec = trunc64((seconds - whole) * 1000000);
  if (setitimer(ITIMER_REAL, &once, nullptr) != 0) {
    elog_log(1, "setitimer fails");
    return -1;
  }
  return 0;
}
