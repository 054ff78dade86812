// Three-byte integers, values written out.

#include <gtest/gtest.h>

#include <array>

#include "include/plintor.h"
#include "tests/conv/one.h"

using one::Bytes;
using one::is;
using one::read;
using one::write;

TEST(three, mt2hi_extends_the_sign) {
  EXPECT_EQ(read(mt2hi, {0x80, 0x00, 0x00}), is(-8388608, 0));
  EXPECT_EQ(read(mt2hi, {0x7F, 0xFF, 0xFF}), is(8388607, 0));
  EXPECT_EQ(read(mt2hi, {0xFF, 0xFF, 0xFE}), is(-2, 0));
  EXPECT_EQ(read(mt2hi, {0x01, 0x02, 0x03}), is(0x010203, 0));
}

TEST(three, vt2hi_takes_the_least_significant_byte_first) {
  EXPECT_EQ(read(vt2hi, {0xFE, 0xFF, 0xFF}), is(-2, 0));
  EXPECT_EQ(read(vt2hi, {0x01, 0x02, 0x03}), is(0x030201, 0));
}

TEST(three, readers_of_floats_are_exact) {
  EXPECT_EQ(read(vt2hf, {0xFE, 0xFF, 0xFF}), is(-2.0f, 0));
  EXPECT_EQ(read(mt2hf, {0x80, 0x00, 0x00}), is(-8388608.0f, 0));
  EXPECT_EQ(read(mt2hf, {0x7F, 0xFF, 0xFF}), is(8388607.0f, 0));
  EXPECT_EQ(one::bits(read(mt2hf, {0, 0, 0}).first), 0u);
}

TEST(three, hi2mt_saturates_and_reports) {
  EXPECT_EQ(write(hi2mt, 8388608), is(Bytes{0x7F, 0xFF, 0xFF}, -1));
  EXPECT_EQ(write(hi2mt, -8388609), is(Bytes{0x80, 0x00, 0x00}, -1));
  EXPECT_EQ(write(hi2mt, -1), is(Bytes{0xFF, 0xFF, 0xFF}, 0));
  EXPECT_EQ(write(hi2mt, 8388607), is(Bytes{0x7F, 0xFF, 0xFF}, 0));
  EXPECT_EQ(write(hi2mt, -8388608), is(Bytes{0x80, 0x00, 0x00}, 0));
}

TEST(three, hi2vt_saturates_and_reports) {
  EXPECT_EQ(write(hi2vt, 8388608), is(Bytes{0xFF, 0xFF, 0x7F}, -1));
  EXPECT_EQ(write(hi2vt, -8388609), is(Bytes{0x00, 0x00, 0x80}, -1));
  EXPECT_EQ(write(hi2vt, 0x010203), is(Bytes{0x03, 0x02, 0x01}, 0));
}

TEST(three, one_saturated_element_leaves_the_others_alone) {
  const int host[3] = {1, 9000000, -1};
  char bytes[9];
  char *cursor = bytes;
  EXPECT_EQ(hi2mt(host, &cursor, 3), -1);
  EXPECT_EQ(cursor, bytes + 9);
  EXPECT_EQ(Bytes(bytes, bytes + 9), (Bytes{0, 0, 1, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST(three, no_count_converts_nothing) {
  for (const int n : {0, -1, -1000}) {
    char bytes[4] = {1, 2, 3, 4};
    char *cursor = bytes;
    int host = 7;
    float real = 7;
    EXPECT_EQ(vt2hi(&cursor, &host, n), 0);
    EXPECT_EQ(mt2hi(&cursor, &host, n), 0);
    EXPECT_EQ(vt2hf(&cursor, &real, n), 0);
    EXPECT_EQ(mt2hf(&cursor, &real, n), 0);
    host = 9000000;  // would not fit
    EXPECT_EQ(hi2vt(&host, &cursor, n), 0);
    EXPECT_EQ(hi2mt(&host, &cursor, n), 0);
    N32H4(&host, bytes, n);
    H42N3(bytes, &host, n);
    EXPECT_EQ(cursor, bytes);
    EXPECT_EQ(host, 9000000);
    EXPECT_EQ(real, 7);
    EXPECT_EQ(Bytes(bytes, bytes + 4), (Bytes{1, 2, 3, 4}));
  }
}

TEST(three, every_value_reads_back_as_it_was_written) {
  for (int value = -8388608; value <= 8388607; ++value) {
    char bytes[3];
    char *cursor = bytes;
    int back = 0;
    ASSERT_EQ(hi2mt(&value, &cursor, 1), 0);
    cursor = bytes;
    ASSERT_EQ(mt2hi(&cursor, &back, 1), 0);
    ASSERT_EQ(back, value);
  }
}

// ---- The network shorthands

TEST(three, H42N3_wraps_where_hi2mt_saturates) {
  const int host[3] = {16777217, 8388608, -2};
  Bytes net(9);
  H42N3(net.data(), host, 3);
  EXPECT_EQ(net, (Bytes{0, 0, 1, 0x80, 0, 0, 0xFF, 0xFF, 0xFE}));
}

TEST(three, N32H4_reads_8388608_back_as_minus_8388608) {
  const int host = 8388608;
  Bytes net(3);
  H42N3(net.data(), &host, 1);
  EXPECT_EQ(net, (Bytes{0x80, 0, 0}));
  int back = 0;
  N32H4(&back, net.data(), 1);
  EXPECT_EQ(back, -8388608);
}

TEST(three, N32H4_reads_packed_elements) {
  const Bytes net = {0, 0, 1, 0xFF, 0xFF, 0xFE, 0x7F, 0xFF, 0xFF};
  std::array<int, 3> host{};
  N32H4(host.data(), net.data(), 3);
  EXPECT_EQ(host, (std::array<int, 3>{1, -2, 8388607}));
}
