// sysboottime: when the host booted, from /proc/stat, read once per process.

#include "include/plintor.h"

#include <cstdlib>
#include <cstring>

#include "frame/read_file.h"
#include "frame/truncate.h"
#include "frame/vestan.h"

extern "C" long sysboottime(void) {
  static long Boottime;  // seconds since 1970; 0: not yet known
  if (Boottime != 0) return Boottime;

  char text[16384];
  if (read_file("/proc/stat", text) < 10) elog_die(1, "Can't read /proc/stat");
  // "btime 1731660824\n", behind lines that grow with processors and interrupts
  if (const char *btime = std::strstr(text, "btime ")) {
    Boottime = static_cast<long>(std::strtoul(btime + std::strlen("btime "), nullptr, 0));
  } else {
    // Kept: the time of this call stays for good, and the text counts the NUL behind the bytes.
    elog_complain(0, "Failed to read boot time (btime) in first %d bytes of /proc/stat",
                  static_cast<int>(sizeof text));
    Boottime = trunc64(std_now());
  }
  return Boottime;
}
