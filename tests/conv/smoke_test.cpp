// The family at a glance: one example a rule, and which names are one function.

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "include/plintor.h"
#include "tests/conv/one.h"

using one::Bytes;
using one::is;
using one::read;
using one::write;

namespace {

const float kNan = std::numeric_limits<float>::quiet_NaN();

}  // namespace

TEST(conversions, an_integer_that_is_read_wraps) {
  EXPECT_EQ(read(ms2hi, {0xFF, 0xFE}), is(-2, 0));
  EXPECT_EQ(read(as2hb, {0x80, 0x01}), is<signed char>(-128, -1));
  EXPECT_EQ(read(as2hb, {0x80, 0xFF}), is<signed char>(-128, 0));
  EXPECT_EQ(read(uas2hb, {0xFF, 0x00}), is<unsigned char>(255, 0));
  EXPECT_EQ(read(uas2hb, {0x00, 0x01}), is<unsigned char>(0, -1));
  EXPECT_EQ(read(ai2hs, {1, 0, 1, 0}), is<short>(1, -1));
  EXPECT_EQ(read(ual2hi, {0, 0, 0, 0, 1, 0, 0, 0}), is(0u, -1));
}

TEST(conversions, an_integer_that_is_written_saturates) {
  EXPECT_EQ(write(hi2ms, 258), is(Bytes{1, 2}, 0));
  EXPECT_EQ(write(hi2as, -32769), is(Bytes{0x00, 0x80}, -1));
  EXPECT_EQ(write(hi2as, 32768), is(Bytes{0xFF, 0x7F}, -1));
  EXPECT_EQ(write(hi2as, -32768), is(Bytes{0x00, 0x80}, 0));
  EXPECT_EQ(write(uhl2ai, 0x100000000ul), is(Bytes{0xFF, 0xFF, 0xFF, 0xFF}, -1));
}

TEST(conversions, each_layout_has_its_own_double) {
  EXPECT_EQ(read(ad2hd, {0, 0, 0xF0, 0x3F, 0, 0, 0, 0}), is(1.0, 0));
  EXPECT_EQ(read(md2hd, {0x3F, 0xF0, 0, 0, 0, 0, 0, 0}), is(1.0, 0));
  EXPECT_EQ(read(vd2hd, {0, 0, 0, 0, 0, 0, 0xF0, 0x3F}), is(1.0, 0));
}

TEST(conversions, a_nan_fails_where_its_bytes_are_reordered) {
  auto [value, result] = read(mf2hf, {0x7F, 0xA0, 0, 1});
  EXPECT_EQ(result, -1);
  EXPECT_EQ(std::memcmp(&value, "\x01\x00\xA0\x7F", 4), 0);
  std::tie(value, result) = read(af2hf, {1, 0, 0xA0, 0x7F});
  EXPECT_EQ(result, 0);
  EXPECT_EQ(std::memcmp(&value, "\x01\x00\xA0\x7F", 4), 0);
}

TEST(conversions, a_double_that_is_no_float_fails) {
  const float infinity = std::numeric_limits<float>::infinity();
  EXPECT_EQ(read(vd2hf, {0x9A, 0x99, 0x99, 0x99, 0x99, 0x99, 0xB9, 0x3F}), is(0.1f, -1));
  EXPECT_EQ(write(hd2mf, 0.5), is(Bytes{0x3F, 0, 0, 0}, 0));
  EXPECT_EQ(write(hd2mf, 1e39), is(Bytes{0x7F, 0x80, 0, 0}, -1));
  EXPECT_EQ(read(vd2hf, {0, 0, 0, 0, 0, 0, 0xF0, 0x7F}), is(infinity, 0));
}

