// getexecname: the absolute path of the running program, asked for once.

#include "include/plintor.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

extern "C" char *getexecname(void) {
  static std::atomic<char *> execname{nullptr};
  char *known = execname.load(std::memory_order_acquire);
  if (known != nullptr) return known;

  char path[4096];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
  // Kept: after a failed first call the answer stays empty.
  path[length > 0 ? length : 0] = '\0';
  char *const name = strdup(path);
  // Of two first calls at once, one keeps its copy and both return that one.
  if (execname.compare_exchange_strong(known, name, std::memory_order_acq_rel)) return name;
  std::free(name);
  return known;
}
