// pidinfo: the figures of one process, as /bin/ps prints them.

#include "include/plintor.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/vestan.h"
#include "sys/ps.h"

namespace {

// "      1     0   1000   200 S  0.0  0.1 00:00:01 Sun Nov 15 08:53:44 2026\n"
// Returns 0, or -1 when the line ends before the date.
int parse(char *line, Pidstat *p) {
  char *cursor = line;
  for (int32_t *field : {&p->ppid, &p->uid}) {
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
  std::strncpy(p->state, state, sizeof p->state - 1);
  // Kept: the time is read as one number, so "00:01:23" is 0; sysproc reads minutes:seconds. And
  // all three in the program's locale, so that one with a decimal comma loses the fractions.
  for (double *field : {&p->pcpu, &p->pmem, &p->cputime}) {
    const char *column = next_column(&cursor);
    if (column == nullptr) return -1;
    *field = std::atof(column);
  }
  char *const date = skip(cursor, 4);  // the weekday and its blank
  p->started = str2epoch(date);
  return date - cursor == 4 ? 0 : -1;
}

}  // namespace

extern "C" int pidinfo(int pid, Pidstat *p) {
  std::memset(p, 0, sizeof *p);
  if (pid <= 0) return -1;

  char command[128];
  std::snprintf(command, sizeof command,
                "LANG=C /bin/ps -ww -o ppid,uid,vsz,rss,state,pcpu,pmem,time,lstart -p %d", pid);
  FILE *output = popen(command, "r");
  if (output == nullptr) {
    elog_complain(1, "failed to run '%s'", command);
    return -1;
  }
  char line[4096] = "";
  read_line(output, line);  // the header
  // Kept: a process that does not exist has no second line, and the header is parsed in its place.
  read_line(output, line);
  p->pid = pid;
  const int result = parse(line, p);
  pclose(output);
  return result;
}
