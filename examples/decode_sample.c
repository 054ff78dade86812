/* decode_sample: turns a big-endian sample file into host arrays and says what did not fit.
 *
 *   decode_sample FILE      a file as make_sample.py writes it
 *
 * 2-byte and 3-byte integers become ints, floats become ints, doubles become floats. The last two
 * cannot hold everything: the member answers -1 for the whole array, and one more walk, element by
 * element, finds out which.
 */

#include <plintor.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define MAX_FILE (64L << 20)
#define NAME_BYTES 20
#define UNIT_BYTES 12
#define SERIES_BYTES (NAME_BYTES + UNIT_BYTES + 1 + 3 + 4)
#define SHOWN 10 /* inexact elements listed by series */

/* What one series is read as. */
struct kind {
  char letter;
  int bytes; /* of an element in the file */
  const char *stored, *host;
};

static const struct kind kinds[] = {
    {'s', 2, "2-byte integers", "int"},
    {'t', 3, "3-byte integers", "int"},
    {'f', 4, "floats", "int"},
    {'d', 8, "doubles", "float"},
};

static int complain(const char *path, const char *what) {
  fprintf(stderr, "decode_sample: %s: %s\n", path, what);
  return 1;
}

/* Text from a file goes to a terminal: nothing but visible characters and blanks. */
static int printable(const char *text) {
  for (; *text; ++text)
    if (*text < ' ' || *text > '~') return 0;
  return 1;
}

/* n elements into ints or floats, whichever the kind is read as. */
static int convert(const struct kind *kind, char **cursor, int *ints, float *floats, int n) {
  switch (kind->letter) {
    case 's':
      return ms2hi(cursor, ints, n);
    case 't':
      return mt2hi(cursor, ints, n);
    case 'f':
      return mf2hi(cursor, ints, n);
    default:
      return md2hf(cursor, floats, n);
  }
}

/* Finds the elements that do not convert exactly: clears their flags in `exact` and lists the first
 * of them with the value that the file has.
 */
static void find_inexact(const struct kind *kind, char *elements, int n, const int *ints,
                        const float *floats, char *exact) {
  int k, inexact = 0;

  for (k = 0; k < n; ++k) {
    char *cursor = elements + (long)k * kind->bytes, *again = cursor;
    int one_int;
    float one_float;
    double value = 0;

    if (convert(kind, &cursor, &one_int, &one_float, 1) == 0) continue;
    exact[k] = 0;
    if (++inexact > SHOWN) continue;
    if (kind->letter == 'f') {
      mf2hd(&again, &value, 1);
      printf("    element %d: %.9g became %d\n", k, value, ints[k]);
    } else {
      md2hd(&again, &value, 1);
      printf("    element %d: %.17g became %.9g\n", k, value, (double)floats[k]);
    }
  }
  if (inexact > SHOWN) printf("    and %d more\n", inexact - SHOWN);
}

/* Sums up the elements that are exact. */
static void print_totals(const struct kind *kind, int n, const int *ints, const float *floats,
                         const char *exact, const char *unit) {
  double total = 0, least = 0, most = 0;
  int k, seen = 0;

  for (k = 0; k < n; ++k) {
    const double value = kind->letter == 'd' ? (double)floats[k] : (double)ints[k];

    if (!exact[k]) continue;
    total += value;
    if (seen == 0 || value < least) least = value;
    if (seen == 0 || value > most) most = value;
    ++seen;
  }
  if (seen < n) printf("    %d of %d not exact; the other %d:\n", n - seen, n, seen);
  if (seen > 0)
    printf("    least %.9g, most %.9g, total %.9g, mean %.6g %s\n", least, most, total,
           total / seen, unit);
  if (seen == n) printf("    all exact\n");
}

/* Decodes one series and moves the cursor behind it. */
static int decode_series(const char *path, char **cursor, const char *end) {
  char name[NAME_BYTES + 1] = "", unit[UNIT_BYTES + 1] = "";
  const struct kind *kind = NULL;
  unsigned int count, k;
  int n, *ints;
  float *floats;
  char *elements, *exact;

  if (end - *cursor < SERIES_BYTES) return complain(path, "ends within the head of a series");
  memcpy(name, *cursor, NAME_BYTES);
  memcpy(unit, *cursor + NAME_BYTES, UNIT_BYTES);
  *cursor += NAME_BYTES + UNIT_BYTES;
  if (!printable(name) || !printable(unit))
    return complain(path, "has a series with a name or unit that cannot be printed");
  for (k = 0; k < sizeof kinds / sizeof *kinds; ++k)
    if (kinds[k].letter == **cursor) kind = &kinds[k];
  if (!kind) return complain(path, "has a series of an unknown kind");
  *cursor += 1 + 3;
  umi2hi(cursor, &count, 1);
  if (count > (unsigned long)(end - *cursor) / (unsigned long)kind->bytes)
    return complain(path, "ends before the elements that it announces");

  n = (int)count; /* small: the file holds that many */
  ints = calloc((size_t)n + 1, sizeof *ints);
  floats = calloc((size_t)n + 1, sizeof *floats);
  exact = malloc((size_t)n + 1);
  if (!ints || !floats || !exact) {
    free(ints);
    free(floats);
    free(exact);
    return complain(path, "needs more memory than there is");
  }
  memset(exact, 1, (size_t)n + 1);
  printf("%s: %d %s, read as %s\n", name, n, kind->stored, kind->host);
  elements = *cursor;
  if (convert(kind, cursor, ints, floats, n) != 0)
    find_inexact(kind, elements, n, ints, floats, exact);
  print_totals(kind, n, ints, floats, exact, unit);
  free(ints);
  free(floats);
  free(exact);
  return 0;
}

static int decode(const char *path, char *bytes, long size) {
  char *cursor = bytes;
  const char *const end = bytes + size;
  unsigned short version, series, k;

  if (size < 8) return complain(path, "ends within its header");
  if (memcmp(cursor, "SAMP", 4) != 0) return complain(path, "is not a sample file");
  cursor += 4;
  ums2hs(&cursor, &version, 1);
  ums2hs(&cursor, &series, 1);
  if (version != 1) return complain(path, "has an unknown version");
  printf("%s: %ld bytes, %d series, big-endian\n", path, size, series);
  for (k = 0; k < series; ++k)
    if (decode_series(path, &cursor, end) != 0) return 1;
  if (cursor != end) return complain(path, "goes on behind its last series");
  return 0;
}

int main(int argc, char **argv) {
  char *bytes;
  long size;
  FILE *file;
  int failed;

  if (argc != 2) {
    fprintf(stderr, "usage: decode_sample FILE\n");
    return 2;
  }
  file = fopen(argv[1], "rb");
  if (!file) {
    perror(argv[1]);
    return 1;
  }
  bytes = malloc(MAX_FILE);
  if (!bytes) {
    fclose(file);
    return complain(argv[1], "needs more memory than there is");
  }
  size = (long)fread(bytes, 1, MAX_FILE, file);
  if (ferror(file)) {
    perror(argv[1]);
    failed = 1;
  } else if (size == MAX_FILE) {
    failed = complain(argv[1], "is too large");
  } else {
    failed = decode(argv[1], bytes, size);
  }
  free(bytes);
  fclose(file);
  return failed;
}
