#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "frame/vestan.h"
#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"

using fakes::Lines;

namespace {

// What mcinfo answers while scripted; the library's own mcinfo is in mcinfo_test.
const char *information = "Linux host x86_64";
bool without_raw = false;
Lines digested;

std::string info(int digest) {
  char *text = machine_info(digest);
  EXPECT_NE(text, nullptr);
  const std::string result = text;
  free(text);
  return result;
}

}  // namespace

extern "C" char *mcinfo(char **raw) {
  *raw = without_raw ? nullptr : strdup(information);
  return strdup("the text");
}

// 39 characters and a NUL: all that there is room for.
extern "C" void mdhex(char *out, const char *data, long length) {
  digested.push_back(std::string(data, static_cast<size_t>(length)));
  strcpy(out, "0123456789abcdef0123456789abcdef0123456");
}

TEST(machine_info, returns_the_text_for_digest_0) {
  EXPECT_EQ(info(0), "the text");
  EXPECT_EQ(digested, Lines{});
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(machine_info, returns_the_digest_of_the_raw_text_for_any_other_number) {
  for (const int digest : {1, 2, -1, INT_MAX, INT_MIN}) {
    digested.clear();
    EXPECT_EQ(info(digest), "0123456789abcdef0123456789abcdef0123456");
    EXPECT_EQ(digested, Lines{"Linux host x86_64"});
  }
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(machine_info, says_so_when_there_is_no_text_to_digest) {
  information = "";
  for (const int digest : {1, 2, -1, INT_MAX, INT_MIN}) EXPECT_EQ(info(digest), "**no hostinfo**");
  EXPECT_EQ(digested, Lines{});
}

TEST(machine_info, says_so_when_there_is_no_raw_text) {
  without_raw = true;
  EXPECT_EQ(info(1), "**no hostinfo**");
  EXPECT_EQ(info(0), "the text");
}

TEST(machine_info, keeps_nothing_over_10000_calls) {
  const int descriptors = fakes::open_descriptors(), mappings = fakes::mappings();
  const size_t heap = fakes::heap_bytes();
  for (int k = 0; k < 10000; ++k) {
    digested.clear();
    info(k % 2);
  }
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_LE(fakes::mappings(), mappings + 64);  // a sanitizer maps its own
  EXPECT_LE(fakes::heap_bytes(), heap + 4096);
}
