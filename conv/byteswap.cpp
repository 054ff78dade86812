// byteswap: the family of 408 conversions between external byte layouts and host arrays: family.h
// has the names, layout.h the byte orders, rules.h the values; here they meet, and elements.h runs
// over them.

#include "include/plintor.h"

#include <emmintrin.h>

#include <bit>
#include <cstring>
#include <type_traits>

#include "conv/elements.h"
#include "conv/family.h"
#include "conv/layout.h"
#include "conv/own.h"
#include "conv/rules.h"

#pragma GCC diagnostic error "-Wmissing-declarations"  // every member is declared by the header

namespace {

// Nothing to look at: the layout has the host's bytes, whatever they mean.
template <char R, class E, class H>
constexpr bool kCopy = R == 'a' && std::is_same_v<E, H> &&std::is_integral_v<E>;

// A copy's bytes by two loads before two stores, which may overlap.
template <class Word>
void move_ends(const char *from, char *to, size_t bytes) {
  Word first, last;
  std::memcpy(&first, from, sizeof first);
  std::memcpy(&last, from + bytes - sizeof last, sizeof last);
  std::memcpy(to, &first, sizeof first);
  std::memcpy(to + bytes - sizeof last, &last, sizeof last);
}

// n elements as memmove takes them, whose call costs more than a few bytes do.
template <class T>
int move_elements(const char *from, char *to, int n) {
  const size_t bytes = static_cast<size_t>(n) * sizeof(T);
  if (n == 1)
    conv::store<T>(to, conv::load<T>(from));
  else if (bytes > 2 * sizeof(__m128i))
    std::memmove(to, from, bytes);
  else if (bytes >= sizeof(__m128i))
    move_ends<__m128i>(from, to, bytes);
  else if (bytes >= sizeof(uint64_t))
    move_ends<uint64_t>(from, to, bytes);
  else if (bytes >= sizeof(uint32_t))
    move_ends<uint32_t>(from, to, bytes);
  else
    move_ends<uint16_t>(from, to, bytes);
  return 0;
}

// One element of E from layout R into an H of the host.
template <char R, class E, class H>
bool read_element(const char *from, char *to) {
  const auto bits = conv::reordered<R, E>(conv::load<E>(from));
  if constexpr (std::is_same_v<E, H> && std::is_floating_point_v<E>) {
    conv::store<H>(to, bits);
    return conv::is_number(bits);
  } else {
    H result;
    const bool exact = conv::to_host(std::bit_cast<E>(bits), result);
    conv::store<H>(to, std::bit_cast<conv::Bits<H>>(result));
    return exact;
  }
}

// One H of the host into an element of E in layout R.
template <char R, class E, class H>
bool write_element(const char *from, char *to) {
  const auto bits = conv::load<H>(from);
  if constexpr (std::is_same_v<E, H> && std::is_floating_point_v<E>) {
    conv::store<E>(to, conv::reordered<R, E>(bits));
    return conv::is_number(bits);
  } else {
    E result;
    const bool exact = conv::to_external(std::bit_cast<H>(bits), result);
    conv::store<E>(to, conv::reordered<R, E>(std::bit_cast<conv::Bits<E>>(result)));
    return exact;
  }
}

template <char R, class E, class H, conv::Member member>
int read(char **from, H *to, int n) {
  if (n <= 0) return 0;
  const char *const source = *from;
  *from += static_cast<size_t>(n) * sizeof(E);
  const auto target = reinterpret_cast<char *>(to);
  if constexpr (kCopy<R, E, H>) {
    return move_elements<E>(source, target, n);
  } else {
    constexpr conv::Element kElement = read_element<R, E, H>;
    return conv::all_elements<kElement, sizeof(E), sizeof(H), member>(source, target, n);
  }
}

template <char R, class E, class H, conv::Member member>
int write(const H *from, char **to, int n) {
  if (n <= 0) return 0;
  const auto source = reinterpret_cast<const char *>(from);
  char *const target = *to;
  *to += static_cast<size_t>(n) * sizeof(E);
  if constexpr (kCopy<R, E, H>) {
    return move_elements<E>(source, target, n);
  } else {
    constexpr conv::Element kElement = write_element<R, E, H>;
    return conv::all_elements<kElement, sizeof(H), sizeof(E), member>(source, target, n);
  }
}

}  // namespace

// The letters of a cell as template arguments.
#define TYPE(LETTER, UNSIGNED) conv::Type<#LETTER[0], UNSIGNED>

#define READER(NAME, R, E, H, U)                                         \
  extern "C" int NAME(char **from, TYPE(H, U) * to, int n) {             \
    return read<#R[0], TYPE(E, U), TYPE(H, U), conv::NAME>(from, to, n); \
  }
#define WRITER(NAME, R, E, H, U)                                          \
  extern "C" int NAME(const TYPE(H, U) * from, char **to, int n) {        \
    return write<#R[0], TYPE(E, U), TYPE(H, U), conv::NAME>(from, to, n); \
  }
#define READER_IS(NAME, H, U, OTHER)                                              \
  static_assert(std::is_same_v<decltype(NAME), int(char **, TYPE(H, U) *, int)>); \
  extern "C" decltype(NAME) NAME __attribute__((alias(#OTHER)));
#define WRITER_IS(NAME, H, U, OTHER)                                                    \
  static_assert(std::is_same_v<decltype(NAME), int(const TYPE(H, U) *, char **, int)>); \
  extern "C" decltype(NAME) NAME __attribute__((alias(#OTHER)));

#define PAIR(R, E, H)                 \
  READER(R##E##2h##H, R, E, H, false) \
  WRITER(h##H##2##R##E, R, E, H, false)
#define EACH(R, E, H)                   \
  PAIR(R, E, H)                         \
  READER(u##R##E##2h##H, R, E, H, true) \
  WRITER(uh##H##2##R##E, R, E, H, true)
#define ONCE(R, E, H)                             \
  PAIR(R, E, H)                                   \
  READER_IS(u##R##E##2h##H, H, true, R##E##2h##H) \
  WRITER_IS(uh##H##2##R##E, H, true, h##H##2##R##E)
#define SAME(R, E, H, Q, F, K)                  \
  READER_IS(R##E##2h##H, H, false, Q##F##2h##K) \
  WRITER_IS(h##H##2##R##E, H, false, h##K##2##Q##F)
#define LIKE(R, E, H, Q)                             \
  SAME(R, E, H, Q, E, H)                             \
  READER_IS(u##R##E##2h##H, H, true, u##Q##E##2h##H) \
  WRITER_IS(uh##H##2##R##E, H, true, uh##H##2##Q##E)

#ifndef __clang__  // one function under several names takes several pointer types, which pass alike
#pragma GCC diagnostic ignored "-Wattribute-alias"
#endif

FAMILY(EACH, PAIR, ONCE, LIKE, SAME)

extern "C" decltype(mi2hi) own_mi2hi __attribute__((alias("mi2hi"), visibility("hidden")));
extern "C" decltype(hi2mi) own_hi2mi __attribute__((alias("hi2mi"), visibility("hidden")));
