// is_timezone: whether a name is that of a file in the tree of time zones.

#include "include/plintor.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/errno_guard.h"

namespace {

int restat1(const char *path, struct stat *statbuf) {
  int result;
  do {
    result = stat(path, statbuf);
  } while (result != 0 && errno == EINTR);
  return result;
}

}  // namespace

extern "C" int is_timezone(const char *name) {
  const ErrnoGuard the_callers;

  static const char *Zonepath;  // the tree's root, settled at the first call
  if (Zonepath == nullptr) {
    const char *root = getenv("ZONEINFO");
    Zonepath = strdup(root != nullptr ? root : "/usr/share/zoneinfo");
    if (Zonepath == nullptr) return 0;
  }

  char path[4096];
  const int length = snprintf(path, sizeof path, "%s/%s", Zonepath, name);
  if (length < 0 || static_cast<size_t>(length) >= sizeof path) return 0;
  // Kept: any regular file is a zone, also the tree's tables and what ".." leads to.
  struct stat statbuf;
  return restat1(path, &statbuf) == 0 && S_ISREG(statbuf.st_mode);
}
