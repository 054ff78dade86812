/* vestan.h: the base library, libvestan: error log, lists, arrays, strings, paths, dates.
 *
 * libplintor reports its failures through these functions and keeps its lists with them. It
 * imports them by name: a program may define any of them itself, and its own then counts.
 *
 * What holds for every function, unless its own comment says otherwise:
 *
 * Memory     An exhausted allocation ends the process through elog_die.
 * Locale     Nothing here depends on the locale that the program has chosen.
 * Threads    Any thread may call any function. A Tbl, an Arr, a growing string or a stream that
 *            threads share is for the caller to lock.
 */

#ifndef VESTAN_H
#define VESTAN_H

#include <stdio.h>

struct stat; /* sys/stat.h */

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* ---- Error log ------------------------------------------------------------------------------- */

/* An entry is the text "PROGRAM: SEVERITY: MESSAGE", written to standard error with one write, so
 * that entries of several threads and processes do not mix. It ends with one newline, however many
 * the message has; other newlines in it stay.
 *
 * syserr  1 when errno describes the failure: ": " and its text follow the message. Else 0.
 * format  the message, as for printf
 *
 * The calls leave errno alone, take no lock and allocate nothing for a message below 2900
 * characters: a child forked by a program with threads may call them.
 */

/* Records a failure that the caller goes on to return. Severity "error". */
void elog_log(int syserr, const char *format, ...) __attribute__((format(printf, 2, 3)));

/* Records a failure that the caller works around. Severity "warning". */
void elog_complain(int syserr, const char *format, ...) __attribute__((format(printf, 2, 3)));

/* Records a failure after which the process cannot go on, severity "fatal", and ends the process
 * with status 1. Never returns.
 *
 * The process ends through exit: exit handlers run and the stdio streams are written out. A child
 * that fork, vfork or clone made and that has not executed a program since ends through _exit: what
 * its parent had not yet written is the parent's to write.
 */
void elog_die(int syserr, const char *format, ...)
    __attribute__((format(printf, 2, 3), noreturn));

/* ---- Tbl: an ordered list -------------------------------------------------------------------- */

/* Slots numbered from 0, side by side in memory. A slot of a pointer Tbl (newtbl) is a pointer or
 * a number of its size; a slot of a record Tbl (inittbl) is a record, copied in by value.
 *
 * Growing a Tbl moves its slots: addresses from addrtbl and from a record Tbl's gettbl are valid
 * until the next change.
 *
 * The members are for the functions below alone.
 */
typedef struct Tbl {
  long count;     /* slots in use, 64 bits */
  char *slots;    /* room for `capacity` slots; null while that is 0 */
  long capacity;
  long slot_size; /* bytes */
  int records;    /* 0: slots hold pointers */
} Tbl;

/* The number of slots in use; 0 for a null Tbl. */
static inline long lentbl(const Tbl *t) { return t ? t->count : 0; }

/* A new, empty pointer Tbl. The caller frees it with freetbl.
 *
 * count  how many slots to make room for at once; 0 or less: none yet
 */
Tbl *newtbl(long count);

/* A new, empty record Tbl. The caller frees it with freetbl.
 *
 * initial       null
 * count         how many records to make room for at once; 0 or less: none yet
 * kind          1: records held by value
 * values        null
 * element_size  bytes in a record, at least 1
 *
 * Returns null when an argument is not as said here.
 */
Tbl *inittbl(Tbl *initial, long count, int kind, void *values, int element_size);

/* Stores in a slot.
 *
 * index  0 .. lentbl(t); lentbl(t) appends
 * value  pointer Tbl: what to store; null empties the slot, and the others keep their numbers.
 *        Record Tbl: the address of the record to copy; null stores zeros.
 *
 * Returns 0, or -1 with nothing changed when t is null or the index is outside.
 */
int settbl(Tbl *t, long index, void *value);

/* What a slot holds.
 *
 * index  any number
 *
 * Returns the pointer stored in the slot, or the address of the record in it; null when t is null
 * or the index is not in 0 .. lentbl(t) - 1.
 */
void *gettbl(const Tbl *t, long index);

/* Appends a slot.
 *
 * value  as for settbl; a record may be one of the Tbl's own
 */
void pushtbl(Tbl *t, void *value);

/* The address of a slot. Those of a pointer Tbl form an array: with a null pushed at its end,
 * addrtbl(t, 0) is an argument vector for execv. Null when t is null or the index is not in
 * 0 .. lentbl(t) - 1.
 */
void *addrtbl(const Tbl *t, long index);

/* Empties a Tbl and keeps its room. Null: nothing to do.
 *
 * free_each  null, or called in order for each pointer stored that is not null (each record's
 *            address)
 */
void clrtbl(Tbl *t, void (*free_each)(void *));

/* Releases a Tbl. Null: nothing to do.
 *
 * free_each  as for clrtbl
 */
void freetbl(Tbl *t, void (*free_each)(void *));

/* ---- Arr: values under names ----------------------------------------------------------------- */

/* Pointers, or numbers of their size, under NUL-terminated keys. The Arr has its own copies of the
 * keys; the values are the caller's.
 */
typedef struct Arr Arr;

/* A new, empty Arr. The caller frees it with freearr.
 *
 * compare  the order of the keys, as strcmp: 0 when two keys are the same. Null: ascending byte
 *          order.
 */
Arr *newarr(int (*compare)(const char *, const char *));

/* Stores a value under a copy of the key, in place of an earlier value. A null Arr or key: nothing
 * is stored.
 */
void setarr(Arr *a, const char *key, void *value);

/* The value under the key; null when there is none. */
void *getarr(const Arr *a, const char *key);

