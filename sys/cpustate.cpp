// syscpu: how each processor has spent its time since the previous call, in percent, from
// /proc/stat.

#include "include/plintor.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>

#include "frame/read_file.h"
#include "frame/report.h"
#include "frame/vestan.h"
#include "sys/procstat.h"

namespace {

// Clock ticks since boot: user and nice, system, idle, 0, and one that is never written.
struct CpuTicks {
  uint64_t slot[5];
};

// "cpu0 1745 12 737 108465\ncpu1 ...": name, user, nice, system, idle. The text ends with a NUL.
// Kept: a line of more columns leaves the cursor in its middle, and the next processor's numbers
// are taken from there.
void parse_ticks(std::string_view lines, std::span<CpuTicks> processors) {
  const char *cursor = lines.data();
  const char *const end = cursor + lines.size();
  for (CpuTicks &ticks : processors) {
    while (cursor < end && *cursor++ != ' ') {
    }
    uint64_t column[4];
    for (uint64_t &ticks_in : column) {
      char *behind;
      ticks_in = std::strtoul(cursor, &behind, 0);
      cursor = behind;
    }
    while (cursor < end && *cursor == '\n') ++cursor;
    ticks.slot[0] = column[0] + column[1];
    ticks.slot[1] = column[2];
    ticks.slot[2] = column[3];
    ticks.slot[3] = 0;
  }
}

// The shares of the ticks that passed between two reads.
CpuState percentages(const CpuTicks &from, const CpuTicks &to) {
  float passed[3];
  for (int k = 0; k < 3; ++k) passed[k] = static_cast<float>(to.slot[k] - from.slot[k]);
  float total = passed[0] + passed[1] + passed[2];
  if (total == 0) total = 1;  // nothing moved: three shares of 0
  const auto percent = [total](float ticks) {
    return static_cast<float>(static_cast<double>(ticks) * 100 / static_cast<double>(total));
  };
  return {{percent(passed[0]), percent(passed[1]), 0, percent(passed[2]), 0}};
}

}  // namespace

extern "C" void syscpu(int *ncpu, CpuState **cpu) {
  static int n;  // Kept: the most processors seen so far; the arrays never shrink
  static CpuState *states;
  static CpuTicks *current, *previous;

  char text[kProcStatSize];
  const ssize_t length = read_file("/proc/stat", text);
  if (length < 10) elog_die(1, "Can't read /proc/stat");
  const std::string_view lines = without_first_line({text, static_cast<size_t>(length)});

  if (const int count = count_processors(lines); count > n) {
    n = count;
    const auto size = static_cast<size_t>(n);
    states = static_cast<CpuState *>(std::realloc(states, size * sizeof *states));
    if (states == nullptr) DIE_OUT_OF_MEMORY("syscpu", 56, "cpustate.cpp", "cpu", n);
    current = static_cast<CpuTicks *>(std::realloc(current, size * sizeof *current));
    if (current == nullptr) DIE_OUT_OF_MEMORY("syscpu", 57, "cpustate.cpp", "new", n);
    previous = static_cast<CpuTicks *>(std::realloc(previous, size * sizeof *previous));
    if (previous == nullptr) DIE_OUT_OF_MEMORY("syscpu", 58, "cpustate.cpp", "old", n);
    // Kept: as many bytes as the percentages take, which is half of the ticks.
    std::memset(previous, 0, size * sizeof *states);
  }
  *ncpu = n;

  const auto size = static_cast<size_t>(n);
  parse_ticks(lines, {current, size});
  for (size_t i = 0; i < size; ++i) {
    states[i] = percentages(previous[i], current[i]);
    previous[i] = current[i];
  }
  *cpu = states;
}
