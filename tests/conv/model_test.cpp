// The model itself, against values written out.

#include "tests/conv/model.h"

#include <gtest/gtest.h>

#include "tests/conv/one.h"

using model::kDouble;
using model::kFloat;
using model::Member;
using model::Real;
using one::bits;

namespace {

model::Converted convert(const char *name, uint64_t bits) {
  return model::convert(*model::parse(name), bits);
}

Real half_steps(model::Wide twice) {
  Real value = model::real_of(twice);
  value.power = -1;
  return value;
}

}  // namespace

TEST(model, reads_names) {
  const Member read = *model::parse("ual2hd"), written = *model::parse("uhl2ab");
  EXPECT_TRUE(read.reads && read.is_unsigned);
  EXPECT_EQ(read.layout, 'a');
  EXPECT_EQ(read.external, 'l');
  EXPECT_EQ(read.host, 'd');
  EXPECT_FALSE(written.reads);
  EXPECT_EQ(written.layout, 'a');
  EXPECT_EQ(written.external, 'b');
  EXPECT_EQ(written.host, 'l');
  for (const char *none : {"", "u", "uaf2hd", "uhd2md", "xs2hi", "ms2ai", "hs2hi", "ms2hx", "mt2hl",
                           "at2hi", "umt2hi", "hf2mt", "hi2at", "ms2hi2", "Ms2hi"})
    EXPECT_FALSE(model::parse(none)) << none;
}

TEST(model, knows_plain_copies) {
  for (const char *copy :
       {"ab2hb", "mb2hb", "uhb2vb", "as2hs", "uhl2al", "af2hf", "hf2vf", "vd2hd"})
    EXPECT_TRUE(model::parse(copy)->plain_copy) << copy;
  for (const char *other : {"ms2hs", "ad2hd", "hd2ad", "mf2hf", "as2hi", "hb2as"})
    EXPECT_FALSE(model::parse(other)->plain_copy) << other;
}

TEST(model, rounds_to_nearest_and_ties_to_even) {
  EXPECT_EQ(model::rounded(kFloat, model::real_of(0)), bits(0.0f));
  EXPECT_EQ(model::rounded(kFloat, model::real_of(-1)), bits(-1.0f));
  EXPECT_EQ(model::rounded(kFloat, model::real_of(16777217)), bits(0x1p24f));
  EXPECT_EQ(model::rounded(kFloat, model::real_of(16777219)), bits(0x1.000004p24f));
  EXPECT_EQ(model::rounded(kFloat, model::real_of(0xFFFFFFFF)), bits(0x1p32f));
  EXPECT_EQ(model::rounded(kDouble, model::real_of(9007199254740993)), bits(0x1p53));
  EXPECT_EQ(model::rounded(kDouble, half_steps(3)), bits(1.5));
  EXPECT_EQ(model::rounded(kFloat, model::unpack(kDouble, bits(0x1p-150))), bits(0.0f));
  EXPECT_EQ(model::rounded(kFloat, model::unpack(kDouble, bits(0x1.8p-150))), 1u);
  EXPECT_EQ(model::rounded(kFloat, model::unpack(kDouble, bits(0x1.fffffep-127))), 0x00800000u);
  EXPECT_EQ(model::rounded(kFloat, model::unpack(kDouble, bits(0x1.ffffffp127))), 0x7F800000u);
  EXPECT_EQ(model::rounded(kFloat, model::unpack(kDouble, bits(0x1.fffffefp127))), 0x7F7FFFFFu);
}

TEST(model, packs_what_it_unpacks) {
  for (const uint64_t pattern : {0x0ul, 0x1ul, 0x7FFFFFul, 0x800000ul, 0x3F800000ul, 0x7F7FFFFFul,
                                 0x7F800000ul, 0x80000000ul, 0x80000001ul, 0xFF800000ul})
    EXPECT_EQ(model::rounded(kFloat, model::unpack(kFloat, pattern)), pattern);
  for (const uint64_t pattern : {0x1ul, 0xFFFFFFFFFFFFFul, 0x10000000000000ul, 0x7FEFFFFFFFFFFFFFul,
                                 0x7FF0000000000000ul, 0x8000000000000000ul})
    EXPECT_EQ(model::rounded(kDouble, model::unpack(kDouble, pattern)), pattern);
}

