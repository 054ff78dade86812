// Values and nothing else: what a value of one type becomes in another, and whether that counts as
// exact. Each rule stores a result and says whether the element passed its check.
//
// Reading (to_host) never clips: a caller who asked for fewer bits gets the low ones and can see
// it from the report. Writing (to_external) clips where the outside has less room than the host,
// because the machine that reads the data sees no report and is best served by the nearest value.

#ifndef CONV_RULES_H
#define CONV_RULES_H

#include <bit>
#include <concepts>
#include <cstdint>
#include <limits>

#include "conv/layout.h"
#include "frame/truncate.h"

namespace conv {

template <class T>
concept Integer = std::integral<T>;
template <class T>
concept Floating = std::floating_point<T>;

// The upper half of the unsigned range is truncated 2^63 lower. A NaN takes that way too and
// yields 0.
template <Floating F>
uint64_t utrunc64(F value) {
  constexpr F kHalf = 9223372036854775808.0;
  constexpr uint64_t kTopBit = uint64_t{1} << 63;
  if (value < kHalf) return static_cast<uint64_t>(trunc64(value));
  return static_cast<uint64_t>(trunc64(value - kHalf)) ^ kTopBit;
}

// The truncation that an integer type is made from: the narrowest that the processor has for it.
template <Integer I, Floating F>
I truncated(F value) {
  if constexpr (std::same_as<I, unsigned long>) {
    return utrunc64(value);
  } else if constexpr (std::same_as<I, long> || std::same_as<I, unsigned int>) {
    return static_cast<I>(trunc64(value));
  } else {
    return static_cast<I>(trunc32(value));
  }
}

// The same floating type: bits move, and only a NaN fails, because it is unequal to itself.
inline bool is_number(uint32_t bits) { return (bits & 0x7fffffff) <= 0x7f800000; }
inline bool is_number(uint64_t bits) { return (bits & 0x7fffffffffffffff) <= 0x7ff0000000000000; }

// Whether the floating type has every value of the integer type.
template <Integer I, Floating F>
constexpr bool kFits = std::numeric_limits<I>::digits <= std::numeric_limits<F>::digits;

// ---- Reading ----

// Integers wrap: the low bytes are kept, and fail when widening them again gives another value.
template <Integer To, Integer From>
bool to_host(From value, To &result) {
  result = static_cast<To>(value);
  return static_cast<From>(result) == value;
}

// Integers to floating round to nearest, and fail when truncating does not give them back.
template <Floating To, Integer From>
bool to_host(From value, To &result) {
  result = static_cast<To>(value);
  return kFits<From, To> || truncated<From>(result) == value;
}

// Floating to integers: the low bytes of the truncation, which fail unless they are the value; so
// every fraction fails, every overflow and every NaN.
template <Integer To, Floating From>
bool to_host(From value, To &result) {
  result = truncated<To>(value);
  return static_cast<From>(result) == value;
}

// Float to double is exact: only a NaN fails. Double to float rounds to nearest, and fails unless
// the double was a float.
template <Floating To, Floating From>
bool to_host(From value, To &result) {
  result = static_cast<To>(value);
  return static_cast<From>(result) == value;
}

// ---- Writing ----

// Integers saturate: what lies outside the external range becomes its nearest end, and fails.
template <Integer To, Integer From>
bool to_external(From value, To &result) {
  if constexpr (sizeof(To) >= sizeof(From)) {
    result = value;
    return true;
  } else {
    constexpr From kLeast = std::numeric_limits<To>::min();
    constexpr From kMost = std::numeric_limits<To>::max();
    const From nearest = value < kLeast ? kLeast : value > kMost ? kMost : value;
    result = static_cast<To>(nearest);
    return nearest == value;
  }
}

// Integers to floating round to nearest. Signed ones are checked as in reading.
// Kept: unsigned ones never fail, whatever precision they lose; their check compares the
// conversion with itself.
template <Floating To, Integer From>
bool to_external(From value, To &result) {
  result = static_cast<To>(value);
  return std::unsigned_integral<From> || kFits<From, To> || truncated<From>(result) == value;
}

// Signed integers with at least the room of the floating type do not saturate: the truncation
// must be the value, so a fraction or a NaN fails and an overflow leaves the smallest integer.
template <std::signed_integral To, Floating From>
requires(sizeof(To) >= sizeof(From)) bool to_external(From value, To &result) {
  result = truncated<To>(value);
  return static_cast<From>(result) == value;
}

// All other integers saturate, then truncate.
// Kept: a dropped fraction passes, and so does a NaN, which neither comparison catches. The upper
// bound is rounded to the floating type, so for the unsigned int from float and the unsigned long
// it is one more than the maximum: a value exactly there passes, and leaves 0.
template <Integer To, Floating From>
bool to_external(From value, To &result) {
  constexpr From kLeast = static_cast<From>(std::numeric_limits<To>::min());
  constexpr From kMost = static_cast<From>(std::numeric_limits<To>::max());
  const bool below = value < kLeast;
  const bool above = value > kMost;
  result = truncated<To>(value);
  if (below) result = std::numeric_limits<To>::min();
  if (above) result = std::numeric_limits<To>::max();
  return !below && !above;
}

// Float to double and back, as in reading.
template <Floating To, Floating From>
bool to_external(From value, To &result) {
  return to_host(value, result);
}

}  // namespace conv

#endif
