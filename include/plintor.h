/* plintor.h: binary data of other byte orders, and questions to the Linux host.
 *
 * What holds for every function, unless its own comment says otherwise:
 *
 * Results    0 is success and -1 failure.
 * Reports    Failures go to the error log of the process (see vestan.h): elog_log when the
 *            function returns a failure, elog_complain when it goes on, elog_die when nobody
 *            could, which ends the process. An exhausted allocation is always such an end.
 * Ownership  "The library's" means: read it, do not free it, and expect the next call of the same
 *            function to refill it. "The caller frees" means with free().
 * Pointers   Must not be null where a comment does not allow it.
 * Threads    "Any thread" means at any time, from any number of threads. Functions that say "one
 *            thread at a time" keep state in the process without a lock.
 * Start      Nothing runs when the library is loaded and nothing has to be called first. Once
 *            loaded, the library stays: dlclose does not unmap it.
 */

#ifndef PLINTOR_H
#define PLINTOR_H

#include <signal.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/time.h>
#include <sys/types.h>

#if defined(__GLIBC__) && !defined(__siginfo_t_defined)
#include <bits/types/siginfo_t.h> /* a strict -std=c99 hides siginfo_t in signal.h */
#endif

/* Declared here by name alone; include the system's header to look inside. */
struct Tbl;              /* vestan.h */
struct sockaddr_storage; /* sys/socket.h */
struct statvfs;          /* sys/statvfs.h */

