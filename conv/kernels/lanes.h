// The steps of the rules for vectors without masks, which have no conversions of their own between
// 64-bit integers and floating values: for SSE2 and AVX2. Included after block.h by a file
// that provides
//
//   reversed<Size>           the bytes of each element in reverse order
//   widened_low, _high<T>    the first or last half of a vector of T, in twice the size
//   evens, odds              every other 32-bit element of two vectors
//   saturated_bytes, _shorts, low_bytes, low_shorts   two vectors into elements of half the size
//   floats_of_ints ...       the processor's conversions
//   longs_of_doubles         trunc64
//   kReads, kWrites<E, H>    whether a kernel is faster than the element loop
//   lesser, greater          its minima and maxima, which answer their second operand for a NaN
//   spread_threes, joined_threes  three bytes to the top of four, and back
//   all_zero

template <class T>
struct LanesOf {
  typedef T type __attribute__((vector_size(kVector)));
};
template <class T>
using Lanes = typename LanesOf<T>::type;

template <class T>
INLINE Lanes<T> as(Vector x) {
  return __builtin_bit_cast(Lanes<T>, x);
}
template <class T>
INLINE Vector bits(T x) {
  return __builtin_bit_cast(Vector, x);
}

// Bits that are set where an element is not exact.
struct Flaws {
  Vector bits;
};

INLINE void add(Flaws more, Flaws &flaws) { flaws.bits |= more.bits; }

INLINE void note(Vector inexact, Flaws &flaws) { flaws.bits |= inexact; }

// ---- Order ----

template <char R, class T>
INLINE Vector ordered(Vector x) {
  if constexpr (R == 'm' && sizeof(T) > 1) {
    return reversed<sizeof(T)>(x);
  } else if constexpr (R == 'a' && std::is_same_v<T, double>) {
    return bits(as<unsigned long>(x) << 32 | as<unsigned long>(x) >> 32);
  } else {
    return x;
  }
}

// ---- Integers ----

// The type of half, or twice, the size.
template <class T>
struct Sizes;
// clang-format off
template <> struct Sizes<signed char>    { using Twice = short; };
template <> struct Sizes<short>          { using Twice = int;           using Half = signed char; };
template <> struct Sizes<int>            { using Twice = long;          using Half = short; };
template <> struct Sizes<long>           { using Half = int; };
template <> struct Sizes<unsigned char>  { using Twice = unsigned short; };
template <> struct Sizes<unsigned short> { using Twice = unsigned int;  using Half = unsigned char; };
template <> struct Sizes<unsigned int>   { using Twice = unsigned long; using Half = unsigned short; };
template <> struct Sizes<unsigned long>  { using Half = unsigned int; };
// clang-format on

template <class From>
INLINE Vector low_halves(Vector x, Vector y) {
  if constexpr (sizeof(From) == 2) return low_bytes(x, y);
  if constexpr (sizeof(From) == 4) return low_shorts(x, y);
  if constexpr (sizeof(From) == 8) return evens(x, y);
}

// All integers to integers of any size, without a look at what fits.
template <class To, class From, int N>
INLINE Block<To, N> resized(Block<From, N> x) {
  if constexpr (sizeof(To) == sizeof(From)) {
    Block<To, N> result;  // signed and unsigned are the same bits
    for (int v = 0; v < x.kCount; ++v) result.of[v] = x.of[v];
    return result;
  } else if constexpr (sizeof(To) > sizeof(From)) {
    Block<typename Sizes<From>::Twice, N> result;
    for (int v = 0; v < x.kCount; ++v) {
      result.of[2 * v] = widened_low<From>(x.of[v]);
      result.of[2 * v + 1] = widened_high<From>(x.of[v]);
    }
    return resized<To>(result);
  } else {
    Block<typename Sizes<From>::Half, N> result;
    for (int v = 0; v < result.kCount; ++v) {
      result.of[v] = low_halves<From>(x.of[2 * v], x.of[2 * v + 1]);
    }
    return resized<To>(result);
  }
}

// The bits that are those of the sign, or zero, where an integer fits `To`.
template <class To, class From>
constexpr From kBeyond = static_cast<From>(~static_cast<From>(std::numeric_limits<To>::max()));

