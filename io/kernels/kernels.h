// What a line is read with: one kernel for each of the processor's instruction sets. All of them do
// what the rule says, which goes byte by byte up to a newline or a NUL.

#ifndef IO_KERNELS_KERNELS_H
#define IO_KERNELS_KERNELS_H

#include <cstdint>

#include "frame/processor.h"

struct GxFile {
  char *data;       // the mapping, or null as long as a command's output is not collected
  int32_t size;     // Kept: 32 bits, so of a larger file the low half of its length
  int32_t pid;      // the command's, -1 once it is reaped
  int32_t fd;       // the command's output file, -1 when there is none
  int32_t pipe_fd;  // read end of the command's standard input
  int32_t pos;      // offset into data
};

// What gxline does once it has the record, with a length of at least 1.
using LineKernel = int (*)(GxFile *file, char *buffer, int length);

int read_line_sse2(GxFile *file, char *buffer, int length);
int read_line_avx2(GxFile *file, char *buffer, int length);
int read_line_avx512(GxFile *file, char *buffer, int length);

// A kernel asks for memory this far ahead: the processor's own reading ahead stops at a page's end.
constexpr int kAhead = 4096;

#define INLINE inline __attribute__((always_inline))

// Makes the kernel for these the choice of this process.
void choose_line_kernel(Vectors vectors);

#endif
