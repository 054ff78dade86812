/* host_report: this host, laid out for people.
 *
 * Each section asks one or two services of libplintor and prints what they answer, with units.
 * Lists come back as a Tbl that belongs to the library: lentbl counts it, gettbl gives a record.
 * To build: cc host_report.c $(pkg-config --cflags --libs plintor)
 */

#define _DEFAULT_SOURCE /* localtime_r, usleep */

#include <plintor.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/statvfs.h>
#include <time.h>
#include <unistd.h>
#include <vestan.h>

#define MEGABYTE 1048576.0

/* "12.3 GB" in `text`, which it returns. */
static const char *size_text(double bytes, char text[16]) {
  static const char *const units[] = {"B", "kB", "MB", "GB", "TB", "PB"};
  int unit = 0;
  for (; bytes >= 1000 && unit < 5; ++unit) bytes /= 1024;
  snprintf(text, 16, "%.*f %s", unit > 0 && bytes < 100, bytes, units[unit]);
  return text;
}

/* "[######..............]  30 %" */
static void print_bar(double percent) {
  char bar[21];
  for (int k = 0; k < 20; ++k) bar[k] = percent >= 5 * k + 2.5 ? '#' : '.';
  bar[20] = '\0';
  printf("[%s] %3.0f %%", bar, percent);
}

static const char *date_text(double seconds, char text[64]) {
  const time_t whole = (time_t)seconds;
  struct tm date;
  strftime(text, 64, "%a %d %b %Y %H:%M:%S %Z", localtime_r(&whole, &date));
  return text;
}

static void print_program_and_boot(void) {
  char text[64];
  printf("THIS HOST at %s\n", date_text(std_now(), text));
  printf("  program    %s\n", getexecname());

  const long boot = sysboottime();
  const long minutes = (long)(std_now() - (double)boot) / 60;
  printf("  booted     %s, up %ld d %ld h %ld min\n", date_text((double)boot, text), minutes / 1440,
         minutes / 60 % 24, minutes % 60);

  double load[3];
  int entities;
  sysloadavg(load, &entities);
  printf("  load       %.2f  %.2f  %.2f over 1, 5 and 15 minutes; %d processes and threads\n",
         load[0], load[1], load[2], entities);
}

static void print_identity(void) {
  char name[65], hardware[65], system[65], user[32], addresses[1024], ethernet[1024];
  my_hostname(name);
  my_hardware(hardware);
  my_os(system);
  my_username(user); /* "u#" and the number for a user without a name */
  printf("  host       %s, %s on %s\n", name, system, hardware);
  printf("  addresses  %s\n", my_ips(addresses, sizeof addresses) == 0 ? addresses : "none known");
  if (access("/sbin/ifconfig", X_OK) == 0 && my_ether(ethernet) == 0)
    printf("  Ethernet   %s\n", ethernet); /* "****" when ifconfig tells none */
  printf("  user       %s, in the time zone %s\n", user, getTZ());
}

/* A load is the difference of two samples, so the first one is only a start. */
static void print_processors(void) {
  int count;
  CpuState *states;
  syscpu(&count, &states);
  cpu_utilization();
  usleep(500000);
  syscpu(&count, &states);

  printf("\nPROCESSORS: %d, over half a second\n", sysncpu());
  for (int k = 0; k < count; ++k) {
    const float *share = states[k].slot;
    printf("  %3d        ", k);
    print_bar((double)share[0] + (double)share[1]);
    printf("   user %3.0f %%  system %3.0f %%  idle %3.0f %%\n", (double)share[0], (double)share[1],
           (double)share[3]);
  }
  if (count > 1)
    printf("  From processor 1 on these are what syscpu makes of this kernel's longer lines.\n");
}

static void print_memory(void) {
  double total, physical, used;
  char text[2][16];
  sysmem(&total, &physical, &used);
  printf("\nMEMORY\n  physical   %s\n", size_text(physical * MEGABYTE, text[0]));
  printf("  with swap  %s, %s of it in use, caches included\n             ",
         size_text(total * MEGABYTE, text[0]), size_text(used * MEGABYTE, text[1]));
  print_bar(total > 0 ? 100 * used / total : 0);
  printf("\n");
}

/* The mount table writes a blank in a name as \040, three octal digits. */
static const char *unescaped(const char *name, char path[4096]) {
  char *to = path;
  for (; *name != '\0'; ++to) {
    unsigned code;
    if (*name == '\\' && sscanf(name + 1, "%3o", &code) == 1) {
      *to = (char)code;
      name += 4;
    } else {
      *to = *name++;
    }
  }
  *to = '\0';
  return path;
}

static void print_mounts(void) {
  struct Tbl *mounts;
  printf("\nMOUNTS with space of their own\n");
  if (sysmounted(&mounts) != 0) return;
  for (long k = 0; k < lentbl(mounts); ++k) {
    const Mounted *mounted = gettbl(mounts, k);
    char path[4096], text[2][16];
    struct statvfs st;
    if (std_statvfs(unescaped(mounted->mountpoint, path), &st) != 0 || st.f_blocks == 0) continue;
    const double block = (double)st.f_frsize;
    const double used = (double)(st.f_blocks - st.f_bfree);
    const double usable = used + (double)st.f_bavail; /* what is reserved for root left out */
    printf("  ");
    print_bar(usable > 0 ? 100 * used / usable : 0);
    printf("  %8s of %8s  %s", size_text(used * block, text[0]),
           size_text((double)st.f_blocks * block, text[1]), path);
    if (mounted->host[0] != '\0') printf(" from %s", mounted->host);
    printf(" (%s)\n", mounted->fstype);
  }
}

static int busier(const void *left, const void *right) {
  const Pidstat *a = *(const Pidstat *const *)left, *b = *(const Pidstat *const *)right;
  if (a->pcpu != b->pcpu) return a->pcpu < b->pcpu ? 1 : -1;
  return (a->pid > b->pid) - (a->pid < b->pid);
}

static void print_processes(void) {
  struct Tbl *list;
  sysproc(&list); /* logs what it could not read; the rest is in the list */
  const Pidstat **sorted = malloc(((size_t)lentbl(list) + 1) * sizeof *sorted);
  if (sorted == NULL) return;
  long count = 0;
  for (long k = 0; k < lentbl(list); ++k) {
    const Pidstat *process = gettbl(list, k);
    /* The rest of a very long command line stands in the list as well, as a rule with pid 0. */
    if (process->pid > 0) sorted[count++] = process;
  }
  qsort(sorted, (size_t)count, sizeof *sorted, busier);

  printf("\nPROCESSES: %ld, the ten busiest\n", count);
  printf("      pid  user          cpu   memory  resident  command\n");
  for (long k = 0; k < count && k < 10; ++k) {
    char text[16];
    printf("  %7d  %-10.10s %4.1f %%   %4.1f %% %9s  %.40s\n", sorted[k]->pid, sorted[k]->user,
           sorted[k]->pcpu, sorted[k]->pmem, size_text(1024.0 * (double)sorted[k]->rss, text),
           sorted[k]->command);
  }
  free(sorted);
}

int main(void) {
  print_program_and_boot();
  print_identity();
  print_processors();
  print_memory();
  print_mounts();
  print_processes();
  printf("\nThis report has used %.0f %% of one processor since its first sample.\n",
         100 * cpu_utilization());
  return 0;
}
