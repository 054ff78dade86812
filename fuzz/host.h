// A host that says whatever the fuzzer invents: while there is a Host, its text stands in for every
// file of /proc, for the mount table and for the output of every command, none of which is run.
// For one source file of a program.

#ifndef FUZZ_HOST_H
#define FUZZ_HOST_H

#include <dlfcn.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <string>
#include <utility>

#include "frame/vestan.h"
#include "fuzz/input.h"

class Host {
 public:
  explicit Host(std::string text) : text_(std::move(text)) { now = this; }
  ~Host() { now = nullptr; }
  Host(const Host &) = delete;
  Host &operator=(const Host &) = delete;

  int file() const {
    const int fd = memfd_create("host", MFD_CLOEXEC);
    REQUIRE(fd >= 0);
    REQUIRE(write(fd, text_.data(), text_.size()) == static_cast<ssize_t>(text_.size()));
    REQUIRE(lseek(fd, 0, SEEK_SET) == 0);
    return fd;
  }
  FILE *stream() const { return fdopen(file(), "r"); }

  static inline Host *now = nullptr;
  int complaints = 0;

 private:
  std::string text_;
};

template <class Function>
Function *next_definition(const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

// No process has it.
inline constexpr pid_t kNobody = INT_MAX;

extern "C" {

int open(const char *path, int flags, ...) {
  if (Host::now != nullptr && strncmp(path, "/proc/", 6) == 0) return Host::now->file();
  va_list arguments;
  va_start(arguments, flags);
  const int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
  va_end(arguments);
  static const auto next = next_definition<int(const char *, int, ...)>("open");
  return next(path, flags, mode);
}

FILE *fopen(const char *path, const char *mode) {
  if (Host::now != nullptr && strcmp(path, "/etc/mtab") == 0) return Host::now->stream();
  static const auto next = next_definition<FILE *(const char *, const char *)>("fopen");
  return next(path, mode);
}

FILE *popen(const char *command, const char *mode) {
  if (Host::now != nullptr) return Host::now->stream();
  static const auto next = next_definition<FILE *(const char *, const char *)>("popen");
  return next(command, mode);
}

int pclose(FILE *stream) {
  if (Host::now != nullptr) return fclose(stream);
  static const auto next = next_definition<int(FILE *)>("pclose");
  return next(stream);
}

int mkstemp(char *name) {
  if (Host::now != nullptr) return Host::now->file();
  static const auto next = next_definition<int(char *)>("mkstemp");
  return next(name);
}

int unlink(const char *path) noexcept {
  if (Host::now != nullptr) return 0;
  static const auto next = next_definition<int(const char *)>("unlink");
  return next(path);
}

pid_t fork() noexcept {
  if (Host::now != nullptr) return kNobody;
  static const auto next = next_definition<pid_t()>("fork");
  return next();
}

pid_t waitpid(pid_t pid, int *status, int options) {
  if (Host::now != nullptr && pid == kNobody) return pid;
  static const auto next = next_definition<pid_t(pid_t, int *, int)>("waitpid");
  return next(pid, status, options);
}

void elog_log(int, const char *, ...) {}

void elog_complain(int, const char *, ...) {
  if (Host::now != nullptr) ++Host::now->complaints;
}

}  // extern "C"

// A text field ends within its size.
#define REQUIRE_END(field) REQUIRE(strnlen(field, sizeof(field)) < sizeof(field))

#endif
