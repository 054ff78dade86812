// strlcpy: a copy bounded by the destination's size, as BSD defines it.

#include "include/plintor.h"

#include <cstring>

extern "C" size_t strlcpy(char *destination, const char *source, size_t size) noexcept {
  const size_t length = std::strlen(source);
  if (size != 0) {
    const size_t copied = length < size ? length : size - 1;
    std::memmove(destination, source, copied);
    destination[copied] = '\0';
  }
  return length;
}
