// A host file read the way the kernel likes it: one open, one read, one close.

#ifndef FRAME_READ_FILE_H
#define FRAME_READ_FILE_H

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <span>

#include "frame/errno_guard.h"

// Fills `text` with the first text.size() - 1 bytes of the file and a NUL.
// Returns the bytes read; 0 also when the read failed; -1 when the file could not be opened, and
// then neither reads nor closes. Either way errno still tells the cause.
inline ssize_t read_file(const char *path, std::span<char> text) {
  text[0] = '\0';
  const int fd = open(path, O_RDONLY);
  if (fd < 0) return -1;
  ssize_t length = read(fd, text.data(), text.size() - 1);
  {
    const ErrnoGuard cause_of_a_failed_read;
    close(fd);
  }
  if (length < 0) length = 0;
  text[static_cast<size_t>(length)] = '\0';
  return length;
}

#endif
