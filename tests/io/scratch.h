// Files of a test's own, and all lines of a handle at once.

#ifndef TESTS_IO_SCRATCH_H
#define TESTS_IO_SCRATCH_H

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "include/plintor.h"

#ifdef __SANITIZE_THREAD__
inline constexpr bool kUnderThreadSanitizer = true;
#else
inline constexpr bool kUnderThreadSanitizer = false;
#endif

// A file with that text, gone at the end of the scope.
class Scratch {
 public:
  explicit Scratch(const std::string &text, mode_t mode = 0644) {
    const int fd = mkstemp(name_);
    if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        fchmod(fd, mode) != 0)
      abort();
    close(fd);
  }
  ~Scratch() { unlink(name_); }
  Scratch(const Scratch &) = delete;
  Scratch &operator=(const Scratch &) = delete;
  const char *path() const { return name_; }

 private:
  char name_[32] = "/tmp/plintor-io-XXXXXX";
};

inline std::vector<std::string> lines_of(int handle) {
  std::vector<std::string> lines;
  for (char line[10240]; gxline(handle, line, sizeof line) != 0;) lines.push_back(line);
  return lines;
}

#endif
