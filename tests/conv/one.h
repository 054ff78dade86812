// One element through one member, with the bytes written out.

#ifndef TESTS_CONV_ONE_H
#define TESTS_CONV_ONE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

namespace one {

using Bytes = std::vector<uint8_t>;

// What a reader makes of the bytes of one element, and what it returns.
template <class H>
std::pair<H, int> read(int (*member)(char **, H *, int), Bytes bytes) {
  char *cursor = reinterpret_cast<char *>(bytes.data());
  H value{};
  const int result = member(&cursor, &value, 1);
  EXPECT_EQ(cursor, reinterpret_cast<char *>(bytes.data() + bytes.size()));
  return {value, result};
}

// The bytes that a writer makes of one value, and what it returns.
template <class H>
std::pair<Bytes, int> write(int (*member)(const H *, char **, int), H value) {
  char bytes[16];
  char *cursor = bytes;
  const int result = member(&value, &cursor, 1);
  return {Bytes(bytes, cursor), result};
}

template <class T>
std::pair<T, int> is(T value, int result) {
  return {value, result};
}

// A floating value as its bits, so that NaNs and zeros can be told apart.
inline uint32_t bits(float value) {
  uint32_t result;
  std::memcpy(&result, &value, sizeof result);
  return result;
}
inline uint64_t bits(double value) {
  uint64_t result;
  std::memcpy(&result, &value, sizeof result);
  return result;
}

}  // namespace one

#endif
