// pidexecname: the program of a process as it was started, the first word of its command line.

#include "include/plintor.h"

#include <cstring>

extern "C" char *pidexecname(int pid) {
  char *const name = pidcmdline(pid);
  if (name != nullptr) name[std::strcspn(name, " ")] = '\0';
  return name;
}
