// The network-order shorthands, the single values and the swaps. This program defines the members
// that they are to call, so it sees each call and its count.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "include/plintor.h"
#include "tests/conv/members.h"
#include "tests/conv/one.h"
#include "tests/fakes/memory.h"

using one::bits;
using one::Bytes;

namespace {

std::vector<std::string> calls;  // "ms2hi 3": name and count

template <class Function>
Function *next(const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

std::vector<std::string> taken() { return std::exchange(calls, {}); }

using Calls = std::vector<std::string>;

}  // namespace

#define SEEN_READER(NAME, H)                                     \
  extern "C" int NAME(char **from, H *to, int n) {               \
    calls.push_back(std::string(#NAME " ") + std::to_string(n)); \
    return next<decltype(NAME)>(#NAME)(from, to, n);             \
  }
#define SEEN_WRITER(NAME, H)                                     \
  extern "C" int NAME(const H *from, char **to, int n) {         \
    calls.push_back(std::string(#NAME " ") + std::to_string(n)); \
    return next<decltype(NAME)>(#NAME)(from, to, n);             \
  }

// clang-format off
SEEN_WRITER(hs2ms, short)            SEEN_READER(ms2hs, short)
SEEN_WRITER(hi2mi, int)              SEEN_READER(mi2hi, int)
SEEN_WRITER(hl2ml, long)             SEEN_READER(ml2hl, long)
SEEN_WRITER(hd2md, double)           SEEN_READER(md2hd, double)
SEEN_WRITER(hf2mf, float)            SEEN_READER(mf2hf, float)
SEEN_WRITER(uhs2ms, unsigned short)  SEEN_READER(ums2hs, unsigned short)
SEEN_WRITER(uhi2mi, unsigned int)    SEEN_READER(umi2hi, unsigned int)
SEEN_WRITER(uhl2ml, unsigned long)   SEEN_READER(uml2hl, unsigned long)
SEEN_WRITER(hi2mb, int)              SEEN_READER(mb2hi, int)
SEEN_WRITER(hi2ms, int)              SEEN_READER(ms2hi, int)
SEEN_WRITER(hi2mf, int)              SEEN_READER(mf2hi, int)
// clang-format on

extern "C" int H2N4(void *net, const int *host, int n) {
  calls.push_back("H2N4 " + std::to_string(n));
  return next<decltype(H2N4)>("H2N4")(net, host, n);
}

extern "C" int N2H4(int *host, const void *net, int n) {
  calls.push_back("N2H4 " + std::to_string(n));
  return next<decltype(N2H4)>("N2H4")(host, net, n);
}

namespace {

// One shorthand: three elements to the network and their bytes, or back.
template <class T>
void expect_to_net(int (*shorthand)(void *, const T *, int), const std::string &member,
                   std::array<T, 3> host, const Bytes &expected, int result) {
  fakes::Guarded memory(4096);
  uint8_t *net = memory.last(expected.size());  // not aligned to T where the size is odd
  net[-1] = 0x5A;
  calls.clear();
  EXPECT_EQ(shorthand(net, host.data(), 3), result) << member;
  EXPECT_EQ(taken().back(), member + " 3");
  EXPECT_EQ(Bytes(net, net + expected.size()), expected) << member;
  EXPECT_EQ(net[-1], 0x5A) << member;
  for (const int n : {0, -1}) {
    EXPECT_EQ(shorthand(net, host.data(), n), 0) << member;
    EXPECT_EQ(taken().back(), member + " " + std::to_string(n));
    EXPECT_EQ(Bytes(net, net + expected.size()), expected) << member;
  }
}

template <class T>
void expect_to_host(int (*shorthand)(T *, const void *, int), const std::string &member,
                    const Bytes &bytes, std::array<T, 3> expected, int result) {
  fakes::Guarded memory(4096);
  uint8_t *net = memory.last(bytes.size());
  std::copy(bytes.begin(), bytes.end(), net);
  std::array<T, 4> host = {0, 0, 0, 42};
  calls.clear();
  EXPECT_EQ(shorthand(host.data(), net, 3), result) << member;
  EXPECT_EQ(taken().back(), member + " 3");
  EXPECT_EQ(std::memcmp(host.data(), expected.data(), sizeof expected), 0) << member;
  EXPECT_EQ(host[3], 42) << member;
  EXPECT_EQ(Bytes(net, net + bytes.size()), bytes) << member;
  for (const int n : {0, -1}) {
    EXPECT_EQ(shorthand(host.data(), net, n), 0) << member;
    EXPECT_EQ(taken().back(), member + " " + std::to_string(n));
    EXPECT_EQ(std::memcmp(host.data(), expected.data(), sizeof expected), 0) << member;
  }
}

const Bytes kShorts = {0x01, 0x02, 0xFF, 0xFE, 0x80, 0x00};
const Bytes kInts = {0x01, 0x02, 0x03, 0x04, 0xFF, 0xFF, 0xFF, 0xFE, 0x80, 0, 0, 0};
const Bytes kLongs = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0xFF, 0xFF, 0xFF, 0xFF,
                      0xFF, 0xFF, 0xFF, 0xFE, 0x7F, 0xF8, 0,    0,    0,    0,    0,    1};
const Bytes kDoubles = {0x3F, 0xF0, 0, 0, 0, 0, 0, 0, 0xC0, 0x04, 0, 0,
                        0,    0,    0, 0, 0, 0, 0, 0, 0,    0,    0, 1};
constexpr long kNanAsLong = 0x7FF8000000000001;

}  // namespace

// ---- Arrays

TEST(moldy_byteswap, names_of_a_row_are_one_function_and_rows_differ) {
  const std::vector<std::vector<const char *>> rows = {
      {"H2N2", "H2NS"},   {"H2N4", "H2NI"},   {"H2NL"},           {"H2N8", "H2ND"},
      {"UH2N2", "UH2NS"}, {"UH2N4", "UH2NI"}, {"UH2N8", "UH2NL"}, {"N2H2", "N2HS"},
      {"N2H4", "N2HI"},   {"N2HL"},           {"N2H8", "N2HD"},   {"UN2H2", "UN2HS"},
      {"UN2H4", "UN2HI"}, {"UN2H8", "UN2HL"}, {"HI2NC"},          {"HI2NS"},
      {"HI2NF"},          {"NC2HI"},          {"NS2HI"},          {"NF2HI"},
      {"NF2HD"},          {"HD2NF"},          {"N32H4"},          {"H42N3"},
      {"htondp"},         {"ntohdp"},         {"htonfp"},         {"ntohfp"},
      {"hton8p"},         {"ntoh8p"},         {"htond"},          {"ntohd"},
      {"htonf"},          {"ntohf"},          {"swap2"},          {"swap4"},
      {"swap8"}};
  std::vector<void *> seen;
  for (const auto &row : rows) {
    void *const first = members::exported(row[0]);
    ASSERT_NE(first, nullptr) << row[0];
    EXPECT_EQ(std::count(seen.begin(), seen.end(), first), 0) << row[0] << " is another's";
    seen.push_back(first);
    for (const char *name : row) EXPECT_EQ(members::exported(name), first) << name;
  }
}

TEST(moldy_byteswap, host_shorts_become_network_shorts) {
  expect_to_net<short>(H2N2, "hs2ms", {258, -2, -32768}, kShorts, 0);
  expect_to_net<short>(H2NS, "hs2ms", {258, -2, -32768}, kShorts, 0);
  expect_to_net<unsigned short>(UH2N2, "uhs2ms", {258, 65534, 32768}, kShorts, 0);
  expect_to_net<unsigned short>(UH2NS, "uhs2ms", {258, 65534, 32768}, kShorts, 0);
}

TEST(moldy_byteswap, host_ints_become_network_ints) {
  constexpr int kMinimum = std::numeric_limits<int>::min();
  expect_to_net<int>(H2N4, "hi2mi", {0x01020304, -2, kMinimum}, kInts, 0);
  expect_to_net<int>(H2NI, "hi2mi", {0x01020304, -2, kMinimum}, kInts, 0);
  expect_to_net<unsigned>(UH2N4, "uhi2mi", {0x01020304, 0xFFFFFFFE, 0x80000000}, kInts, 0);
  expect_to_net<unsigned>(UH2NI, "uhi2mi", {0x01020304, 0xFFFFFFFE, 0x80000000}, kInts, 0);
}

TEST(moldy_byteswap, host_longs_become_network_longs) {
  expect_to_net<long>(H2NL, "hl2ml", {0x0102030405060708, -2, kNanAsLong}, kLongs, 0);
  expect_to_net<unsigned long>(UH2N8, "uhl2ml", {0x0102030405060708, -2ul, kNanAsLong}, kLongs, 0);
  expect_to_net<unsigned long>(UH2NL, "uhl2ml", {0x0102030405060708, -2ul, kNanAsLong}, kLongs, 0);
}

TEST(moldy_byteswap, host_doubles_become_network_doubles) {
  expect_to_net<double>(H2N8, "hd2md", {1.0, -2.5, 0x1p-1074}, kDoubles, 0);
  expect_to_net<double>(H2ND, "hd2md", {1.0, -2.5, 0x1p-1074}, kDoubles, 0);
}

TEST(moldy_byteswap, network_shorts_become_host_shorts) {
  expect_to_host<short>(N2H2, "ms2hs", kShorts, {258, -2, -32768}, 0);
  expect_to_host<short>(N2HS, "ms2hs", kShorts, {258, -2, -32768}, 0);
  expect_to_host<unsigned short>(UN2H2, "ums2hs", kShorts, {258, 65534, 32768}, 0);
  expect_to_host<unsigned short>(UN2HS, "ums2hs", kShorts, {258, 65534, 32768}, 0);
}

TEST(moldy_byteswap, network_ints_become_host_ints) {
  constexpr int kMinimum = std::numeric_limits<int>::min();
  expect_to_host<int>(N2H4, "mi2hi", kInts, {0x01020304, -2, kMinimum}, 0);
  expect_to_host<int>(N2HI, "mi2hi", kInts, {0x01020304, -2, kMinimum}, 0);
  expect_to_host<unsigned>(UN2H4, "umi2hi", kInts, {0x01020304, 0xFFFFFFFE, 0x80000000}, 0);
  expect_to_host<unsigned>(UN2HI, "umi2hi", kInts, {0x01020304, 0xFFFFFFFE, 0x80000000}, 0);
}

TEST(moldy_byteswap, network_longs_become_host_longs) {
  expect_to_host<long>(N2HL, "ml2hl", kLongs, {0x0102030405060708, -2, kNanAsLong}, 0);
  expect_to_host<unsigned long>(UN2H8, "uml2hl", kLongs, {0x0102030405060708, -2ul, kNanAsLong}, 0);
  expect_to_host<unsigned long>(UN2HL, "uml2hl", kLongs, {0x0102030405060708, -2ul, kNanAsLong}, 0);
}

TEST(moldy_byteswap, network_doubles_become_host_doubles) {
  expect_to_host<double>(N2H8, "md2hd", kDoubles, {1.0, -2.5, 0x1p-1074}, 0);
  expect_to_host<double>(N2HD, "md2hd", kDoubles, {1.0, -2.5, 0x1p-1074}, 0);
}

TEST(moldy_byteswap, converting_shorthands_change_the_type) {
  expect_to_net<int>(HI2NC, "hi2mb", {300, -129, 5}, {0x7F, 0x80, 5}, -1);
  expect_to_net<int>(HI2NC, "hi2mb", {127, -128, 5}, {0x7F, 0x80, 5}, 0);
  expect_to_net<int>(HI2NS, "hi2ms", {32768, -2, 258}, {0x7F, 0xFF, 0xFF, 0xFE, 1, 2}, -1);
  expect_to_net<int>(HI2NF, "hi2mf", {1, -2, 16777217},
                     {0x3F, 0x80, 0, 0, 0xC0, 0, 0, 0, 0x4B, 0x80, 0, 0}, -1);
  expect_to_host<int>(NC2HI, "mb2hi", {0xFF, 0x80, 0x7F}, {-1, -128, 127}, 0);
  expect_to_host<int>(NS2HI, "ms2hi", kShorts, {258, -2, -32768}, 0);
  expect_to_host<int>(NF2HI, "mf2hi", {0x3F, 0x80, 0, 0, 0xC0, 0x20, 0, 0, 0x7F, 0xC0, 0, 0},
                      {1, -2, std::numeric_limits<int>::min()}, -1);
}

TEST(moldy_byteswap, H2N2_leaves_the_callers_pointers) {
  const short host = 258;
  Bytes net(2);
  void *target = net.data();
  H2N2(target, &host, 1);
  EXPECT_EQ(target, net.data());
  EXPECT_EQ(net, (Bytes{1, 2}));
  short back = 0;
  N2H2(&back, target, 1);
  EXPECT_EQ(target, net.data());
  EXPECT_EQ(back, 258);
}

TEST(moldy_byteswap, H2N8_reports_the_nan_that_H2NL_does_not_see) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  Bytes as_double(8), as_long(8);
  EXPECT_EQ(H2N8(as_double.data(), &nan, 1), -1);
  EXPECT_EQ(H2NL(as_long.data(), reinterpret_cast<const long *>(&nan), 1), 0);
  EXPECT_EQ(as_double, as_long);
  EXPECT_EQ(as_double, (Bytes{0x7F, 0xF8, 0, 0, 0, 0, 0, 0}));
}

TEST(moldy_byteswap, N2H8_reports_the_nan_that_N2HL_does_not_see) {
  const Bytes net = {0x7F, 0xF0, 0, 0, 0, 0, 0, 1};  // signalling
  double as_double;
  long as_long;
  EXPECT_EQ(N2H8(&as_double, net.data(), 1), -1);
  EXPECT_EQ(N2HL(&as_long, net.data(), 1), 0);
  EXPECT_EQ(bits(as_double), 0x7FF0000000000001u);
  EXPECT_EQ(as_long, 0x7FF0000000000001);
}

// ---- Between network floats and host doubles

TEST(moldy_byteswap, NF2HD_widens_each_float_through_N2H4) {
  const Bytes net = {0x3F, 0x80, 0, 0, 0xC0, 0x20, 0, 0, 0, 0, 0, 1, 0xFF, 0x80, 0, 0};
  std::array<double, 5> host = {0, 0, 0, 0, 42};
  calls.clear();
  NF2HD(host.data(), net.data(), 4);
  EXPECT_EQ(taken(), (Calls{"N2H4 1", "mi2hi 1", "N2H4 1", "mi2hi 1", "N2H4 1", "mi2hi 1", "N2H4 1",
                            "mi2hi 1"}));
  EXPECT_EQ(host, (std::array<double, 5>{1.0, -2.5, 0x1p-149,
                                         -std::numeric_limits<double>::infinity(), 42}));
}

TEST(moldy_byteswap, HD2NF_narrows_each_double_through_H2N4) {
  const double host[5] = {1e300, 0.1, -0.0, 0x1.000001p0, 0x1p-160};
  Bytes net(21, 0x5A);
  calls.clear();
  HD2NF(net.data(), host, 5);
  EXPECT_EQ(taken(), (Calls{"H2N4 1", "hi2mi 1", "H2N4 1", "hi2mi 1", "H2N4 1", "hi2mi 1", "H2N4 1",
                            "hi2mi 1", "H2N4 1", "hi2mi 1"}));
  EXPECT_EQ(net, (Bytes{0x7F, 0x80, 0,    0, 0x3D, 0xCC, 0xCC, 0xCD, 0x80, 0,   0,
                        0,    0x3F, 0x80, 0, 0,    0,    0,    0,    0,    0x5A}));
}

TEST(moldy_byteswap, a_nan_stays_a_nan_between_network_floats_and_host_doubles) {
  const Bytes net = {0xFF, 0xC1, 0, 0};
  double host = 0;
  NF2HD(&host, net.data(), 1);
  EXPECT_EQ(bits(host), 0xFFF8200000000000u);
  Bytes back(4);
  HD2NF(back.data(), &host, 1);
  EXPECT_EQ(back, net);
}

TEST(moldy_byteswap, no_count_of_floats_and_doubles_does_nothing) {
  double host = 42;
  Bytes net(4, 0x5A);
  calls.clear();
  for (const int n : {0, -1, -100}) {
    NF2HD(&host, net.data(), n);
    HD2NF(net.data(), &host, n);
  }
  EXPECT_EQ(host, 42);
  EXPECT_EQ(net, Bytes(4, 0x5A));
  EXPECT_EQ(taken(), Calls{});
}

TEST(moldy_byteswap, floats_and_doubles_convert_at_any_alignment) {
  for (size_t alignment = 0; alignment < 16; ++alignment) {
    Bytes net(32, 0);
    double host[2] = {1.5, -3};
    HD2NF(&net[alignment], host, 2);
    EXPECT_EQ(Bytes(&net[alignment], &net[alignment + 8]),
              (Bytes{0x3F, 0xC0, 0, 0, 0xC0, 0x40, 0, 0}));
    host[0] = host[1] = 0;
    NF2HD(host, &net[alignment], 2);
    EXPECT_EQ(host[0], 1.5);
    EXPECT_EQ(host[1], -3);
  }
}

// ---- Single values

TEST(moldy_byteswap, pointer_forms_convert_one_value_source_first) {
  Bytes net(8);
  const double one = 1.0;
  double host_double = 0;
  calls.clear();
  EXPECT_EQ(htondp(&one, net.data()), 0);
  EXPECT_EQ(taken(), Calls{"hd2md 1"});
  EXPECT_EQ(net, (Bytes{0x3F, 0xF0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(ntohdp(net.data(), &host_double), 0);
  EXPECT_EQ(taken(), Calls{"md2hd 1"});
  EXPECT_EQ(host_double, 1.0);

  const float half = 0.5f;
  float host_float = 0;
  net.assign(5, 0x5A);
  EXPECT_EQ(htonfp(&half, net.data()), 0);
  EXPECT_EQ(taken(), Calls{"hf2mf 1"});
  EXPECT_EQ(net, (Bytes{0x3F, 0, 0, 0, 0x5A}));
  EXPECT_EQ(ntohfp(net.data(), &host_float), 0);
  EXPECT_EQ(taken(), Calls{"mf2hf 1"});
  EXPECT_EQ(host_float, 0.5f);

  const long value = 0x0102030405060708;
  long host_long = 0;
  net.assign(9, 0x5A);
  EXPECT_EQ(hton8p(&value, net.data()), 0);
  EXPECT_EQ(taken(), Calls{"hl2ml 1"});
  EXPECT_EQ(net, (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 0x5A}));
  EXPECT_EQ(ntoh8p(net.data(), &host_long), 0);
  EXPECT_EQ(taken(), Calls{"ml2hl 1"});
  EXPECT_EQ(host_long, value);
}

TEST(moldy_byteswap, pointer_forms_report_a_nan_as_the_member_does) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const float nan_float = std::numeric_limits<float>::quiet_NaN();
  Bytes net(8);
  double back;
  float back_float;
  EXPECT_EQ(htondp(&nan, net.data()), -1);
  EXPECT_EQ(ntohdp(net.data(), &back), -1);
  EXPECT_EQ(bits(back), bits(nan));
  EXPECT_EQ(htonfp(&nan_float, net.data()), -1);
  EXPECT_EQ(ntohfp(net.data(), &back_float), -1);
  EXPECT_EQ(bits(back_float), bits(nan_float));
  EXPECT_EQ(hton8p(reinterpret_cast<const long *>(&nan), net.data()), 0);
}

TEST(moldy_byteswap, htond_of_1_holds_the_network_bytes) {
  calls.clear();
  const double net = htond(1.0);
  EXPECT_EQ(taken(), Calls{"hd2md 1"});
  const Bytes expected = {0x3F, 0xF0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(std::memcmp(&net, expected.data(), 8), 0);
  EXPECT_EQ(ntohd(net), 1.0);
  EXPECT_EQ(taken(), Calls{"md2hd 1"});
  EXPECT_EQ(bits(htonf(1.0f)), 0x0000803Fu);
  EXPECT_EQ(taken(), Calls{"hf2mf 1"});
  EXPECT_EQ(ntohf(htonf(-2.5f)), -2.5f);
  EXPECT_EQ(taken(), (Calls{"hf2mf 1", "mf2hf 1"}));
}

TEST(moldy_byteswap, values_pass_bit_for_bit_signalling_nans_included) {
  // Of each pair one side is a signalling NaN, to be taken and to be returned.
  const std::pair<uint64_t, uint64_t> doubles[] = {{0x7FF0000000000001, 0x010000000000F07F},
                                                   {0x010000000000F07F, 0x7FF0000000000001},
                                                   {0xFFF4000012345678, 0x785634120000F4FF},
                                                   {0x7FF8000000000000, 0x000000000000F87F},
                                                   {0x8000000000000000, 0x0000000000000080}};
  for (const auto &[value, reversed] : doubles) {
    double from;
    std::memcpy(&from, &value, 8);
    EXPECT_EQ(bits(htond(from)), reversed);
    EXPECT_EQ(bits(ntohd(from)), reversed);
  }
  const std::pair<uint32_t, uint32_t> floats[] = {{0x7F800001, 0x0100807F},
                                                  {0x0100807F, 0x7F800001},
                                                  {0xFFA12345, 0x4523A1FF},
                                                  {0x7FC00000, 0x0000C07F}};
  for (const auto &[value, reversed] : floats) {
    float from;
    std::memcpy(&from, &value, 4);
    EXPECT_EQ(bits(htonf(from)), reversed);
    EXPECT_EQ(bits(ntohf(from)), reversed);
  }
}

// ---- Swaps

TEST(moldy_byteswap, swaps_reverse_each_element) {
  const Bytes from = {1, 2, 3, 4, 5, 6, 7, 8};
  Bytes to(9, 0x5A);
  swap2(from.data(), to.data(), 4);
  EXPECT_EQ(to, (Bytes{2, 1, 4, 3, 6, 5, 8, 7, 0x5A}));
  swap4(from.data(), to.data(), 2);
  EXPECT_EQ(to, (Bytes{4, 3, 2, 1, 8, 7, 6, 5, 0x5A}));
  swap8(from.data(), to.data(), 1);
  EXPECT_EQ(to, (Bytes{8, 7, 6, 5, 4, 3, 2, 1, 0x5A}));
}

TEST(moldy_byteswap, swap4_reverses_in_place) {
  Bytes bytes = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  swap4(bytes.data(), bytes.data(), 2);
  EXPECT_EQ(bytes, (Bytes{4, 3, 2, 1, 8, 7, 6, 5, 9}));
}

TEST(moldy_byteswap, swaps_of_no_elements_do_nothing) {
  fakes::Guarded memory(4096);
  uint8_t *const nowhere = memory.last(0);
  for (const int n : {0, -1, std::numeric_limits<int>::min()}) {
    swap2(nowhere, nowhere, n);
    swap4(nowhere, nowhere, n);
    swap8(nowhere, nowhere, n);
  }
}

TEST(moldy_byteswap, swaps_take_any_count_alignment_and_overlap_between_guard_pages) {
  members::Random random(21);
  const std::pair<void (*)(const void *, void *, int), size_t> swaps[] = {
      {swap2, 2}, {swap4, 4}, {swap8, 8}};
  fakes::Guarded source(4096), target(4096);
  for (const auto &[swap, width] : swaps) {
    for (size_t count = 0; count <= 130; ++count)
      for (size_t alignment = 0; alignment < 16; ++alignment) {
        const size_t size = count * width;
        uint8_t *const from = source.last(size), *const to = target.first() + alignment;
        for (size_t k = 0; k < size; ++k) from[k] = static_cast<uint8_t>(random());
        std::memset(target.first(), 0x5A, size + 64);
        swap(from, to, static_cast<int>(count));
        for (size_t k = 0; k < size; ++k)
          ASSERT_EQ(to[k], from[k / width * width + width - 1 - k % width])
              << width << " " << count;
        for (size_t k = 0; k < alignment; ++k) ASSERT_EQ(target.first()[k], 0x5A);
        ASSERT_EQ(to[size], 0x5A);
      }
    for (int offset = -40; offset <= 40; ++offset)
      for (const int count : {1, 2, 5, 16, 33, 64, 130}) {
        Bytes bytes(2048);
        for (uint8_t &byte : bytes) byte = static_cast<uint8_t>(random());
        Bytes expected = bytes;
        uint8_t *const at = expected.data() + 64;
        for (size_t k = 0; k < static_cast<size_t>(count); ++k) {
          uint8_t element[8];
          std::memcpy(element, at + k * width, width);
          std::reverse(element, element + width);
          std::memcpy(at + offset + static_cast<std::ptrdiff_t>(k * width), element, width);
        }
        swap(bytes.data() + 64, bytes.data() + 64 + offset, count);
        ASSERT_EQ(bytes, expected) << width << " " << count << " " << offset;
      }
  }
}

// ---- Three bytes

TEST(moldy_byteswap, three_byte_shorthands_take_any_count_between_guard_pages) {
  fakes::Guarded net_memory(4096), host_memory(4096);
  members::Random random(22);
  for (size_t count = 0; count <= 130; ++count) {
    uint8_t *const net = net_memory.last(3 * count);
    int *const host = reinterpret_cast<int *>(host_memory.last(4 * count));
    for (size_t k = 0; k < count; ++k) host[k] = static_cast<int>(random());
    net[-1] = 0x5A;
    H42N3(net, host, static_cast<int>(count));
    ASSERT_EQ(net[-1], 0x5A);
    for (size_t k = 0; k < count; ++k) {
      const auto pattern = static_cast<uint32_t>(host[k]);
      ASSERT_EQ(net[3 * k], pattern >> 16 & 0xFF);
      ASSERT_EQ(net[3 * k + 1], pattern >> 8 & 0xFF);
      ASSERT_EQ(net[3 * k + 2], pattern & 0xFF);
    }
    N32H4(host, net, static_cast<int>(count));
    for (size_t k = 0; k < count; ++k) {
      int expected = net[3 * k] << 16 | net[3 * k + 1] << 8 | net[3 * k + 2];
      if (expected >= 1 << 23) expected -= 1 << 24;
      ASSERT_EQ(host[k], expected) << k << " of " << count;
    }
  }
}