TEST(model, compares_exactly) {
  const Real nan = model::unpack(kFloat, 0x7FC00000), zero = model::real_of(0);
  const Real minus_zero = model::unpack(kFloat, 0x80000000);
  const Real infinity = model::unpack(kFloat, 0x7F800000);
  EXPECT_TRUE(model::equal(zero, minus_zero));
  EXPECT_FALSE(model::less(minus_zero, zero));
  EXPECT_FALSE(model::equal(nan, nan));
  EXPECT_FALSE(model::less(nan, zero));
  EXPECT_FALSE(model::less(zero, nan));
  EXPECT_TRUE(model::less(model::real_of(127), half_steps(255)));
  EXPECT_TRUE(model::less(half_steps(-257), model::real_of(-128)));
  EXPECT_TRUE(model::less(model::unpack(kDouble, 1), infinity));
  EXPECT_FALSE(model::less(infinity, infinity));
  EXPECT_TRUE(model::equal(infinity, infinity));
}

TEST(model, truncates_toward_zero) {
  EXPECT_EQ(static_cast<long>(*model::truncated(half_steps(-3))), -1);
  EXPECT_EQ(static_cast<long>(*model::truncated(half_steps(1))), 0);
  EXPECT_EQ(static_cast<long>(*model::truncated(model::unpack(kDouble, bits(0x1p62)))), 1L << 62);
  EXPECT_EQ(static_cast<long>(*model::truncated(model::unpack(kDouble, bits(0x1p-1074)))), 0);
  EXPECT_FALSE(model::truncated(model::unpack(kFloat, 0x7FC00000)));
  EXPECT_FALSE(model::truncated(model::unpack(kFloat, 0xFF800000)));
}

TEST(model, follows_the_rules_at_their_edges) {
  EXPECT_EQ(convert("uhf2ai", bits(0x1p32f)).bits, 0u);
  EXPECT_TRUE(convert("uhf2ai", bits(0x1p32f)).exact);
  EXPECT_EQ(convert("uaf2hl", bits(0x1p63f)).bits, 1ul << 63);
  EXPECT_TRUE(convert("uaf2hl", bits(0x1p63f)).exact);
  EXPECT_EQ(convert("af2hb", bits(300.0f)).bits, 44u);
  EXPECT_EQ(convert("md2hi", bits(3e9)).bits, 0x80000000u);
  EXPECT_EQ(convert("hi2vt", 8388608).bits, 0x7FFFFFu);
  EXPECT_FALSE(convert("hi2vt", 8388608).exact);
  EXPECT_EQ(convert("mt2hi", 0x800000).bits, 0xFF800000u);
  EXPECT_EQ(convert("vt2hf", 0xFFFFFE).bits, bits(-2.0f));
}

TEST(model, orders_bytes) {
  const uint8_t bytes[] = {1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(model::load('m', 'l', bytes), 0x0102030405060708u);
  EXPECT_EQ(model::load('v', 'd', bytes), 0x0807060504030201u);
  EXPECT_EQ(model::load('a', 'd', bytes), 0x0403020108070605u);
  EXPECT_EQ(model::load('a', 'l', bytes), 0x0807060504030201u);
  EXPECT_EQ(model::load('m', 't', bytes), 0x010203u);
  for (const char layout : {'a', 'm', 'v'})
    for (const char type : {'b', 's', 't', 'i', 'l', 'f', 'd'}) {
      uint8_t back[8] = {};
      model::store(layout, type, model::load(layout, type, bytes), back);
      EXPECT_EQ(std::memcmp(bytes, back, model::width(type)), 0) << layout << type;
    }
}
