// pidpwd: the working directory of a process, from the PWD in its environment as /bin/ps shows it.

#include "include/plintor.h"

#include <cstdio>
#include <cstring>

#include "frame/vestan.h"

extern "C" char *pidpwd(int pid) {
  if (pid <= 0) return nullptr;

  char command[64];
  std::snprintf(command, sizeof command, "/bin/ps -ww -o command e -p %d", pid);
  char language[] = "LANG=C";
  char *environment[] = {language, nullptr};
  int fd;
  const int handle = gxpipe(command, environment, &fd);
  if (handle < 0) return nullptr;
  char line[4096] = "";
  gxline(handle, line, sizeof line);  // the header
  gxline(handle, line, sizeof line);  // an empty line when there is no such process

  // The command, its arguments, its environment, all separated by blanks.
  // Kept: an argument that begins with PWD= counts, and a blank ends the directory.
  char *directory = nullptr;
  Tbl *words = split(line, ' ');
  for (long k = 1; const auto *word = static_cast<const char *>(gettbl(words, k)); ++k) {
    if (std::strncmp(word, "PWD=", 4) != 0) continue;
    directory = strdup(word + 4);
    break;
  }
  freetbl(words, nullptr);
  gxclose(handle);
  return directory;
}