TEST(conversions, an_integer_that_is_no_floating_value_fails) {
  EXPECT_EQ(read(ai2hf, {1, 0, 0, 1}), is(16777216.0f, -1));
  EXPECT_EQ(read(ai2hf, {0xFF, 0xFF, 0xFF, 0x7F}), is(2147483648.0f, -1));
  EXPECT_EQ(read(uai2hf, {0xFF, 0xFF, 0xFF, 0xFF}), is(4294967296.0f, -1));
  EXPECT_EQ(read(al2hd, {1, 0, 0, 0, 0, 0, 0x20, 0}), is(9007199254740992.0, -1));
  EXPECT_EQ(write(hi2mf, 16777217), is(Bytes{0x4B, 0x80, 0, 0}, -1));
}

TEST(conversions, an_unsigned_integer_written_as_floating_never_fails) {
  EXPECT_EQ(write(uhi2mf, 0xFFFFFFFFu), is(Bytes{0x4F, 0x80, 0, 0}, 0));
  EXPECT_EQ(write(uhl2md, ~0ul), is(Bytes{0x43, 0xF0, 0, 0, 0, 0, 0, 0}, 0));
}

TEST(conversions, a_floating_value_that_is_read_truncates) {
  EXPECT_EQ(read(mf2hs, {0x40, 0x20, 0, 0}), is<short>(2, -1));
  EXPECT_EQ(read(mf2hb, {0x43, 0x96, 0, 0}), is<signed char>(44, -1));
  EXPECT_EQ(read(umf2hb, {0xBF, 0x80, 0, 0}), is<unsigned char>(255, -1));
  EXPECT_EQ(read(mf2hi, {0x7F, 0xC0, 0, 0}), is(std::numeric_limits<int>::min(), -1));
  EXPECT_EQ(read(umf2hi, {0x7F, 0xC0, 0, 0}), is(0u, -1));
  EXPECT_EQ(read(umf2hl, {0x7F, 0xC0, 0, 0}), is(0ul, -1));
  EXPECT_EQ(read(umf2hi, {0x4F, 0x80, 0, 0}), is(0u, -1));
}

TEST(conversions, a_floating_value_that_is_written_narrower_saturates_and_may_lose_its_fraction) {
  EXPECT_EQ(write(hf2ab, 126.9f), is(Bytes{126}, 0));
  EXPECT_EQ(write(hf2ab, 127.5f), is(Bytes{127}, -1));
  EXPECT_EQ(write(hd2ab, -128.5), is(Bytes{0x80}, -1));
  EXPECT_EQ(write(hd2ai, double{kNan}), is(Bytes{0, 0, 0, 0x80}, 0));
  EXPECT_EQ(write(uhd2as, -0.5), is(Bytes{0, 0}, -1));
  EXPECT_EQ(write(uhd2as, -0.0), is(Bytes{0, 0}, 0));
  EXPECT_EQ(write(uhd2as, 65535.5), is(Bytes{0xFF, 0xFF}, -1));
}

TEST(conversions, a_floating_value_that_is_written_as_wide_must_be_the_integer) {
  EXPECT_EQ(write(hf2ai, kNan), is(Bytes{0, 0, 0, 0x80}, -1));
  EXPECT_EQ(write(hf2ai, -2147483648.0f), is(Bytes{0, 0, 0, 0x80}, 0));
  EXPECT_EQ(write(hf2ai, 2.5f), is(Bytes{2, 0, 0, 0}, -1));
}

// Kept: the bound is rounded up to a floating value, and what equals it is truncated and narrowed.
TEST(conversions, a_value_at_the_rounded_bound_of_an_unsigned_writer_leaves_zero) {
  EXPECT_EQ(write(uhf2ai, 4294967296.0f), is(Bytes(4, 0), 0));
  EXPECT_EQ(write(uhf2al, 18446744073709551616.0f), is(Bytes(8, 0), 0));
  EXPECT_EQ(write(uhd2al, 18446744073709551616.0), is(Bytes(8, 0), 0));
  EXPECT_EQ(write(uhd2ai, 4294967295.5), is(Bytes(4, 0xFF), -1));
}

TEST(conversions, a_negative_count_does_nothing) {
  char bytes[8] = "1234567";
  char *cursor = bytes;
  long value = 7;
  EXPECT_EQ(al2hl(&cursor, &value, -1), 0);
  EXPECT_EQ(ml2hl(&cursor, &value, -1), 0);
  EXPECT_EQ(cursor, bytes);
  EXPECT_EQ(value, 7);
}

