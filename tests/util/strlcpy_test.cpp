#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/memory.h"

TEST(strlcpy, copies_a_string_that_fits_with_its_end_and_nothing_behind) {
  char buffer[] = "########";
  EXPECT_EQ(strlcpy(buffer, "abc", sizeof buffer), 3u);
  EXPECT_EQ(std::string(buffer, sizeof buffer), std::string("abc\0####\0", 9));
}

TEST(strlcpy, size_0_writes_nothing_and_returns_the_source_length) {
  char buffer[] = "####";
  EXPECT_EQ(strlcpy(buffer, "abcdef", 0), 6u);
  EXPECT_STREQ(buffer, "####");
  EXPECT_EQ(strlcpy(nullptr, "abcdef", 0), 6u);
}

TEST(strlcpy, ten_characters_into_five_bytes_leave_four_and_a_nul) {
  char buffer[] = "########";
  EXPECT_EQ(strlcpy(buffer, "0123456789", 5), 10u);
  EXPECT_EQ(std::string(buffer, sizeof buffer), std::string("0123\0###\0", 9));
}

TEST(strlcpy, size_1_leaves_an_empty_string) {
  char buffer[] = "####";
  EXPECT_EQ(strlcpy(buffer, "abc", 1), 3u);
  EXPECT_EQ(std::string(buffer, sizeof buffer), std::string("\0###\0", 5));
}

TEST(strlcpy, a_source_of_exactly_the_size_loses_its_last_character) {
  char buffer[] = "####";
  EXPECT_EQ(strlcpy(buffer, "wxyz", 4), 4u);
  EXPECT_EQ(std::string(buffer, sizeof buffer), std::string("wxy\0\0", 5));
}

TEST(strlcpy, an_empty_source_leaves_an_empty_string) {
  char buffer[] = "####";
  EXPECT_EQ(strlcpy(buffer, "", 4), 0u);
  EXPECT_EQ(std::string(buffer, sizeof buffer), std::string("\0###\0", 5));
}

TEST(strlcpy, bytes_above_127_are_characters_like_others) {
  char buffer[8];
  EXPECT_EQ(strlcpy(buffer, "\xff\x80\xc3", sizeof buffer), 3u);
  EXPECT_STREQ(buffer, "\xff\x80\xc3");
}

TEST(strlcpy, reads_and_writes_nothing_behind_either_buffer) {
  fakes::Guarded source(4096), destination(4096);
  for (size_t length = 0; length < 200; ++length) {
    char *from = reinterpret_cast<char *>(source.last(length + 1));
    memset(from, 'x', length);
    from[length] = '\0';
    for (size_t size = 0; size < 210; size += 1 + size / 16) {
      char *to = reinterpret_cast<char *>(destination.last(size));
      memset(to, '#', size);
      ASSERT_EQ(strlcpy(to, from, size), length);
      std::string expected(size, '#');
      size_t k = 0;
      for (; k < length && k + 1 < size; ++k) expected[k] = 'x';
      if (size != 0) expected[k] = '\0';
      ASSERT_EQ(std::string(to, size), expected) << length << " into " << size;
    }
  }
}
