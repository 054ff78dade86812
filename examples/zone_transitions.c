/* zone_transitions: what a zone-information file of the host says, decoded from big-endian bytes.
 *
 *   zone_transitions Europe/Paris ...    a zone by name, or a file by a path with '/' or '.' first
 *
 * Such a file holds a header, then arrays of numbers of 1, 4 and 8 bytes side by side, all
 * big-endian (RFC 8536). A cursor walks through them: every member takes its array and leaves the
 * cursor behind it.
 */

#include <plintor.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define ZONES "/usr/share/zoneinfo/"
#define MAX_FILE (1 << 20) /* the largest zone of any host is far below */

/* A decoded file. The arrays are malloc'ed; names and footer point into the file's bytes. */
struct zone {
  int version;
  int transitions, types, leaps, name_bytes;
  long *times;    /* when the local time changes, leap seconds included */
  int *kinds;     /* ... and to which of the types */
  int *offsets;   /* of each type: seconds east of UT, */
  int *daylight;  /* 1 for daylight saving time, */
  int *name_at;   /* and where its name starts */
  long *leap_times;
  int *leap_sums; /* leap seconds inserted up to and with that one */
  const char *names;
  char *footer;   /* the rule for later years, empty without one */
};

/* Numbers of one block's header, in the order of the file. */
enum { UT_FLAGS, STANDARD_FLAGS, LEAPS, TRANSITIONS, TYPES, NAME_BYTES, COUNTS };
#define HEADER_BYTES (4 + 1 + 15 + 4 * COUNTS)

static int complain(const char *path, const char *what) {
  fprintf(stderr, "zone_transitions: %s: %s\n", path, what);
  return -1;
}

/* Reads a header and checks that the data it announces is there. Returns the bytes of that data,
 * or -1. `time_bytes` is the width of a time: 4 in the first block, 8 in the second.
 */
static long read_header(const char *path, char **cursor, const char *end,
                        unsigned long time_bytes, int *version, unsigned int counts[COUNTS]) {
  unsigned long size;

  if (end - *cursor < HEADER_BYTES) return complain(path, "ends within a header");
  if (memcmp(*cursor, "TZif", 4) != 0) return complain(path, "is not a zone-information file");
  *version = (*cursor)[4] == '\0' ? 1 : (*cursor)[4] - '0';
  if (*version < 1 || *version > 9) return complain(path, "has an unknown version");
  *cursor += 4 + 1 + 15;
  umi2hi(cursor, counts, COUNTS);

  /* Each count is below 2^32, so the sum is far from overflowing 64 bits. */
  size = counts[TRANSITIONS] * (time_bytes + 1) + counts[TYPES] * 6UL + counts[NAME_BYTES] +
         counts[LEAPS] * (time_bytes + 4) + counts[STANDARD_FLAGS] + counts[UT_FLAGS];
  if (size > (unsigned long)(end - *cursor))
    return complain(path, "ends before the data that its header announces");
  return (long)size;
}

/* Text from a file goes to a terminal: nothing but visible characters and blanks. */
static int printable(const char *text) {
  for (; *text; ++text)
    if (*text < ' ' || *text > '~') return 0;
  return 1;
}

static void *array(int count, size_t size) { return calloc((size_t)count + 1, size); }

