// The pieces that gxline hands out, put together, are the file up to its first NUL.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "fuzz/input.h"
#include "include/plintor.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t length) {
  Input input(data, length);
  const int size = input.byte() + 2;
  const int offset = input.word();
  const auto bytes = input.rest();
  if (bytes.empty()) return 0;  // gxopen refuses an empty file

  const int fd = memfd_create("fuzz", 0);
  REQUIRE(write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
  char path[64];
  snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
  const int handle = gxopen(path);
  REQUIRE(handle >= 0);
  close(fd);

  const auto end = static_cast<int>(bytes.size());
  REQUIRE(gxseek(handle, -1) == -1);
  REQUIRE(gxseek(handle, offset) == (offset <= end ? 0 : -1));
  const size_t from = static_cast<size_t>(offset <= end ? offset : 0);
  const std::string rest(reinterpret_cast<const char *>(bytes.data()) + from, bytes.size() - from);
  const std::string text = rest.c_str();

  std::string read;
  for (;;) {
    char *buffer = static_cast<char *>(malloc(static_cast<size_t>(size)));
    const int result = gxline(handle, buffer, size);
    REQUIRE(0 <= result && result <= 2);
    REQUIRE(0 <= gxtell(handle) && gxtell(handle) <= end);
    if (result > 0) {
      REQUIRE(memchr(buffer, '\0', static_cast<size_t>(size)) != nullptr);
      read += buffer;
      if (result == 1) read += '\n';
    }
    free(buffer);
    if (result == 0) break;
    REQUIRE(read.size() <= text.size() + 1);
  }
  // The last piece counts as a line, with its newline or without.
  REQUIRE(read == text || (read == text + '\n' && !text.ends_with('\n')));
  REQUIRE(gxclose(handle) == 0);
  return 0;
}
