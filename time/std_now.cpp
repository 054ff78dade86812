// std_now: wall-clock time, the one clock that the samplers time their samples with.

#include "include/plintor.h"

#include <sys/time.h>

extern "C" double std_now(void) {
  timeval now{};
  gettimeofday(&now, nullptr);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) / 1000000;
}

// For callers whose compiler appends an underscore to external names.
extern "C" double std_now_(void) { return std_now(); }
