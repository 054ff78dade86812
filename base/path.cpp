// Paths: made absolute, cleaned, looked up; and the root that the distribution is installed under.

#include <limits.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>

#include "frame/errno_guard.h"
#include "frame/vestan.h"

namespace {

// A path as it is put together. What does not fit makes it unusable, never shorter.
class Path {
 public:
  // Appends the names in `part`, one slash between them. A "." between slashes goes; a ".." stays,
  // because the name before it may be a symbolic link.
  void append(std::string_view part) {
    if (length_ == 0 && part.starts_with('/')) add("/");
    while (!part.empty()) {
      const std::string_view name(part.data(), std::min(part.find('/'), part.size()));
      part.remove_prefix(std::min(name.size() + 1, part.size()));
      if (name.empty() || name == ".") continue;
      if (length_ > 0 && text_[length_ - 1] != '/') add("/");
      add(name);
    }
  }

  // Copied to the caller, who may have given the same buffer as the source. Null when it did not
  // fit.
  char *finish(char *result) {
    if (length_ == 0) add(".");
    result[0] = '\0';
    if (overflow_) {
      errno = ENAMETOOLONG;
      return nullptr;
    }
    memcpy(result, text_, length_);
    result[length_] = '\0';
    return result;
  }

 private:
  void add(std::string_view part) {
    if (part.size() >= sizeof text_ - length_) {
      overflow_ = true;
      return;
    }
    memcpy(text_ + length_, part.data(), part.size());
    length_ += part.size();
  }

  char text_[PATH_MAX];
  size_t length_ = 0;
  bool overflow_ = false;
};

char *fail(char *result, int error) {
  result[0] = '\0';
  errno = error;
  return nullptr;
}

// The home directory of the user, "" being the process's own; null when there is no such user.
const char *home_of(std::string_view user, std::span<char> room) {
  passwd entry;
  passwd *found = nullptr;
  if (user.empty()) {
    const char *home = getenv("HOME");
    if (home != nullptr && home[0] != '\0') return home;
    getpwuid_r(getuid(), &entry, room.data(), room.size(), &found);
  } else {
    char name[256];  // no system has longer ones
    if (user.size() >= sizeof name) return nullptr;
    memcpy(name, user.data(), user.size());
    name[user.size()] = '\0';
    getpwnam_r(name, &entry, room.data(), room.size(), &found);
  }
  return found != nullptr ? found->pw_dir : nullptr;
}

}  // namespace

extern "C" {

char *abspath(const char *path, char *result) {
  if (path == nullptr) return fail(result, EINVAL);
  Path absolute;
  if (path[0] != '/') {
    char folder[PATH_MAX];
    if (getcwd(folder, sizeof folder) == nullptr) return fail(result, errno);
    absolute.append(folder);
  }
  absolute.append(path);
  return absolute.finish(result);
}

char *cleanpath(const char *path, int expand, char *result) {
  if (path == nullptr) return fail(result, EINVAL);
  if (path[0] == '\0') {
    result[0] = '\0';
    return result;
  }
  Path clean;
  if (expand != 0 && path[0] == '~') {
    const size_t length = strcspn(path + 1, "/");
    char room[16384];
    if (const char *home = home_of({path + 1, length}, room)) {
      clean.append(home);
      path += 1 + length;
    }
  }
  clean.append(path);
  return clean.finish(result);
}

int restat(const char *path, struct stat *st) {
  int result = 0;
  do result = stat(path, st);
  while (result != 0 && errno == EINTR);
  return result;
}

int is_present(const char *path) {
  const ErrnoGuard guard;
  struct stat st;
  return path != nullptr && restat(path, &st) == 0;
}

char *getvestan(char *buffer) {
  // Shared objects are loaded from there: a set-user-id program must not take it from its caller.
  const char *root = secure_getenv("VESTAN");
  if (root == nullptr || root[0] == '\0') root = VESTAN_ROOT;
  size_t length = strnlen(root, PATH_MAX - 1);
  memcpy(buffer, root, length);
  while (length > 0 && buffer[length - 1] == '/') --length;
  buffer[length] = '\0';
  return buffer;
}

}  // extern "C"