template <class To, class From>
INLINE void look_for_misfit(Vector x, Flaws &flaws) {
  if constexpr (sizeof(To) < sizeof(From)) {
    if constexpr (std::is_signed_v<From>) x ^= bits(as<From>(x) >> (8 * sizeof(From) - 1));
    note(bits(as<From>(x) & kBeyond<To, From>), flaws);
  }
}

// Longs to what is narrower, by way of their lower and upper halves.
template <bool Saturate, class From, int N>
INLINE auto halved_longs(Block<From, N> x, Flaws &flaws) {
  using Half = typename Sizes<From>::Half;
  Block<Half, N> result;
  for (int v = 0; v < result.kCount; ++v) {
    const Vector low = evens(x.of[2 * v], x.of[2 * v + 1]);
    const Vector high = odds(x.of[2 * v], x.of[2 * v + 1]);
    if constexpr (std::is_signed_v<From>) {
      const Vector beyond = high ^ bits(as<int>(low) >> 31);
      note(beyond, flaws);
      if constexpr (Saturate) {
        const Vector fits = bits(as<int>(beyond) == 0);
        const Vector nearest = bits(as<int>(high) >> 31 ^ std::numeric_limits<int>::max());
        result.of[v] = (fits & low) | (~fits & nearest);
      } else {
        result.of[v] = low;
      }
    } else {
      note(high, flaws);
      result.of[v] = Saturate ? low | ~bits(as<int>(high) == 0) : low;
    }
  }
  return result;
}

// Integers to what is narrower: low bytes, or the nearest that fits.
template <class To, bool Saturate, class From, int N>
INLINE Block<To, N> narrowed(Block<From, N> x, Flaws &flaws) {
  if constexpr (sizeof(From) == 8) {
    const auto halves = halved_longs<Saturate>(x, flaws);
    if constexpr (sizeof(To) == 4)
      return halves;
    else
      return narrowed<To, Saturate>(halves, flaws);
  } else {
    for (Vector v : x.of) look_for_misfit<To, From>(v, flaws);
    if constexpr (!Saturate) {
      return resized<To>(x);
    } else if constexpr (std::is_unsigned_v<From>) {
      // What is too large gets all bits, so its low ones are the maximum.
      for (Vector &v : x.of) v |= ~bits((as<From>(v) & kBeyond<To, From>) == 0);
      return resized<To>(x);
    } else {
      Block<typename Sizes<From>::Half, N> result;
      for (int v = 0; v < result.kCount; ++v) {
        if constexpr (sizeof(From) == 4)
          result.of[v] = saturated_shorts(x.of[2 * v], x.of[2 * v + 1]);
        else
          result.of[v] = saturated_bytes(x.of[2 * v], x.of[2 * v + 1]);
      }
      if constexpr (sizeof(To) * 2 == sizeof(From)) {
        return result;
      } else {
        Flaws seen{};  // already looked for
        return narrowed<To, Saturate>(result, seen);
      }
    }
  }
}

// ---- Integers to floating ----

// 64-bit integers of up to 53 bits are the low bits of doubles from 2^52 (or 2^84) on: their
// halves are put there as bits, the offsets taken away again, and the sum rounds once.
template <class From>
INLINE Lanes<double> doubles_of_longs(Vector integers, Lanes<double> &upper, Lanes<double> &lower) {
  const Lanes<unsigned long> x = as<unsigned long>(integers);
  constexpr bool kSigned = std::is_signed_v<From>;
  constexpr unsigned long kSign = kSigned ? 0x80000000ul : 0;
  const Lanes<double> high = as<double>(bits((x >> 32 ^ kSign) | 0x4530000000000000ul));  // 2^84
  lower = as<double>(bits((x & 0xfffffffful) | 0x4330000000000000ul));                    // 2^52
  upper = high - (kSigned ? 0x1p84 + 0x1p63 + 0x1p52 : 0x1p84 + 0x1p52);
  return upper + lower;
}

