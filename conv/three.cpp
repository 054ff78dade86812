// three: signed integers of three bytes (the type letter t) to host ints and floats, and back.

#include "include/plintor.h"

#include <cstring>

#include "conv/elements.h"
#include "conv/layout.h"

#pragma GCC diagnostic error "-Wmissing-declarations"

namespace {

constexpr int kSize = 3;
constexpr int kLeast = -8388608;
constexpr int kMost = 8388607;

// The top byte of the pattern is the sign, copied down by the shift.
template <char R>
int load_three(const char *at) {
  const auto byte = [at](int k) { return uint32_t{static_cast<unsigned char>(at[k])}; };
  const uint32_t top = R == 'm' ? byte(0) << 24 | byte(1) << 16 | byte(2) << 8
                                : byte(2) << 24 | byte(1) << 16 | byte(0) << 8;
  return static_cast<int>(top) >> 8;
}

template <char R>
void store_three(char *at, int value) {
  for (int k = 0; k < kSize; ++k) {
    at[k] = static_cast<char>(value >> 8 * (R == 'm' ? kSize - 1 - k : k));
  }
}

// Every 24-bit value is a float, so H may be either.
template <char R, class H>
bool read_three(const char *from, char *to) {
  const auto value = static_cast<H>(load_three<R>(from));
  std::memcpy(to, &value, sizeof value);
  return true;
}

// The nearest of what three bytes hold. A value that had to give way fails; that the written
// bytes then have the value's sign needs no second look.
template <char R>
bool write_three(const char *from, char *to) {
  int value;
  std::memcpy(&value, from, sizeof value);
  const int nearest = value < kLeast ? kLeast : value > kMost ? kMost : value;
  store_three<R>(to, nearest);
  return nearest == value;
}

template <char R, class H, conv::Member member>
int read(char **from, H *to, int n) {
  if (n <= 0) return 0;
  const char *const source = *from;
  *from += static_cast<size_t>(n) * kSize;
  constexpr conv::Element kElement = read_three<R, H>;
  return conv::all_elements<kElement, kSize, sizeof(H), member>(source,
                                                                reinterpret_cast<char *>(to), n);
}

template <char R, conv::Member member>
int write(const int *from, char **to, int n) {
  if (n <= 0) return 0;
  char *const target = *to;
  *to += static_cast<size_t>(n) * kSize;
  const auto source = reinterpret_cast<const char *>(from);
  constexpr conv::Element kElement = write_three<R>;
  return conv::all_elements<kElement, sizeof(int), kSize, member>(source, target, n);
}

}  // namespace

extern "C" int vt2hi(char **from, int *to, int n) {
  return read<'v', int, conv::vt2hi>(from, to, n);
}
extern "C" int mt2hi(char **from, int *to, int n) {
  return read<'m', int, conv::mt2hi>(from, to, n);
}
extern "C" int vt2hf(char **from, float *to, int n) {
  return read<'v', float, conv::vt2hf>(from, to, n);
}
extern "C" int mt2hf(char **from, float *to, int n) {
  return read<'m', float, conv::mt2hf>(from, to, n);
}
extern "C" int hi2vt(const int *from, char **to, int n) {
  return write<'v', conv::hi2vt>(from, to, n);
}
extern "C" int hi2mt(const int *from, char **to, int n) {
  return write<'m', conv::hi2mt>(from, to, n);
}
