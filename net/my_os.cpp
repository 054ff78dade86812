// my_os: the name of the operating system's kernel, neither its release nor its version.

#include "include/plintor.h"

#include <sys/utsname.h>

#include <cstring>

extern "C" int my_os(char *system) {
  utsname host;
  if (const int failed = uname(&host); failed < 0) {
    *system = '\0';
    return failed;
  }
  strcpy(system, host.sysname);
  return 0;
}