// What rounding took from a sum of two doubles, exactly.
INLINE Lanes<double> rest_of_sum(Lanes<double> sum, Lanes<double> x, Lanes<double> y) {
  const Lanes<double> used = sum - x;
  return (x - (sum - used)) + (y - used);
}

// A long's lowest eleven bits, where they cannot all go into a double, are joined in one that
// still says that there was something: the double is exact, and rounds to the same float.
template <class From>
INLINE Vector joined_low_bits(Vector integers) {
  const Lanes<unsigned long> x = as<unsigned long>(integers);
  const auto size = std::is_signed_v<From> ? (x + (1ul << 53)) >> 54 : x >> 53;
  const Vector small = bits(size == 0);
  const Vector joined = bits((x & ~0x7fful) | (((x & 0x7fful) + 0x7fful) & 0x800ul));
  return (small & integers) | (~small & joined);
}

// Unsigned integers of 32 bits in the lower halves of longs: exact.
INLINE Lanes<double> doubles_of_low_halves(Vector x) {
  const auto low = as<unsigned long>(x) & 0xfffffffful;
  return as<double>(bits(low | 0x4330000000000000ul)) - 0x1p52;
}

INLINE void look_for_difference(Lanes<double> x, Lanes<double> y, Flaws &flaws) {
  note(bits(x != y), flaws);
}
INLINE void look_for_difference(Lanes<float> x, Lanes<float> y, Flaws &flaws) {
  note(bits(x != y), flaws);
}

// Doubles, exact ones, to floats.
template <bool Check = true, int N>
INLINE Block<float, N> to_float(Block<double, N> x, Flaws &flaws) {
  Block<float, N> result;
  for (int v = 0; v < result.kCount; ++v) {
    result.of[v] = floats_of_doubles(x.of[2 * v], x.of[2 * v + 1]);
    if constexpr (Check) {
      const Vector low = low_doubles_of_floats(result.of[v]);
      const Vector high = high_doubles_of_floats(result.of[v]);
      look_for_difference(as<double>(low), as<double>(x.of[2 * v]), flaws);
      look_for_difference(as<double>(high), as<double>(x.of[2 * v + 1]), flaws);
    }
  }
  return result;
}

template <class To, bool Check, class From, int N>
INLINE Block<To, N> to_floating(Block<From, N> x, Flaws &flaws) {
  if constexpr (sizeof(From) < 4) {
    return to_floating<To, false>(resized<int>(x), flaws);  // exact
  } else if constexpr (std::is_same_v<From, int>) {
    Block<To, N> result;
    for (int v = 0; v < x.kCount; ++v) {
      if constexpr (sizeof(To) == 8) {  // exact
        result.of[2 * v] = low_doubles_of_ints(x.of[v]);
        result.of[2 * v + 1] = high_doubles_of_ints(x.of[v]);
      } else {
        result.of[v] = floats_of_ints(x.of[v]);
        if constexpr (Check) note(ints_of_floats(result.of[v]) ^ x.of[v], flaws);
      }
    }
    return result;
  } else if constexpr (std::is_same_v<From, unsigned int>) {
    Block<double, N> result;  // exact
    const Block<unsigned long, N> wide = resized<unsigned long>(x);
    for (int v = 0; v < result.kCount; ++v) {
      result.of[v] = bits(doubles_of_low_halves(wide.of[v]));
    }
    if constexpr (sizeof(To) == 8)
      return result;
    else
      return to_float<Check>(result, flaws);
  } else {
    Block<double, N> result;
    for (int v = 0; v < x.kCount; ++v) {
      Lanes<double> upper, lower;
      Vector integers = x.of[v];
      if constexpr (sizeof(To) == 4) {
        integers = joined_low_bits<From>(integers);
        if constexpr (Check) note(integers ^ x.of[v], flaws);
      }
      const Lanes<double> sum = doubles_of_longs<From>(integers, upper, lower);
      if constexpr (sizeof(To) == 8 && Check) {
        const Lanes<double> rest = rest_of_sum(sum, upper, lower);
        look_for_difference(rest, Lanes<double>{}, flaws);
      }
      result.of[v] = bits(sum);
    }
    if constexpr (sizeof(To) == 8)
      return result;
    else
      return to_float<Check>(result, flaws);
  }
}

