// What each rule of the family does at its edges, values written out.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "include/plintor.h"
#include "tests/conv/one.h"

using one::bits;
using one::Bytes;
using one::is;
using one::read;
using one::write;

namespace {

const float kNan = std::numeric_limits<float>::quiet_NaN();
const double kNanDouble = std::numeric_limits<double>::quiet_NaN();
const float kInfinity = std::numeric_limits<float>::infinity();
constexpr int kSmallestInt = std::numeric_limits<int>::min();
constexpr long kSmallestLong = std::numeric_limits<long>::min();

}  // namespace

// ---- Integers

TEST(byteswap, a_count_of_0_returns_0_and_leaves_the_cursor) {
  char bytes[] = {1, 2};
  char *cursor = bytes;
  int host = 7;
  EXPECT_EQ(ms2hi(&cursor, &host, 0), 0);
  EXPECT_EQ(cursor, bytes);
  EXPECT_EQ(host, 7);
  EXPECT_EQ(hi2ms(&host, &cursor, 0), 0);
  EXPECT_EQ(cursor, bytes);
  EXPECT_EQ(bytes[0], 1);
}

TEST(byteswap, a_negative_count_behaves_like_0) {
  char bytes[] = {1, 2, 3, 4};
  char *cursor = bytes;
  int host = 7;
  EXPECT_EQ(ms2hi(&cursor, &host, -1), 0);
  EXPECT_EQ(hi2ms(&host, &cursor, std::numeric_limits<int>::min()), 0);
  EXPECT_EQ(ai2hi(&cursor, &host, -1), 0);  // a plain copy, too
  EXPECT_EQ(cursor, bytes);
  EXPECT_EQ(host, 7);
}

TEST(byteswap, hi2as_saturates_at_both_ends_of_a_short) {
  EXPECT_EQ(write(hi2as, -32769), is(Bytes{0x00, 0x80}, -1));
  EXPECT_EQ(write(hi2as, 32768), is(Bytes{0xFF, 0x7F}, -1));
  EXPECT_EQ(write(hi2as, -32768), is(Bytes{0x00, 0x80}, 0));
  EXPECT_EQ(write(hi2as, 32767), is(Bytes{0xFF, 0x7F}, 0));
}

TEST(byteswap, writers_saturate_at_the_full_range_of_each_width) {
  EXPECT_EQ(write(hl2ab, -129L), is(Bytes{0x80}, -1));
  EXPECT_EQ(write(hl2ab, 128L), is(Bytes{0x7F}, -1));
  EXPECT_EQ(write<short>(hs2ab, -128), is(Bytes{0x80}, 0));
  EXPECT_EQ(write(hl2mi, -2147483649L), is(Bytes{0x80, 0, 0, 0}, -1));
  EXPECT_EQ(write(hl2mi, 2147483648L), is(Bytes{0x7F, 0xFF, 0xFF, 0xFF}, -1));
  EXPECT_EQ(write(hl2mi, kSmallestLong), is(Bytes{0x80, 0, 0, 0}, -1));
  EXPECT_EQ(write(uhi2ab, 256u), is(Bytes{0xFF}, -1));
  EXPECT_EQ(write(uhi2ab, 255u), is(Bytes{0xFF}, 0));
  EXPECT_EQ(write(uhi2ms, 65536u), is(Bytes{0xFF, 0xFF}, -1));
  EXPECT_EQ(write(uhl2ms, 65535ul), is(Bytes{0xFF, 0xFF}, 0));
}

TEST(byteswap, as2hb_wraps_384_and_holds_minus_128) {
  EXPECT_EQ(read(as2hb, {0x80, 0x01}), is<signed char>(-128, -1));
  EXPECT_EQ(read(as2hb, {0x80, 0xFF}), is<signed char>(-128, 0));
}

TEST(byteswap, uas2hb_holds_255_and_wraps_256) {
  EXPECT_EQ(read(uas2hb, {0xFF, 0x00}), is<unsigned char>(255, 0));
  EXPECT_EQ(read(uas2hb, {0x00, 0x01}), is<unsigned char>(0, -1));
}

TEST(byteswap, ai2hs_wraps_65537_to_1) {
  EXPECT_EQ(read(ai2hs, {0x01, 0x00, 0x01, 0x00}), is<short>(1, -1));
}

TEST(byteswap, hs2ai_cannot_fail) {
  EXPECT_EQ(write<short>(hs2ai, -32768), is(Bytes{0x00, 0x80, 0xFF, 0xFF}, 0));
  EXPECT_EQ(write<short>(hs2ai, 32767), is(Bytes{0xFF, 0x7F, 0x00, 0x00}, 0));
}

