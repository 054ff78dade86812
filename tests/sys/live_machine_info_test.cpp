// mcinfo and machine_info over the base library that is shipped beside the library.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "include/plintor.h"

namespace {

std::string taken(char *text) {
  EXPECT_NE(text, nullptr);
  const std::string copy = text;
  free(text);
  return copy;
}

}  // namespace

TEST(machine_info, returns_the_same_text_as_mcinfo) {
  char *raw = nullptr;
  const std::string text = taken(mcinfo(&raw));
  EXPECT_EQ(taken(raw), text);
  EXPECT_EQ(taken(machine_info(0)), text);
  EXPECT_LE(text.size(), 1023u);
}

TEST(machine_info, returns_the_same_digest_on_every_call) {
  const std::string digest = taken(machine_info(1));
  EXPECT_EQ(digest.size(), 32u);
  EXPECT_EQ(digest.find_first_not_of("0123456789abcdef"), digest.npos);
  for (int k = 0; k < 20; ++k) EXPECT_EQ(taken(machine_info(k + 1)), digest);
}
