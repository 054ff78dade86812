// getTZ, setTZ: the zone that the process uses, and making its default explicit.

#include "include/plintor.h"

#include <cstdio>
#include <cstdlib>

extern "C" const char *getTZ(void) {
  static const char *TZ;  // Kept: once it is known, the environment is not asked again.
  const char *zone = TZ != nullptr ? TZ : getenv("TZ");
  if (zone == nullptr || *zone == '\0') zone = "UTC";
  TZ = zone;
  return zone;
}

extern "C" void setTZ(void) {
  static char tzset[64];  // "TZ=", 60 characters, NUL; the environment's for good
  if (getenv("TZ") != nullptr) return;
  snprintf(tzset, sizeof tzset, "TZ=%s", getTZ());
  putenv(tzset);
}