TEST(byteswap, uhl2ai_saturates_what_ual2hi_wraps) {
  EXPECT_EQ(write(uhl2ai, 0x100000000ul), is(Bytes{0xFF, 0xFF, 0xFF, 0xFF}, -1));
  EXPECT_EQ(read(ual2hi, {0, 0, 0, 0, 1, 0, 0, 0}), is(0u, -1));
}

TEST(byteswap, m_is_big_endian) {
  EXPECT_EQ(read(ms2hi, {0xFF, 0xFE}), is(-2, 0));
  EXPECT_EQ(write(hi2ms, 258), is(Bytes{0x01, 0x02}, 0));
  EXPECT_EQ(read(mi2hl, {0x80, 0, 0, 1}), is(-2147483647L, 0));
  EXPECT_EQ(read(umi2hl, {0x80, 0, 0, 1}), is(0x80000001ul, 0));
  EXPECT_EQ(write(hl2ml, 0x0102030405060708L), is(Bytes{1, 2, 3, 4, 5, 6, 7, 8}, 0));
}

TEST(byteswap, one_bad_element_among_many_leaves_the_others_alone) {
  const int host[5] = {1, -2, 70000, 3, -32768};
  char bytes[10];
  char *cursor = bytes;
  EXPECT_EQ(hi2ms(host, &cursor, 5), -1);
  EXPECT_EQ(cursor, bytes + 10);
  const Bytes expected = {0, 1, 0xFF, 0xFE, 0x7F, 0xFF, 0, 3, 0x80, 0};
  EXPECT_EQ(Bytes(bytes, bytes + 10), expected);

  Bytes external = {0, 1, 1, 0, 0, 2};
  cursor = reinterpret_cast<char *>(external.data());
  signed char narrow[3];
  EXPECT_EQ(ms2hb(&cursor, narrow, 3), -1);
  EXPECT_EQ(narrow[0], 1);
  EXPECT_EQ(narrow[1], 0);
  EXPECT_EQ(narrow[2], 2);
}

TEST(byteswap, a_second_call_starts_with_a_clean_result) {
  EXPECT_EQ(read(as2hb, {0x80, 0x01}).second, -1);
  EXPECT_EQ(read(as2hb, {0x01, 0x00}).second, 0);
}

TEST(byteswap, the_cursor_goes_on_from_call_to_call) {
  Bytes record = {0, 5, 0xFF, 0xFF, 0xFF, 0xFE, 0x3F, 0x80, 0, 0, 9};
  char *cursor = reinterpret_cast<char *>(record.data());
  short first;
  int second;
  float third;
  signed char fourth;
  EXPECT_EQ(ms2hs(&cursor, &first, 1), 0);
  EXPECT_EQ(mi2hi(&cursor, &second, 1), 0);
  EXPECT_EQ(mf2hf(&cursor, &third, 1), 0);
  EXPECT_EQ(mb2hb(&cursor, &fourth, 1), 0);
  EXPECT_EQ(first, 5);
  EXPECT_EQ(second, -2);
  EXPECT_EQ(third, 1.0f);
  EXPECT_EQ(fourth, 9);
  EXPECT_EQ(cursor, reinterpret_cast<char *>(record.data() + record.size()));
}

TEST(byteswap, each_layout_has_its_own_double) {
  EXPECT_EQ(read(ad2hd, {0, 0, 0xF0, 0x3F, 0, 0, 0, 0}), is(1.0, 0));
  EXPECT_EQ(read(md2hd, {0x3F, 0xF0, 0, 0, 0, 0, 0, 0}), is(1.0, 0));
  EXPECT_EQ(read(vd2hd, {0, 0, 0, 0, 0, 0, 0xF0, 0x3F}), is(1.0, 0));
  EXPECT_EQ(write(hd2ad, 1.0), is(Bytes{0, 0, 0xF0, 0x3F, 0, 0, 0, 0}, 0));
  EXPECT_EQ(write(hd2md, 1.0), is(Bytes{0x3F, 0xF0, 0, 0, 0, 0, 0, 0}, 0));
  EXPECT_EQ(write(hd2vd, 1.0), is(Bytes{0, 0, 0, 0, 0, 0, 0xF0, 0x3F}, 0));
  // Both halves filled: bytes 4 to 7 of the value come first, then 0 to 3.
  Bytes halves = {5, 6, 7, 8, 1, 2, 3, 4};
  EXPECT_EQ(bits(read(ad2hd, halves).first), 0x0807060504030201u);
}

