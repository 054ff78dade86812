// The kernels for AVX2.

#include <immintrin.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "conv/kernels/kernels.h"
#include "conv/layout.h"

namespace conv {
namespace {

#ifdef __clang__
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif

using Vector = __m256i;
constexpr int kVector = 32;
constexpr bool kMasks = false;

#include "conv/kernels/block.h"

INLINE Vector load(const char *at) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(at));
}
INLINE void store(char *at, Vector x) { _mm256_storeu_si256(reinterpret_cast<__m256i *>(at), x); }
INLINE void stream(char *at, Vector x) { _mm256_stream_si256(reinterpret_cast<__m256i *>(at), x); }
INLINE void fence() { _mm_sfence(); }

INLINE __m128i low_half(Vector x) { return _mm256_castsi256_si128(x); }
INLINE __m128i high_half(Vector x) { return _mm256_extracti128_si256(x, 1); }

template <int Size>
INLINE Vector reversed(Vector x) {
  // clang-format off
  const __m128i places =
      Size == 2 ? _mm_set_epi8(14, 15, 12, 13, 10, 11, 8, 9, 6, 7, 4, 5, 2, 3, 0, 1)
    : Size == 4 ? _mm_set_epi8(12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3)
                : _mm_set_epi8(8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7);
  // clang-format on
  return _mm256_shuffle_epi8(x, _mm256_broadcastsi128_si256(places));
}

template <class T>
INLINE Vector widened(__m128i x) {
  if constexpr (std::is_same_v<T, signed char>) return _mm256_cvtepi8_epi16(x);
  if constexpr (std::is_same_v<T, unsigned char>) return _mm256_cvtepu8_epi16(x);
  if constexpr (std::is_same_v<T, short>) return _mm256_cvtepi16_epi32(x);
  if constexpr (std::is_same_v<T, unsigned short>) return _mm256_cvtepu16_epi32(x);
  if constexpr (std::is_same_v<T, int>) return _mm256_cvtepi32_epi64(x);
  if constexpr (std::is_same_v<T, unsigned int>) return _mm256_cvtepu32_epi64(x);
}
template <class T>
INLINE Vector widened_low(Vector x) {
  return widened<T>(low_half(x));
}
template <class T>
INLINE Vector widened_high(Vector x) {
  return widened<T>(high_half(x));
}

// Two vectors are packed by halves: x y x y. This makes it x x y y.
INLINE Vector in_order(Vector x) { return _mm256_permute4x64_epi64(x, _MM_SHUFFLE(3, 1, 2, 0)); }

template <int Which>
INLINE Vector every_other(Vector x, Vector y) {
  const __m256 mixed = _mm256_shuffle_ps(_mm256_castsi256_ps(x), _mm256_castsi256_ps(y), Which);
  return in_order(_mm256_castps_si256(mixed));
}
INLINE Vector evens(Vector x, Vector y) { return every_other<_MM_SHUFFLE(2, 0, 2, 0)>(x, y); }
INLINE Vector odds(Vector x, Vector y) { return every_other<_MM_SHUFFLE(3, 1, 3, 1)>(x, y); }

INLINE Vector saturated_bytes(Vector x, Vector y) { return in_order(_mm256_packs_epi16(x, y)); }
INLINE Vector saturated_shorts(Vector x, Vector y) { return in_order(_mm256_packs_epi32(x, y)); }
INLINE Vector low_bytes(Vector x, Vector y) {
  const Vector low = _mm256_set1_epi16(0xff);
  return in_order(_mm256_packus_epi16(_mm256_and_si256(x, low), _mm256_and_si256(y, low)));
}
INLINE Vector low_shorts(Vector x, Vector y) {
  const Vector low = _mm256_set1_epi32(0xffff);
  return in_order(_mm256_packus_epi32(_mm256_and_si256(x, low), _mm256_and_si256(y, low)));
}

