// UNIMPLEMENTED: the one place that says a service is missing on the running platform.

#include "include/plintor.h"

#include "frame/vestan.h"

extern "C" int UNIMPLEMENTED(const char *name, int result) {
  elog_log(0, "%s is unimplemented on this platform", name);
  return result;
}
