// Strings: growing ones, fields, lines and numbers.

#include <errno.h>
#include <stdio.h>

#include <cstring>

#include "base/locale.h"
#include "base/memory.h"
#include "frame/vestan.h"

namespace {

// What the handle of a growing string points to.
struct Growing {
  char *text;
  size_t length;
  size_t capacity;  // the NUL included
};

// The next character. A signal that interrupts the reading is not the end of it.
int next_of(FILE *stream) {
  int next = getc_unlocked(stream);
  while (next == EOF && ferror_unlocked(stream) && errno == EINTR) {
    clearerr_unlocked(stream);
    next = getc_unlocked(stream);
  }
  return next;
}

}  // namespace

extern "C" {

void pushstr(void **handle, const char *text) {
  if (handle == nullptr || text == nullptr) return;
  auto *growing = static_cast<Growing *>(*handle);
  if (growing == nullptr) {
    growing = allocate<Growing>();
    *growing = Growing{nullptr, 0, 0};
    *handle = growing;
  }
  const size_t length = strlen(text);
  const size_t needed = growing->length + length + 1;
  if (needed > growing->capacity) {
    const size_t capacity = needed + growing->capacity;  // at least doubled
    growing->text = static_cast<char *>(reallocate(growing->text, capacity, 1));
    growing->capacity = capacity;
  }
  memcpy(growing->text + growing->length, text, length + 1);
  growing->length += length;
}

char *popstr(void **handle, int finish) {
  auto *growing = handle != nullptr ? static_cast<Growing *>(*handle) : nullptr;
  if (growing != nullptr && finish != 0) {
    char *text = growing->text;
    free(growing);
    *handle = nullptr;
    return text;
  }
  const size_t length = growing != nullptr ? growing->length : 0;
  char *copy = static_cast<char *>(allocate(length + 1));
  if (length > 0) memcpy(copy, growing->text, length);
  copy[length] = '\0';
  return copy;
}

const char *okstr(const char *string) { return string != nullptr ? string : "(null)"; }

Tbl *split(char *string, int separator) {
  Tbl *fields = newtbl(0);
  const char cut = static_cast<char>(separator);
  for (char *field = string; field != nullptr;) {
    pushtbl(fields, field);
    char *end = cut != '\0' ? strchr(field, cut) : nullptr;
    if (end != nullptr) *end++ = '\0';
    field = end;
  }
  return fields;
}

char *getaline(FILE *stream, char *buffer, long size) {
  if (stream == nullptr || buffer == nullptr || size < 2) return nullptr;
  long length = 0;
  flockfile(stream);
  int next = next_of(stream);
  const bool ended = next == EOF;
  while (next != EOF && next != '\n' && length < size - 1) {
    buffer[length++] = static_cast<char>(next);
    next = next_of(stream);
  }
  // The rest of a longer line comes with the next call.
  if (next != EOF && next != '\n') ungetc(next, stream);
  funlockfile(stream);
  buffer[length] = '\0';
  return ended ? nullptr : buffer;
}

double fix_strtod(const char *string, char **end) {
  if (string != nullptr) return strtod_l(string, end, c_locale());
  if (end != nullptr) *end = nullptr;
  return 0;
}

}  // extern "C"