/* The data of one block, whose size is known to be there. */
static int read_data(const char *path, char **cursor, int time_bytes,
                     const unsigned int counts[COUNTS], struct zone *zone) {
  int k;

  zone->transitions = (int)counts[TRANSITIONS];
  zone->types = (int)counts[TYPES];
  zone->leaps = (int)counts[LEAPS];
  zone->name_bytes = (int)counts[NAME_BYTES];
  zone->times = array(zone->transitions, sizeof *zone->times);
  zone->kinds = array(zone->transitions, sizeof *zone->kinds);
  zone->offsets = array(zone->types, sizeof *zone->offsets);
  zone->daylight = array(zone->types, sizeof *zone->daylight);
  zone->name_at = array(zone->types, sizeof *zone->name_at);
  zone->leap_times = array(zone->leaps, sizeof *zone->leap_times);
  zone->leap_sums = array(zone->leaps, sizeof *zone->leap_sums);
  if (!zone->times || !zone->kinds || !zone->offsets || !zone->daylight || !zone->name_at ||
      !zone->leap_times || !zone->leap_sums)
    return complain(path, "needs more memory than there is");

  /* Times of either width become longs; single bytes become ints. */
  if (time_bytes == 4)
    mi2hl(cursor, zone->times, zone->transitions);
  else
    ml2hl(cursor, zone->times, zone->transitions);
  umb2hi(cursor, (unsigned int *)zone->kinds, zone->transitions);
  for (k = 0; k < zone->types; ++k) {
    mi2hi(cursor, &zone->offsets[k], 1);
    umb2hi(cursor, (unsigned int *)&zone->daylight[k], 1);
    umb2hi(cursor, (unsigned int *)&zone->name_at[k], 1);
  }
  zone->names = *cursor;
  *cursor += zone->name_bytes;
  for (k = 0; k < zone->leaps; ++k) {
    if (time_bytes == 4)
      mi2hl(cursor, &zone->leap_times[k], 1);
    else
      ml2hl(cursor, &zone->leap_times[k], 1);
    mi2hi(cursor, &zone->leap_sums[k], 1);
  }
  *cursor += counts[STANDARD_FLAGS] + counts[UT_FLAGS];

  if (zone->types == 0) return complain(path, "has no local time at all");
  for (k = 0; k < zone->transitions; ++k) {
    if (zone->kinds[k] >= zone->types)
      return complain(path, "has a transition to a local time that it does not describe");
    if (k > 0 && zone->times[k] <= zone->times[k - 1])
      return complain(path, "has transitions that are not in order");
  }
  for (k = 0; k < zone->types; ++k) {
    if (zone->name_at[k] >= zone->name_bytes ||
        !memchr(zone->names + zone->name_at[k], '\0',
                (size_t)(zone->name_bytes - zone->name_at[k])))
      return complain(path, "has a local time without a name");
    if (!printable(zone->names + zone->name_at[k]))
      return complain(path, "has a name that cannot be printed");
    if (zone->offsets[k] <= -604800 || zone->offsets[k] >= 604800) /* a week */
      return complain(path, "has an impossible offset from UT");
  }
  return 0;
}

/* "\nCET-1CEST,M3.5.0,M10.5.0/3\n" behind the second block. */
static int read_footer(const char *path, char *cursor, char *end, struct zone *zone) {
  char *line_end;

  if (cursor == end || *cursor != '\n') return complain(path, "ends before its footer");
  ++cursor;
  line_end = memchr(cursor, '\n', (size_t)(end - cursor));
  if (!line_end || memchr(cursor, '\0', (size_t)(line_end - cursor)))
    return complain(path, "ends within its footer");
  *line_end = '\0';
  zone->footer = cursor;
  if (!printable(cursor)) return complain(path, "has a footer that cannot be printed");
  return 0;
}

static int read_zone(const char *path, char *bytes, long size, struct zone *zone) {
  static char nothing[] = "";
  char *cursor = bytes, *const end = bytes + size;
  unsigned int counts[COUNTS];
  long data;

  zone->footer = nothing;
  data = read_header(path, &cursor, end, 4, &zone->version, counts);
  if (data < 0) return -1;
  if (zone->version == 1) return read_data(path, &cursor, 4, counts, zone);

  /* From version 2 on everything follows a second time with times of 8 bytes. */
  cursor += data;
  if (read_header(path, &cursor, end, 8, &zone->version, counts) < 0) return -1;
  if (read_data(path, &cursor, 8, counts, zone) != 0) return -1;
  return read_footer(path, cursor, end, zone);
}

static void free_zone(struct zone *zone) {
  free(zone->times);
  free(zone->kinds);
  free(zone->offsets);
  free(zone->daylight);
  free(zone->name_at);
  free(zone->leap_times);
  free(zone->leap_sums);
}

