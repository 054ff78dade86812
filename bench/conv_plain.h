// The loop that a program would write for itself, for every member. Compiled once at -O2 and once
// at -O3 -march=native; PLAIN names the function that finds it.

#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>

#include "bench/conv_plain_types.h"
#include "conv/family.h"

namespace {

template <class T>
T reversed(T value) {
  if constexpr (sizeof(T) == 1) return value;
  if constexpr (sizeof(T) == 2) {
    return static_cast<T>(__builtin_bswap16(static_cast<uint16_t>(value)));
  }
  if constexpr (sizeof(T) == 4) {
    return std::bit_cast<T>(__builtin_bswap32(std::bit_cast<uint32_t>(value)));
  }
  if constexpr (sizeof(T) == 8) {
    return std::bit_cast<T>(__builtin_bswap64(std::bit_cast<uint64_t>(value)));
  }
}

template <char R, class T>
T ordered(T value) {
  if constexpr (R == 'm') return reversed(value);
  if constexpr (R == 'a' && std::is_same_v<T, double>) {
    return std::bit_cast<T>(std::rotl(std::bit_cast<uint64_t>(value), 32));
  }
  return value;
}

template <char R, class E, class H>
[[gnu::noinline]] int read_run(char **cursor, H *to, int n) {
  int result = 0;
  const char *from = *cursor;
  for (int k = 0; k < n; ++k) {
    E value;
    std::memcpy(&value, from, sizeof value);
    from += sizeof value;
    value = ordered<R>(value);
    const H converted = static_cast<H>(value);
    if (static_cast<E>(converted) != value) result = -1;
    to[k] = converted;
  }
  *cursor = const_cast<char *>(from);
  return result;
}

template <char R, class E, class H>
int read(const char *from, char *to, int n) {
  char *cursor = const_cast<char *>(from);
  return read_run<R, E, H>(&cursor, reinterpret_cast<H *>(to), n);
}

template <char R, class E, class H>
[[gnu::noinline]] int write_run(const H *from, char **cursor, int n) {
  int result = 0;
  char *to = *cursor;
  for (int k = 0; k < n; ++k) {
    const H value = from[k];
    E converted;
    if constexpr (std::is_integral_v<E> && sizeof(E) < sizeof(H)) {
      constexpr H kLeast = static_cast<H>(std::numeric_limits<E>::min());
      constexpr H kMost = static_cast<H>(std::numeric_limits<E>::max());
      const H nearest = value < kLeast ? kLeast : value > kMost ? kMost : value;
      if (nearest != value) result = -1;
      converted = static_cast<E>(nearest);
    } else {
      converted = static_cast<E>(value);
      if (static_cast<H>(converted) != value) result = -1;
    }
    converted = ordered<R>(converted);
    std::memcpy(to, &converted, sizeof converted);
    to += sizeof converted;
  }
  *cursor = to;
  return result;
}

template <char R, class E, class H>
int write(const char *from, char *to, int n) {
  char *cursor = to;
  return write_run<R, E, H>(reinterpret_cast<const H *>(from), &cursor, n);
}

template <char Letter, bool U>
auto type_of() {
  // clang-format off
  if constexpr (Letter == 'b') return std::conditional_t<U, unsigned char, signed char>{};
  if constexpr (Letter == 's') return std::conditional_t<U, unsigned short, short>{};
  if constexpr (Letter == 'i') return std::conditional_t<U, unsigned int, int>{};
  if constexpr (Letter == 'l') return std::conditional_t<U, unsigned long, long>{};
  if constexpr (Letter == 'f') return float{};
  if constexpr (Letter == 'd') return double{};
  // clang-format on
}

struct Named {
  const char *name;
  PlainLoop loop;
};

#define T(LETTER, U) decltype(type_of<#LETTER[0], U>())
#define READER(NAME, R, E, H, U) {#NAME, read<#R[0], T(E, U), T(H, U)>},
#define WRITER(NAME, R, E, H, U) {#NAME, write<#R[0], T(E, U), T(H, U)>},
#define PAIR(R, E, H) READER(R##E##2h##H, R, E, H, false) WRITER(h##H##2##R##E, R, E, H, false)
#define EACH(R, E, H) \
  PAIR(R, E, H)       \
  READER(u##R##E##2h##H, R, E, H, true) WRITER(uh##H##2##R##E, R, E, H, true)
#define NONE(...)

const Named kLoops[] = {FAMILY(EACH, PAIR, PAIR, NONE, NONE)};

}  // namespace

PlainLoop PLAIN(const std::string &name) {
  for (const Named &named : kLoops) {
    if (name == named.name) return named.loop;
  }
  return nullptr;
}