// ---- Floating values of the same type, and across

TEST(byteswap, mf2hf_fails_on_the_nan_that_af2hf_copies) {
  auto [value, result] = read(mf2hf, {0x7F, 0xC0, 0x00, 0x00});
  EXPECT_EQ(bits(value), 0x7FC00000u);
  EXPECT_EQ(result, -1);
  std::tie(value, result) = read(af2hf, {0x00, 0x00, 0xC0, 0x7F});
  EXPECT_EQ(bits(value), 0x7FC00000u);
  EXPECT_EQ(result, 0);
}

TEST(byteswap, reordering_keeps_infinities_zeros_and_subnormals) {
  EXPECT_EQ(bits(read(mf2hf, {0xFF, 0x80, 0, 0}).first), 0xFF800000u);
  EXPECT_EQ(read(mf2hf, {0xFF, 0x80, 0, 0}).second, 0);
  EXPECT_EQ(bits(read(mf2hf, {0x80, 0, 0, 0}).first), 0x80000000u);
  EXPECT_EQ(read(mf2hf, {0x80, 0, 0, 0}).second, 0);
  EXPECT_EQ(bits(read(md2hd, {0, 0, 0, 0, 0, 0, 0, 1}).first), 1u);
  EXPECT_EQ(read(md2hd, {0, 0, 0, 0, 0, 0, 0, 1}).second, 0);
}

TEST(byteswap, float_to_double_fails_on_a_nan_alone) {
  EXPECT_EQ(read(mf2hd, {0x3F, 0x80, 0, 0}), is(1.0, 0));
  EXPECT_EQ(read(af2hd, {1, 0, 0, 0}), is(0x1p-149, 0));
  EXPECT_EQ(read(mf2hd, {0x7F, 0x80, 0, 0}), is<double>(kInfinity, 0));
  const auto [value, result] = read(mf2hd, {0x7F, 0xC0, 0, 0});
  EXPECT_TRUE(std::isnan(value));
  EXPECT_EQ(result, -1);
  EXPECT_EQ(write(hf2md, kNan).second, -1);
}

TEST(byteswap, md2hf_rounds_and_reports) {
  EXPECT_EQ(read(md2hf, {0x48, 0x07, 0x82, 0x87, 0xF4, 0x9C, 0x4A, 0x1D}),
            is(kInfinity, -1));  // 1e39
  EXPECT_EQ(read(md2hf, {0x3F, 0xB9, 0x99, 0x99, 0x99, 0x99, 0x99, 0x9A}), is(0.1f, -1));
  EXPECT_EQ(read(md2hf, {0x3F, 0xE0, 0, 0, 0, 0, 0, 0}), is(0.5f, 0));
}

TEST(byteswap, double_to_float_rounds_ties_to_even_and_into_subnormals) {
  EXPECT_EQ(write(hd2mf, 0x1.000001p0), is(Bytes{0x3F, 0x80, 0, 0}, -1));
  EXPECT_EQ(write(hd2mf, 0x1.000003p0), is(Bytes{0x3F, 0x80, 0, 2}, -1));
  EXPECT_EQ(write(hd2mf, 0x1p-149), is(Bytes{0, 0, 0, 1}, 0));
  EXPECT_EQ(write(hd2mf, 0x1p-150), is(Bytes{0, 0, 0, 0}, -1));
  EXPECT_EQ(write(hd2mf, 0x1.8p-150), is(Bytes{0, 0, 0, 1}, -1));
  EXPECT_EQ(write(hd2mf, -0x1p-151), is(Bytes{0x80, 0, 0, 0}, -1));
  EXPECT_EQ(write(hd2mf, 0x1.fffffep127), is(Bytes{0x7F, 0x7F, 0xFF, 0xFF}, 0));
  EXPECT_EQ(write(hd2mf, 0x1.fffffefffffffp127), is(Bytes{0x7F, 0x7F, 0xFF, 0xFF}, -1));
  EXPECT_EQ(write(hd2mf, 0x1.ffffffp127), is(Bytes{0x7F, 0x80, 0, 0}, -1));
  EXPECT_EQ(write(hd2mf, kNanDouble).second, -1);
}

// ---- Integers to floating values