INLINE Vector floats_of_ints(Vector x) { return _mm256_castps_si256(_mm256_cvtepi32_ps(x)); }
INLINE Vector ints_of_floats(Vector x) { return _mm256_cvttps_epi32(_mm256_castsi256_ps(x)); }
INLINE Vector low_doubles_of_ints(Vector x) {
  return _mm256_castpd_si256(_mm256_cvtepi32_pd(low_half(x)));
}
INLINE Vector high_doubles_of_ints(Vector x) {
  return _mm256_castpd_si256(_mm256_cvtepi32_pd(high_half(x)));
}
INLINE Vector ints_of_doubles(Vector x, Vector y) {
  return _mm256_set_m128i(_mm256_cvttpd_epi32(_mm256_castsi256_pd(y)),
                          _mm256_cvttpd_epi32(_mm256_castsi256_pd(x)));
}
// A double is its 53 digits shifted left by its exponent less 1075. Shifts by 64 and more, and so
// those by less than 0, give 0; from 2^63 on, and for a NaN, the result is the smallest long.
INLINE Vector longs_of_doubles(Vector x) {
  const Vector digits = _mm256_or_si256(_mm256_and_si256(x, _mm256_set1_epi64x((1l << 52) - 1)),
                                        _mm256_set1_epi64x(1l << 52));
  const Vector exponents = _mm256_srli_epi64(_mm256_slli_epi64(x, 1), 53);
  const Vector left = _mm256_sub_epi64(exponents, _mm256_set1_epi64x(1075));
  const Vector right = _mm256_sub_epi64(_mm256_set1_epi64x(1075), exponents);
  const Vector size =
      _mm256_or_si256(_mm256_sllv_epi64(digits, left), _mm256_srlv_epi64(digits, right));
  const Vector sign = _mm256_cmpgt_epi64(_mm256_setzero_si256(), x);
  const Vector result = _mm256_sub_epi64(_mm256_xor_si256(size, sign), sign);
  const Vector beyond = _mm256_cmpgt_epi64(left, _mm256_set1_epi64x(10));
  return _mm256_blendv_epi8(result, _mm256_set1_epi64x(std::numeric_limits<long>::min()), beyond);
}
INLINE Vector low_doubles_of_floats(Vector x) {
  return _mm256_castpd_si256(_mm256_cvtps_pd(_mm_castsi128_ps(low_half(x))));
}
INLINE Vector high_doubles_of_floats(Vector x) {
  return _mm256_castpd_si256(_mm256_cvtps_pd(_mm_castsi128_ps(high_half(x))));
}
INLINE Vector floats_of_doubles(Vector x, Vector y) {
  return _mm256_castps_si256(_mm256_set_m128(_mm256_cvtpd_ps(_mm256_castsi256_pd(y)),
                                             _mm256_cvtpd_ps(_mm256_castsi256_pd(x))));
}
INLINE __m256 lesser(__m256 x, __m256 y) { return _mm256_min_ps(x, y); }
INLINE __m256 greater(__m256 x, __m256 y) { return _mm256_max_ps(x, y); }
INLINE __m256d lesser(__m256d x, __m256d y) { return _mm256_min_pd(x, y); }
INLINE __m256d greater(__m256d x, __m256d y) { return _mm256_max_pd(x, y); }

INLINE bool all_zero(Vector x) { return _mm256_testz_si256(x, x) != 0; }

template <class E, class H>
constexpr bool kReads = true;
template <class E, class H>
constexpr bool kWrites = true;

// Dwords of one vector, or of the last half of x and the first of y: three to each half.
INLINE Vector twelve_and_twelve(Vector x, int first) {
  const int f = first;
  return _mm256_permutevar8x32_epi32(x,
                                     _mm256_setr_epi32(f, f + 1, f + 2, 0, f + 3, f + 4, f + 5, 0));
}
INLINE Vector middle(Vector x, Vector y) { return _mm256_permute2x128_si256(x, y, 0x21); }

// In each half twelve bytes, four threes, to the upper three bytes of four ints.
template <char R>
INLINE Vector spread_twelves(Vector x) {
  const __m128i places = R == 'm'
                             ? _mm_setr_epi8(-1, 2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9)
                             : _mm_setr_epi8(-1, 0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11);
  return _mm256_shuffle_epi8(x, _mm256_broadcastsi128_si256(places));
}

template <char R>
INLINE void spread_threes(const Vector *x, Vector *result) {
  result[0] = spread_twelves<R>(twelve_and_twelve(x[0], 0));
  result[1] = spread_twelves<R>(twelve_and_twelve(middle(x[0], x[1]), 2));
  result[2] = spread_twelves<R>(twelve_and_twelve(middle(x[1], x[2]), 0));
  result[3] = spread_twelves<R>(twelve_and_twelve(x[2], 2));
}

// The lower three bytes of eight ints, as six dwords from dword `place` on, around the end.
template <char R>
INLINE Vector joined_twelves(Vector x, int place) {
  const __m128i places =
      R == 'm' ? _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1)
               : _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  x = _mm256_shuffle_epi8(x, _mm256_broadcastsi128_si256(places));
  const Vector order = place == 0   ? _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7)
                       : place == 6 ? _mm256_setr_epi32(2, 4, 5, 6, 7, 7, 0, 1)
                       : place == 4 ? _mm256_setr_epi32(5, 6, 7, 7, 0, 1, 2, 4)
                                    : _mm256_setr_epi32(7, 7, 0, 1, 2, 4, 5, 6);
  return _mm256_permutevar8x32_epi32(x, order);
}

template <char R>
INLINE void joined_threes(const Vector *x, Vector *result) {
  const Vector second = joined_twelves<R>(x[1], 6), third = joined_twelves<R>(x[2], 4);
  result[0] = _mm256_blend_epi32(joined_twelves<R>(x[0], 0), second, 0xC0);
  result[1] = _mm256_blend_epi32(second, third, 0xF0);
  result[2] = _mm256_blend_epi32(third, joined_twelves<R>(x[3], 2), 0xFC);
}

#include "conv/kernels/lanes.h"
#include "conv/kernels/loop.h"

#ifdef __clang__
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

}  // namespace

// clang-format off
constinit const Kernels kAvx2 = {{KERNELS_OF_FAMILY KERNELS_OF_THREE}};
// clang-format on

}  // namespace conv