TEST(conversions, three_bytes_saturate_or_wrap) {
  EXPECT_EQ(read(mt2hi, {0x80, 0, 0}), is(-8388608, 0));
  EXPECT_EQ(read(vt2hi, {0xFE, 0xFF, 0xFF}), is(-2, 0));
  EXPECT_EQ(read(vt2hf, {0xFE, 0xFF, 0xFF}), is(-2.0f, 0));
  EXPECT_EQ(write(hi2mt, 8388608), is(Bytes{0x7F, 0xFF, 0xFF}, -1));
  EXPECT_EQ(write(hi2mt, -8388609), is(Bytes{0x80, 0, 0}, -1));
  EXPECT_EQ(write(hi2vt, -2), is(Bytes{0xFE, 0xFF, 0xFF}, 0));
  const int values[] = {16777217, 8388608};
  Bytes bytes(6);
  H42N3(bytes.data(), values, 2);
  EXPECT_EQ(bytes, (Bytes{0, 0, 1, 0x80, 0, 0}));
  int back[2];
  N32H4(back, bytes.data(), 2);
  EXPECT_EQ(back[1], -8388608);
}

TEST(conversions, shorthands_take_the_destination_first) {
  const short host = 258;
  char net[8];
  EXPECT_EQ(H2N2(net, &host, 1), 0);
  EXPECT_EQ(std::memcmp(net, "\1\2", 2), 0);
  short back = 0;
  EXPECT_EQ(N2H2(&back, net, 1), 0);
  EXPECT_EQ(back, 258);
  const double huge = 1e300;
  HD2NF(net, &huge, 1);
  EXPECT_EQ(std::memcmp(net, "\x7F\x80\0\0", 4), 0);
  double one = 0;
  NF2HD(&one, "\x3F\x80\0\0", 1);
  EXPECT_EQ(one, 1.0);
  EXPECT_EQ(ntohd(htond(1.0)), 1.0);
}

TEST(conversions, the_signed_8_byte_shorthands_are_doubles) {
  const double host = double{kNan};
  long bits;
  std::memcpy(&bits, &host, sizeof bits);
  char as_double[8], as_long[8];
  EXPECT_EQ(H2N8(as_double, &host, 1), -1);
  EXPECT_EQ(H2NL(as_long, &bits, 1), 0);
  EXPECT_EQ(std::memcmp(as_double, as_long, 8), 0);
}

TEST(conversions, swaps_work_in_place) {
  char bytes[] = "12345678";
  swap8(bytes, bytes, 1);
  EXPECT_STREQ(bytes, "87654321");
  swap4(bytes, bytes, 2);
  EXPECT_STREQ(bytes, "56781234");
  swap2(bytes, bytes, 4);
  EXPECT_STREQ(bytes, "65872143");
}

TEST(conversions, names_that_are_one_function_have_one_address) {
  // Volatile: a compiler takes different names for different functions.
  const auto address = [](auto *function) {
    void *volatile asked = reinterpret_cast<void *>(function);
    return asked;
  };
  EXPECT_EQ(address(ab2hb), address(umb2hb));
  EXPECT_EQ(address(hb2ab), address(uhb2vb));
  EXPECT_EQ(address(ai2hi), address(vf2hf));
  EXPECT_EQ(address(hl2al), address(hd2vd));
  EXPECT_EQ(address(mi2hi), address(umi2hi));
  EXPECT_EQ(address(vs2hi), address(as2hi));
  EXPECT_EQ(address(uhf2vi), address(uhf2ai));
  EXPECT_EQ(address(vf2hd), address(af2hd));
  EXPECT_EQ(address(hl2mb), address(hl2ab));
  EXPECT_EQ(address(H2ND), address(H2N8));
  EXPECT_NE(address(ms2hs), address(ums2hs));
  EXPECT_NE(address(H2NL), address(H2N8));
  EXPECT_NE(address(hi2mi), address(mi2hi));
}
