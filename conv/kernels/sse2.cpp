// The kernels for SSE2, which every x86-64 processor has.

#include <emmintrin.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "conv/kernels/kernels.h"
#include "conv/layout.h"

namespace conv {
namespace {

using Vector = __m128i;
constexpr int kVector = 16;
constexpr bool kMasks = false;

#include "conv/kernels/block.h"

INLINE Vector load(const char *at) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i *>(at));
}
INLINE void store(char *at, Vector x) { _mm_storeu_si128(reinterpret_cast<__m128i *>(at), x); }
INLINE void stream(char *at, Vector x) { _mm_stream_si128(reinterpret_cast<__m128i *>(at), x); }
INLINE void fence() { _mm_sfence(); }

template <int Size>
INLINE Vector reversed(Vector x) {
  if constexpr (Size == 4) {
    x = _mm_shufflehi_epi16(_mm_shufflelo_epi16(x, _MM_SHUFFLE(2, 3, 0, 1)),
                            _MM_SHUFFLE(2, 3, 0, 1));
  }
  if constexpr (Size == 8) {
    x = _mm_shufflehi_epi16(_mm_shufflelo_epi16(x, _MM_SHUFFLE(0, 1, 2, 3)),
                            _MM_SHUFFLE(0, 1, 2, 3));
  }
  return _mm_or_si128(_mm_slli_epi16(x, 8), _mm_srli_epi16(x, 8));
}

// What goes above each element to widen it: copies of its sign, or zeros.
template <class T>
INLINE Vector upper_half(Vector x) {
  const Vector zero = _mm_setzero_si128();
  if constexpr (std::is_unsigned_v<T>)
    return zero;
  else if constexpr (sizeof(T) == 1)
    return _mm_cmpgt_epi8(zero, x);
  else if constexpr (sizeof(T) == 2)
    return _mm_cmpgt_epi16(zero, x);
  else
    return _mm_cmpgt_epi32(zero, x);
}

template <class T>
INLINE Vector widened_low(Vector x) {
  if constexpr (sizeof(T) == 1) return _mm_unpacklo_epi8(x, upper_half<T>(x));
  if constexpr (sizeof(T) == 2) return _mm_unpacklo_epi16(x, upper_half<T>(x));
  if constexpr (sizeof(T) == 4) return _mm_unpacklo_epi32(x, upper_half<T>(x));
}
template <class T>
INLINE Vector widened_high(Vector x) {
  if constexpr (sizeof(T) == 1) return _mm_unpackhi_epi8(x, upper_half<T>(x));
  if constexpr (sizeof(T) == 2) return _mm_unpackhi_epi16(x, upper_half<T>(x));
  if constexpr (sizeof(T) == 4) return _mm_unpackhi_epi32(x, upper_half<T>(x));
}

template <int Which>
INLINE Vector every_other(Vector x, Vector y) {
  return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(x), _mm_castsi128_ps(y), Which));
}
INLINE Vector evens(Vector x, Vector y) { return every_other<_MM_SHUFFLE(2, 0, 2, 0)>(x, y); }
INLINE Vector odds(Vector x, Vector y) { return every_other<_MM_SHUFFLE(3, 1, 3, 1)>(x, y); }

INLINE Vector saturated_bytes(Vector x, Vector y) { return _mm_packs_epi16(x, y); }
INLINE Vector saturated_shorts(Vector x, Vector y) { return _mm_packs_epi32(x, y); }
INLINE Vector low_bytes(Vector x, Vector y) {
  const Vector low = _mm_set1_epi16(0xff);
  return _mm_packus_epi16(_mm_and_si128(x, low), _mm_and_si128(y, low));
}
INLINE Vector low_shorts(Vector x, Vector y) {  // as signed shorts they pack unchanged
  return _mm_packs_epi32(_mm_srai_epi32(_mm_slli_epi32(x, 16), 16),
                         _mm_srai_epi32(_mm_slli_epi32(y, 16), 16));
}

INLINE Vector high_half(Vector x) { return _mm_unpackhi_epi64(x, x); }
INLINE Vector floats_of_ints(Vector x) { return _mm_castps_si128(_mm_cvtepi32_ps(x)); }
INLINE Vector ints_of_floats(Vector x) { return _mm_cvttps_epi32(_mm_castsi128_ps(x)); }
INLINE Vector low_doubles_of_ints(Vector x) { return _mm_castpd_si128(_mm_cvtepi32_pd(x)); }
INLINE Vector high_doubles_of_ints(Vector x) { return low_doubles_of_ints(high_half(x)); }
INLINE Vector ints_of_doubles(Vector x, Vector y) {
  return _mm_unpacklo_epi64(_mm_cvttpd_epi32(_mm_castsi128_pd(x)),
                            _mm_cvttpd_epi32(_mm_castsi128_pd(y)));
}
INLINE Vector longs_of_doubles(Vector x) {
  const __m128d doubles = _mm_castsi128_pd(x);
  return _mm_set_epi64x(_mm_cvttsd_si64(_mm_unpackhi_pd(doubles, doubles)),
                        _mm_cvttsd_si64(doubles));
}
INLINE Vector low_doubles_of_floats(Vector x) {
  return _mm_castpd_si128(_mm_cvtps_pd(_mm_castsi128_ps(x)));
}
INLINE Vector high_doubles_of_floats(Vector x) { return low_doubles_of_floats(high_half(x)); }
INLINE Vector floats_of_doubles(Vector x, Vector y) {
  return _mm_castps_si128(
      _mm_movelh_ps(_mm_cvtpd_ps(_mm_castsi128_pd(x)), _mm_cvtpd_ps(_mm_castsi128_pd(y))));
}
INLINE __m128 lesser(__m128 x, __m128 y) { return _mm_min_ps(x, y); }
INLINE __m128 greater(__m128 x, __m128 y) { return _mm_max_ps(x, y); }
INLINE __m128d lesser(__m128d x, __m128d y) { return _mm_min_pd(x, y); }
INLINE __m128d greater(__m128d x, __m128d y) { return _mm_max_pd(x, y); }

