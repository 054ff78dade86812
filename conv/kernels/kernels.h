// What a kernel is, and which there are. A kernel is a faster way to what the element loop of
// byteswap.cpp, three.cpp and moldy_byteswap.cpp defines, for one of the processor's instruction
// sets; the loop does what a kernel leaves.

#ifndef CONV_KERNELS_KERNELS_H
#define CONV_KERNELS_KERNELS_H

#include "conv/family.h"

namespace conv {

// How the two buffers lie.
enum class Way {
  forward,  // shared bytes, but the destination begins and ends no later than the source: what is
            // still to be read is never overwritten
  apart,    // no byte in common
  around,   // apart, `to` aligned to 64 bytes, and so much of it that stores best go around the
            // caches
};

// Converts n elements, one at least: 0 if every one of them was exact, else -1. A kernel may leave
// some to the element loop.
using Loop = int (*)(const char *from, char *to, long n);
using Kernel = int (*)(const char *from, char *to, long n, Way way, Loop loop);
constexpr long kLargestBlock = 256;  // what a kernel has between a load and its store, in elements

// One entry a function of the family, under its name, and those beside it.
enum Member : int {
// clang-format off
#define CONV_PAIR(R, E, H) R##E##2h##H, h##H##2##R##E,
#define CONV_EACH(R, E, H) CONV_PAIR(R, E, H) u##R##E##2h##H, uh##H##2##R##E,
#define CONV_NONE(...)
  FAMILY(CONV_EACH, CONV_PAIR, CONV_PAIR, CONV_NONE, CONV_NONE)
  vt2hi, mt2hi, vt2hf, mt2hf, hi2vt, hi2mt, H42N3,
  kMembers,
#undef CONV_NONE
#undef CONV_EACH
#undef CONV_PAIR
  // clang-format on
};

// A null entry is left to the element loop.
struct Kernels {
  Kernel of[kMembers];
};

extern const Kernels kSse2, kAvx2, kAvx512;

// The best set that this processor and its operating system run.
const Kernels &best_kernels();

// For tests: makes `kernels` the choice of this process.
void choose_kernels(const Kernels &kernels);

// A member and the bytes that an element has on its two sides.
struct Conversion {
  Member member;
  short from_size, to_size;
};

// Converts n elements by the chosen kernel, if there is one and the buffers lie so that it may;
// else by the loop.
int run_kernel(const char *from, char *to, long n, Conversion conversion, Loop loop);

}  // namespace conv

#endif
