// Byte order and nothing else: external bytes to bit patterns of the host, and back.

#ifndef CONV_LAYOUT_H
#define CONV_LAYOUT_H

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace conv {

// What a type letter means in memory. Every external layout has the host's widths and formats.
template <char Letter, bool Unsigned>
struct TypeOf;
// clang-format off
template <> struct TypeOf<'b', false> { using type = signed char; };
template <> struct TypeOf<'s', false> { using type = short; };
template <> struct TypeOf<'i', false> { using type = int; };
template <> struct TypeOf<'l', false> { using type = long; };
template <> struct TypeOf<'b', true>  { using type = unsigned char; };
template <> struct TypeOf<'s', true>  { using type = unsigned short; };
template <> struct TypeOf<'i', true>  { using type = unsigned int; };
template <> struct TypeOf<'l', true>  { using type = unsigned long; };
template <bool Unsigned> struct TypeOf<'f', Unsigned> { using type = float; };
template <bool Unsigned> struct TypeOf<'d', Unsigned> { using type = double; };

template <int Size> struct BitsOf;
template <> struct BitsOf<1> { using type = uint8_t; };
template <> struct BitsOf<2> { using type = uint16_t; };
template <> struct BitsOf<4> { using type = uint32_t; };
template <> struct BitsOf<8> { using type = uint64_t; };
// clang-format on

template <char Letter, bool Unsigned>
using Type = typename TypeOf<Letter, Unsigned>::type;
template <class T>
using Bits = typename BitsOf<sizeof(T)>::type;

inline uint8_t reversed(uint8_t bits) { return bits; }
inline uint16_t reversed(uint16_t bits) { return __builtin_bswap16(bits); }
inline uint32_t reversed(uint32_t bits) { return __builtin_bswap32(bits); }
inline uint64_t reversed(uint64_t bits) { return __builtin_bswap64(bits); }

// Between the order of layout R and the host's, both ways: each order is its own inverse.
template <char R, class T>
Bits<T> reordered(Bits<T> bits) {
  if constexpr (R == 'm') return reversed(bits);
  // The word with sign and exponent comes first in an `a` double.
  if constexpr (R == 'a' && std::is_same_v<T, double>) return std::rotl(bits, 32);
  return bits;
}

// Element access through bytes: external data has any alignment, and source and destination may
// be one buffer.
template <class T>
Bits<T> load(const char *at) {
  Bits<T> bits;
  std::memcpy(&bits, at, sizeof bits);
  return bits;
}

template <class T>
void store(char *at, Bits<T> bits) {
  std::memcpy(at, &bits, sizeof bits);
}

}  // namespace conv

#endif
