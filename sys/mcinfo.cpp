// mcinfo: the text that describes the machine, twice.

#include "include/plintor.h"

#include <cstring>

#include "frame/vestan.h"

extern "C" char *mcinfo(char **raw) {
  char text[1024] = "";
  lpms0w(text);
  *raw = strdup(text);
  void *collected = nullptr;
  pushstr(&collected, text);
  return popstr(&collected, 1);
}
