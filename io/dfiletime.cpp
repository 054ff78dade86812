// dfiletime: when a file was last modified, in seconds with their fraction.

#include "include/plintor.h"

#include <sys/stat.h>

#include <cerrno>

#include "frame/errno_guard.h"

namespace {

// The base library has one of that name as well; a program that replaces it does not replace ours.
int restat(const char *path, struct stat *st) {
  int result = 0;
  do result = stat(path, st);
  while (result != 0 && errno == EINTR);
  return result;
}

}  // namespace

extern "C" double dfiletime(const char *path) {
  const ErrnoGuard errno_of_the_caller;
  struct stat st;
  if (restat(path, &st) != 0) return -9999999999.999;
  return static_cast<double>(st.st_mtim.tv_sec) + static_cast<double>(st.st_mtim.tv_nsec) * 1e-9;
}