// ---- Floating to integers ----

template <int N>
INLINE Block<double, N> doubles_of_floats(Block<float, N> x) {
  Block<double, N> result;
  for (int v = 0; v < x.kCount; ++v) {
    result.of[2 * v] = low_doubles_of_floats(x.of[v]);
    result.of[2 * v + 1] = high_doubles_of_floats(x.of[v]);
  }
  return result;
}

// The types that are made from a truncation to 64 bits, and what is truncated as.
template <class I>
constexpr bool kTruncates64 = sizeof(I) == 8 || std::is_same_v<I, unsigned int>;
template <class To>
using Wide = std::conditional_t<std::is_same_v<To, unsigned int>, unsigned long, To>;

// trunc64, or for unsigned longs utrunc64: the upper half of their range is truncated 2^63 lower,
// and so is a NaN.
template <class To>
INLINE Vector truncated_long(Vector x) {
  if constexpr (std::is_same_v<To, unsigned long>) {
    const Vector upper = ~bits(as<double>(x) < 0x1p63);
    const Vector half = upper & bits(Lanes<double>{} + 0x1p63);
    const Vector result = longs_of_doubles(bits(as<double>(x) - as<double>(half)));
    return bits(as<unsigned long>(result) ^ as<unsigned long>(upper) << 63);
  } else {
    return longs_of_doubles(x);
  }
}

// The way back.
template <class To>
INLINE Lanes<double> double_of_truncated(Vector x) {
  if constexpr (sizeof(To) == 4) {
    return doubles_of_low_halves(x);
  } else {
    Lanes<double> upper, lower;
    return doubles_of_longs<To>(x, upper, lower);
  }
}

// An int with all bytes but the low ones of To made copies of its sign, or zeros.
template <class To>
INLINE Vector kept(Vector x) {
  if constexpr (sizeof(To) == 4) {
    return x;
  } else if constexpr (std::is_signed_v<To>) {
    constexpr int kOther = 32 - 8 * sizeof(To);
    return bits(as<int>(bits(as<unsigned int>(x) << kOther)) >> kOther);
  } else {
    return bits(as<int>(x) & static_cast<int>(std::numeric_limits<To>::max()));
  }
}

template <class To, int N>
requires kTruncates64<To> INLINE Block<To, N> truncated(Block<double, N> x, Flaws &flaws) {
  Block<Wide<To>, N> result;
  for (int v = 0; v < x.kCount; ++v) {
    result.of[v] = truncated_long<To>(x.of[v]);
    look_for_difference(double_of_truncated<To>(result.of[v]), as<double>(x.of[v]), flaws);
  }
  return resized<To>(result);
}
template <class To, int N>
requires kTruncates64<To> INLINE Block<To, N> truncated(Block<float, N> x, Flaws &flaws) {
  return truncated<To>(doubles_of_floats(x), flaws);
}

template <class To, int N>
INLINE Block<To, N> truncated(Block<float, N> x, Flaws &flaws) {
  Block<int, N> result;
  for (int v = 0; v < x.kCount; ++v) {
    result.of[v] = kept<To>(ints_of_floats(x.of[v]));
    look_for_difference(as<float>(floats_of_ints(result.of[v])), as<float>(x.of[v]), flaws);
  }
  return resized<To>(result);
}

template <class To, int N>
INLINE Block<To, N> truncated(Block<double, N> x, Flaws &flaws) {
  Block<int, N> result;
  for (int v = 0; v < result.kCount; ++v) {
    const Vector integers = kept<To>(ints_of_doubles(x.of[2 * v], x.of[2 * v + 1]));
    const Vector low = low_doubles_of_ints(integers), high = high_doubles_of_ints(integers);
    look_for_difference(as<double>(low), as<double>(x.of[2 * v]), flaws);
    look_for_difference(as<double>(high), as<double>(x.of[2 * v + 1]), flaws);
    result.of[v] = integers;
  }
  return resized<To>(result);
}

