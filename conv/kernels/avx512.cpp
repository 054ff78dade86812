// The kernels for AVX-512 with F, BW, DQ, VL, CD and VBMI (Ice Lake, Zen 4 and later).

#ifndef __clang__  // gcc 12 takes its own header's undefined operands for a mistake
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#include <cstdint>
#include <limits>
#include <type_traits>

#include "conv/kernels/kernels.h"
#include "conv/layout.h"

namespace conv {
namespace {

// Where each byte of a result comes from.
struct alignas(64) Bytes {
  uint8_t of[64];
};

// Widening from `from` to `to` bytes: part `part` of the vector, each element at the top of its new
// place, or at the bottom.
constexpr Bytes spread(int from, int to, int part, bool top) {
  Bytes bytes{};
  for (int k = 0; k < 64; ++k) {
    const int place = k % to - (top ? to - from : 0);
    const int element = part * (64 / to) + k / to;
    bytes.of[k] = place >= 0 && place < from ? static_cast<uint8_t>(element * from + place) : 0;
  }
  return bytes;
}

// The low `to` bytes of the elements of two vectors, one after the other.
constexpr Bytes gather(int from, int to) {
  Bytes bytes{};
  for (int k = 0; k < 128 / from * to; ++k) {
    bytes.of[k] = static_cast<uint8_t>(k / to * from + k % to);
  }
  return bytes;
}

// Threes to ints: vector `part` of four, from the last whole vectors that it has bytes in: from
// part - 1 and part of three. Each to the top of its place.
constexpr Bytes from_threes(char layout, int part) {
  Bytes bytes{};
  for (int k = 0; k < 64; ++k) {
    const int place = k % 4 - 1;
    if (place < 0) continue;
    const int first = part * 48 + k / 4 * 3;
    const int at = first + (layout == 'm' ? 2 - place : place);
    bytes.of[k] = static_cast<uint8_t>(at - (part == 0 ? 0 : (part - 1) * 64));
  }
  return bytes;
}

// Ints to threes: vector `part` of three, from the vectors part and part + 1 of four.
constexpr Bytes to_threes(char layout, int part) {
  Bytes bytes{};
  for (int k = 0; k < 64; ++k) {
    const int at = part * 64 + k;
    const int place = layout == 'm' ? 2 - at % 3 : at % 3;
    bytes.of[k] = static_cast<uint8_t>(at / 3 * 4 + place - part * 64);
  }
  return bytes;
}

template <int From, int To, int Part, bool Top>
constexpr Bytes kSpread = spread(From, To, Part, Top);
template <int From, int To>
constexpr Bytes kGather = gather(From, To);
template <char Layout, int Part>
constexpr Bytes kFromThrees = from_threes(Layout, Part);
template <char Layout, int Part>
constexpr Bytes kToThrees = to_threes(Layout, Part);

constexpr Bytes reversal(int size) {
  Bytes bytes{};
  for (int k = 0; k < 64; ++k) {
    bytes.of[k] = static_cast<uint8_t>(k % 16 / size * size + size - 1 - k % size);
  }
  return bytes;
}
template <int Size>
constexpr Bytes kReversal = reversal(Size);

#ifdef __clang__
#pragma clang attribute push(                                                                    \
    __attribute__((target("avx512f,avx512bw,avx512dq,avx512vl,avx512vbmi,avx512cd,avx2,bmi2"))), \
    apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx512f,avx512bw,avx512dq,avx512vl,avx512vbmi,avx512cd,avx2,bmi2")
#endif

using Vector = __m512i;
constexpr int kVector = 64;
constexpr bool kMasks = true;

// What is set where an element is not exact: any of the bits, and of `beyond` those that the rule
// watches. Masks are not gathered as such: that is slower than to have them set bits.
struct Flaws {
  Vector bits;
  Vector beyond;
};
inline void add(Flaws more, Flaws &flaws) {
  flaws.bits = _mm512_or_si512(flaws.bits, more.bits);
  flaws.beyond = _mm512_or_si512(flaws.beyond, more.beyond);
}

inline Vector load(const char *at) { return _mm512_loadu_si512(at); }
inline void store(char *at, Vector vector) { _mm512_storeu_si512(at, vector); }
inline void stream(char *at, Vector vector) {
  _mm512_stream_si512(reinterpret_cast<__m512i *>(at), vector);
}
inline void fence() { _mm_sfence(); }

inline __mmask64 first_bytes(long bytes) {
  if (bytes <= 0) return 0;
  return bytes >= 64 ? ~uint64_t{0} : _bzhi_u64(~uint64_t{0}, static_cast<unsigned int>(bytes));
}

#include "conv/kernels/block.h"

template <class T, int N>
INLINE Block<T, N> load_some(const char *from, long bytes) {
  Block<T, N> block;
  for (int v = 0; v < block.kCount; ++v) {
    const long at = v * kVector;
    block.of[v] = _mm512_maskz_loadu_epi8(first_bytes(bytes - at), from + at);
  }
  return block;
}

template <class T, int N>
INLINE void store_some(char *to, Block<T, N> block, long bytes) {
  for (int v = 0; v < block.kCount; ++v) {
    const long at = v * kVector;
    _mm512_mask_storeu_epi8(to + at, first_bytes(bytes - at), block.of[v]);
  }
}

INLINE Vector permuted(const Bytes &places, Vector x) {
  return _mm512_permutexvar_epi8(load(reinterpret_cast<const char *>(places.of)), x);
}
INLINE Vector permuted(const Bytes &places, Vector x, Vector y) {
  return _mm512_permutex2var_epi8(x, load(reinterpret_cast<const char *>(places.of)), y);
}

// Every pair of types has a kernel.
template <class E, class H>
constexpr bool kReads = true;
template <class E, class H>
constexpr bool kWrites = true;

// ---- Order ----

template <char R, class T>
INLINE Vector ordered(Vector x) {
  if constexpr (R == 'm' && sizeof(T) > 1) {
    return _mm512_shuffle_epi8(x, load(reinterpret_cast<const char *>(kReversal<sizeof(T)>.of)));
  } else if constexpr (R == 'a' && std::is_same_v<T, double>) {
    return _mm512_shuffle_epi32(x, _MM_PERM_CDAB);
  } else {
    return x;
  }
}

// ---- Integers ----

// Elements of T shifted right: copies of the sign come down, or zeros.
template <class T>
INLINE Vector shifted_right(Vector x, unsigned int bits) {
  if constexpr (std::is_signed_v<T>) {
    if constexpr (sizeof(T) == 2) return _mm512_srai_epi16(x, bits);
    if constexpr (sizeof(T) == 4) return _mm512_srai_epi32(x, bits);
    if constexpr (sizeof(T) == 8) return _mm512_srai_epi64(x, bits);
  } else {
    if constexpr (sizeof(T) == 2) return _mm512_srli_epi16(x, bits);
    if constexpr (sizeof(T) == 4) return _mm512_srli_epi32(x, bits);
    if constexpr (sizeof(T) == 8) return _mm512_srli_epi64(x, bits);
  }
}

template <class T>
INLINE Vector filled(T value) {
  if constexpr (sizeof(T) == 2) return _mm512_set1_epi16(static_cast<short>(value));
  if constexpr (sizeof(T) == 4) return _mm512_set1_epi32(static_cast<int>(value));
  if constexpr (sizeof(T) == 8) return _mm512_set1_epi64(static_cast<long>(value));
}

template <class To, class From>
constexpr unsigned int kDifference = 8 * (sizeof(From) > sizeof(To) ? sizeof(From) - sizeof(To)
                                                                    : sizeof(To) - sizeof(From));

template <class To, class From, int Part>
INLINE Vector widened_part(Vector x) {
  constexpr int kFrom = sizeof(From), kTo = sizeof(To);
  if constexpr (std::is_signed_v<From>) {
    return shifted_right<To>(permuted(kSpread<kFrom, kTo, Part, true>, x), kDifference<To, From>);
  } else {
    constexpr uint64_t kEach = kTo == 2   ? 0x5555555555555555
                               : kTo == 4 ? 0x1111111111111111
                                          : 0x0101010101010101;
    constexpr uint64_t kMask = kEach * ((1 << kFrom) - 1);
    const Vector places = load(reinterpret_cast<const char *>(kSpread<kFrom, kTo, Part, false>.of));
    return _mm512_maskz_permutexvar_epi8(kMask, places, x);
  }
}

// One vector of From becomes sizeof(To) / sizeof(From) vectors of To.
template <class To, class From>
INLINE void widen(Vector x, Vector *result) {
  constexpr int kRatio = sizeof(To) / sizeof(From);
  if constexpr (kRatio == 1) result[0] = x;
  if constexpr (kRatio >= 2) {
    result[0] = widened_part<To, From, 0>(x);
    result[1] = widened_part<To, From, 1>(x);
  }
  if constexpr (kRatio >= 4) {
    result[2] = widened_part<To, From, 2>(x);
    result[3] = widened_part<To, From, 3>(x);
  }
  if constexpr (kRatio >= 8) {
    result[4] = widened_part<To, From, 4>(x);
    result[5] = widened_part<To, From, 5>(x);
    result[6] = widened_part<To, From, 6>(x);
    result[7] = widened_part<To, From, 7>(x);
  }
}

// The low bytes of sizeof(From) / sizeof(To) vectors become one vector.
template <class To, class From>
INLINE Vector narrow(const Vector *x) {
  constexpr int kRatio = sizeof(From) / sizeof(To);
  if constexpr (kRatio == 1) {
    return x[0];
  } else {
    constexpr const Bytes &kPlaces = kGather<sizeof(From), sizeof(To)>;
    Vector result = permuted(kPlaces, x[0], x[1]);
    if constexpr (kRatio == 4) {
      const Vector high = permuted(kPlaces, x[2], x[3]);
      result = _mm512_inserti64x4(result, _mm512_castsi512_si256(high), 1);
    }
    if constexpr (kRatio == 8) {
      const __m128i second = _mm512_castsi512_si128(permuted(kPlaces, x[2], x[3]));
      const __m128i third = _mm512_castsi512_si128(permuted(kPlaces, x[4], x[5]));
      const __m128i fourth = _mm512_castsi512_si128(permuted(kPlaces, x[6], x[7]));
      const __m256i high = _mm256_inserti128_si256(_mm256_castsi128_si256(third), fourth, 1);
      result = _mm512_inserti64x4(_mm512_inserti64x2(result, second, 1), high, 1);
    }
    return result;
  }
}

// All integers to integers of any size, without a look at what fits.
template <class To, class From, int N>
INLINE Block<To, N> resized(Block<From, N> x) {
  Block<To, N> result;
  if constexpr (sizeof(To) >= sizeof(From)) {
    for (int v = 0; v < x.kCount; ++v) {
      widen<To, From>(x.of[v], result.of + v * (sizeof(To) / sizeof(From)));
    }
  } else {
    for (int v = 0; v < result.kCount; ++v) {
      result.of[v] = narrow<To, From>(x.of + v * (sizeof(From) / sizeof(To)));
    }
  }
  return result;
}

// The bits that are those of the sign, or zero, where an integer fits `To`.
template <class To, class From>
constexpr From kBeyond = static_cast<From>(~static_cast<From>(std::numeric_limits<To>::max()));

// Sets bits within kBeyond where an integer does not fit. `Signed` is what it shall fit.
template <bool Signed, class From>
INLINE void look_for_misfit(Vector x, Flaws &flaws) {
  if constexpr (Signed) {
    const Vector sign = shifted_right<From>(x, 8 * sizeof(From) - 1);
    flaws.beyond = _mm512_ternarylogic_epi64(flaws.beyond, x, sign, 0xF6);  // beyond | (x ^ sign)
  } else {
    flaws.beyond = _mm512_or_si512(flaws.beyond, x);
  }
}

INLINE void look_for_difference(Vector x, Vector y, Flaws &flaws) {
  flaws.bits = _mm512_ternarylogic_epi64(flaws.bits, x, y, 0xF6);
}

// The nearest integer that fits To.
template <class To, class From>
INLINE Vector clamped(Vector x) {
  const Vector most = filled<From>(std::numeric_limits<To>::max());
  if constexpr (std::is_signed_v<From>) {
    const Vector least = filled<From>(std::numeric_limits<To>::min());
    if constexpr (sizeof(From) == 2) x = _mm512_min_epi16(_mm512_max_epi16(x, least), most);
    if constexpr (sizeof(From) == 4) x = _mm512_min_epi32(_mm512_max_epi32(x, least), most);
    if constexpr (sizeof(From) == 8) x = _mm512_min_epi64(_mm512_max_epi64(x, least), most);
  } else {
    if constexpr (sizeof(From) == 2) x = _mm512_min_epu16(x, most);
    if constexpr (sizeof(From) == 4) x = _mm512_min_epu32(x, most);
    if constexpr (sizeof(From) == 8) x = _mm512_min_epu64(x, most);
  }
  return x;
}

// Integers to what is narrower: low bytes, or the nearest that fits.
template <class To, bool Saturate, class From, int N>
INLINE Block<To, N> narrowed(Block<From, N> x, Flaws &flaws) {
  for (Vector &v : x.of) {
    if constexpr (Saturate) {
      const Vector nearest = clamped<To, From>(v);
      look_for_difference(nearest, v, flaws);
      v = nearest;
    } else {
      look_for_misfit<std::is_signed_v<From>, From>(v, flaws);
    }
  }
  return resized<To>(x);
}

// ---- Floating values ----

INLINE __m512 floats(Vector x) { return _mm512_castsi512_ps(x); }
INLINE __m512d doubles(Vector x) { return _mm512_castsi512_pd(x); }
INLINE Vector bits(__m512 x) { return _mm512_castps_si512(x); }
INLINE Vector bits(__m512d x) { return _mm512_castpd_si512(x); }
INLINE __m256i low(Vector x) { return _mm512_castsi512_si256(x); }
INLINE __m256i high(Vector x) { return _mm512_extracti64x4_epi64(x, 1); }
INLINE Vector joined(__m256i x, __m256i y) {
  return _mm512_inserti64x4(_mm512_castsi256_si512(x), y, 1);
}
INLINE Vector joined(__m256 x, __m256 y) {
  return joined(_mm256_castps_si256(x), _mm256_castps_si256(y));
}
INLINE __m256 half_floats(__m256i x) { return _mm256_castsi256_ps(x); }

// What became of a value against the value, without the sign of a zero, which adding a zero takes
// away. A NaN never comes back.
INLINE void look_for_difference(__m512 result, __m512 x, Flaws &flaws) {
  look_for_difference(bits(result), bits(_mm512_add_ps(x, _mm512_setzero_ps())), flaws);
}
INLINE void look_for_difference(__m512d result, __m512d x, Flaws &flaws) {
  look_for_difference(bits(result), bits(_mm512_add_pd(x, _mm512_setzero_pd())), flaws);
}
INLINE void look_for_nan(__m512 x, Flaws &flaws) {
  const __mmask16 nan = _mm512_cmp_ps_mask(x, x, _CMP_UNORD_Q);
  flaws.bits = _mm512_mask_set1_epi32(flaws.bits, nan, -1);
}
INLINE void look_for_nan(__m512d x, Flaws &flaws) {
  const __mmask8 nan = _mm512_cmp_pd_mask(x, x, _CMP_UNORD_Q);
  flaws.bits = _mm512_mask_set1_epi64(flaws.bits, nan, -1);
}

// ---- Integers to floating ----

// Eight longs to eight floats.
template <class From>
INLINE __m256 floats_of_longs(Vector x) {
  if constexpr (std::is_signed_v<From>)
    return _mm512_cvtepi64_ps(x);
  else
    return _mm512_cvtepu64_ps(x);
}

// An unsigned integer with its first one moved to the top has all of its ones among the digits of
// the floating type, or something below them, in kLost.
template <class From>
INLINE void look_for_long(Vector x, Flaws &flaws) {
  Vector moved;
  if constexpr (sizeof(From) == 4)
    moved = _mm512_sllv_epi32(x, _mm512_lzcnt_epi32(x));
  else
    moved = _mm512_sllv_epi64(x, _mm512_lzcnt_epi64(x));
  flaws.beyond = _mm512_or_si512(flaws.beyond, moved);
}
template <class To, class From>
constexpr From kLost = static_cast<From>(~From{0}) >> std::numeric_limits<To>::digits;

template <class To, bool Check, class From, int N>
INLINE Block<To, N> to_floating(Block<From, N> x, Flaws &flaws) {
  if constexpr (sizeof(From) < 4 || sizeof(From) < sizeof(To)) {
    // Exact. Longs become doubles without crossing halves of a vector, which ints do slowly.
    using Wide = std::conditional_t<sizeof(To) == 8, long, int>;
    return to_floating<To, false>(resized<Wide>(x), flaws);
  } else {
    Block<To, N> result;
    for (int v = 0; v < x.kCount; ++v) {
      const Vector integers = x.of[v];
      if constexpr (std::is_same_v<From, int>) {
        const __m512 nearest = _mm512_cvtepi32_ps(integers);
        if constexpr (Check) look_for_difference(_mm512_cvttps_epi32(nearest), integers, flaws);
        result.of[v] = bits(nearest);
      } else if constexpr (std::is_same_v<From, unsigned int>) {
        if constexpr (Check) look_for_long<From>(integers, flaws);
        result.of[v] = bits(_mm512_cvtepu32_ps(integers));
      } else if constexpr (std::is_same_v<From, long> && sizeof(To) == 8) {
        const __m512d nearest = _mm512_cvtepi64_pd(integers);
        if constexpr (Check) look_for_difference(_mm512_cvttpd_epi64(nearest), integers, flaws);
        result.of[v] = bits(nearest);
      } else if constexpr (sizeof(To) == 8) {
        if constexpr (Check) look_for_long<From>(integers, flaws);
        result.of[v] = bits(_mm512_cvtepu64_pd(integers));
      } else if constexpr (Check && std::is_same_v<From, long>) {
        look_for_difference(_mm512_cvttps_epi64(_mm512_cvtepi64_ps(integers)), integers, flaws);
      } else if constexpr (Check) {
        look_for_long<From>(integers, flaws);
      }
    }
    if constexpr (sizeof(From) == 8 && sizeof(To) == 4) {
      for (int v = 0; v < result.kCount; ++v) {
        result.of[v] =
            joined(floats_of_longs<From>(x.of[2 * v]), floats_of_longs<From>(x.of[2 * v + 1]));
      }
    }
    return result;
  }
}

// ---- Floating to integers ----

// What the truncations are made as: ints, longs for the unsigned int, and unsigned longs.
template <class To>
using Truncation = std::conditional_t<std::is_same_v<To, unsigned int>, long,
                                      std::conditional_t<sizeof(To) == 8, To, int>>;

// utrunc64, where the processor's own unsigned truncation has another answer for what is negative.
INLINE Vector unsigned_truncation(__m512d x) {
  const __m512d half = _mm512_set1_pd(9223372036854775808.0);
  const __mmask8 upper = _mm512_cmp_pd_mask(x, half, _CMP_NLT_UQ);
  const Vector result = _mm512_cvttpd_epi64(_mm512_mask_sub_pd(x, upper, x, half));
  const Vector top = _mm512_set1_epi64(std::numeric_limits<long>::min());
  return _mm512_mask_xor_epi64(result, upper, result, top);
}
INLINE Vector unsigned_truncation(__m256 x) {
  const __m256 half = _mm256_set1_ps(9223372036854775808.0f);
  const __mmask8 upper = _mm256_cmp_ps_mask(x, half, _CMP_NLT_UQ);
  const Vector result = _mm512_cvttps_epi64(_mm256_mask_sub_ps(x, upper, x, half));
  const Vector top = _mm512_set1_epi64(std::numeric_limits<long>::min());
  return _mm512_mask_xor_epi64(result, upper, result, top);
}

// A fraction, or a NaN, in bits.
INLINE void look_for_fraction(__m512 x, Flaws &flaws) {
  const Vector fraction = bits(_mm512_reduce_ps(x, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC));
  flaws.bits = _mm512_or_si512(flaws.bits, fraction);
}
INLINE void look_for_fraction(__m512d x, Flaws &flaws) {
  const Vector fraction = bits(_mm512_reduce_pd(x, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC));
  flaws.bits = _mm512_or_si512(flaws.bits, fraction);
}

// The nearest value within bounds. The processor's maxima and minima answer their second operand
// for a NaN, so it passes; and a zero keeps its sign.
INLINE __m512 within(__m512 x, float least, float most, Flaws &flaws) {
  const __m512 result =
      _mm512_min_ps(_mm512_set1_ps(most), _mm512_max_ps(_mm512_set1_ps(least), x));
  look_for_difference(bits(result), bits(x), flaws);
  return result;
}
INLINE __m512d within(__m512d x, double least, double most, Flaws &flaws) {
  const __m512d result =
      _mm512_min_pd(_mm512_set1_pd(most), _mm512_max_pd(_mm512_set1_pd(least), x));
  look_for_difference(bits(result), bits(x), flaws);
  return result;
}

// The largest float of a 64-bit integer type: its 24 upper digits.
template <class To>
constexpr float kLargestFloat = static_cast<float>(std::numeric_limits<To>::max() ^
                                                   std::numeric_limits<To>::max() >> 24);

// Truncated, low bytes kept, and looked at whether that is the value: either by the way back, or,
// where that is slow, whether there is a fraction and whether the value is out of range. For what
// is narrower than the truncation a misfit tells the latter: a truncation that was out of range
// does not fit either.
template <class To, int N>
INLINE Block<To, N> truncated(Block<float, N> x, Flaws &flaws) {
  using Wide = Truncation<To>;
  Block<Wide, N> result;
  for (int v = 0; v < x.kCount; ++v) {
    const __m512 source = floats(x.of[v]);
    if constexpr (!std::is_same_v<To, int>) look_for_fraction(source, flaws);
    if constexpr (sizeof(To) == 8) {
      within(source, static_cast<float>(std::numeric_limits<To>::min()), kLargestFloat<To>, flaws);
    }
    if constexpr (sizeof(Wide) == 4) {
      result.of[v] = _mm512_cvttps_epi32(source);
      if constexpr (std::is_same_v<To, int>) {
        look_for_difference(_mm512_cvtepi32_ps(result.of[v]), source, flaws);
      }
    } else if constexpr (std::is_same_v<To, unsigned long>) {
      result.of[2 * v] = unsigned_truncation(half_floats(low(x.of[v])));
      result.of[2 * v + 1] = unsigned_truncation(half_floats(high(x.of[v])));
    } else {
      result.of[2 * v] = _mm512_cvttps_epi64(half_floats(low(x.of[v])));
      result.of[2 * v + 1] = _mm512_cvttps_epi64(half_floats(high(x.of[v])));
    }
  }
  if constexpr (sizeof(To) < sizeof(Wide)) {
    for (Vector v : result.of) look_for_misfit<std::is_signed_v<To>, Wide>(v, flaws);
  }
  return resized<To>(result);
}

template <class To, int N>
INLINE Block<To, N> truncated(Block<double, N> x, Flaws &flaws) {
  using Wide = Truncation<To>;
  Block<Wide, N> result;
  if constexpr (sizeof(To) < sizeof(Wide)) {
    for (Vector v : x.of) look_for_fraction(doubles(v), flaws);
  }
  if constexpr (sizeof(Wide) == 4) {
    for (int v = 0; v < result.kCount; ++v) {
      const __m512d first = doubles(x.of[2 * v]), second = doubles(x.of[2 * v + 1]);
      const __m256i low_integers = _mm512_cvttpd_epi32(first);
      const __m256i high_integers = _mm512_cvttpd_epi32(second);
      if constexpr (std::is_same_v<To, int>) {
        look_for_difference(_mm512_cvtepi32_pd(low_integers), first, flaws);
        look_for_difference(_mm512_cvtepi32_pd(high_integers), second, flaws);
      }
      result.of[v] = joined(low_integers, high_integers);
    }
  } else {
    for (int v = 0; v < x.kCount; ++v) {
      const __m512d source = doubles(x.of[v]);
      if constexpr (std::is_same_v<To, unsigned long>) {
        result.of[v] = unsigned_truncation(source);
        look_for_difference(_mm512_cvtepu64_pd(result.of[v]), source, flaws);
      } else {
        result.of[v] = _mm512_cvttpd_epi64(source);
        if constexpr (std::is_same_v<To, long>) {
          look_for_difference(_mm512_cvtepi64_pd(result.of[v]), source, flaws);
        }
      }
    }
  }
  if constexpr (sizeof(To) < sizeof(Wide)) {
    for (Vector v : result.of) look_for_misfit<std::is_signed_v<To>, Wide>(v, flaws);
  }
  return resized<To>(result);
}

// Saturated. A maximum that the floating type does not have is rounded up.
template <class To>
INLINE __m512 limited(__m512 x, Flaws &flaws) {
  using Limits = std::numeric_limits<To>;
  return within(x, static_cast<float>(Limits::min()), static_cast<float>(Limits::max()), flaws);
}
template <class To>
INLINE __m512d limited(__m512d x, Flaws &flaws) {
  using Limits = std::numeric_limits<To>;
  return within(x, static_cast<double>(Limits::min()), static_cast<double>(Limits::max()), flaws);
}

// For the unsigned int and long the processor's unsigned truncation leaves all ones for what is
// above, as we do; what equals a bound that is rounded up, and a NaN, leave 0.
template <class To, int N>
INLINE Block<To, N> saturated(Block<float, N> x, Flaws &flaws) {
  if constexpr (sizeof(To) < 4) {
    Block<int, N> result;
    for (int v = 0; v < x.kCount; ++v) {
      result.of[v] = _mm512_cvttps_epi32(limited<To>(floats(x.of[v]), flaws));
    }
    return resized<To>(result);
  } else {
    Block<To, N> result;
    const __m512 bound = _mm512_set1_ps(static_cast<float>(std::numeric_limits<To>::max()));
    for (int v = 0; v < x.kCount; ++v) {
      const __m512 source = floats(x.of[v]);
      const __mmask16 used = _mm512_cmp_ps_mask(source, bound, _CMP_NEQ_OQ);
      const __m512 nearest = _mm512_maskz_mov_ps(used, limited<To>(source, flaws));
      if constexpr (sizeof(To) == 4) {
        result.of[v] = _mm512_cvttps_epu32(nearest);
      } else {
        result.of[2 * v] = _mm512_cvttps_epu64(half_floats(low(bits(nearest))));
        result.of[2 * v + 1] = _mm512_cvttps_epu64(half_floats(high(bits(nearest))));
      }
    }
    return result;
  }
}

template <class To, int N>
INLINE Block<To, N> saturated(Block<double, N> x, Flaws &flaws) {
  if constexpr (sizeof(To) == 8) {
    Block<To, N> result;
    const __m512d bound = _mm512_set1_pd(18446744073709551616.0);
    for (int v = 0; v < x.kCount; ++v) {
      const __m512d source = doubles(x.of[v]);
      const __mmask8 used = _mm512_cmp_pd_mask(source, bound, _CMP_NEQ_OQ);
      result.of[v] = _mm512_maskz_cvttpd_epu64(used, limited<To>(source, flaws));
    }
    return result;
  } else if constexpr (std::is_same_v<To, int>) {
    Block<int, N> result;  // a NaN is the smallest int
    for (int v = 0; v < result.kCount; ++v) {
      result.of[v] = joined(_mm512_cvttpd_epi32(limited<To>(doubles(x.of[2 * v]), flaws)),
                            _mm512_cvttpd_epi32(limited<To>(doubles(x.of[2 * v + 1]), flaws)));
    }
    return result;
  } else {
    Block<long, N> result;  // a NaN leaves 0 in the low bytes
    for (int v = 0; v < x.kCount; ++v) {
      result.of[v] = _mm512_cvttpd_epi64(limited<To>(doubles(x.of[v]), flaws));
    }
    return resized<To>(result);
  }
}

// ---- Float and double ----

template <int N>
INLINE Block<double, N> to_double(Block<float, N> x, Flaws &flaws) {
  Block<double, N> result;
  for (int v = 0; v < x.kCount; ++v) {
    look_for_nan(floats(x.of[v]), flaws);
    result.of[2 * v] = bits(_mm512_cvtps_pd(half_floats(low(x.of[v]))));
    result.of[2 * v + 1] = bits(_mm512_cvtps_pd(half_floats(high(x.of[v]))));
  }
  return result;
}

template <int N>
INLINE Block<float, N> to_float(Block<double, N> x, Flaws &flaws) {
  Block<float, N> result;
  for (int v = 0; v < result.kCount; ++v) {
    const __m256 first = _mm512_cvtpd_ps(doubles(x.of[2 * v]));
    const __m256 second = _mm512_cvtpd_ps(doubles(x.of[2 * v + 1]));
    look_for_difference(bits(_mm512_cvtps_pd(first)), x.of[2 * v], flaws);
    look_for_difference(bits(_mm512_cvtps_pd(second)), x.of[2 * v + 1], flaws);
    result.of[v] = joined(first, second);
    look_for_nan(floats(result.of[v]), flaws);
  }
  return result;
}

// The same floating type: bits move, NaNs fail.
template <int N>
INLINE Block<float, N> checked(Block<float, N> x, Flaws &flaws) {
  for (Vector v : x.of) look_for_nan(floats(v), flaws);
  return x;
}
template <int N>
INLINE Block<double, N> checked(Block<double, N> x, Flaws &flaws) {
  for (Vector v : x.of) look_for_nan(doubles(v), flaws);
  return x;
}

// ---- What was found ----

// The bits of Flaws::beyond that count, in every element: what these rules look for there.
template <class S, class T>
INLINE Vector watched() {
  if constexpr (std::is_integral_v<T>) {
    using From = std::conditional_t<std::is_integral_v<S>, S, Truncation<T>>;
    if constexpr (sizeof(T) < sizeof(From)) return filled<From>(kBeyond<T, From>);
  } else if constexpr (std::is_unsigned_v<S> && sizeof(S) >= sizeof(T)) {
    return filled<S>(kLost<T, S>);
  }
  return _mm512_setzero_si512();
}

template <class S, class T>
INLINE bool none(Flaws flaws) {
  const Vector beyond = _mm512_and_si512(flaws.beyond, watched<S, T>());
  const Vector all = _mm512_or_si512(flaws.bits, beyond);
  return _mm512_test_epi64_mask(all, all) == 0;
}

// ---- Three bytes ----

template <class H, char R, int N>
INLINE Block<H, N> read_threes(Block<Three<R>, N> x) {
  const Vector spread[4] = {
      permuted(kFromThrees<R, 0>, x.of[0]), permuted(kFromThrees<R, 1>, x.of[0], x.of[1]),
      permuted(kFromThrees<R, 2>, x.of[1], x.of[2]), permuted(kFromThrees<R, 3>, x.of[2])};
  Block<H, N> result;
  for (int v = 0; v < result.kCount; ++v) {
    const Vector integers = shifted_right<int>(spread[v], 8);
    if constexpr (std::is_same_v<H, int>)
      result.of[v] = integers;
    else
      result.of[v] = bits(_mm512_cvtepi32_ps(integers));
  }
  return result;
}

template <char R, bool Saturate, int N>
INLINE Block<Three<R>, N> write_threes(Block<int, N> x, Flaws &flaws) {
  if constexpr (Saturate) {
    for (Vector &v : x.of) {
      const Vector nearest =
          _mm512_min_epi32(_mm512_max_epi32(v, filled<int>(-8388608)), filled<int>(8388607));
      look_for_difference(nearest, v, flaws);
      v = nearest;
    }
  }
  return {{permuted(kToThrees<R, 0>, x.of[0], x.of[1]), permuted(kToThrees<R, 1>, x.of[1], x.of[2]),
           permuted(kToThrees<R, 2>, x.of[2], x.of[3])}};
}

#include "conv/kernels/loop.h"

#ifdef __clang__
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

}  // namespace

// clang-format off
constinit const Kernels kAvx512 = {{KERNELS_OF_FAMILY KERNELS_OF_THREE}};
// clang-format on

}  // namespace conv
