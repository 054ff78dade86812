// A program's own N2H4 and hi2mi take the place of the library's, for its shorthands too.

#include <gtest/gtest.h>

#include "include/plintor.h"

namespace {

int calls_of_n2h4 = 0;
int calls_of_hi2mi = 0;

}  // namespace

extern "C" int N2H4(int *host, const void *, int n) {
  ++calls_of_n2h4;
  EXPECT_EQ(n, 1);
  *host = 0x40000000;  // 2.0f
  return 0;
}

extern "C" int hi2mi(const int *, char **to, int n) {
  ++calls_of_hi2mi;
  EXPECT_EQ(n, 1);
  for (char c : {'a', 'b', 'c', 'd'}) *(*to)++ = c;
  return 0;
}

TEST(conversions, NF2HD_calls_the_n2h4_that_a_program_defines_once_an_element) {
  const char net[200 * 4] = {};
  double host[200];
  NF2HD(host, net, 200);
  EXPECT_EQ(calls_of_n2h4, 200);
  EXPECT_EQ(host[0], 2.0);
  EXPECT_EQ(host[199], 2.0);
}

TEST(conversions, HD2NF_ends_in_the_hi2mi_that_a_program_defines_once_an_element) {
  const double host[200] = {};
  char net[200 * 4 + 1] = {};
  HD2NF(net, host, 200);
  EXPECT_EQ(calls_of_hi2mi, 200);
  EXPECT_STREQ(net + 199 * 4, "abcd");
}
