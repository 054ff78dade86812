// The loop over elements, which defines what every conversion gives, and the kernels before it.

#ifndef CONV_ELEMENTS_H
#define CONV_ELEMENTS_H

#include "conv/kernels/kernels.h"

namespace conv {

// Converts one element and says whether it was exact.
using Element = bool (*)(const char *from, char *to);

// Element k is read, then written, then comes element k + 1: that order decides what overlapping
// buffers give, and the empty statement keeps the compiler to it. 0 if every one was
// exact, else -1.
template <Element element, int FromSize, int ToSize>
[[gnu::always_inline]] inline int each_element(const char *from, char *to, long n) {
  bool exact = true;
#pragma GCC unroll 2
  for (long k = 0; k < n; ++k, from += FromSize, to += ToSize) {
    exact &= element(from, to);
    asm volatile("" ::: "memory");
  }
  return exact ? 0 : -1;
}

// One element is what is asked for most often: it runs straight through.
template <Element element, int FromSize, int ToSize>
[[gnu::always_inline]] inline int few_elements(const char *from, char *to, long n) {
  const int first = each_element<element, FromSize, ToSize>(from, to, 1);
  if (n == 1) [[likely]]
    return first;
  return first | each_element<element, FromSize, ToSize>(from + FromSize, to + ToSize, n - 1);
}

// Below this count the element loop is as fast as any kernel.
constexpr int kFew = 16;

// All n elements. Whatever is not done here is the last call, so that a few pay for no frame.
template <Element element, int FromSize, int ToSize, Member member>
inline int all_elements(const char *from, char *to, int n) {
  if (n <= 0) return 0;
  if (n < kFew) return few_elements<element, FromSize, ToSize>(from, to, n);
  return run_kernel(from, to, n, {member, FromSize, ToSize},
                    each_element<element, FromSize, ToSize>);
}

}  // namespace conv

#endif
