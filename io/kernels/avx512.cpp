// Lines by AVX-512, whose masks stop a load at the limit and a store at the line's end.

#ifndef __clang__  // gcc 12 takes its own header's undefined operands for a mistake
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#include <bit>
#include <cstddef>
#include <cstdint>

#include "io/kernels/kernels.h"

#ifdef __clang__
#pragma clang attribute push(__attribute__((target("avx512f,avx512bw,bmi2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx512f,avx512bw,bmi2")
#endif

namespace {

// A bit for each byte that does not end a line, the first byte's the lowest. Of all bytes, a
// newline and a NUL alone find themselves in the table by their low half.
INLINE __mmask64 inside(__m512i bytes) {
  const __m512i table =
      _mm512_broadcast_i32x4(_mm_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, '\n', 0, 0, 0, 0, 0));
  return _mm512_cmpneq_epi8_mask(_mm512_shuffle_epi8(table, bytes), bytes);
}

// Stores the bytes before the first that ends a line, with a NUL behind them, and adds their number
// to n. Returns whether there is such a byte.
INLINE bool end_line(char *to, __m512i bytes, size_t &n) {
  const __mmask64 kept = inside(bytes);
  const uint64_t ends = ~uint64_t{kept};
  if (ends == 0) return false;
  const __mmask64 to_first_end = ends ^ (ends - 1);
  _mm512_mask_storeu_epi8(to + n, to_first_end, _mm512_maskz_mov_epi8(kept, bytes));
  n += static_cast<size_t>(std::countr_zero(ends));
  return true;
}

INLINE size_t copy_line(char *to, const char *from, size_t limit) {
  for (size_t n = 0;; n += 64) {
    _mm_prefetch(from + n + kAhead, _MM_HINT_T0);
    const size_t rest = limit - n;
    // Zeros stand for the bytes behind the limit, and end the line.
    const __m512i bytes = rest >= 64 ? _mm512_loadu_si512(from + n)
                                     : _mm512_maskz_loadu_epi8(_bzhi_u64(~0ull, rest), from + n);
    if (end_line(to, bytes, n)) return n;
    _mm512_storeu_si512(to + n, bytes);
  }
}

#include "io/kernels/line.h"

}  // namespace

int read_line_avx512(GxFile *file, char *buffer, int length) {
  return read_line(file, buffer, length);
}

#ifdef __clang__
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif
