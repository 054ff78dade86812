// The loop over elements, which defines what every conversion gives, and the kernels before it.

#ifndef CONV_ELEMENTS_H
#define CONV_ELEMENTS_H

#include "conv/kernels/kernels.h"

namespace conv {

// Converts one element and says whether it was exact.
using Element = bool (*)(const char *from, char *to);

// Element k is read, then written, then comes element k + 1: that order decides what overlapping
// buffers give, and the empty statement keeps the compiler to it.
template <Element element, int FromSize, int ToSize>
inline bool each_element(const char *from, char *to, long n) {
  bool exact = true;
#pragma GCC unroll 1  // three quarters of the library's text would be copies of this loop
  for (long k = 0; k < n; ++k, from += FromSize, to += ToSize) {
    exact &= element(from, to);
    asm volatile("" ::: "memory");
  }
  return exact;
}

// Below this count the element loop alone is as fast as a kernel, sooner where a rule has work to
// do than where it only reverses bytes.
constexpr int short_count(int from_size, int to_size) { return from_size == to_size ? 32 : 16; }

// Out of line, so that short counts do not pay for its frame.
template <Element element, int FromSize, int ToSize, Member member>
[[gnu::noinline]] bool many_elements(const char *from, char *to, long n) {
  const Progress progress = run_kernel(member, from, FromSize, to, ToSize, n);
  return each_element<element, FromSize, ToSize>(from + progress.done * FromSize,
                                                 to + progress.done * ToSize, n - progress.done) &
         progress.exact;
}

template <Element element, int FromSize, int ToSize, Member member>
inline bool all_elements(const char *from, char *to, int n) {
  if (n < short_count(FromSize, ToSize))
    return each_element<element, FromSize, ToSize>(from, to, n);
  return many_elements<element, FromSize, ToSize, member>(from, to, n);
}

}  // namespace conv

#endif
