// byteswap: the family of 408 conversions between external byte layouts and host arrays: family.h
// has the names, layout.h the byte orders, rules.h the values; here they meet, and elements.h runs
// over them.

#include "include/plintor.h"

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
    std::memmove(target, source, static_cast<size_t>(n) * sizeof(E));
    return 0;
  } else {
    constexpr conv::Element kElement = read_element<R, E, H>;
    return conv::all_elements<kElement, sizeof(E), sizeof(H), member>(source, target, n) ? 0 : -1;
  }
}

template <char R, class E, class H, conv::Member member>
int write(const H *from, char **to, int n) {
  if (n <= 0) return 0;
  const auto source = reinterpret_cast<const char *>(from);
  char *const target = *to;
  *to += static_cast<size_t>(n) * sizeof(E);
  if constexpr (kCopy<R, E, H>) {
    std::memmove(target, source, static_cast<size_t>(n) * sizeof(E));
    return 0;
  } else {
    constexpr conv::Element kElement = write_element<R, E, H>;
    return conv::all_elements<kElement, sizeof(H), sizeof(E), member>(source, target, n) ? 0 : -1;
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
