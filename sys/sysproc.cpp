// sysproc: a snapshot of every process on the host, from one run of /bin/ps.

#include "include/plintor.h"

#include <sys/time.h>

#include <cstdlib>
#include <cstring>

#include "frame/vestan.h"
#include "sys/ps.h"

namespace {

constexpr char kCommand[] =
    "/bin/ps -Ao pid,ppid,uid,vsz,rss,state,pcpu,pmem,time,lstart,user,command";

// "1 0 0 1000 200 Ss 0.0 0.1 00:01 Sun Nov 15 08:53:44 2026 root /sbin/init splash"
// Returns 0, or -1 when the line ends early; the fields behind its end keep what they held.
int ps2pidstat(char *line, Pidstat *p) {
  char *cursor = line;
  for (int32_t *field : {&p->pid, &p->ppid, &p->uid}) {
    const char *column = next_column(&cursor);
    if (column == nullptr) return -1;
    *field = std::atoi(column);
  }
  for (int64_t *field : {&p->vsz, &p->rss}) {
    const char *column = next_column(&cursor);
    if (column == nullptr) return -1;
    *field = std::atol(column);
  }
  const char *state = next_column(&cursor);
  if (state == nullptr) return -1;
  // Kept: 14 letters of 16, one fewer than pidinfo takes.
  strlcpy(p->state, state, 15);
  // Kept: in the program's locale, so that one with a decimal comma loses the fractions.
  for (double *field : {&p->pcpu, &p->pmem}) {
    const char *column = next_column(&cursor);
    if (column == nullptr) return -1;
    *field = std::atof(column);
  }

  // Kept: minutes:seconds whatever follows, so "01:02:03" is 62 and "5" is 300.
  char *minutes = next_column(&cursor);
  if (minutes == nullptr) return -1;
  char *colon = std::strchr(minutes, ':');
  const char *seconds = "0";
  if (colon != nullptr) {
    *colon = '\0';
    seconds = colon + 1;
  }
  p->cputime = std::atof(minutes) * 60 + std::atof(seconds);

  // "Sun Nov 15 08:53:44 2026 ": 4 characters of weekday, 20 of date, a blank.
  char *const date = skip(cursor, 4);
  char *const date_end = skip(date, 20);
  cursor = skip(date_end, 1);
  *date_end = '\0';
  p->started = str2epoch(date);

  const char *user = next_column(&cursor);
  if (user == nullptr) return -1;
  strlcpy(p->user, user, sizeof p->user);
  // The command keeps its tabs and inner blanks.
  strlcpy(p->command, cursor + std::strspn(cursor, " "), sizeof p->command);
  return 0;
}

}  // namespace

extern "C" int sysproc(struct Tbl **procs) {
  static Tbl *newprocs = nullptr;
  if (newprocs == nullptr) {
    newprocs = inittbl(nullptr, 100, 1, nullptr, sizeof(Pidstat));
  } else {
    clrtbl(newprocs, nullptr);
  }

  int result = 0;
  char language[] = "LANG=C";
  char *environment[] = {language, nullptr};
  int fd;
  const int handle = gxpipe(kCommand, environment, &fd);
  struct timeval now;
  gettimeofday(&now, nullptr);
  if (handle >= 0) {
    char line[10240];
    char untouched[10240];
    // Kept: zeroed once, so a line that ends early leaves the figures of the line before.
    Pidstat work;
    std::memset(&work, 0, sizeof work);
    // The header. Kept: it may be the last words of a ps that could not be executed, or missing.
    if (gxline(handle, line, sizeof line) != 0) {
      // Kept: each piece of a line that is longer than the buffer counts as a line.
      while (gxline(handle, line, sizeof line) != 0) {
        strlcpy(untouched, line, sizeof untouched);
        if (ps2pidstat(line, &work) != 0) {
          elog_complain(0, "failed reading line '%s'", untouched);
          result = -1;
        }
        work.sampled = now;
        pushtbl(newprocs, &work);
      }
    }
    gxclose(handle);
  } else {
    elog_complain(1, "failed to run command '%s'", kCommand);
    result = -1;
  }
  *procs = newprocs;
  return result;
}
