// cpu_utilization: how much of one processor this process has used since the previous call.

#include "include/plintor.h"

#include <sys/resource.h>

#include "frame/vestan.h"

extern "C" double cpu_utilization(void) {
  static double prev_used;  // processor seconds
  static double prev_t;     // seconds since 1970

  const double now = std_now();
  rusage usage;
  if (const int result = getrusage(RUSAGE_SELF, &usage); result != 0) {
    elog_log(1, "getrusage returned %d", result);
    return 0.0;
  }
  const double used = static_cast<double>(usage.ru_utime.tv_sec) +
                      1e-6 * static_cast<double>(usage.ru_utime.tv_usec) +
                      static_cast<double>(usage.ru_stime.tv_sec) +
                      1e-6 * static_cast<double>(usage.ru_stime.tv_usec);

  // Kept: two calls within one microsecond divide by zero.
  const double result = (used - prev_used) / (now - prev_t);
  prev_used = used;
  prev_t = now;
  return result;
}
