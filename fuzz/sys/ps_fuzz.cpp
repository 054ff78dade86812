// Whatever /bin/ps prints, sysproc makes a record of every line, and each service that reads ps
// keeps to its fields.

#include <algorithm>

#include "fuzz/host.h"
#include "fuzz/input.h"
#include "include/plintor.h"

namespace {

// The lines of a text up to its first NUL, one that is longer than sysproc's buffer in pieces.
long pieces_of(const std::string &all) {
  const std::string text = all.c_str();
  long count = 0;
  size_t length = 0;
  for (const char letter : text) {
    if (letter != '\n' && ++length < 10239) continue;
    ++count;
    length = 0;
  }
  return length > 0 ? count + 1 : count;
}

void require_ends(const Pidstat &p) {
  REQUIRE_END(p.state);
  REQUIRE_END(p.user);
  REQUIRE_END(p.command);
  REQUIRE(p.spare == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t length) {
  const std::string text(reinterpret_cast<const char *>(data), length);
  Host host(text);
  Tbl *procs = nullptr;
  const int result = sysproc(&procs);
  REQUIRE(result == (host.complaints > 0 ? -1 : 0));
  REQUIRE(lentbl(procs) == std::max(pieces_of(text) - 1, 0L));
  for (long k = 0; k < lentbl(procs); ++k) require_ends(*static_cast<Pidstat *>(gettbl(procs, k)));

  Pidstat one;
  memset(&one, 0x5a, sizeof one);
  const int found = pidinfo(4711, &one);
  REQUIRE(found == 0 || found == -1);
  REQUIRE(one.pid == 4711);
  require_ends(one);
  REQUIRE(one.user[0] == '\0' && one.command[0] == '\0');

  if (char *directory = pidpwd(4711); directory != nullptr) {
    REQUIRE(strlen(directory) < 4096 && strchr(directory, ' ') == nullptr);
    free(directory);
  }
  return 0;
}