INLINE bool all_zero(Vector x) {
  return _mm_movemask_epi8(_mm_cmpeq_epi8(x, _mm_setzero_si128())) == 0xffff;
}

// Between 64-bit integers and floating values there is next to nothing that two lanes do at once.
// Unsigned longs become doubles fast where that is not checked.
template <class S, class T>
constexpr bool kOneByOne = (std::is_floating_point_v<S> && std::is_integral_v<T> &&
                            sizeof(T) == 8) ||
                           (std::is_integral_v<S> && sizeof(S) == 8 && std::is_floating_point_v<T>);
template <class E, class H>
constexpr bool kReads = !kOneByOne<E, H>;
template <class E, class H>
constexpr bool kWrites =
    !kOneByOne<H, E> || (std::is_same_v<H, unsigned long> && std::is_same_v<E, double>);

// Twelve bytes, four threes, to the upper three bytes of four ints.
template <char R>
INLINE Vector spread_twelve(Vector x) {
  const Vector first = _mm_set_epi32(0, 0, 0, 0xffffff);
  const Vector second = _mm_set_epi32(0, 0, 0xffffff, 0);
  const Vector third = _mm_set_epi32(0, 0xffffff, 0, 0);
  const Vector fourth = _mm_set_epi32(0xffffff, 0, 0, 0);
  x = _mm_or_si128(
      _mm_or_si128(_mm_and_si128(x, first), _mm_and_si128(_mm_slli_si128(x, 1), second)),
      _mm_or_si128(_mm_and_si128(_mm_slli_si128(x, 2), third),
                   _mm_and_si128(_mm_slli_si128(x, 3), fourth)));
  return R == 'm' ? reversed<4>(x) : _mm_slli_epi32(x, 8);
}

template <char R>
INLINE void spread_threes(const Vector *x, Vector *result) {
  result[0] = spread_twelve<R>(x[0]);
  result[1] = spread_twelve<R>(_mm_or_si128(_mm_srli_si128(x[0], 12), _mm_slli_si128(x[1], 4)));
  result[2] = spread_twelve<R>(_mm_or_si128(_mm_srli_si128(x[1], 8), _mm_slli_si128(x[2], 8)));
  result[3] = spread_twelve<R>(_mm_srli_si128(x[2], 4));
}

// The lower three bytes of four ints to twelve bytes, zeros behind them.
template <char R>
INLINE Vector joined_twelve(Vector x) {
  if (R == 'm') x = reversed<4>(_mm_slli_epi32(x, 8));
  const Vector first = _mm_set_epi32(0, 0, 0, 0xffffff);
  const Vector second = _mm_set_epi32(0, 0, 0xffffff, 0);
  const Vector third = _mm_set_epi32(0, 0xffffff, 0, 0);
  const Vector fourth = _mm_set_epi32(0xffffff, 0, 0, 0);
  return _mm_or_si128(
      _mm_or_si128(_mm_and_si128(x, first), _mm_srli_si128(_mm_and_si128(x, second), 1)),
      _mm_or_si128(_mm_srli_si128(_mm_and_si128(x, third), 2),
                   _mm_srli_si128(_mm_and_si128(x, fourth), 3)));
}

template <char R>
INLINE void joined_threes(const Vector *x, Vector *result) {
  const Vector second = joined_twelve<R>(x[1]), third = joined_twelve<R>(x[2]);
  result[0] = _mm_or_si128(joined_twelve<R>(x[0]), _mm_slli_si128(second, 12));
  result[1] = _mm_or_si128(_mm_srli_si128(second, 4), _mm_slli_si128(third, 8));
  result[2] = _mm_or_si128(_mm_srli_si128(third, 8), _mm_slli_si128(joined_twelve<R>(x[3]), 4));
}

#include "conv/kernels/lanes.h"
#include "conv/kernels/loop.h"

}  // namespace

// clang-format off
constinit const Kernels kSse2 = {{KERNELS_OF_FAMILY KERNELS_OF_THREE}};
// clang-format on

}  // namespace conv
