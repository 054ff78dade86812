// my_hostname: the host's own label, its node name up to the first dot.

#include "include/plintor.h"

#include <sys/utsname.h>

#include <cstring>

extern "C" int my_hostname(char *name) {
  utsname host;
  if (const int failed = uname(&host); failed < 0) {
    *name = '\0';
    return failed;
  }
  host.nodename[strcspn(host.nodename, ".")] = '\0';
  strcpy(name, host.nodename);
  return 0;
}
