// sysncpu: the number of processors, from /proc/stat.

#include "include/plintor.h"

#include "frame/read_file.h"
#include "frame/vestan.h"
#include "sys/procstat.h"

extern "C" int sysncpu(void) {
  char text[kProcStatSize];
  const ssize_t length = read_file("/proc/stat", text);
  if (length < 10) {
    elog_log(1, "Can't read /proc/stat");
    return 1;
  }
  return count_processors(without_first_line({text, static_cast<size_t>(length)}));
}
