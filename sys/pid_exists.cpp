// pid_exists: whether a process exists, from its folder in /proc.

#include "include/plintor.h"

#include <cstdio>

#include "frame/vestan.h"

extern "C" int pid_exists(int pid) {
  char path[40];
  std::snprintf(path, sizeof path, "/proc/%d", pid);
  return is_present(path) ? 1 : 0;
}
