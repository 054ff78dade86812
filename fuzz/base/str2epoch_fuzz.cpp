// Any text is a date or 0, never anything else: no infinity, no reading past the NUL, no new errno.

#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "frame/vestan.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  char *text = static_cast<char *>(malloc(size + 1));  // so that its end is the block's end
  if (size > 0) memcpy(text, data, size);
  text[size] = '\0';
  errno = 4321;
  if (!std::isfinite(str2epoch(text)) || errno != 4321) abort();
  free(text);
  return 0;
}