// Saturated. A NaN passes both comparisons, and a zero keeps its sign.
template <class To, class F>
INLINE Vector within(Vector x, Flaws &flaws) {
  const Lanes<F> most = Lanes<F>{} + static_cast<F>(std::numeric_limits<To>::max());
  const Lanes<F> least = Lanes<F>{} + static_cast<F>(std::numeric_limits<To>::min());
  note(bits(as<F>(x) < least) | bits(as<F>(x) > most), flaws);
  return bits(lesser(most, greater(least, as<F>(x))));
}

// For the unsigned int and long what is below or above is set after the truncation, because a bound
// that is rounded up is itself within, and leaves 0.
template <class To, class F, int N>
INLINE Block<To, N> saturated_wide(Block<double, N> x, Flaws &flaws) {
  constexpr double kMost = static_cast<F>(std::numeric_limits<To>::max());
  Block<Wide<To>, N> result;
  for (int v = 0; v < x.kCount; ++v) {
    const Vector below = bits(as<double>(x.of[v]) < 0.0);
    const Vector above = bits(as<double>(x.of[v]) > kMost);
    note(below | above, flaws);
    result.of[v] = (truncated_long<To>(x.of[v]) & ~below) | above;
  }
  return resized<To>(result);
}
template <class To, int N>
requires kTruncates64<To> INLINE Block<To, N> saturated(Block<double, N> x, Flaws &flaws) {
  return saturated_wide<To, double>(x, flaws);
}
template <class To, int N>
requires kTruncates64<To> INLINE Block<To, N> saturated(Block<float, N> x, Flaws &flaws) {
  return saturated_wide<To, float>(doubles_of_floats(x), flaws);
}

template <class To, int N>
INLINE Block<To, N> saturated(Block<float, N> x, Flaws &flaws) {
  Block<int, N> result;
  for (int v = 0; v < x.kCount; ++v)
    result.of[v] = ints_of_floats(within<To, float>(x.of[v], flaws));
  return resized<To>(result);
}

template <class To, int N>
INLINE Block<To, N> saturated(Block<double, N> x, Flaws &flaws) {
  Block<int, N> result;
  for (int v = 0; v < result.kCount; ++v) {
    result.of[v] = ints_of_doubles(within<To, double>(x.of[2 * v], flaws),
                                   within<To, double>(x.of[2 * v + 1], flaws));
  }
  return resized<To>(result);
}

// ---- Float and double ----

template <int N>
INLINE Block<double, N> to_double(Block<float, N> x, Flaws &flaws) {
  for (Vector v : x.of) look_for_difference(as<float>(v), as<float>(v), flaws);
  return doubles_of_floats(x);
}

// The same floating type: bits move, NaNs fail.
template <class F, int N>
INLINE Block<F, N> checked(Block<F, N> x, Flaws &flaws) {
  for (Vector v : x.of) look_for_difference(as<F>(v), as<F>(v), flaws);
  return x;
}

// ---- What was found ----

template <class, class>
INLINE bool none(Flaws flaws) {
  return all_zero(flaws.bits);
}

// ---- Three bytes ----

template <class H, char R, int N>
INLINE Block<H, N> read_threes(Block<Three<R>, N> x) {
  Block<H, N> result;
  static_assert(result.kCount == 4);
  spread_threes<R>(x.of, result.of);  // at the top of their places
  for (Vector &v : result.of) {
    v = bits(as<int>(v) >> 8);
    if constexpr (std::is_same_v<H, float>) v = floats_of_ints(v);
  }
  return result;
}

template <char R, bool Saturate, int N>
INLINE Block<Three<R>, N> write_threes(Block<int, N> x, Flaws &flaws) {
  constexpr int kMost = 8388607;
  if constexpr (Saturate) {
    for (Vector &v : x.of) {
      const Lanes<int> sign = as<int>(v) >> 31;
      const Vector beyond = bits((as<int>(v) ^ sign) & ~kMost);
      note(beyond, flaws);
      const Vector fits = bits(as<int>(beyond) == 0);
      v = (fits & v) | (~fits & bits(sign ^ kMost));
    }
  }
  Block<Three<R>, N> result;
  joined_threes<R>(x.of, result.of);
  return result;
}
