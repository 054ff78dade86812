// pidrtsys: the real-time systems that run on this host, one for each live korvex process.

#include "include/plintor.h"

#include <pwd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/report.h"
#include "frame/vestan.h"
#include "sys/ps.h"

namespace {

constexpr char kCommand[] = "LANG=C /bin/ps -e -o pid";
constexpr char kInstallRoot[] = "/opt/vestan/";

// "/opt/vestan/5.4/bin/korvex -n 3": whether this is the command line of an executive, and which
// version it was started from. The patterns are compiled once and stay.
bool is_executive(const char *command_line, char version[1024]) {
  static void *korvex_hook = nullptr;
  static void *dashk_hook = nullptr;
  static void *version_hook = nullptr;
  long start = 0;
  long end = 0;
  if (!strcontains(command_line, "/opt/vestan/.*/bin/korvex", &korvex_hook, &start, &end))
    return false;
  // Kept: "-k" leaves an executive out wherever it stands, inside "-keep" or a path too.
  if (strcontains(command_line, "-k", &dashk_hook, &start, &end)) return false;
  // Kept: the root's length is skipped from the first character, so behind an interpreter the
  // version is whatever stands there. A command line that matched is longer than the root.
  const char *text = command_line + sizeof kInstallRoot - 1;
  if (!strcontains(text, "^[^/]+", &version_hook, &start, &end)) return false;
  const size_t length = std::min(static_cast<size_t>(end - start), size_t{1023});
  std::memcpy(version, text + start, length);
  version[length] = '\0';
  return true;
}

void describe(int pid, RtSystem *system) {
  Pidstat info;
  pidinfo(pid, &info);  // Kept: without figures the uid is 0
  const struct passwd *user = getpwuid(static_cast<uid_t>(info.uid));
  char *directory = pidpwd(pid);
  strlcpy(system->host, "localhost", sizeof system->host);
  if (user != nullptr && user->pw_name != nullptr)
    strlcpy(system->user, user->pw_name, sizeof system->user);
  if (directory != nullptr) strlcpy(system->pwd, directory, sizeof system->pwd);
  system->pid = pid;
  system->running = 1;
  std::free(directory);
}

}  // namespace

extern "C" int pidrtsys(RtSystem **systems) {
  Tbl *list = newtbl(0);
  *systems = nullptr;
  FILE *output = popen(kCommand, "r");
  if (output == nullptr) {
    elog_complain(1, "failed to run '%s'", kCommand);
    freetbl(list, nullptr);
    return 0;
  }

  char line[4096];
  read_line(output, line);  // the header
  while (read_line(output, line)) {
    int pid;
    if (std::sscanf(line, "%d", &pid) < 1) continue;
    char *command_line = pidcmdline(pid);
    if (command_line == nullptr) continue;
    char version[1024];
    const bool wanted = is_executive(command_line, version);
    std::free(command_line);
    if (!wanted) continue;
    RtSystem *asys = static_cast<RtSystem *>(std::calloc(1, sizeof *asys));
    if (asys == nullptr) DIE_OUT_OF_MEMORY("pidrtsys", 79, "pidrtsys.cpp", "asys", 1);
    describe(pid, asys);
    strlcpy(asys->version, version, sizeof asys->version);
    pushtbl(list, asys);
  }

  const int count = static_cast<int>(lentbl(list));
  if (count > 0) {
    *systems = static_cast<RtSystem *>(std::calloc(static_cast<size_t>(count), sizeof **systems));
    if (*systems == nullptr) DIE_OUT_OF_MEMORY("pidrtsys", 103, "pidrtsys.cpp", "*systems", count);
  }
  for (int k = 0; k < count; ++k) (*systems)[k] = *static_cast<RtSystem *>(gettbl(list, k));
  freetbl(list, std::free);
  pclose(output);
  return count;
}
