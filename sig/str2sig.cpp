// str2sig, sig2str: signal numbers to names and back, through one table.

#include "include/plintor.h"

#include <cstring>

namespace {

struct Signal {
  const char *name;
  int number;
};

// Kept: the first row with a number names it: 6 is IOT and 17 is CLD.
// Kept: KILL, STOP, STKFLT, IO and the real-time signals cannot be named.
// clang-format off
constexpr int Nsig = 30;
constexpr Signal Siglist[Nsig] = {
    {"HUP",     1},
    {"INT",     2},
    {"QUIT",    3},
    {"ILL",     4},
    {"TRAP",    5},
    {"IOT",     6},
    {"ABRT",    6},
    {"FPE",     8},
    {"BUS",     7},
    {"SEGV",   11},
    {"SYS",    31},
    {"PIPE",   13},
    {"ALRM",   14},
    {"TERM",   15},
    {"USR1",   10},
    {"USR2",   12},
    {"CLD",    17},
    {"CHLD",   17},
    {"PWR",    30},
    {"WINCH",  28},
    {"URG",    23},
    {"POLL",   29},
    {"TSTP",   20},
    {"CONT",   18},
    {"TTIN",   21},
    {"TTOU",   22},
    {"VTALRM", 26},
    {"PROF",   27},
    {"XCPU",   24},
    {"XFSZ",   25},
};
// clang-format on

}  // namespace

extern "C" int str2sig(const char *name, int *number) {
  if (std::strncmp(name, "SIG", 3) == 0) name += 3;
  for (const Signal &row : Siglist) {
    if (std::strcmp(name, row.name) == 0) {
      *number = row.number;
      return 0;
    }
  }
  return -1;
}

extern "C" int sig2str(int number, char *name) {
  name[0] = '\0';
  for (const Signal &row : Siglist) {
    if (row.number == number) {
      std::strcpy(name, "SIG");
      std::strcat(name, row.name);
      return 0;
    }
  }
  return -1;
}
