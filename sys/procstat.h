// The processors' lines of /proc/stat, found the same way by syscpu and sysncpu.

#ifndef SYS_PROCSTAT_H
#define SYS_PROCSTAT_H

#include <cstddef>
#include <cstring>
#include <string_view>

// Only so much of /proc/stat is ever looked at, the final NUL included.
inline constexpr size_t kProcStatSize = 8192;

// What follows the first line of a text; nothing when the line does not end.
inline std::string_view without_first_line(std::string_view text) {
  const size_t newline = text.find('\n');
  text.remove_prefix(newline == text.npos ? text.size() : newline + 1);
  return text;
}

// How many lines in a row, from the first on, begin with "cpu".
inline int count_processors(std::string_view lines) {
  int count = 0;
  // Not starts_with, for which clang brings in an exception of the C++ runtime.
  for (; lines.size() >= 3 && std::memcmp(lines.data(), "cpu", 3) == 0;
       lines = without_first_line(lines))
    ++count;
  return count;
}

#endif