/* The keys in their order, as a new pointer Tbl: the caller frees it with freetbl(t, NULL). The
 * strings are the Arr's, until freearr.
 */
Tbl *keysarr(const Arr *a);

/* Releases an Arr and its keys. Null: nothing to do.
 *
 * free_each  null, or called for each value that is not null, in the order of the keys
 */
void freearr(Arr *a, void (*free_each)(void *));

/* ---- Strings --------------------------------------------------------------------------------- */

/* Appends to a growing string.
 *
 * handle  the string: a void * that is null before the first call
 * text    what to append; null appends nothing
 */
void pushstr(void **handle, const char *text);

/* The text of a growing string.
 *
 * handle  the string; one that is still null has an empty text
 * finish  1: the string is released and *handle null again. 0: it goes on growing.
 *
 * Returns the text; the caller frees it.
 */
char *popstr(void **handle, int finish);

/* The fields of a string.
 *
 * string     cut in place: each separator becomes a NUL
 * separator  the character between two fields. Two in a row enclose an empty field, and an empty
 *            string is one empty field.
 *
 * Returns a new pointer Tbl of addresses inside string: the caller frees it with
 * freetbl(t, NULL). Empty for a null string.
 */
Tbl *split(char *string, int separator);

/* The next line of a stream, without its newline. Signals do not interrupt the reading.
 *
 * buffer  size bytes
 * size    at least 2. Of a line with more than size - 1 characters the rest comes with the next
 *         call.
 *
 * Returns buffer; null at the end of the stream, or when an argument is null or size below 2.
 */
char *getaline(FILE *stream, char *buffer, long size);

/* The number at the start of a string, as strtod reads it in the C locale.
 *
 * string  null is no number
 * end     null, or receives where the number ends: string when there is none
 *
 * Returns 0 when there is no number.
 */
double fix_strtod(const char *string, char **end);

/* The string itself, or "(null)": a text that is safe to copy. */
const char *okstr(const char *string);

/* Whether a text matches a pattern somewhere.
 *
 * string   null matches nothing
 * pattern  a POSIX extended regular expression; a character is a byte
 * hook     null, or keeps the compiled pattern from call to call: a static void * of the caller,
 *          null at first, for this one pattern
 * start    null, or receives the index of the first byte of the leftmost, longest match
 * end      null, or receives the index behind its last byte
 *
 * Returns 1, or 0 with *start and *end unchanged. A pattern that cannot be compiled matches nothing
 * and is reported with elog_complain, without errno: "can't compile pattern '%s': %s".
 */
int strcontains(const char *string, const char *pattern, void **hook, long *start, long *end);

/* ---- Paths ----------------------------------------------------------------------------------- */

/* The absolute form of a path, cleaned as cleanpath does.
 *
 * path    one that does not begin with '/' is taken from the working directory
 * result  4096 bytes; may be path itself
 *
 * Returns result. Null, with errno set and an empty result, when path is null, the result does not
 * fit or the working directory is unknown.
 */
char *abspath(const char *path, char *result);

/* A path without what does not matter: doubled slashes, "." components, a slash at the end. A ".."
 * stays, because what stands before it may be a symbolic link.
 *
 * expand  1: a leading "~" becomes $HOME, or without that the user's home directory; a leading
 *         "~user" becomes that user's. An unknown user's stays. 0: '~' is a character.
 * result  4096 bytes; may be path itself
 *
 * Returns result. Null, with errno set and an empty result, when path is null or the result does
 * not fit.
 */
char *cleanpath(const char *path, int expand, char *result);

/* 1 when the path leads to something, else 0. Leaves errno alone. */
int is_present(const char *path);

/* stat, repeated while a signal interrupts it. Returns 0, or -1 with errno set. */
int restat(const char *path, struct stat *st);

/* The directory that the vestan distribution is installed under: the environment variable VESTAN,
 * or where that is not set or empty the root that this library was built for. A set-user-id program
 * ignores the variable.
 *
 * buffer  4096 bytes. A longer root is cut, and no path fits behind it.
 *
 * Returns buffer; the text has no slash at its end and is empty for the root directory.
 */
char *getvestan(char *buffer);

/* ---- Dates, digests and the host ------------------------------------------------------------- */

/* The time that a text tells, in seconds since 1970-01-01 00:00:00 UTC.
 *
 * text  one of these, blanks around it and letters in either case:
 *         1762000000.5                      seconds
 *         2026-11-15                        midnight
 *         2026-11-15T08:53:44.25Z           T or blanks; fraction after '.' or ','
 *         Sun Nov 15 08:53:44 2026          as ps and ctime write it
 *         Nov 15 2026 08:53                 the comma and the time may be missing
 *         Sun, 15 Nov 2026 08:53:44 +0100   as mail writes it
 *       The weekday may be missing and is not compared with the date, names are in full or three
 *       letters long, seconds may be missing. A zone is Z, UT, UTC, GMT, +01, +0100 or +01:00.
 *       Without one the time is of the process's own zone: TZ, else the host's. There the first
 *       pass of a repeated hour counts, and a skipped time is as far behind the change as it says.
 *
 * Returns 0 when the text is null or cannot be read. Logs nothing and leaves errno alone.
 */
double str2epoch(const char *text);

/* The MD5 digest of `length` bytes at `data`; of none when data is null or length below 0.
 *
 * out  33 bytes: 32 lower-case hexadecimal digits and a NUL
 */
void mdhex(char *out, const char *data, long length);

/* One line about the host that stays the same while it is the same host: system, machine,
 * processor model, machine id, as far as they are known, with ", " between them.
 *
 * buffer  1024 bytes; empty when nothing is known
 *
 * Returns the text's length. Leaves errno alone.
 */
int lpms0w(char *buffer);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
