#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "include/plintor.h"
#include "tests/fakes/memory.h"

TEST(strlcat, appends_what_fits_with_its_end_and_nothing_behind) {
  char buffer[] = "abc\0######";
  EXPECT_EQ(strlcat(buffer, "def", sizeof buffer), 6u);
  EXPECT_EQ(std::string(buffer, sizeof buffer), std::string("abcdef\0###\0", 11));
}

TEST(strlcat, def_onto_abc_in_six_bytes_leaves_abcde_and_returns_6) {
  char buffer[] = "abc\0######";
  EXPECT_EQ(strlcat(buffer, "def", 6), 6u);
  EXPECT_EQ(std::string(buffer, sizeof buffer), std::string("abcde\0####\0", 11));
}

TEST(strlcat, a_destination_without_a_nul_within_the_size_is_left_alone) {
  char buffer[] = "abcdef";
  EXPECT_EQ(strlcat(buffer, "xyz", 4), 7u);
  EXPECT_STREQ(buffer, "abcdef");
}

TEST(strlcat, size_0_looks_at_nothing_and_returns_the_source_length) {
  char unterminated = 'x';
  EXPECT_EQ(strlcat(&unterminated, "abc", 0), 3u);
  EXPECT_EQ(unterminated, 'x');
}

TEST(strlcat, a_full_destination_stays_as_it_is) {
  char buffer[] = "abc";
  EXPECT_EQ(strlcat(buffer, "xyz", 4), 6u);
  EXPECT_STREQ(buffer, "abc");
}

TEST(strlcat, an_empty_source_changes_nothing) {
  char buffer[] = "abc\0###";
  EXPECT_EQ(strlcat(buffer, "", sizeof buffer), 3u);
  EXPECT_EQ(std::string(buffer, sizeof buffer), std::string("abc\0###\0", 8));
}

TEST(strlcat, an_empty_destination_receives_a_copy) {
  char buffer[] = "\0######";
  EXPECT_EQ(strlcat(buffer, "abc", 3), 3u);
  EXPECT_EQ(std::string(buffer, sizeof buffer), std::string("ab\0####\0", 8));
}

TEST(strlcat, reads_and_writes_nothing_behind_either_buffer) {
  fakes::Guarded source(4096), destination(4096);
  for (size_t length = 0; length < 80; ++length) {
    char *from = reinterpret_cast<char *>(source.last(length + 1));
    memset(from, 'x', length);
    from[length] = '\0';
    for (size_t used = 0; used < 40; ++used) {
      for (size_t size = 0; size < 100; ++size) {
        char *to = reinterpret_cast<char *>(destination.last(size));
        std::string expected(size, '#');
        memset(to, '#', size);
        if (used < size) to[used] = expected[used] = '\0';
        if (used < size) {
          size_t k = used;
          for (; k - used < length && k + 1 < size; ++k) expected[k] = 'x';
          expected[k] = '\0';
        }
        ASSERT_EQ(strlcat(to, from, size), (used < size ? used : size) + length);
        ASSERT_EQ(std::string(to, size), expected) << used << " + " << length << " in " << size;
      }
    }
  }
}
