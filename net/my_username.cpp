// my_username: the login name of the user who runs the process.

#include "include/plintor.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

extern "C" int my_username(char *name) {
  static char username[32];  // filled once; Kept: a later change of user is not seen
  if (*username == '\0') cuserid(username);
  if (*username == '\0') {
    // Kept: signed, as ids were.
    sprintf(name, "u#%d", static_cast<int>(getuid()));
    return -1;
  }
  strcpy(name, username);
  return 0;
}
