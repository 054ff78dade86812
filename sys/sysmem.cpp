// sysmem: memory plus swap, in total and in use, and the physical memory, from /proc/meminfo and
// sysconf, in megabytes.

#include "include/plintor.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "frame/read_file.h"
#include "frame/vestan.h"

namespace {

constexpr double kMegabyte = 1048576;

// In bytes; what the text does not tell is 0.
struct Meminfo {
  double mem_total = 0, mem_free = 0, swap_total = 0, swap_free = 0, buffers = 0;
};

// Where each number starts, counted from its key's first letter.
constexpr struct {
  const char *key;
  int start;
  double Meminfo::*bytes;
} kLines[] = {
    // clang-format off
    {"MemTotal:",   9, &Meminfo::mem_total},
    {"MemFree:",    8, &Meminfo::mem_free},
    {"SwapTotal:", 10, &Meminfo::swap_total},
    {"SwapFree:",   9, &Meminfo::swap_free},
    {"Buffers:",   13, &Meminfo::buffers},  // Kept: 13, past blanks that the kernel puts there
    // clang-format on
};

// Bytes in a unit; only its first two letters count.
double memfactor(const char *unit) {
  if (std::strncmp(unit, "kB", 2) == 0) return 1024.0;
  if (std::strncmp(unit, "MB", 2) == 0) return 1048576.0;
  return 1.0;
}

// "MemTotal:       24678920 kB\n": each key where it first stands, its number, one blank, a unit.
// `end` is the NUL behind the text: a number or a unit that would lie past it is not there.
Meminfo parse_meminfo(const char *text, const char *end) {
  Meminfo memory;
  for (const auto &line : kLines) {
    const char *key = std::strstr(text, line.key);
    if (key == nullptr) continue;
    char *behind;
    const auto number = std::strtoul(key + std::min<ptrdiff_t>(line.start, end - key), &behind, 0);
    memory.*line.bytes = static_cast<double>(number) * memfactor(behind < end ? behind + 1 : end);
  }
  return memory;
}

}  // namespace

extern "C" void sysmem(double *total, double *physical, double *used) {
  const auto pages = static_cast<unsigned long>(sysconf(_SC_PHYS_PAGES));
  const auto page_size = static_cast<unsigned long>(sysconf(_SC_PAGESIZE));

  char text[8192];
  const ssize_t length = read_file("/proc/meminfo", text);
  // Kept: without errno, and a file that cannot be read is an empty one.
  if (length < 0) elog_die(0, "Can't open /proc/meminfo");
  const Meminfo memory = parse_meminfo(text, text + length);

  *total = (memory.mem_total + memory.swap_total) / kMegabyte;
  *physical = static_cast<double>(pages * page_size) / kMegabyte;
  *used = (memory.mem_total - memory.mem_free + memory.swap_total - memory.swap_free) / kMegabyte;
}