#ifdef __cplusplus
#define PLINTOR_NOEXCEPT noexcept
extern "C" {
#else
#define PLINTOR_NOEXCEPT
#endif
#pragma GCC visibility push(default)

/* ---- Frame ----------------------------------------------------------------------------------- */

/* Says that a service is missing on the running platform.
 *
 * name    the service's name
 * result  what the refusing function returns
 *
 * Returns result. Logs "%s is unimplemented on this platform" with elog_log, without errno.
 * Any thread.
 */
int UNIMPLEMENTED(const char *name, int result);

/* A hook for a report of what exhausted the memory. On Linux it does nothing and returns 0,
 * whatever its arguments. Any thread.
 */
int nomem(void *pointer, int n);

/* ---- Conversions ----------------------------------------------------------------------------- */

/* The family: 408 functions that move arrays of numbers between the host and external bytes,
 * change their type on the way, and report whether every value survived.
 *
 *   [u] R E 2h H   external to host:  int ms2hi(char **from, int *to, int n)
 *   [u] h H 2 R E  host to external:  int hi2ms(const int *from, char **to, int n)
 *
 * R  the external layout: m is big-endian, v little-endian; a is little-endian, with the two
 *    4-byte halves of a double exchanged. Nothing but the byte order differs.
 * E  the external type and H the host's: b signed char (1 byte), s short (2), i int (4), l long
 *    (8), f float (4), d double (8), of the same width on both sides.
 * u  makes both integer sides unsigned; there is no u where neither is an integer.
 *
 * The arguments, source first:
 *
 * from, to  The external side is the address of a cursor into bytes at any alignment; afterwards
 *           the cursor has moved n external widths on. The host side is a plain array. Every one
 *           of the n elements is written, whatever becomes of it.
 * n         Count of elements; 0 or less converts nothing and leaves the cursor alone.
 *
 * Source and destination may overlap: element k is read before element k is written, and written
 * before element k + 1 is read. Mere copies (as2hs, hd2vd, ...) are as memmove makes them.
 *
 * The result is 0 when every element was exact, and -1 when at least one was not:
 *
 * - Same type: only bytes move, and every bit pattern survives. A NaN that changes its byte order
 *   counts as inexact.
 * - Integer to a wider integer: always exact.
 * - Integer to a narrower integer: reading keeps the low bytes (384 read as a signed char is
 *   -128), writing saturates (384 written as one is 127); inexact when the value does not fit.
 * - Integer to floating: rounded to nearest, ties to even; inexact when not representable. Unsigned
 *   host integers written as floating values always count as exact.
 * - Float to double is exact but for a NaN. Double to float rounds to nearest, and is inexact
 *   unless the double is a float's value.
 * - Floating to integer, reading: truncated toward zero, low bytes kept; inexact unless the stored
 *   integer equals the value. What does not fit 32 bits (64 for long and unsigned int) truncates to
 *   the smallest integer of that width; a value of 2^63 and more read as an unsigned long is itself
 *   up to 2^64, above and for a NaN 0.
 * - Floating to integer, writing, signed and at least as wide (f to i or l, d to l): as reading.
 * - Floating to integer, writing, all others: saturates, which is inexact, then truncates; a
 *   dropped fraction counts as exact. A NaN counts as exact, too, and leaves 0 (d to signed i: the
 *   smallest int). The upper bound is compared as a floating value: 2^32 from a float to an
 *   unsigned int, and 2^64 to an unsigned long, are not above it, and leave 0.
 *
 * Logs, allocates and keeps nothing. Any thread. Most names that could only differ in meaning and
 * not in bytes are one function (ab2hb, umb2hb, ...).
 */

/* Layout a: little-endian, doubles with their halves exchanged. */

/* external bytes */
int ab2hb(char **from, signed char *to, int n);
int hb2ab(const signed char *from, char **to, int n);
int uab2hb(char **from, unsigned char *to, int n);
int uhb2ab(const unsigned char *from, char **to, int n);
int ab2hs(char **from, short *to, int n);
int hs2ab(const short *from, char **to, int n);
int uab2hs(char **from, unsigned short *to, int n);
int uhs2ab(const unsigned short *from, char **to, int n);
int ab2hi(char **from, int *to, int n);
int hi2ab(const int *from, char **to, int n);
int uab2hi(char **from, unsigned int *to, int n);
int uhi2ab(const unsigned int *from, char **to, int n);
int ab2hl(char **from, long *to, int n);
int hl2ab(const long *from, char **to, int n);
int uab2hl(char **from, unsigned long *to, int n);
int uhl2ab(const unsigned long *from, char **to, int n);
int ab2hf(char **from, float *to, int n);
int hf2ab(const float *from, char **to, int n);
int uab2hf(char **from, float *to, int n);
int uhf2ab(const float *from, char **to, int n);
int ab2hd(char **from, double *to, int n);
int hd2ab(const double *from, char **to, int n);
int uab2hd(char **from, double *to, int n);
int uhd2ab(const double *from, char **to, int n);

/* external shorts */
int as2hb(char **from, signed char *to, int n);
int hb2as(const signed char *from, char **to, int n);
int uas2hb(char **from, unsigned char *to, int n);
int uhb2as(const unsigned char *from, char **to, int n);
int as2hs(char **from, short *to, int n);
int hs2as(const short *from, char **to, int n);
int uas2hs(char **from, unsigned short *to, int n);
int uhs2as(const unsigned short *from, char **to, int n);
int as2hi(char **from, int *to, int n);
int hi2as(const int *from, char **to, int n);
int uas2hi(char **from, unsigned int *to, int n);
int uhi2as(const unsigned int *from, char **to, int n);
int as2hl(char **from, long *to, int n);
int hl2as(const long *from, char **to, int n);
int uas2hl(char **from, unsigned long *to, int n);
int uhl2as(const unsigned long *from, char **to, int n);
int as2hf(char **from, float *to, int n);
int hf2as(const float *from, char **to, int n);
int uas2hf(char **from, float *to, int n);
int uhf2as(const float *from, char **to, int n);
int as2hd(char **from, double *to, int n);
int hd2as(const double *from, char **to, int n);
int uas2hd(char **from, double *to, int n);
int uhd2as(const double *from, char **to, int n);

/* external ints */
int ai2hb(char **from, signed char *to, int n);
int hb2ai(const signed char *from, char **to, int n);
int uai2hb(char **from, unsigned char *to, int n);
int uhb2ai(const unsigned char *from, char **to, int n);
int ai2hs(char **from, short *to, int n);
int hs2ai(const short *from, char **to, int n);
int uai2hs(char **from, unsigned short *to, int n);
int uhs2ai(const unsigned short *from, char **to, int n);
int ai2hi(char **from, int *to, int n);
int hi2ai(const int *from, char **to, int n);
int uai2hi(char **from, unsigned int *to, int n);
int uhi2ai(const unsigned int *from, char **to, int n);
int ai2hl(char **from, long *to, int n);
int hl2ai(const long *from, char **to, int n);
int uai2hl(char **from, unsigned long *to, int n);
int uhl2ai(const unsigned long *from, char **to, int n);
int ai2hf(char **from, float *to, int n);
int hf2ai(const float *from, char **to, int n);
int uai2hf(char **from, float *to, int n);
int uhf2ai(const float *from, char **to, int n);
int ai2hd(char **from, double *to, int n);
int hd2ai(const double *from, char **to, int n);
int uai2hd(char **from, double *to, int n);
int uhd2ai(const double *from, char **to, int n);

/* external longs */
int al2hb(char **from, signed char *to, int n);
int hb2al(const signed char *from, char **to, int n);
int ual2hb(char **from, unsigned char *to, int n);
int uhb2al(const unsigned char *from, char **to, int n);
int al2hs(char **from, short *to, int n);
int hs2al(const short *from, char **to, int n);
int ual2hs(char **from, unsigned short *to, int n);
int uhs2al(const unsigned short *from, char **to, int n);
int al2hi(char **from, int *to, int n);
int hi2al(const int *from, char **to, int n);
int ual2hi(char **from, unsigned int *to, int n);
int uhi2al(const unsigned int *from, char **to, int n);
int al2hl(char **from, long *to, int n);
int hl2al(const long *from, char **to, int n);
int ual2hl(char **from, unsigned long *to, int n);
int uhl2al(const unsigned long *from, char **to, int n);
int al2hf(char **from, float *to, int n);
int hf2al(const float *from, char **to, int n);
int ual2hf(char **from, float *to, int n);
int uhf2al(const float *from, char **to, int n);
int al2hd(char **from, double *to, int n);
int hd2al(const double *from, char **to, int n);
int ual2hd(char **from, double *to, int n);
int uhd2al(const double *from, char **to, int n);

/* external floats */
int af2hb(char **from, signed char *to, int n);
int hb2af(const signed char *from, char **to, int n);
int uaf2hb(char **from, unsigned char *to, int n);
int uhb2af(const unsigned char *from, char **to, int n);
int af2hs(char **from, short *to, int n);
int hs2af(const short *from, char **to, int n);
int uaf2hs(char **from, unsigned short *to, int n);
int uhs2af(const unsigned short *from, char **to, int n);
int af2hi(char **from, int *to, int n);
int hi2af(const int *from, char **to, int n);
int uaf2hi(char **from, unsigned int *to, int n);
int uhi2af(const unsigned int *from, char **to, int n);
int af2hl(char **from, long *to, int n);
int hl2af(const long *from, char **to, int n);
int uaf2hl(char **from, unsigned long *to, int n);
int uhl2af(const unsigned long *from, char **to, int n);
int af2hf(char **from, float *to, int n);
int hf2af(const float *from, char **to, int n);
int af2hd(char **from, double *to, int n);
int hd2af(const double *from, char **to, int n);

/* external doubles */
int ad2hb(char **from, signed char *to, int n);
int hb2ad(const signed char *from, char **to, int n);
int uad2hb(char **from, unsigned char *to, int n);
int uhb2ad(const unsigned char *from, char **to, int n);
int ad2hs(char **from, short *to, int n);
int hs2ad(const short *from, char **to, int n);
int uad2hs(char **from, unsigned short *to, int n);
int uhs2ad(const unsigned short *from, char **to, int n);
int ad2hi(char **from, int *to, int n);
int hi2ad(const int *from, char **to, int n);
int uad2hi(char **from, unsigned int *to, int n);
int uhi2ad(const unsigned int *from, char **to, int n);
int ad2hl(char **from, long *to, int n);
int hl2ad(const long *from, char **to, int n);
int uad2hl(char **from, unsigned long *to, int n);
int uhl2ad(const unsigned long *from, char **to, int n);
int ad2hf(char **from, float *to, int n);
int hf2ad(const float *from, char **to, int n);
int ad2hd(char **from, double *to, int n);
int hd2ad(const double *from, char **to, int n);

/* Layout m: big-endian. */

/* external bytes */
int mb2hb(char **from, signed char *to, int n);
int hb2mb(const signed char *from, char **to, int n);
int umb2hb(char **from, unsigned char *to, int n);
int uhb2mb(const unsigned char *from, char **to, int n);
int mb2hs(char **from, short *to, int n);
int hs2mb(const short *from, char **to, int n);
int umb2hs(char **from, unsigned short *to, int n);
int uhs2mb(const unsigned short *from, char **to, int n);
int mb2hi(char **from, int *to, int n);
int hi2mb(const int *from, char **to, int n);
int umb2hi(char **from, unsigned int *to, int n);
int uhi2mb(const unsigned int *from, char **to, int n);
int mb2hl(char **from, long *to, int n);
int hl2mb(const long *from, char **to, int n);
int umb2hl(char **from, unsigned long *to, int n);
int uhl2mb(const unsigned long *from, char **to, int n);
int mb2hf(char **from, float *to, int n);
int hf2mb(const float *from, char **to, int n);
int umb2hf(char **from, float *to, int n);
int uhf2mb(const float *from, char **to, int n);
int mb2hd(char **from, double *to, int n);
int hd2mb(const double *from, char **to, int n);
int umb2hd(char **from, double *to, int n);
int uhd2mb(const double *from, char **to, int n);

/* external shorts */
int ms2hb(char **from, signed char *to, int n);
int hb2ms(const signed char *from, char **to, int n);
int ums2hb(char **from, unsigned char *to, int n);
int uhb2ms(const unsigned char *from, char **to, int n);
int ms2hs(char **from, short *to, int n);
int hs2ms(const short *from, char **to, int n);
int ums2hs(char **from, unsigned short *to, int n);
int uhs2ms(const unsigned short *from, char **to, int n);
int ms2hi(char **from, int *to, int n);
int hi2ms(const int *from, char **to, int n);
int ums2hi(char **from, unsigned int *to, int n);
int uhi2ms(const unsigned int *from, char **to, int n);
int ms2hl(char **from, long *to, int n);
int hl2ms(const long *from, char **to, int n);
int ums2hl(char **from, unsigned long *to, int n);
int uhl2ms(const unsigned long *from, char **to, int n);
int ms2hf(char **from, float *to, int n);
int hf2ms(const float *from, char **to, int n);
int ums2hf(char **from, float *to, int n);
int uhf2ms(const float *from, char **to, int n);
int ms2hd(char **from, double *to, int n);
int hd2ms(const double *from, char **to, int n);
int ums2hd(char **from, double *to, int n);
int uhd2ms(const double *from, char **to, int n);

/* external ints */
int mi2hb(char **from, signed char *to, int n);
int hb2mi(const signed char *from, char **to, int n);
int umi2hb(char **from, unsigned char *to, int n);
int uhb2mi(const unsigned char *from, char **to, int n);
int mi2hs(char **from, short *to, int n);
int hs2mi(const short *from, char **to, int n);
int umi2hs(char **from, unsigned short *to, int n);
int uhs2mi(const unsigned short *from, char **to, int n);
int mi2hi(char **from, int *to, int n);
int hi2mi(const int *from, char **to, int n);
int umi2hi(char **from, unsigned int *to, int n);
int uhi2mi(const unsigned int *from, char **to, int n);
int mi2hl(char **from, long *to, int n);
int hl2mi(const long *from, char **to, int n);
int umi2hl(char **from, unsigned long *to, int n);
int uhl2mi(const unsigned long *from, char **to, int n);
int mi2hf(char **from, float *to, int n);
int hf2mi(const float *from, char **to, int n);
int umi2hf(char **from, float *to, int n);
int uhf2mi(const float *from, char **to, int n);
int mi2hd(char **from, double *to, int n);
int hd2mi(const double *from, char **to, int n);
int umi2hd(char **from, double *to, int n);
int uhd2mi(const double *from, char **to, int n);

/* external longs */
int ml2hb(char **from, signed char *to, int n);
int hb2ml(const signed char *from, char **to, int n);
int uml2hb(char **from, unsigned char *to, int n);
int uhb2ml(const unsigned char *from, char **to, int n);
int ml2hs(char **from, short *to, int n);
int hs2ml(const short *from, char **to, int n);
int uml2hs(char **from, unsigned short *to, int n);
int uhs2ml(const unsigned short *from, char **to, int n);
int ml2hi(char **from, int *to, int n);
int hi2ml(const int *from, char **to, int n);
int uml2hi(char **from, unsigned int *to, int n);
int uhi2ml(const unsigned int *from, char **to, int n);
int ml2hl(char **from, long *to, int n);
int hl2ml(const long *from, char **to, int n);
int uml2hl(char **from, unsigned long *to, int n);
int uhl2ml(const unsigned long *from, char **to, int n);
int ml2hf(char **from, float *to, int n);
int hf2ml(const float *from, char **to, int n);
int uml2hf(char **from, float *to, int n);
int uhf2ml(const float *from, char **to, int n);
int ml2hd(char **from, double *to, int n);
int hd2ml(const double *from, char **to, int n);
int uml2hd(char **from, double *to, int n);
int uhd2ml(const double *from, char **to, int n);

/* external floats */
int mf2hb(char **from, signed char *to, int n);
int hb2mf(const signed char *from, char **to, int n);
int umf2hb(char **from, unsigned char *to, int n);
int uhb2mf(const unsigned char *from, char **to, int n);
int mf2hs(char **from, short *to, int n);
int hs2mf(const short *from, char **to, int n);
int umf2hs(char **from, unsigned short *to, int n);
int uhs2mf(const unsigned short *from, char **to, int n);
int mf2hi(char **from, int *to, int n);
int hi2mf(const int *from, char **to, int n);
int umf2hi(char **from, unsigned int *to, int n);
int uhi2mf(const unsigned int *from, char **to, int n);
int mf2hl(char **from, long *to, int n);
int hl2mf(const long *from, char **to, int n);
int umf2hl(char **from, unsigned long *to, int n);
int uhl2mf(const unsigned long *from, char **to, int n);
int mf2hf(char **from, float *to, int n);
int hf2mf(const float *from, char **to, int n);
int mf2hd(char **from, double *to, int n);
int hd2mf(const double *from, char **to, int n);

/* external doubles */
int md2hb(char **from, signed char *to, int n);
int hb2md(const signed char *from, char **to, int n);
int umd2hb(char **from, unsigned char *to, int n);
int uhb2md(const unsigned char *from, char **to, int n);
int md2hs(char **from, short *to, int n);
int hs2md(const short *from, char **to, int n);
int umd2hs(char **from, unsigned short *to, int n);
int uhs2md(const unsigned short *from, char **to, int n);
int md2hi(char **from, int *to, int n);
int hi2md(const int *from, char **to, int n);
int umd2hi(char **from, unsigned int *to, int n);
int uhi2md(const unsigned int *from, char **to, int n);
int md2hl(char **from, long *to, int n);
int hl2md(const long *from, char **to, int n);
int umd2hl(char **from, unsigned long *to, int n);
int uhl2md(const unsigned long *from, char **to, int n);
int md2hf(char **from, float *to, int n);
int hf2md(const float *from, char **to, int n);
int md2hd(char **from, double *to, int n);
int hd2md(const double *from, char **to, int n);

/* Layout v: little-endian. */

/* external bytes */
int vb2hb(char **from, signed char *to, int n);
int hb2vb(const signed char *from, char **to, int n);
int uvb2hb(char **from, unsigned char *to, int n);
int uhb2vb(const unsigned char *from, char **to, int n);
int vb2hs(char **from, short *to, int n);
int hs2vb(const short *from, char **to, int n);
int uvb2hs(char **from, unsigned short *to, int n);
int uhs2vb(const unsigned short *from, char **to, int n);
int vb2hi(char **from, int *to, int n);
int hi2vb(const int *from, char **to, int n);
int uvb2hi(char **from, unsigned int *to, int n);
int uhi2vb(const unsigned int *from, char **to, int n);
int vb2hl(char **from, long *to, int n);
int hl2vb(const long *from, char **to, int n);
int uvb2hl(char **from, unsigned long *to, int n);
int uhl2vb(const unsigned long *from, char **to, int n);
int vb2hf(char **from, float *to, int n);
int hf2vb(const float *from, char **to, int n);
int uvb2hf(char **from, float *to, int n);
int uhf2vb(const float *from, char **to, int n);
int vb2hd(char **from, double *to, int n);
int hd2vb(const double *from, char **to, int n);
int uvb2hd(char **from, double *to, int n);
int uhd2vb(const double *from, char **to, int n);

/* external shorts */
int vs2hb(char **from, signed char *to, int n);
int hb2vs(const signed char *from, char **to, int n);
int uvs2hb(char **from, unsigned char *to, int n);
int uhb2vs(const unsigned char *from, char **to, int n);
int vs2hs(char **from, short *to, int n);
int hs2vs(const short *from, char **to, int n);
int uvs2hs(char **from, unsigned short *to, int n);
int uhs2vs(const unsigned short *from, char **to, int n);
int vs2hi(char **from, int *to, int n);
int hi2vs(const int *from, char **to, int n);
int uvs2hi(char **from, unsigned int *to, int n);
int uhi2vs(const unsigned int *from, char **to, int n);
int vs2hl(char **from, long *to, int n);
int hl2vs(const long *from, char **to, int n);
int uvs2hl(char **from, unsigned long *to, int n);
int uhl2vs(const unsigned long *from, char **to, int n);
int vs2hf(char **from, float *to, int n);
int hf2vs(const float *from, char **to, int n);
int uvs2hf(char **from, float *to, int n);
int uhf2vs(const float *from, char **to, int n);
int vs2hd(char **from, double *to, int n);
int hd2vs(const double *from, char **to, int n);
int uvs2hd(char **from, double *to, int n);
int uhd2vs(const double *from, char **to, int n);

/* external ints */
int vi2hb(char **from, signed char *to, int n);
int hb2vi(const signed char *from, char **to, int n);
int uvi2hb(char **from, unsigned char *to, int n);
int uhb2vi(const unsigned char *from, char **to, int n);
int vi2hs(char **from, short *to, int n);
int hs2vi(const short *from, char **to, int n);
int uvi2hs(char **from, unsigned short *to, int n);
int uhs2vi(const unsigned short *from, char **to, int n);
int vi2hi(char **from, int *to, int n);
int hi2vi(const int *from, char **to, int n);
int uvi2hi(char **from, unsigned int *to, int n);
int uhi2vi(const unsigned int *from, char **to, int n);
int vi2hl(char **from, long *to, int n);
int hl2vi(const long *from, char **to, int n);
int uvi2hl(char **from, unsigned long *to, int n);
int uhl2vi(const unsigned long *from, char **to, int n);
int vi2hf(char **from, float *to, int n);
int hf2vi(const float *from, char **to, int n);
int uvi2hf(char **from, float *to, int n);
int uhf2vi(const float *from, char **to, int n);
int vi2hd(char **from, double *to, int n);
int hd2vi(const double *from, char **to, int n);
int uvi2hd(char **from, double *to, int n);
int uhd2vi(const double *from, char **to, int n);

/* external longs */
int vl2hb(char **from, signed char *to, int n);
int hb2vl(const signed char *from, char **to, int n);
int uvl2hb(char **from, unsigned char *to, int n);
int uhb2vl(const unsigned char *from, char **to, int n);
int vl2hs(char **from, short *to, int n);
int hs2vl(const short *from, char **to, int n);
int uvl2hs(char **from, unsigned short *to, int n);
int uhs2vl(const unsigned short *from, char **to, int n);
int vl2hi(char **from, int *to, int n);
int hi2vl(const int *from, char **to, int n);
int uvl2hi(char **from, unsigned int *to, int n);
int uhi2vl(const unsigned int *from, char **to, int n);
int vl2hl(char **from, long *to, int n);
int hl2vl(const long *from, char **to, int n);
int uvl2hl(char **from, unsigned long *to, int n);
int uhl2vl(const unsigned long *from, char **to, int n);
int vl2hf(char **from, float *to, int n);
int hf2vl(const float *from, char **to, int n);
int uvl2hf(char **from, float *to, int n);
int uhf2vl(const float *from, char **to, int n);
int vl2hd(char **from, double *to, int n);
int hd2vl(const double *from, char **to, int n);
int uvl2hd(char **from, double *to, int n);
int uhd2vl(const double *from, char **to, int n);

/* external floats */
int vf2hb(char **from, signed char *to, int n);
int hb2vf(const signed char *from, char **to, int n);
int uvf2hb(char **from, unsigned char *to, int n);
int uhb2vf(const unsigned char *from, char **to, int n);
int vf2hs(char **from, short *to, int n);
int hs2vf(const short *from, char **to, int n);
int uvf2hs(char **from, unsigned short *to, int n);
int uhs2vf(const unsigned short *from, char **to, int n);
int vf2hi(char **from, int *to, int n);
int hi2vf(const int *from, char **to, int n);
int uvf2hi(char **from, unsigned int *to, int n);
int uhi2vf(const unsigned int *from, char **to, int n);
int vf2hl(char **from, long *to, int n);
int hl2vf(const long *from, char **to, int n);
int uvf2hl(char **from, unsigned long *to, int n);
int uhl2vf(const unsigned long *from, char **to, int n);
int vf2hf(char **from, float *to, int n);
int hf2vf(const float *from, char **to, int n);
int vf2hd(char **from, double *to, int n);
int hd2vf(const double *from, char **to, int n);

/* external doubles */
int vd2hb(char **from, signed char *to, int n);
int hb2vd(const signed char *from, char **to, int n);
int uvd2hb(char **from, unsigned char *to, int n);
int uhb2vd(const unsigned char *from, char **to, int n);
int vd2hs(char **from, short *to, int n);
int hs2vd(const short *from, char **to, int n);
int uvd2hs(char **from, unsigned short *to, int n);
int uhs2vd(const unsigned short *from, char **to, int n);
int vd2hi(char **from, int *to, int n);
int hi2vd(const int *from, char **to, int n);
int uvd2hi(char **from, unsigned int *to, int n);
int uhi2vd(const unsigned int *from, char **to, int n);
int vd2hl(char **from, long *to, int n);
int hl2vd(const long *from, char **to, int n);
int uvd2hl(char **from, unsigned long *to, int n);
int uhl2vd(const unsigned long *from, char **to, int n);
int vd2hf(char **from, float *to, int n);
int hf2vd(const float *from, char **to, int n);
int vd2hd(char **from, double *to, int n);
int hd2vd(const double *from, char **to, int n);

/* Three-byte integers, external type t: 24 bits in two's complement, -8388608 .. 8388607. As the
 * family, with cursors that move 3 bytes an element. Reading is always exact (0). Writing
 * saturates, and answers -1 when it had to. Any thread.
 */
int vt2hi(char **from, int *to, int n);
int mt2hi(char **from, int *to, int n);
int vt2hf(char **from, float *to, int n);
int mt2hf(char **from, float *to, int n);
int hi2vt(const int *from, char **to, int n);
int hi2mt(const int *from, char **to, int n);

/* Network order (the layout m) under short names. Destination first; both sides are plain
 * pointers, net at any alignment. Each is the member named beside it: same rules, same result, and
 * a program's own definition of that member is the one that is called. Any thread.
 *
 * The signed 8-byte names H2N8 and N2H8 take doubles, where a NaN answers -1; H2NL and N2HL take
 * longs.
 */
int H2N2(void *net, const short *host, int n);                  /* hs2ms */
int H2NS(void *net, const short *host, int n);                  /* hs2ms */
int H2N4(void *net, const int *host, int n);                    /* hi2mi */
int H2NI(void *net, const int *host, int n);                    /* hi2mi */
int H2NL(void *net, const long *host, int n);                   /* hl2ml */
int H2N8(void *net, const double *host, int n);                 /* hd2md */
int H2ND(void *net, const double *host, int n);                 /* hd2md */
int UH2N2(void *net, const unsigned short *host, int n);        /* uhs2ms */
int UH2NS(void *net, const unsigned short *host, int n);        /* uhs2ms */
int UH2N4(void *net, const unsigned int *host, int n);          /* uhi2mi */
int UH2NI(void *net, const unsigned int *host, int n);          /* uhi2mi */
int UH2N8(void *net, const unsigned long *host, int n);         /* uhl2ml */
int UH2NL(void *net, const unsigned long *host, int n);         /* uhl2ml */
int HI2NC(void *net, const int *host, int n);                   /* hi2mb */
int HI2NS(void *net, const int *host, int n);                   /* hi2ms */
int HI2NF(void *net, const int *host, int n);                   /* hi2mf */
int N2H2(short *host, const void *net, int n);                  /* ms2hs */
int N2HS(short *host, const void *net, int n);                  /* ms2hs */
int N2H4(int *host, const void *net, int n);                    /* mi2hi */
int N2HI(int *host, const void *net, int n);                    /* mi2hi */
int N2HL(long *host, const void *net, int n);                   /* ml2hl */
int N2H8(double *host, const void *net, int n);                 /* md2hd */
int N2HD(double *host, const void *net, int n);                 /* md2hd */
int UN2H2(unsigned short *host, const void *net, int n);        /* ums2hs */
int UN2HS(unsigned short *host, const void *net, int n);        /* ums2hs */
int UN2H4(unsigned int *host, const void *net, int n);          /* umi2hi */
int UN2HI(unsigned int *host, const void *net, int n);          /* umi2hi */
int UN2H8(unsigned long *host, const void *net, int n);         /* uml2hl */
int UN2HL(unsigned long *host, const void *net, int n);         /* uml2hl */
int NC2HI(int *host, const void *net, int n);                   /* mb2hi */
int NS2HI(int *host, const void *net, int n);                   /* ms2hi */
int NF2HI(int *host, const void *net, int n);                   /* mf2hi */

/* Network floats to host doubles, and host doubles rounded to network floats, one N2H4 or H2N4 an
 * element. Nothing is reported: what is too large becomes an infinity. Any thread.
 */
void NF2HD(double *host, const void *net, int n);
void HD2NF(void *net, const double *host, int n);

/* Big-endian three-byte integers to host ints, and the low 24 bits of host ints to three
 * big-endian bytes. H42N3 wraps, where hi2mt saturates; neither reports. Any thread.
 */
void N32H4(int *host, const void *net, int n);
void H42N3(void *net, const int *host, int n);

/* One value, source first; the result is the member's. Any thread. */
int htondp(const double *host, void *net);                      /* hd2md */
int ntohdp(const void *net, double *host);                      /* md2hd */
int htonfp(const float *host, void *net);                       /* hf2mf */
int ntohfp(const void *net, float *host);                       /* mf2hf */
int hton8p(const long *host, void *net);                        /* hl2ml */
int ntoh8p(const void *net, long *host);                        /* ml2hl */

/* One value with its bytes reversed, bit for bit, in a floating type: to be stored or sent, not to
 * be computed with. Any thread.
 */
double htond(double host);
double ntohd(double net);
float htonf(float host);
float ntohf(float net);

/* n elements of 2, 4 or 8 bytes, each with its bytes reversed, at any alignment. from and to may
 * be the same; n of 0 or less does nothing. Any thread.
 */
void swap2(const void *from, void *to, int n);
void swap4(const void *from, void *to, int n);
void swap8(const void *from, void *to, int n);

/* ---- Processors ------------------------------------------------------------------------------ */

/* How one processor has spent its time between two calls of syscpu, in percent: slot 0 user, nice
 * included; 1 system; 3 idle; 2 and 4 are always 0. The three add up to 100, within the rounding
 * of a float, or are all 0 when the processor's counters did not move.
 */
typedef struct CpuState {
  float slot[5];
} CpuState;

/* The load of each processor since the previous call, from /proc/stat; since boot at the first
 * call.
 *
 * ncpu  the number of records: the most processors that any call has seen
 * cpu   their address, the library's; it may move when the number grows, and is null while no
 *       processor has been seen
 *
 * Ends the process with elog_die when the file cannot be read or memory is exhausted. Only the
 * first 8191 bytes of the file are looked at. Each processor's line is expected to hold four
 * numbers: user, nice, system, idle. Of a longer line, as Linux writes it today, the columns that
 * are left over count as the next processor's; the first processor's record is exact all the same.
 * Right after the number has grown, the first half of the records is measured since boot, and the
 * rest against whatever their memory held, so drop the first sample of a program. One thread at a
 * time.
 */
void syscpu(int *ncpu, CpuState **cpu);

/* The number of processors, from the first 8191 bytes of /proc/stat.
 *
 * Returns it, 0 when none is listed, 1 when the file cannot be read, which is logged with
 * elog_log, errno included. Keeps nothing; any thread.
 */
int sysncpu(void);

/* How much of one processor this process, all its threads together, has used since the previous
 * call.
 *
 * Returns processor seconds per second of wall-clock time: 1.0 is one processor fully busy. The
 * first call measures since 1970 and so answers close to 0; two calls within the same microsecond
 * give an infinity or a NaN. Returns 0.0 when the usage cannot be asked for, which is logged with
 * elog_log, errno included, and leaves the start of the interval where it was. One thread at a
 * time.
 */
double cpu_utilization(void);

/* ---- Memory, paging, load, boot -------------------------------------------------------------- */

/* The memory of the host, in megabytes of 1048576 bytes.
 *
 * total     memory plus swap, as /proc/meminfo lists them
 * physical  the machine's memory, as the C library reports it
 * used      memory plus swap that is not free; what the kernel uses for caches counts as used
 *
 * A figure that the first 8191 bytes of the file do not list counts as 0. Ends the process with
 * elog_die, without errno, when the file cannot be opened; one that opens and cannot be read
 * counts as empty. Keeps nothing; any thread.
 */
void sysmem(double *total, double *physical, double *used);

/* The paging rates of the host since the previous call, from the first 8191 bytes of /proc/vmstat.
 *
 * ignored      any number
 * pgin, pgout  page-in and page-out counts per second. Both are 0 on every call: the counters are
 *              looked for where Linux does not write them, which programs rely on.
 *
 * Ends the process with elog_die when the file cannot be read. One thread at a time.
 */
void syspaging(int ignored, double *pgin, double *pgout);

/* The load of the host, from /proc/loadavg.
 *
 * avg     3 values, all written: the averages over 1, 5 and 15 minutes
 * nprocs  the number of scheduling entities (processes and threads) that exist
 *
 * Ends the process with elog_die when the file cannot be read. Keeps nothing; any thread.
 */
void sysloadavg(double avg[3], int *nprocs);

/* When the host booted.
 *
 * Returns seconds since 1970-01-01 00:00:00 UTC, from the first 16383 bytes of /proc/stat. When
 * they do not tell, which is logged with elog_complain, the time of this first call, in whole
 * seconds, stands in for it. Either way every later call returns the same without reading, unless
 * it is 0. Ends the process with elog_die when the file cannot be read. One thread at a time until
 * the first call has returned.
 */
long sysboottime(void);

/* ---- Processes ------------------------------------------------------------------------------- */

/* One process. All of it is zero before it is filled, the padding included. Fractions are read in
 * the program's own locale: they are lost in one whose decimal point is a comma.
 */
typedef struct Pidstat {
  int32_t pid;            /* process id */
  int32_t ppid;           /* the parent's process id */
  int32_t uid;            /* user id, as the column uid of ps gives it */
  int64_t vsz;            /* virtual size, kilobytes */
  int64_t rss;            /* resident size, kilobytes */
  char state[16];         /* state letters: 14 of them from sysproc, 15 from pidinfo */
  double started;         /* start time, seconds since 1970; 0 when it cannot be read */
  double pcpu;            /* share of one processor, per cent */
  double pmem;            /* share of the memory, per cent */
  struct timeval sampled; /* when the snapshot was taken; pidinfo leaves it 0 */
  double cputime;         /* processor time; each function says how it reads it */
  int64_t spare;          /* always 0 */
  char user[32];          /* user name; pidinfo leaves it empty */
  char command[1024];     /* command line; pidinfo leaves it empty */
} Pidstat;

/* Every process of the host, from one run of /bin/ps.
 *
 * procs  receives a list of Pidstat records in the order in which ps printed them. The list
 *        belongs to the library; the next call refills it.
 *
 * cputime is the time column read as minutes:seconds, in seconds: a time of "01:02:03" gives 62. A
 * line that ends early leaves the fields behind its end as the line before had them. A line of more
 * than 10238 characters counts as several: the rest of a very long command gets records of its own,
 * whose pid is what their text begins with, mostly 0.
 *
 * Returns 0, or -1 when no process could be started or a line could not be read in full; *procs is
 * set either way, and the record of such a line is in it. Where ps cannot be executed or prints
 * nothing, the result is 0 and the list empty. Logs "failed to run command '%s'" with
 * elog_complain, with errno, and "failed reading line '%s'" with elog_complain, without, and what
 * gxpipe and gxline log. Allocates the list once and what it grows by. One thread at a time.
 */
int sysproc(struct Tbl **procs);

/* Whether a process exists: 1, or 0. A pid of 0 or less does not. Logs nothing; any thread. */
int pid_exists(int pid);

/* The command line of a process, from /proc.
 *
 * pid  the process; 0 or less is no process
 *
 * Returns the arguments joined by single blanks, at most 8191 characters, or "" for a kernel thread
 * and when it cannot be read; the caller frees it. An argument that holds a blank looks like two.
 * NULL when the memory is exhausted. Logs and keeps nothing; any thread.
 */
char *pidcmdline(int pid);

/* The program of a process as it was started: its command line up to the first blank.
 *
 * pid  the process; 0 or less is no process
 *
 * Returns "" as pidcmdline does; the caller frees the text. NULL when the memory is exhausted. Logs
 * and keeps nothing; any thread.
 */
char *pidexecname(int pid);

/* The figures of one process, from a run of /bin/ps by the shell.
 *
 * pid  the process
 * p    zeroed; then all of it is filled but sampled, spare, user and command, which stay zero
 *
 * cputime is the number before the first colon of the time column: 0 for "00:01:23".
 *
 * Returns 0; -1 with *p zero for a pid of 0 or less and when the command cannot be run; -1 with pid
 * set when ps printed less than the columns. For a process that does not exist the result is 0 and
 * the record is what the header line reads as: ppid, uid, vsz, rss, pcpu and pmem 0, state "S". Ask
 * pid_exists. Logs "failed to run '%s'" with elog_complain, with errno. Any thread.
 */
int pidinfo(int pid, Pidstat *p);

/* The working directory of a process, as the PWD in its environment has it.
 *
 * pid  the process; 0 or less is no process
 *
 * Returns the text up to its first blank, which the caller frees, or NULL when there is none in the
 * first 4095 characters of command line and environment, for an environment that we may not read,
 * and when /bin/ps cannot be run. An argument of the process that begins with "PWD=" is taken too.
 * Logs what gxpipe and gxline log; any thread.
 */
char *pidpwd(int pid);

/* The absolute path of the running program, "" when it cannot be found out.
 *
 * The text belongs to the library and stays as the first call found it. NULL when the memory is
 * exhausted; the next call asks again. Logs nothing; any thread.
 */
char *getexecname(void);

/* ---- File systems and the machine ------------------------------------------------------------ */

/* One mounted file system; every field ends with a NUL. */
typedef struct Mounted {
  char mountpoint[4096]; /* the directory it is mounted on */
  char host[96];         /* of a device written host:path, the host, cut to fit; else empty */
  char path[4096];       /* of host:path, what follows the first colon; else the whole device */
  char fstype[32];       /* the file-system type, cut to fit */
} Mounted;

/* The mounted file systems, from /etc/mtab, in its order.
 *
 * mounted  a list of Mounted records, the library's; empty after a failure
 *
 * A line that has no third field, or whose mount point is "0", is left out. A line of more than
 * 255 characters counts as several. Fields end at a blank or tab, so the type of a line that ends
 * with it keeps the newline; blanks inside a name stay written as \040.
 *
 * Returns 0, or -1 when the file cannot be opened, which is logged with elog_log, errno included.
 * Any thread may call it, but the list is one for the whole process: read it before another thread
 * calls again.
 */
int sysmounted(struct Tbl **mounted);

/* Space and file counts of the file system that holds a path.
 *
 * path  any path on it
 * st    written, failure or not: f_bsize, f_blocks, f_bfree, f_bavail, f_files, f_ffree; and
 *       f_frsize, which is the block size as well; f_favail, which is f_ffree; f_fsid, which is
 *       f_bfree. A file system that keeps no file counts has 2147483648 in all three of them.
 *       The other fields are left alone.
 *
 * Returns 0, or -1 with errno as statfs set it; st is then filled as from figures that are all 0.
 * Logs nothing; any thread.
 */
int std_statvfs(const char *path, struct statvfs *st);

/* The text that describes the machine, as the base library's lpms0w writes it: empty when nothing
 * is known, at most 1023 characters.
 *
 * raw  a second copy of the text, NULL when the memory is exhausted; the caller frees it
 *
 * Returns the text; the caller frees it. Logs and keeps nothing; any thread.
 */
char *mcinfo(char **raw);

/* The text that describes the machine, or a digest of it.
 *
 * digest  0 for the text of mcinfo, any other number for the base library's digest of it
 *
 * Returns the text, or the digest as hexadecimal digits, or "**no hostinfo**" where there is no
 * text to digest; the caller frees it. NULL for a digest when the memory is exhausted. Logs and
 * keeps nothing; any thread.
 */
char *machine_info(int digest);

/* ---- Real-time systems ----------------------------------------------------------------------- */

/* One running real-time system. */
typedef struct RtSystem {
  char host[64];      /* "localhost" */
  char user[1024];    /* login name of the executive's user; empty when the uid has none */
  char pwd[4096];     /* working directory of the executive; empty when it is not known */
  char version[1024]; /* the version directory under /opt/vestan that it was started from */
  int32_t running;    /* 1 */
  int32_t pid;        /* of the executive */
} RtSystem;

/* The real-time systems that run on this host.
 *
 * A system is a process whose command line holds /opt/vestan/VERSION/bin/korvex and nowhere "-k".
 * The version is what stands behind the first 12 characters of the command line, up to the next
 * "/": right for an executive started by its full path.
 *
 * systems  receives an array of as many records as the result says, in the order of /bin/ps, which
 *          the caller frees; NULL when there are none
 *
 * Returns the number of systems. When /bin/ps cannot be run, logs "failed to run '%s'" with
 * elog_complain, with errno, and returns 0. Logs what pidinfo and pidpwd log. Ends the process with
 * elog_die when the memory is exhausted. The first call compiles what later ones use and looks up
 * users in the C library's static record: one thread at a time.
 */
int pidrtsys(RtSystem **systems);

/* ---- Line reader ----------------------------------------------------------------------------- */

/* Text line by line, out of a regular file or out of all that a command prints. Open with gxopen,
 * gxpipe or gxpipex; read with gxline; release with gxclose. A handle is a small int, -1 where
 * opening failed, and its number is handed out again after gxclose.
 *
 * Sizes and offsets are bytes in 32 bits: a file of 2 GiB or more is mapped in full, but only the
 * low 32 bits of its length are known. The file must not shrink while it is open.
 *
 * Any thread may call all of them, but one handle is read by one thread at a time.
 */

/* Opens a regular file for reading by lines.
 *
 * path  the file; it is mapped whole, and its descriptor closed again
 *
 * Returns a handle, or -1: the file cannot be opened ("Couldn't open %s\n"), examined ("fstat
 * failed for '%s'\n") or mapped ("Can't map file %s\n"), or it is empty ("'%s' is empty\n"). All
 * are logged by elog_complain with errno.
 */
int gxopen(const char *path);

/* Starts a command and returns a handle on its future output.
 *
 * command  program and arguments, cut at every single blank: no quoting, no wildcards, and two
 *          blanks in a row enclose an empty argument. The program is a path; PATH is not searched.
 * envp     the command's environment, ended by a null pointer; null: the caller's
 * fd       receives the read end of the pipe that is the command's standard input; untouched when
 *          the call fails. The write end is closed on both sides, so the command reads end-of-file
 *          at once and nothing can be sent to it. The first gxline closes the descriptor.
 *
 * Standard output and standard error of the command go into one unlinked temporary file in /tmp.
 * Of this handle's and other handles' descriptors the command sees none but its 0, 1 and 2.
 *
 * Returns a handle, or -1 after elog_log, with errno, of "Couldn't create pipes", "mkstemp
 * failed'" or "fork failed". The latter two leave descriptors open; see docs/deliberate.md.
 * A program that cannot be executed still yields a handle: the command's process logs "Couldn't
 * exec '%s' : '%s'" (program, command) with elog_die and ends.
 */
int gxpipe(const char *command, char *const envp[], int *fd);

/* gxpipe with the caller's environment and with the command's first word looked up along PATH.
 *
 * command  as for gxpipe. The first word runs from the start to the first blank or tab behind it,
 *          leading blanks included. It is looked up unless the command begins with '/', the word
 *          has 256 bytes or more, or PATH is not set. The first regular file with an execute bit
 *          under that name wins; candidates are cut to 1023 bytes, and an empty entry of PATH
 *          stands for the root directory. A word that is not found is run as it is.
 * fd       as for gxpipe
 *
 * Returns what gxpipe returns.
 */
int gxpipex(const char *command, int *fd);

/* Reads the next line. For a command, the first call waits until it has ended.
 *
 * buffer  receives the line without its newline, and a NUL; nothing behind that NUL is written.
 *         A carriage return is an ordinary character.
 * length  bytes in buffer; with less than 1 nothing happens and the result is 0
 *
 * Returns 1 for a line, or for the last piece of the data when it ends without a newline; 2 when
 * the buffer filled before the end of the line, whose rest the next call reads; 0 at the end of
 * the data. A NUL byte ends the data: the text before it is returned, then 0 for ever. Also 0,
 * with the buffer untouched, for a handle that is not open.
 * The first call on a command may log with elog_log: "fstat failed\n" and "output is empty" with
 * errno, "no open file" without; later calls on a command without output log "no pid", without.
 */
int gxline(int handle, char *buffer, int length);

/* The offset of the next byte that gxline reads; -1 for a handle that is not open. Logs nothing. */
int gxtell(int handle);

/* Sets that offset.
 *
 * offset  0 to the size of the data; a command has size 0 until the first gxline
 *
 * Returns 0, or -1 for an offset outside. For a handle that is not open it does nothing and
 * returns 0. Logs nothing.
 */
int gxseek(int handle, int offset);

/* Releases a handle.
 *
 * Returns munmap's result: 0, or -1 with errno; 0 when nothing was mapped or the handle is not
 * open. Logs nothing. A command that was never read is neither waited for nor is its pipe closed.
 */
int gxclose(int handle);

/* The offset of an open descriptor, as lseek(fd, 0, SEEK_CUR) gives it; -1 with errno. Logs
 * nothing; any thread.
 */
long tell(int fd);

/* ---- Streams, paths and file times ----------------------------------------------------------- */

/* Fills the reserve: up to two streams, open on /dev/null, held for the moment when the process is
 * out of descriptors. A stream that cannot be opened is left out; the next call tries again.
 *
 * Logs nothing, but ends the process when the first call of either function finds no memory. The
 * streams are the library's. Any thread.
 */
void reserve_FILE(void);

/* Closes one stream of the reserve, so that the caller can open one of its own; with none held it
 * does nothing. Another thread may be faster to take what was freed. Otherwise as reserve_FILE.
 */
void release_FILE(void);

/* Where a path lives. */
typedef struct PathInfo {
  uint32_t fsid;         /* low 32 bits of what std_statvfs puts into f_fsid: the free blocks */
  char host[64];         /* as fspath writes it: empty for a local mount */
  char filesystem[4096]; /* the mount's device; for a remote mount what follows its first ':' */
  double bytes_avail;    /* bytes left to an unprivileged user */
  double bytes_total;    /* bytes in the file system */
  double inodes_avail;   /* files that can still be made; 2^31 where none are counted */
  double inodes_total;   /* files in all; 2^31 where none are counted */
} PathInfo;

/* The mount that holds a path: the last line of /etc/mtab whose mount point the absolute path
 * begins with, character by character (so /home2/x is under /home as well, and nothing is under a
 * mount point with a blank in its name, which is written \040 there).
 *
 * path        an existing file or directory
 * host        64 bytes, cut to fit. Empty for a local mount; for a device with ':' the text that
 *             the reader's line buffer holds where an earlier line had its mount point: enough to
 *             tell a remote mount from a local one, and no name to connect to. It is empty also
 *             when there was no earlier line.
 * filesystem  4096 bytes: the device, or what follows its first ':'
 *
 * Both are empty unless a line matches. Returns 0, or -1: no line matches, "can't stat %s" (the
 * absolute path) or "can't open /etc/mtab", these two logged by elog_log with errno. Any thread.
 */
int fspath(const char *path, char *host, char *filesystem);

/* fspath's answer and the room in that file system.
 *
 * path  an existing file or directory; a leading ~ or ~user is expanded
 *
 * Returns a record that the caller frees, or null: "can't resolve host, filesystem for %s" after
 * fspath's own report, or "statvfs on '%s' fails", by elog_log, the second with errno. Ends the
 * process when there is no memory for the record. Any thread.
 */
PathInfo *infopath(const char *path);

/* Whether a path is on a remote mount: 1 when fspath answers with a host, 0 when it answers
 * without, -1 when it fails (and has said why). Any thread.
 */
int is_nfs(const char *path);

/* When a file was last modified: seconds since 1970-01-01 00:00:00 UTC, the nanoseconds as their
 * fraction; -9999999999.999 when it cannot be examined. Leaves errno alone and logs nothing; any
 * thread.
 */
double dfiletime(const char *path);

/* ---- Shared-memory clock --------------------------------------------------------------------- */

/* Attaches the System V shared-memory segment through which the host's time daemon takes samples of
 * a reference clock: key 0x4E545030 ("NTP0") plus the unit, 80 bytes, created for everyone to read
 * and write when it does not exist. It is never removed.
 *
 * unit  0..3. The first successful call fixes it for the life of the process; later calls do
 *       nothing, whatever their unit.
 *
 * Ends the process with elog_die when the unit is out of range, or (errno included) when the
 * segment cannot be attached: it is smaller than 80 bytes, or another user's without permission
 * for us. One thread at a time.
 */
void _init_Dlclock(int unit);

/* Publishes one sample: a reference time and the local time of this call.
 *
 * t  the reference time: seconds since 1970-01-01 00:00:00 UTC, cut to whole microseconds toward
 *    zero (-1.5 is -1 s and -500000 us)
 *
 * Without a segment it does nothing. All words of the segment are 32-bit integers, so the seconds
 * are the low 32 bits; those of a NaN and of what lies beyond 64 bits are 0. They are, in order:
 * mode (1), count, reference seconds and microseconds, local seconds and microseconds, leap (0),
 * precision (-1), samples (left alone), valid. They are stored valid = 0 first, then the data, then
 * count + 1, then valid = 1. A reader copies a sample and takes it when valid is 1 afterwards and
 * count is what it was before.
 *
 * Logs nothing. One writer per unit: one thread at a time.
 */
void set_Dlclock(double t);

/* ---- Time zones ------------------------------------------------------------------------------ */

/* The name of the time zone that the process uses.
 *
 * Returns the value that TZ had at the first call, "UTC" when it was unset or empty; never null,
 * never empty. Later changes of TZ are not seen. The text is the environment's own (or constant):
 * neither change nor free it, and do not overwrite that entry of the environment in place.
 *
 * Logs nothing; one thread at a time.
 */
const char *getTZ(void);

/* Makes the zone explicit: puts TZ with the name that getTZ gives into the environment, unless TZ
 * is there already, be it empty. A name is cut to 60 characters.
 *
 * Changes the environment: call it before threads that read it are started. Logs nothing.
 */
void setTZ(void);

/* Whether a name is that of a time zone: of a regular file under the directory that the environment
 * variable ZONEINFO names, else under /usr/share/zoneinfo.
 *
 * name  such as "Europe/Paris". A folder of zones ("Europe") is none; a symbolic link is what it
 *       points to.
 *
 * Returns 1 or 0; errno is left alone. The directory is settled at the first call. A path of 4096
 * characters or more is no zone. Logs nothing; one thread at a time.
 */
int is_timezone(const char *name);

/* ---- Time and timer -------------------------------------------------------------------------- */

/* Wall-clock time: seconds since 1970-01-01 00:00:00 UTC with microsecond resolution.
 * Logs and keeps nothing; any thread.
 */
double std_now(void);

/* The same, for callers whose compiler appends an underscore to external names. */
double std_now_(void);

/* Arms an alarm that fires once, in real time.
 *
 * handler  called with SIGALRM when the time is over. It stays installed afterwards. The signal is
 *          blocked while it runs; system calls that the alarm interrupts are not restarted.
 * seconds  how long from now, in steps of a microsecond, rounded down; 0 disarms a pending alarm
 *
 * Returns 0, or -1 when the timer could not be set, which a negative time or one that is not a
 * number always is: logged with elog_log, errno included, and the handler is installed all the
 * same. Ends the process with elog_die when the handler cannot be installed.
 *
 * Replaces the handler and the alarm of an earlier call: the process has one real-time timer, so
 * one thread at a time.
 */
int std_set_timer(void (*handler)(int), double seconds);

/* ---- Network identity ------------------------------------------------------------------------ */

/* IPv4 addresses are 32-bit integers that hold the four bytes in network order, as they lie in
 * memory: on this platform 127.0.0.1 is 0x0100007F.
 */

/* The address of a host name, as gethostbyname knows it.
 *
 * name     host name or dotted quad
 * address  written: the first address; 0xFFFFFFFF when the name is unknown
 * text     written: the same as a dotted quad, 16 bytes; empty when the name is unknown
 *
 * Returns 0, or -1 when the name is unknown. Logs and keeps nothing. Any thread; calls wait for
 * one another.
 */
int name2ip(const char *name, uint32_t *address, char *text);

/* The host name of an address, as gethostbyaddr knows it.
 *
 * address  in network order; but 0x7F000001, compared as an integer, is "localhost" at once
 * name     written without a limit: the official name (1025 bytes hold every name of DNS, but a
 *          line of /etc/hosts may have a longer one), or the dotted quad when there is none
 *
 * Returns 0, or -1 when the dotted quad had to do: logged with elog_complain, without errno, once
 * per address. The library remembers such an address for the life of the process. Any thread; calls
 * wait for one another, also while one logs: a program's own elog_complain must not call this.
 */
int ip2name(uint32_t address, char *name);

/* The host's own label: its node name up to the first dot.
 *
 * name  written, up to 65 bytes; empty when uname fails
 *
 * Returns 0, or uname's negative result. Logs and keeps nothing; any thread.
 */
int my_hostname(char *name);

/* The address that the resolver answers first for the host's node name, of either family.
 *
 * canonical  64 bytes, written: the canonical name
 * text       64 bytes, written: the address
 * address    written: an IPv4 address, or the last four bytes of an IPv6 address
 *
 * Returns 0, or -1 with two empty texts and 0 when the host has no address or the first answer is
 * a loopback address. Failures of uname and inet_ntop are written to standard error, not to the
 * log. Keeps nothing; any thread.
 */
int my_ip(char *canonical, char *text, uint32_t *address);

/* All addresses that the resolver answers for the host's node name, in its order.
 *
 * list  written: the addresses, a blank between them, without 127.0.0.1 (but with ::1); cut to fit.
 *       When the resolver fails, its message; when uname fails, empty.
 * size  of list, in bytes; 0 or less writes nothing
 *
 * Returns 0 when there was an address to list, else -1. Failures of inet_ntop are written to
 * standard error, not to the log. Keeps nothing; any thread.
 */
int my_ips(char *list, int size);

/* The same addresses as socket addresses, cut to 16 bytes.
 *
 * slots  count slots of 128 bytes. Of each one filled, the first 16 bytes are those of the socket
 *        address and the others 0: family, port and IPv4 address; or family, port, flow and the
 *        first 8 bytes of the IPv6 address. The slots behind them are left alone.
 * count  of slots; 0 or less fills none
 *
 * Returns the number of slots filled, or -1 when none was: uname or the resolver failed, there was
 * no address to tell or no slot for it. Logs and keeps nothing; any thread.
 */
int my_ipv6s(struct sockaddr_storage *slots, int count);

/* ---- Hardware, system and user --------------------------------------------------------------- */

/* The Ethernet addresses of the host, from what "/sbin/ifconfig -a" prints behind "HWaddr ".
 *
 * list  written without a limit: each address once, in ascending order, a blank between them;
 *       "****" when there is none, or the command is missing or uses another mark
 *
 * Returns 0 and sets errno to 0. Runs a command and waits for it, with a stream out of the reserve
 * that it takes back afterwards. Logs and keeps nothing; any thread.
 */
int my_ether(char *list);

/* The machine type, such as "x86_64".
 *
 * machine  written, up to 65 bytes; empty when uname fails
 *
 * Returns 0, or uname's negative result. Logs and keeps nothing; any thread.
 */
int my_hardware(char *machine);

/* The name of the operating system, such as "Linux", without release and version.
 *
 * system  written, up to 65 bytes; empty when uname fails
 *
 * Returns 0, or uname's negative result. Logs and keeps nothing; any thread.
 */
int my_os(char *system);

/* The login name of the user who runs the process, as cuserid finds it: up to 8 characters.
 *
 * name  written, up to 32 bytes: the name; or, when there is none, "u#" and the user id
 *
 * Returns 0, or -1 when the user id had to do. A name that was found stays for the life of the
 * process, even if the user changes. Logs nothing; one thread at a time.
 */
int my_username(char *name);

/* ---- Signals and faults ---------------------------------------------------------------------- */

/* The number of a signal's name.
 *
 * name    "HUP" or "SIGHUP", in capitals; one "SIG" is skipped
 * number  1 int, written only when the name is known
 *
 * Returns 0, or -1 for an unknown name. Known are HUP INT QUIT ILL TRAP IOT ABRT FPE BUS SEGV SYS
 * PIPE ALRM TERM USR1 USR2 CLD CHLD PWR WINCH URG POLL TSTP CONT TTIN TTOU VTALRM PROF XCPU XFSZ:
 * not KILL, STOP, STKFLT, IO or a real-time signal. Logs nothing; any thread.
 */
int str2sig(const char *name, int *number);

/* The name of a signal's number, with "SIG" in front.
 *
 * number  any int
 * name    at least 10 bytes; an empty text when the number is unknown
 *
 * Returns 0, or -1 for an unknown number: one that no name of str2sig has. 6 is "SIGIOT" and 17 is
 * "SIGCLD". Logs nothing; any thread.
 */
int sig2str(int number, char *name);

/* Makes the process ignore SIGALRM or SIGPIPE from now on, for all its threads. With SIGPIPE
 * ignored, a write to a pipe or socket whose reader has gone fails with EPIPE.
 *
 * Ends the process with elog_die, with errno, when the handler cannot be installed. For the start
 * of a program; calling again does no harm.
 */
void ignoreSIGALRM(void);
void ignoreSIGPIPE(void);

/* Tells the cause of a signal on standard error, in one or two lines, none for a bus error of an
 * unknown kind. Neither a heading nor the signal's name is written. The arguments are those of a
 * handler that was installed with SA_SIGINFO.
 *
 * number   the signal
 * info     what the kernel says of it: only read
 * context  not used
 *
 * A negative si_code names the sender's pid and user. A signal sent with kill has the code 0 and is
 * told like the kernel's own. Logs and keeps nothing. Writes through stderr, so it is not safe in
 * an asynchronous signal handler that means to return.
 */
void show_fault(int number, siginfo_t *info, void *context);

/* Prints the call stack on standard error, one line for each function, this one's first, at most
 * 1024 lines.
 *
 * Logs nothing, and prints nothing when memory is exhausted. For a handler that ends the process:
 * it allocates, and two threads at once overwrite each other's capture.
 */
void show_stack_trace(void);

/* Writes the call stack into a buffer: "\n\nStack\n", then a line for each function, this one's
 * first, at most 1024 lines.
 *
 * size    bytes of the buffer; 0 or less writes nothing
 * buffer  all size bytes are written: the text, then NULs. A text that does not fit is cut to
 *         size - 1 characters, the last of them a newline where size is above 8.
 *
 * Logs nothing. For a handler that ends the process: it allocates and does not free, and two
 * threads at once overwrite each other's capture.
 */
void show_stack_trace_string(int size, char *buffer);

/* ---- Sorting --------------------------------------------------------------------------------- */

/* Sorts an array in place, in ascending order of a comparison. Equal elements end in any order.
 *
 * base     count elements of size bytes each, at any alignment
 * count    0 and 1 compare nothing
 * size     bytes of an element
 * context  given to every comparison as it is
 * compare  negative when a sorts before b, 0 when they are equal, positive when a sorts after b;
 *          a and b point into the array and are only read
 *
 * Allocates nothing and needs little stack: it recurses log2(count) deep at most. Whatever the
 * comparison answers, nothing outside the array is touched and the sort ends.
 *
 * It is quickest on arrays that are sorted, reversed or all equal. Its time grows with the square
 * of the elements per distinct value: 100,000 elements with 16 values between them take 200 million
 * comparisons, where 100,000 different values take 2 million. Make equal elements differ (by their
 * index, for instance) when there are many.
 *
 * Logs nothing; any thread.
 */
void btsort(void *base, size_t count, size_t size, void *context,
            int (*compare)(void *context, const void *a, const void *b));

/* ---- Bounded strings ------------------------------------------------------------------------- */

/* Copies a string into a buffer of known size, cut to fit; BSD's definition.
 *
 * destination  size bytes; ends with a NUL afterwards unless size is 0, which writes nothing
 * source       a whole string: it is read to its NUL even when it is cut
 * size         bytes in destination
 *
 * Returns the length of source; size or more means that the copy was cut. Logs nothing; any thread.
 */
size_t strlcpy(char *destination, const char *source, size_t size) PLINTOR_NOEXCEPT;

/* Appends a string to the one in a buffer of known size, cut to fit; BSD's definition.
 *
 * destination  size bytes that hold a string; without a NUL among them nothing is written
 * source       a whole string: it is read to its NUL even when it is cut
 * size         bytes in destination, what it holds included
 *
 * Returns the length of the whole, had there been room; size or more means that it was cut.
 * Without a NUL in destination: size plus the length of source. Logs nothing; any thread.
 */
size_t strlcat(char *destination, const char *source, size_t size) PLINTOR_NOEXCEPT;

/* ---- Shared objects -------------------------------------------------------------------------- */

/* Loads a shared library of the vestan distribution.
 *
 * name  a short name: foo is lib/libfoo.so.3 below the install root (see getvestan) when that is
 *       readable and executable, else contrib/lib/libfoo.so.3. A name that begins with '/' is the
 *       path itself.
 *
 * Returns the handle of dlopen(path, RTLD_LAZY), for dlsym and dlclose; NULL when the library
 * cannot be loaded, and then dlerror speaks of the last path; NULL also, without a word from
 * dlerror, when a path would take more than 4095 characters. Logs nothing; any thread.
 */
void *std_dlopen(const char *name);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
