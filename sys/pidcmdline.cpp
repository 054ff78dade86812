// pidcmdline: the command line of a process, its arguments joined by blanks.

#include "include/plintor.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

extern "C" char *pidcmdline(int pid) {
  char text[8192];
  text[0] = '\0';
  if (pid > 0) {
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d/cmdline", pid);
    const int fd = open(path, O_RDONLY);
    if (fd >= 0) {
      const ssize_t length = read(fd, text, sizeof text);
      if (length > 0) {
        // The kernel ends every argument with a NUL, the last one too.
        // Kept: a text that fills the buffer, or does not end with a NUL, loses its last character.
        std::replace(text, text + length - 1, '\0', ' ');
        text[length - 1] = '\0';
      }
      close(fd);
    }
  }
  return strdup(text);
}
