// my_ether: the host's Ethernet addresses, out of what ifconfig prints.

#include "include/plintor.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "frame/vestan.h"

namespace {

// "eth0      Link encap:Ethernet  HWaddr 00:16:3e:5a:1b:0c": the rest of the line after the mark,
// or null.
const char *address_in(const char *line) {
  constexpr char kMark[] = "HWaddr ";
  const char *mark = strstr(line, kMark);
  return mark == nullptr ? nullptr : mark + sizeof kMark - 1;
}

}  // namespace

extern "C" int my_ether(char *list) {
  *list = '\0';
  release_FILE();  // at the limit of descriptors, the command's stream takes its place
  FILE *stream = popen("LANG=C /sbin/ifconfig -a", "r");

  // The keys are the addresses: each once, and in a stable order.
  Arr *addresses = newarr(nullptr);
  char line[1024] = "";
  while (getaline(stream, line, sizeof line) != nullptr)
    if (const char *address = address_in(line))
      setarr(addresses, address, reinterpret_cast<void *>(intptr_t{1}));
  while (getaline(stream, line, sizeof line) != nullptr) {
    // whatever the stream still holds, so that the command ends
  }
  if (stream != nullptr) pclose(stream);
  reserve_FILE();

  Tbl *keys = keysarr(addresses);
  for (long k = 0; const auto *key = static_cast<const char *>(gettbl(keys, k)); ++k) {
    if (k > 0) strcat(list, " ");
    strcat(list, key);
  }
  // Kept: also when the command prints its addresses under another mark.
  if (*list == '\0') strcpy(list, "****");
  freetbl(keys, nullptr);
  freearr(addresses, nullptr);
  errno = 0;
  return 0;
}