TEST(byteswap, ai2hf_fails_where_a_float_cannot_hold_the_integer) {
  EXPECT_EQ(read(ai2hf, {0, 0, 0, 1}), is(16777216.0f, 0));
  EXPECT_EQ(read(ai2hf, {1, 0, 0, 1}), is(16777216.0f, -1));
  EXPECT_EQ(read(ai2hf, {0xFF, 0xFF, 0xFF, 0x7F}), is(2147483648.0f, -1));
  EXPECT_EQ(read(ai2hf, {0, 0, 0, 0x80}), is(-2147483648.0f, 0));
}

TEST(byteswap, uai2hf_reads_as_unsigned_and_reports) {
  EXPECT_EQ(read(uai2hf, {0xFF, 0xFF, 0xFF, 0xFF}), is(4294967296.0f, -1));
  EXPECT_EQ(read(uai2hf, {0, 0, 0, 0x80}), is(2147483648.0f, 0));
  EXPECT_EQ(read(uai2hd, {0xFF, 0xFF, 0xFF, 0xFF}), is(4294967295.0, 0));
}

TEST(byteswap, al2hd_fails_at_2_to_the_53rd_plus_1) {
  EXPECT_EQ(read(al2hd, {1, 0, 0, 0, 0, 0, 0x20, 0}), is(9007199254740992.0, -1));
  EXPECT_EQ(read(al2hd, {0, 0, 0, 0, 0, 0, 0x20, 0}), is(9007199254740992.0, 0));
  EXPECT_EQ(read(al2hd, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}),
            is(9223372036854775808.0, -1));
}

TEST(byteswap, unsigned_longs_round_once_to_even) {
  // 2^63 + 2^39: halfway between two floats; one more goes up.
  EXPECT_EQ(read(ual2hf, {0, 0, 0, 0, 0x80, 0, 0, 0x80}), is(0x1p63f, -1));
  EXPECT_EQ(read(ual2hf, {1, 0, 0, 0, 0x80, 0, 0, 0x80}), is(0x1.000002p63f, -1));
  EXPECT_EQ(read(ual2hd, {0, 4, 0, 0, 0, 0, 0, 0x80}), is(0x1p63, -1));
  EXPECT_EQ(read(ual2hd, {1, 4, 0, 0, 0, 0, 0, 0x80}), is(0x1.0000000000001p63, -1));
  EXPECT_EQ(read(ual2hd, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}), is(0x1p64, -1));
}

TEST(byteswap, hi2mf_with_16777217_writes_16777216_and_fails) {
  EXPECT_EQ(write(hi2mf, 16777217), is(Bytes{0x4B, 0x80, 0, 0}, -1));
}

TEST(byteswap, unsigned_writers_of_floating_values_never_fail) {
  EXPECT_EQ(write(uhi2af, 0xFFFFFFFFu), is(Bytes{0, 0, 0x80, 0x4F}, 0));
  EXPECT_EQ(write(uhl2md, ~0ul), is(Bytes{0x43, 0xF0, 0, 0, 0, 0, 0, 0}, 0));
  EXPECT_EQ(write(uhl2mf, ~0ul), is(Bytes{0x5F, 0x80, 0, 0}, 0));
}

// ---- Floating values to integers, reading

TEST(byteswap, af2hs_drops_the_fraction_and_fails) {
  EXPECT_EQ(read(af2hs, {0, 0, 0x20, 0x40}), is<short>(2, -1));   // 2.5
  EXPECT_EQ(read(af2hs, {0, 0, 0x20, 0xC0}), is<short>(-2, -1));  // -2.5
  EXPECT_EQ(read(af2hs, {0, 0, 0, 0x40}), is<short>(2, 0));
}

TEST(byteswap, a_reader_leaves_the_narrowed_truncation) {
  EXPECT_EQ(read(mf2hb, {0x43, 0x96, 0, 0}), is<signed char>(44, -1));                    // 300.0
  EXPECT_EQ(read(md2hi, {0x41, 0xE6, 0x5A, 0x0B, 0xC0, 0, 0, 0}), is(kSmallestInt, -1));  // 3e9
  EXPECT_EQ(read(umf2hb, {0xBF, 0x80, 0, 0}), is<unsigned char>(255, -1));                // -1.0
}

TEST(byteswap, a_nan_that_is_read_leaves_the_smallest_integer_narrowed) {
  const Bytes nan = {0x7F, 0xC0, 0, 0};
  EXPECT_EQ(read(mf2hb, nan), is<signed char>(0, -1));
  EXPECT_EQ(read(mf2hs, nan), is<short>(0, -1));
  EXPECT_EQ(read(mf2hi, nan), is(kSmallestInt, -1));
  EXPECT_EQ(read(mf2hl, nan), is(kSmallestLong, -1));
}