/* "1911-03-10 23:50:39", of any year that 64 bits of seconds reach. */
static const char *date(long seconds, char text[48]) {
  long days = seconds / 86400, rest = seconds % 86400, era, year;
  int day_of_era, year_of_era, day, month;

  if (rest < 0) {
    rest += 86400;
    --days;
  }
  /* Years that start in March, in eras of 400 years or 146097 days. */
  days += 719468;
  era = days / 146097 - (days % 146097 < 0);
  day_of_era = (int)(days - era * 146097);
  year_of_era = (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  day = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  month = (5 * day + 2) / 153; /* 0 is March */
  day -= (153 * month + 2) / 5;
  year = era * 400 + year_of_era + (month >= 10);
  sprintf(text, "%04ld-%02d-%02d %02ld:%02ld:%02ld", year, (month + 2) % 12 + 1, day + 1,
          rest / 3600, rest / 60 % 60, rest % 60);
  return text;
}

/* "+01:00:00" */
static const char *offset(int seconds, char text[16]) {
  const int size = seconds < 0 ? -seconds : seconds;

  sprintf(text, "%c%02d:%02d:%02d", seconds < 0 ? '-' : '+', size / 3600, size / 60 % 60,
          size % 60);
  return text;
}

/* A sum that stays at the end of the range where it would leave it. */
static long plus(long a, long b) {
  if (b > 0 && a > __LONG_MAX__ - b) return __LONG_MAX__;
  if (b < 0 && a < -__LONG_MAX__ - 1 - b) return -__LONG_MAX__ - 1;
  return a + b;
}

/* Leap seconds that lie at or before a time of the file. */
static int leap_seconds(const struct zone *zone, long time) {
  int k, sum = 0;

  for (k = 0; k < zone->leaps && zone->leap_times[k] <= time; ++k) sum = zone->leap_sums[k];
  return sum;
}

/* All transitions; the local time before the first one is the file's first type. */
static void print_zone(const char *title, const char *path, long size, const struct zone *zone) {
  char utc[48], local[48], east[16];
  int k, before = 0;

  printf("%s: %d transitions between %d local times (%s, %ld bytes, version %d)\n", title,
         zone->transitions, zone->types, path, size, zone->version);
  for (k = 0; k < zone->leaps; ++k) {
    /* Its 60th second is the next day's first to a clock that does not know of it. */
    const long eve = plus(zone->leap_times[k], -1 - (k > 0 ? (long)zone->leap_sums[k - 1] : 0));

    printf("%s%.*s",
           k == 0 ? "Counts a leap second at the end of each of these days:\n  "
           : k % 8 == 0 ? ",\n  " : ", ",
           (int)strcspn(date(eve, utc), " "), utc);
  }
  if (zone->leaps > 0) printf("\n");
  if (zone->footer[0] != '\0') printf("Later years follow the rule %s\n", zone->footer);
  printf("\n%-20s  %-20s  %-9s  %-8s  %s\n", "UTC", "new local time", "UT offset", "daylight",
         "name");
  printf("%-20s  %-20s  %s  %-8s  %s\n", "before", "", offset(zone->offsets[0], east),
         zone->daylight[0] ? "yes" : "no", zone->names + zone->name_at[0]);
  for (k = 0; k < zone->transitions; ++k) {
    const int kind = zone->kinds[k];
    const long moment = plus(zone->times[k], -(long)leap_seconds(zone, zone->times[k]));
    const int same =
        zone->offsets[kind] == zone->offsets[before] &&
        zone->daylight[kind] == zone->daylight[before] &&
        strcmp(zone->names + zone->name_at[kind], zone->names + zone->name_at[before]) == 0;

    printf("%-20s  %-20s  %s  %-8s  %s%s\n", date(moment, utc),
           date(plus(moment, zone->offsets[kind]), local), offset(zone->offsets[kind], east),
           zone->daylight[kind] ? "yes" : "no", zone->names + zone->name_at[kind],
           same ? "  (nothing changes)" : "");
    before = kind;
  }
}

static int show(const char *title) {
  char path[4096];
  char *bytes;
  long size;
  FILE *file;
  struct zone zone;
  int failed;

  memset(&zone, 0, sizeof zone);
  if (snprintf(path, sizeof path, "%s%s", strchr("/.", title[0]) ? "" : ZONES, title) >=
      (int)sizeof path)
    return complain(title, "is too long a name");
  file = fopen(path, "rb");
  if (!file) {
    perror(path);
    return -1;
  }
  bytes = malloc(MAX_FILE);
  if (!bytes) {
    fclose(file);
    return complain(path, "needs more memory than there is");
  }
  size = (long)fread(bytes, 1, MAX_FILE, file);
  if (ferror(file)) {
    perror(path);
    failed = -1;
  } else if (size == MAX_FILE) {
    failed = complain(path, "is too large for a zone");
  } else {
    failed = read_zone(path, bytes, size, &zone);
    if (!failed) print_zone(title, path, size, &zone);
  }
  free_zone(&zone);
  free(bytes);
  fclose(file);
  return failed;
}

int main(int argc, char **argv) {
  int k, failed = 0;

  if (argc < 2) {
    fprintf(stderr, "usage: zone_transitions ZONE|FILE ...\n");
    return 2;
  }
  for (k = 1; k < argc; ++k) {
    if (k > 1) printf("\n");
    if (show(argv[k]) != 0) failed = 1;
  }
  return failed;
}
