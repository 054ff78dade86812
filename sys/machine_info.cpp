// machine_info: the text that describes the machine, or a digest of it.

#include "include/plintor.h"

#include <cstdlib>
#include <cstring>

#include "frame/vestan.h"

extern "C" char *machine_info(int digest) {
  char *raw;
  char *result = mcinfo(&raw);
  if (digest != 0) {
    char hex[40] = "**no hostinfo**";
    if (raw != nullptr && raw[0] != '\0') mdhex(hex, raw, static_cast<long>(std::strlen(raw)));
    std::free(result);
    result = strdup(hex);
  }
  std::free(raw);
  return result;
}
