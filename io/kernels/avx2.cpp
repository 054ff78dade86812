// Lines by AVX2.

#include <immintrin.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "io/kernels/kernels.h"

#ifdef __clang__
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif

namespace {

#include "io/kernels/blocks.h"

struct SixtyFour {
  __m256i low, high;

  static INLINE SixtyFour load(const char *from) {
    return {_mm256_loadu_si256(reinterpret_cast<const __m256i *>(from)),
            _mm256_loadu_si256(reinterpret_cast<const __m256i *>(from + 32))};
  }
  INLINE void store(char *to) const {
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(to), low);
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(to + 32), high);
  }
  INLINE uint64_t ends() const { return uint64_t{ends(high)} << 32 | ends(low); }

 private:
  // Of all bytes, a newline and a NUL alone find themselves in the table by their low half.
  static INLINE uint32_t ends(__m256i bytes) {
    const __m256i table = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, '\n', 0, 0, 0, 0, 0));
    return static_cast<uint32_t>(
        _mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_shuffle_epi8(table, bytes), bytes)));
  }
};

INLINE size_t copy_line(char *to, const char *from, size_t limit) {
  return copy_by_blocks<SixtyFour>(to, from, limit);
}

#include "io/kernels/line.h"

}  // namespace

int read_line_avx2(GxFile *file, char *buffer, int length) {
  return read_line(file, buffer, length);
}

#ifdef __clang__
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif
