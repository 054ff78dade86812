// What the services that run /bin/ps share: one line and one column of its output.

#ifndef SYS_PS_H
#define SYS_PS_H

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <span>

// The next column of a line: cut out in place, *cursor behind the blank or tab that ended it.
// NULL at the end of the line, where *cursor then stays. A last column keeps its newline.
inline char *next_column(char **cursor) {
  char *const column = *cursor + std::strspn(*cursor, " \t");
  char *const end = column + std::strcspn(column, " \t");
  *cursor = end;
  if (column == end) return nullptr;
  if (*end != '\0') {
    *end = '\0';
    ++*cursor;
  }
  return column;
}

// The text `count` characters behind `text`, or its end where that comes first.
inline char *skip(char *text, size_t count) { return text + strnlen(text, count); }

// fgets for a stream that popen made: a signal that interrupts the read loses nothing. False, with
// the line as it was, at the end of the output.
inline bool read_line(FILE *stream, std::span<char> line) {
  size_t length = 0;
  while (length + 1 < line.size()) {
    const int letter = getc(stream);
    if (letter == EOF && ferror(stream) && errno == EINTR) {
      clearerr(stream);
      continue;
    }
    if (letter == EOF) break;
    line[length++] = static_cast<char>(letter);
    if (letter == '\n') break;
  }
  if (length == 0) return false;
  line[length] = '\0';
  return true;
}

#endif
