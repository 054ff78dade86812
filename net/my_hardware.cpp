// my_hardware: the machine type, as uname tells it.

#include "include/plintor.h"

#include <sys/utsname.h>

#include <cstring>

extern "C" int my_hardware(char *machine) {
  utsname host;
  if (const int failed = uname(&host); failed < 0) {
    *machine = '\0';
    return failed;
  }
  strcpy(machine, host.machine);
  return 0;
}
