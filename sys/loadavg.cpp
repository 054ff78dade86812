// sysloadavg: the 1-, 5- and 15-minute load averages, and the number of scheduling entities.

#include "include/plintor.h"

#include <cstdlib>

#include "frame/read_file.h"
#include "frame/vestan.h"

extern "C" void sysloadavg(double avg[3], int *nprocs) {
  char text[1024];
  if (read_file("/proc/loadavg", text) < 10) elog_die(1, "Can't read /proc/loadavg");

  // "0.50 0.25 0.10 3/412 9999": averages, running/total, last pid.
  char *cursor = text;
  for (int k = 0; k < 3; ++k) avg[k] = fix_strtod(cursor, &cursor);
  std::strtol(cursor, &cursor, 0);  // running: passed over, not reported
  if (*cursor != '\0') ++cursor;    // the '/'; a text cut before it ends here
  *nprocs = static_cast<int>(std::strtol(cursor, nullptr, 0));
}
