// std_dlopen: loads a shared library of the distribution by its short name.

#include "include/plintor.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

#include "frame/vestan.h"

namespace {

constexpr size_t kPathSize = 4096;

// The path of `name` in `folder` below the install root; of an absolute name, the name itself.
// False when it does not fit.
bool path_of(const char *name, const char *folder, std::span<char> path) {
  int length;
  if (name[0] == '/') {
    length = std::snprintf(path.data(), path.size(), "%s", name);
  } else {
    char root[kPathSize];
    length =
        std::snprintf(path.data(), path.size(), "%s%s/lib%s.so.3", getvestan(root), folder, name);
  }
  return length >= 0 && static_cast<size_t>(length) < path.size();
}

}  // namespace

extern "C" void *std_dlopen(const char *name) {
  char path[kPathSize];
  if (!path_of(name, "/lib", path)) return nullptr;
  // The second place is not tested: dlopen says what is wrong with it.
  if (access(path, R_OK | X_OK) != 0 && !path_of(name, "/contrib/lib", path)) return nullptr;

  char *copy = strdup(path);
  if (copy == nullptr) return nullptr;
  void *library = dlopen(copy, RTLD_LAZY);
  std::free(copy);
  return library;
}