TEST(byteswap, a_nan_that_is_read_as_unsigned_leaves_0) {
  const Bytes nan = {0x7F, 0xC0, 0, 0}, nan_double = {0x7F, 0xF8, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(read(umf2hb, nan), is<unsigned char>(0, -1));
  EXPECT_EQ(read(umf2hs, nan), is<unsigned short>(0, -1));
  EXPECT_EQ(read(umf2hi, nan), is(0u, -1));
  EXPECT_EQ(read(umf2hl, nan), is(0ul, -1));
  EXPECT_EQ(read(umd2hi, nan_double), is(0u, -1));
  EXPECT_EQ(read(umd2hl, nan_double), is(0ul, -1));
}

TEST(byteswap, uaf2hi_reading_2_to_the_32nd_leaves_0_and_fails) {
  EXPECT_EQ(read(uaf2hi, {0, 0, 0x80, 0x4F}), is(0u, -1));
}

TEST(byteswap, readers_know_the_ends_of_the_long_range) {
  EXPECT_EQ(read(md2hl, {0xC3, 0xE0, 0, 0, 0, 0, 0, 0}), is(kSmallestLong, 0));   // -2^63
  EXPECT_EQ(read(md2hl, {0x43, 0xE0, 0, 0, 0, 0, 0, 0}), is(kSmallestLong, -1));  // 2^63
  EXPECT_EQ(read(umd2hl, {0x43, 0xE0, 0, 0, 0, 0, 0, 0}), is(1ul << 63, 0));
  EXPECT_EQ(read(umd2hl, {0x43, 0xEF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}),
            is(0xFFFFFFFFFFFFF800ul, 0));
  EXPECT_EQ(read(umd2hl, {0x43, 0xF0, 0, 0, 0, 0, 0, 0}), is(0ul, -1));        // 2^64
  EXPECT_EQ(read(umd2hl, {0x7F, 0xF0, 0, 0, 0, 0, 0, 0}), is(0ul, -1));        // infinity
  EXPECT_EQ(read(umd2hl, {0xBF, 0xF0, 0, 0, 0, 0, 0, 0}), is(~0ul, -1));       // -1.0
  EXPECT_EQ(read(umd2hl, {0xFF, 0xF0, 0, 0, 0, 0, 0, 0}), is(1ul << 63, -1));  // -infinity
}

TEST(byteswap, negative_zero_is_read_as_an_exact_0) {
  EXPECT_EQ(read(mf2hi, {0x80, 0, 0, 0}), is(0, 0));
  EXPECT_EQ(read(umf2hl, {0x80, 0, 0, 0}), is(0ul, 0));
}

// ---- Floating values to integers, writing

TEST(byteswap, hf2ab_saturates_above_127_and_drops_fractions_below) {
  EXPECT_EQ(write(hf2ab, 127.5f), is(Bytes{0x7F}, -1));
  EXPECT_EQ(write(hf2ab, 126.9f), is(Bytes{0x7E}, 0));
  EXPECT_EQ(write(hf2ab, 127.0f), is(Bytes{0x7F}, 0));
}

TEST(byteswap, hd2ab_saturates_below_minus_128_and_drops_fractions_above) {
  EXPECT_EQ(write(hd2ab, -0.9), is(Bytes{0x00}, 0));
  EXPECT_EQ(write(hd2ab, -128.5), is(Bytes{0x80}, -1));
  EXPECT_EQ(write(hd2ab, -128.0), is(Bytes{0x80}, 0));
}

TEST(byteswap, hd2ai_saturates_at_the_limits_of_an_int) {
  EXPECT_EQ(write(hd2mi, 2147483647.0), is(Bytes{0x7F, 0xFF, 0xFF, 0xFF}, 0));
  EXPECT_EQ(write(hd2mi, 2147483647.5), is(Bytes{0x7F, 0xFF, 0xFF, 0xFF}, -1));
  EXPECT_EQ(write(hd2mi, 2147483646.5), is(Bytes{0x7F, 0xFF, 0xFF, 0xFE}, 0));
  EXPECT_EQ(write(hd2mi, -2147483648.0), is(Bytes{0x80, 0, 0, 0}, 0));
  EXPECT_EQ(write(hd2mi, -2147483648.5), is(Bytes{0x80, 0, 0, 0}, -1));
}

TEST(byteswap, a_nan_written_narrower_passes) {
  EXPECT_EQ(write(hf2ab, kNan), is(Bytes{0}, 0));
  EXPECT_EQ(write(hd2as, kNanDouble), is(Bytes{0, 0}, 0));
  EXPECT_EQ(write(hd2ai, kNanDouble), is(Bytes{0, 0, 0, 0x80}, 0));
}

TEST(byteswap, a_nan_written_as_wide_fails) {
  EXPECT_EQ(write(hf2ai, kNan), is(Bytes{0, 0, 0, 0x80}, -1));
  EXPECT_EQ(write(hf2al, kNan), is(Bytes{0, 0, 0, 0, 0, 0, 0, 0x80}, -1));
  EXPECT_EQ(write(hd2al, kNanDouble), is(Bytes{0, 0, 0, 0, 0, 0, 0, 0x80}, -1));
}

TEST(byteswap, hf2ai_does_not_saturate) {
  EXPECT_EQ(write(hf2ai, 1.5f), is(Bytes{1, 0, 0, 0}, -1));
  EXPECT_EQ(write(hf2ai, 2147483648.0f), is(Bytes{0, 0, 0, 0x80}, -1));
  EXPECT_EQ(write(hf2ai, -3e9f), is(Bytes{0, 0, 0, 0x80}, -1));
  EXPECT_EQ(write(hf2ai, -2147483648.0f), is(Bytes{0, 0, 0, 0x80}, 0));
  EXPECT_EQ(write(hf2al, 3e9f), is(Bytes{0x00, 0x5E, 0xD0, 0xB2, 0, 0, 0, 0}, 0));
}

TEST(byteswap, uhd2as_knows_its_limits) {
  EXPECT_EQ(write(uhd2as, -0.5), is(Bytes{0, 0}, -1));
  EXPECT_EQ(write(uhd2as, -0.0), is(Bytes{0, 0}, 0));
  EXPECT_EQ(write(uhd2as, 65534.9), is(Bytes{0xFE, 0xFF}, 0));
  EXPECT_EQ(write(uhd2as, 65535.0), is(Bytes{0xFF, 0xFF}, 0));
  EXPECT_EQ(write(uhd2as, 65535.5), is(Bytes{0xFF, 0xFF}, -1));
}

TEST(byteswap, unsigned_writers_leave_0_at_the_rounded_bound) {
  EXPECT_EQ(write(uhf2ai, 4294967296.0f), is(Bytes{0, 0, 0, 0}, 0));
  EXPECT_EQ(write(uhf2ai, 0x1.000002p32f), is(Bytes{0xFF, 0xFF, 0xFF, 0xFF}, -1));
  EXPECT_EQ(write(uhf2al, 0x1p64f), is(Bytes(8, 0), 0));
  EXPECT_EQ(write(uhf2al, 0x1.000002p64f), is(Bytes(8, 0xFF), -1));
  EXPECT_EQ(write(uhd2al, 0x1p64), is(Bytes(8, 0), 0));
  EXPECT_EQ(write(uhd2al, 0x1.0000000000001p64), is(Bytes(8, 0xFF), -1));
  // From a double the bound of an int is exact: what is above it saturates.
  EXPECT_EQ(write(uhd2ai, 4294967295.0), is(Bytes(4, 0xFF), 0));
  EXPECT_EQ(write(uhd2ai, 4294967295.5), is(Bytes(4, 0xFF), -1));
  EXPECT_EQ(write(uhd2ai, 4294967296.0), is(Bytes(4, 0xFF), -1));
}

TEST(byteswap, unsigned_writers_reach_above_2_to_the_63rd) {
  EXPECT_EQ(write(uhd2ml, 0x1p63), is(Bytes{0x80, 0, 0, 0, 0, 0, 0, 0}, 0));
  EXPECT_EQ(write(uhd2ml, 0x1.fffffffffffffp63),
            is(Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xF8, 0}, 0));
  EXPECT_EQ(write(uhf2mi, 4294967040.0f), is(Bytes{0xFF, 0xFF, 0xFF, 0}, 0));
}

TEST(byteswap, a_nan_written_as_unsigned_leaves_0_and_passes) {
  EXPECT_EQ(write(uhf2ab, kNan), is(Bytes{0}, 0));
  EXPECT_EQ(write(uhf2as, kNan), is(Bytes(2, 0), 0));
  EXPECT_EQ(write(uhd2ai, kNanDouble), is(Bytes(4, 0), 0));
  EXPECT_EQ(write(uhd2al, kNanDouble), is(Bytes(8, 0), 0));
}
