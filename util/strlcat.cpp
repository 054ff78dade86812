// strlcat: an append bounded by the destination's whole size, as BSD defines it.

#include "include/plintor.h"

#include <cstring>

extern "C" size_t strlcat(char *destination, const char *source, size_t size) noexcept {
  const size_t used = strnlen(destination, size);  // size without a NUL: then no room is left
  return used + strlcpy(destination + used, source, size - used);
}
