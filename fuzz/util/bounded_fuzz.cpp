// strlcpy and strlcat against the same in strings, in blocks of exactly the size that is stated.

#include <algorithm>
#include <cstring>
#include <string>

#include "fuzz/input.h"
#include "include/plintor.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t length) {
  Input input(data, length);
  const size_t size = input.byte();
  const size_t filled = input.byte();
  const auto bytes = input.rest();
  const std::string source(reinterpret_cast<const char *>(bytes.data()), bytes.size());
  const std::string text = source.c_str();  // up to its first NUL

  char *from = strdup(text.c_str());
  char *to = static_cast<char *>(malloc(size));
  memset(to, 'x', size);
  REQUIRE(strlcpy(to, from, size) == text.size());
  if (size > 0) REQUIRE(to == text.substr(0, size - 1));

  // What stands there: `filled` characters, or no end within the size.
  memset(to, 'y', size);
  if (filled < size) to[filled] = '\0';
  const size_t there = std::min(filled, size);
  REQUIRE(strlcat(to, from, size) == there + text.size());
  if (filled < size)
    REQUIRE(to == (std::string(filled, 'y') + text).substr(0, size - 1));
  else
    REQUIRE(std::string(to, size) == std::string(size, 'y'));
  free(to);
  free(from);
  return 0;
}
