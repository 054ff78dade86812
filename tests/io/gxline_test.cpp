// Lines out of files: the rule for one line, offsets, handles, and what fails on the way.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"
#include "tests/fakes/memory.h"
#include "tests/io/scratch.h"

using fakes::Lines;

TEST(gxline, reads_line_after_line_without_the_newline) {
  const Scratch file("one\n\nthree\r\nlast");
  const int handle = gxopen(file.path());
  ASSERT_EQ(handle, 0);
  char line[16];
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_STREQ(line, "one");
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_STREQ(line, "");
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_STREQ(line, "three\r");
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_STREQ(line, "last");
  EXPECT_EQ(gxline(handle, line, sizeof line), 0);
  EXPECT_STREQ(line, "");
  EXPECT_EQ(gxclose(handle), 0);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(gxline, a_line_longer_than_the_buffer_comes_in_pieces_and_ends_with_1) {
  const Scratch file("abcdefgh\nx\n");
  const int handle = gxopen(file.path());
  char line[4];
  EXPECT_EQ(gxline(handle, line, sizeof line), 2);
  EXPECT_STREQ(line, "abc");
  EXPECT_EQ(gxline(handle, line, sizeof line), 2);
  EXPECT_STREQ(line, "def");
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_STREQ(line, "gh");
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_STREQ(line, "x");
  EXPECT_EQ(gxline(handle, line, sizeof line), 0);
  gxclose(handle);
}

TEST(gxline, a_newline_that_is_the_last_byte_to_fit_ends_the_line) {
  const Scratch file("abc\nd\n");
  const int handle = gxopen(file.path());
  char line[5];
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_STREQ(line, "abc");
  EXPECT_EQ(gxtell(handle), 4);
  gxclose(handle);
}

TEST(gxline, a_line_that_exactly_fills_the_buffer_leaves_an_empty_rest) {
  const Scratch file("abc\nd\n");
  const int handle = gxopen(file.path());
  char line[4];
  EXPECT_EQ(gxline(handle, line, sizeof line), 2);
  EXPECT_STREQ(line, "abc");
  EXPECT_EQ(gxtell(handle), 3);
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_STREQ(line, "");
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_STREQ(line, "d");
  gxclose(handle);
}

TEST(gxline, a_last_line_without_newline_is_read_with_1_then_0) {
  const Scratch file("one\ntwo");
  const int handle = gxopen(file.path());
  char line[16];
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_STREQ(line, "two");
  EXPECT_EQ(gxline(handle, line, sizeof line), 0);
  EXPECT_STREQ(line, "");
  EXPECT_EQ(gxtell(handle), 7);
  gxclose(handle);
}

TEST(gxline, an_unterminated_last_piece_that_exactly_fills_the_buffer_gives_2_then_0) {
  const Scratch file("abc");
  const int handle = gxopen(file.path());
  char line[4];
  EXPECT_EQ(gxline(handle, line, sizeof line), 2);
  EXPECT_STREQ(line, "abc");
  EXPECT_EQ(gxline(handle, line, sizeof line), 0);
  EXPECT_STREQ(line, "");
  gxclose(handle);
}

TEST(gxline, an_empty_line_is_told_apart_from_the_end) {
  const Scratch file("\n");
  const int handle = gxopen(file.path());
  char line[4] = "xyz";
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_STREQ(line, "");
  EXPECT_EQ(gxline(handle, line, sizeof line), 0);
  gxclose(handle);
}

TEST(gxline, a_carriage_return_is_an_ordinary_character) {
  const Scratch file("a\rb\r\n\r\n");
  const int handle = gxopen(file.path());
  EXPECT_EQ(lines_of(handle), (std::vector<std::string>{"a\rb\r", "\r"}));
  gxclose(handle);
}

TEST(gxline, a_nul_ends_the_data_for_good) {
  const Scratch file(std::string("one\ntw\0o\nthree\n", 15));
  const int handle = gxopen(file.path());
  char line[16];
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_STREQ(line, "tw");
  for (int k = 0; k < 3; ++k) {
    EXPECT_EQ(gxline(handle, line, sizeof line), 0);
    EXPECT_STREQ(line, "");
    EXPECT_EQ(gxtell(handle), 6);
  }
  // The way past it.
  EXPECT_EQ(gxseek(handle, 7), 0);
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_STREQ(line, "o");
  gxclose(handle);
}

TEST(gxline, a_nul_at_the_start_of_a_line_is_the_end_at_once) {
  const Scratch file(std::string("\0one\n", 5));
  const int handle = gxopen(file.path());
  char line[16] = "before";
  EXPECT_EQ(gxline(handle, line, sizeof line), 0);
  EXPECT_STREQ(line, "");
  EXPECT_EQ(gxtell(handle), 0);
  gxclose(handle);
}

TEST(gxline, a_nul_behind_a_full_buffer_is_not_yet_seen) {
  const Scratch file(std::string("abc\0d", 5));
  const int handle = gxopen(file.path());
  char line[4];
  EXPECT_EQ(gxline(handle, line, sizeof line), 2);
  EXPECT_STREQ(line, "abc");
  EXPECT_EQ(gxline(handle, line, sizeof line), 0);
  EXPECT_EQ(gxtell(handle), 3);
  gxclose(handle);
}

TEST(gxline, a_buffer_of_one_byte_yields_0_and_an_empty_string_and_does_not_move) {
  const Scratch file("one\n");
  const int handle = gxopen(file.path());
  char line[] = "###";
  EXPECT_EQ(gxline(handle, line, 1), 0);
  EXPECT_EQ(std::string(line, 3), std::string("\0##", 3));
  EXPECT_EQ(gxtell(handle), 0);
  gxclose(handle);
}

TEST(gxline, a_length_below_1_touches_nothing) {
  const Scratch file("one\n");
  const int handle = gxopen(file.path());
  char line[] = "###";
  EXPECT_EQ(gxline(handle, line, 0), 0);
  EXPECT_EQ(gxline(handle, line, -1), 0);
  EXPECT_EQ(gxline(handle, line, INT32_MIN), 0);
  EXPECT_EQ(gxline(handle, nullptr, 0), 0);
  EXPECT_STREQ(line, "###");
  EXPECT_EQ(gxtell(handle), 0);
  gxclose(handle);
}

TEST(gxline, the_largest_length_reads_a_line_like_any_other) {
  const Scratch file("one\ntwo");
  const int handle = gxopen(file.path());
  char line[8];
  EXPECT_EQ(gxline(handle, line, INT32_MAX), 1);
  EXPECT_STREQ(line, "one");
  EXPECT_EQ(gxline(handle, line, INT32_MAX), 1);
  EXPECT_STREQ(line, "two");
  EXPECT_EQ(gxline(handle, line, INT32_MAX), 0);
  gxclose(handle);
}

TEST(gxline, a_handle_that_is_not_open_leaves_the_buffer_alone_and_gives_0) {
  char line[] = "###";
  for (const int handle : {0, 1, -1, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(gxline(handle, line, sizeof line), 0);
    EXPECT_STREQ(line, "###");
  }
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(gxline, bytes_behind_the_nul_stay_as_they_are) {
  std::string text;
  for (int length = 0; length < 150; ++length) text += std::string(length, 'x') + "\n";
  const Scratch file(text);
  const int handle = gxopen(file.path());
  for (size_t length = 0; length < 150; ++length) {
    char line[256];
    memset(line, '#', sizeof line);
    ASSERT_EQ(gxline(handle, line, sizeof line), 1);
    std::string expected(sizeof line, '#');
    expected.replace(0, length, length, 'x');
    expected[length] = '\0';
    ASSERT_EQ(std::string(line, sizeof line), expected) << length;
  }
  gxclose(handle);
}

TEST(gxline, a_line_stays_valid_after_gxclose) {
  const Scratch file("one\n");
  const int handle = gxopen(file.path());
  char line[8];
  gxline(handle, line, sizeof line);
  gxclose(handle);
  EXPECT_STREQ(line, "one");
}

TEST(gxline, a_file_of_whole_pages_is_read_to_its_last_byte) {
  std::string text(8191, 'a');
  text[4000] = '\n';
  const Scratch file(text + "z");
  const int handle = gxopen(file.path());
  EXPECT_EQ(lines_of(handle),
            (std::vector<std::string>{std::string(4000, 'a'), std::string(4190, 'a') + "z"}));
  gxclose(handle);
}

// ---- Offsets -------------------------------------------------------------------------------

TEST(gxseek, moves_to_any_offset_up_to_the_size) {
  const Scratch file("one\ntwo\n");
  const int handle = gxopen(file.path());
  char line[8];
  EXPECT_EQ(gxtell(handle), 0);
  EXPECT_EQ(gxseek(handle, 5), 0);
  EXPECT_EQ(gxtell(handle), 5);
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_STREQ(line, "wo");
  EXPECT_EQ(gxseek(handle, 0), 0);
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_STREQ(line, "one");
  gxclose(handle);
}

TEST(gxseek, accepts_the_size_where_gxline_then_gives_0) {
  const Scratch file("one\ntwo\n");
  const int handle = gxopen(file.path());
  char line[8];
  EXPECT_EQ(gxseek(handle, 8), 0);
  EXPECT_EQ(gxline(handle, line, sizeof line), 0);
  gxclose(handle);
}

TEST(gxseek, refuses_offsets_outside_and_stays) {
  const Scratch file("one\ntwo\n");
  const int handle = gxopen(file.path());
  EXPECT_EQ(gxseek(handle, 3), 0);
  for (const int offset : {9, -1, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(gxseek(handle, offset), -1);
    EXPECT_EQ(gxtell(handle), 3);
  }
  EXPECT_EQ(fakes::log(), Lines{});
  gxclose(handle);
}

TEST(gxseek, gives_0_for_a_handle_that_is_not_open_where_gxtell_gives_minus_1) {
  const Scratch file("one\n");
  for (const int handle : {0, 7, -1}) {
    EXPECT_EQ(gxseek(handle, 0), 0);
    EXPECT_EQ(gxseek(handle, -5), 0);
    EXPECT_EQ(gxtell(handle), -1);
  }
  const int handle = gxopen(file.path());
  gxclose(handle);
  EXPECT_EQ(gxseek(handle, 1), 0);
  EXPECT_EQ(gxtell(handle), -1);
}

// ---- Handles -------------------------------------------------------------------------------

TEST(gxclose, gives_0_for_a_handle_that_is_not_open) {
  for (const int handle : {0, 1, -1, INT32_MAX}) EXPECT_EQ(gxclose(handle), 0);
  const Scratch file("one\n");
  const int handle = gxopen(file.path());
  EXPECT_EQ(gxclose(handle), 0);
  EXPECT_EQ(gxclose(handle), 0);
}

TEST(gxclose, gives_the_result_of_munmap_with_its_errno_and_frees_the_handle_all_the_same) {
  const Scratch file("one\n");
  const int handle = gxopen(file.path());
  fakes::Host host;
  host.fail("munmap", EINVAL);
  errno = 0;
  EXPECT_EQ(gxclose(handle), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(gxtell(handle), -1);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(gxopen, hands_out_the_lowest_free_handle) {
  const Scratch file("one\n");
  for (int k = 0; k < 4; ++k) EXPECT_EQ(gxopen(file.path()), k);
  gxclose(2);
  gxclose(1);
  EXPECT_EQ(gxopen(file.path()), 1);
  EXPECT_EQ(gxopen(file.path()), 2);
  EXPECT_EQ(gxopen(file.path()), 4);
  gxclose(4);
  EXPECT_EQ(gxopen(file.path()), 4);
}

TEST(gxopen, a_hundred_handles_are_read_and_closed_each_by_itself) {
  const auto text = [](int handle) { return "handle " + std::to_string(handle); };
  for (int k = 0; k < 100; ++k) {
    const Scratch file(text(k));
    ASSERT_EQ(gxopen(file.path()), k);
  }
  const auto read_and_close = [&text](int handle) {
    char line[16];
    EXPECT_EQ(gxline(handle, line, sizeof line), 1);
    EXPECT_EQ(line, text(handle));
    EXPECT_EQ(gxclose(handle), 0);
    EXPECT_EQ(gxline(handle, line, sizeof line), 0);
    EXPECT_EQ(line, text(handle));
  };
  for (int k = 0; k < 100; k += 2) read_and_close(k);
  std::thread among_threads([&read_and_close] {
    for (int k = 1; k < 100; k += 2) read_and_close(k);
  });
  among_threads.join();
}

TEST(gxopen, two_handles_on_one_file_have_offsets_of_their_own) {
  const Scratch file("one\ntwo\n");
  const int first = gxopen(file.path());
  const int second = gxopen(file.path());
  char line[8];
  EXPECT_EQ(gxline(first, line, sizeof line), 1);
  EXPECT_EQ(gxtell(first), 4);
  EXPECT_EQ(gxtell(second), 0);
  EXPECT_EQ(gxclose(first), 0);
  EXPECT_EQ(gxline(second, line, sizeof line), 1);
  EXPECT_STREQ(line, "one");
  gxclose(second);
}

TEST(gxopen, opens_examines_maps_and_closes_in_that_order) {
  const Scratch file("one\n");
  fakes::Host host;
  const int handle = gxopen(file.path());
  EXPECT_EQ(host.calls(),
            (Lines{std::string("open ") + file.path(), "fstat", "mmap", "close", "calloc"}));
  host.clear_calls();
  char line[8];
  gxline(handle, line, sizeof line);
  EXPECT_EQ(host.calls(), Lines{});
  gxclose(handle);
  EXPECT_EQ(host.calls(), Lines{"munmap"});
}

TEST(gxopen, holds_a_mapping_and_no_descriptor) {
  const Scratch file("one\n");
  const int before = fakes::open_descriptors();
  gxopen(file.path());
  EXPECT_EQ(fakes::open_descriptors(), before);
}

// ---- Failures ------------------------------------------------------------------------------

TEST(gxopen, complains_when_the_file_cannot_be_opened) {
  fakes::Host host;
  const int before = fakes::open_descriptors();
  EXPECT_EQ(gxopen("/nowhere/at all"), -1);
  EXPECT_EQ(fakes::log(), Lines{"elog_complain(1): Couldn't open /nowhere/at all\n"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{ENOENT});
  EXPECT_EQ(host.calls(), Lines{"open /nowhere/at all"});
  EXPECT_EQ(fakes::open_descriptors(), before);
  EXPECT_EQ(gxtell(0), -1);
}

TEST(gxopen, complains_when_the_file_cannot_be_examined) {
  const Scratch file("one\n");
  const int before = fakes::open_descriptors();
  fakes::Host host;
  host.fail("fstat", EOVERFLOW);
  EXPECT_EQ(gxopen(file.path()), -1);
  EXPECT_EQ(fakes::log(),
            Lines{std::string("elog_complain(1): fstat failed for '") + file.path() + "'\n"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{EOVERFLOW});
  EXPECT_EQ(fakes::open_descriptors(), before);
  EXPECT_EQ(gxtell(0), -1);
}

TEST(gxopen, refuses_an_empty_file) {
  const Scratch file("");
  const int before = fakes::open_descriptors();
  EXPECT_EQ(gxopen(file.path()), -1);
  EXPECT_EQ(fakes::log(), Lines{std::string("elog_complain(1): '") + file.path() + "' is empty\n"});
  EXPECT_EQ(fakes::open_descriptors(), before);
  EXPECT_EQ(gxtell(0), -1);
}

TEST(gxopen, complains_when_the_file_cannot_be_mapped) {
  const Scratch file("one\n");
  const int before = fakes::open_descriptors();
  fakes::Host host;
  host.fail("mmap", ENOMEM);
  host.fail("close", EIO);  // must not cover up the cause
  EXPECT_EQ(gxopen(file.path()), -1);
  EXPECT_EQ(fakes::log(),
            Lines{std::string("elog_complain(1): Can't map file ") + file.path() + "\n"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{ENOMEM});
  EXPECT_EQ(host.calls(), (Lines{std::string("open ") + file.path(), "fstat", "mmap", "close"}));
  EXPECT_EQ(fakes::open_descriptors(), before + 1);  // the close that was made to fail
  EXPECT_EQ(gxtell(0), -1);
}

TEST(gxopen, a_directory_cannot_be_mapped) {
  const int before = fakes::open_descriptors();
  EXPECT_EQ(gxopen("/"), -1);
  EXPECT_EQ(fakes::log(), Lines{"elog_complain(1): Can't map file /\n"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{ENODEV});
  EXPECT_EQ(fakes::open_descriptors(), before);
}

TEST(gxopen, ends_the_process_without_memory_for_its_record) {
  const Scratch file("one\n");
  const auto outcome = fakes::in_child([&file] {
    fakes::Host host;
    host.fail("calloc", ENOMEM);
    gxopen(file.path());
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Out of memory in gnew at line 30 of 'gxline.cpp'\n\t"
                               "Can't malloc 1 bytes for mapped\n"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{ENOMEM});
}

// ---- Large files ---------------------------------------------------------------------------

namespace {

// As long as asked for, beginning with "first\n", the rest zeros that take no room.
class Sparse {
 public:
  explicit Sparse(off_t size) : start_("first\n") { large_ = truncate(start_.path(), size) == 0; }
  bool large() const { return large_; }
  const char *path() const { return start_.path(); }

 private:
  Scratch start_;
  bool large_;
};

}  // namespace

TEST(gxopen, a_file_just_below_2_gib_is_read_whole) {
  const Sparse file(INT32_MAX);
  if (!file.large()) GTEST_SKIP() << "no files of that size in /tmp";
  const int handle = gxopen(file.path());
  EXPECT_EQ(gxseek(handle, INT32_MAX), 0);
  EXPECT_EQ(gxseek(handle, 0), 0);
  char line[16];
  EXPECT_EQ(gxline(handle, line, INT32_MAX), 1);
  EXPECT_STREQ(line, "first");
  EXPECT_EQ(gxline(handle, line, sizeof line), 0);  // a NUL
  EXPECT_EQ(gxclose(handle), 0);
}

TEST(gxopen, of_a_file_of_2_gib_the_size_is_negative_and_nothing_can_be_read) {
  if (kUnderThreadSanitizer) GTEST_SKIP() << "it ends the process at a munmap of such a size";
  const Sparse file(1L << 31);
  if (!file.large()) GTEST_SKIP() << "no files of that size in /tmp";
  const int before = fakes::mappings();
  const int handle = gxopen(file.path());
  EXPECT_EQ(handle, 0);
  char line[16] = "before";
  EXPECT_EQ(gxline(handle, line, sizeof line), 0);
  EXPECT_STREQ(line, "");
  EXPECT_EQ(gxseek(handle, 0), -1);
  errno = 0;
  EXPECT_EQ(gxclose(handle), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(fakes::mappings(), before + 1);
  EXPECT_EQ(gxtell(handle), -1);
}

TEST(gxopen, of_a_file_beyond_4_gib_the_low_32_bits_of_the_length_count) {
  const Sparse file((1L << 32) + 4);
  if (!file.large()) GTEST_SKIP() << "no files of that size in /tmp";
  const int handle = gxopen(file.path());
  char line[16];
  EXPECT_EQ(gxline(handle, line, sizeof line), 1);
  EXPECT_STREQ(line, "firs");
  EXPECT_EQ(gxline(handle, line, sizeof line), 0);
  EXPECT_EQ(gxseek(handle, 5), -1);
  EXPECT_EQ(gxclose(handle), 0);
}

// ---- Many times, many threads --------------------------------------------------------------

TEST(gxopen, ten_thousand_files_leave_nothing_behind) {
  const Scratch file("one\ntwo\n"), empty("");
  char line[16];
  const auto once = [&] {
    const int handle = gxopen(file.path());
    ASSERT_EQ(handle, 0);
    while (gxline(handle, line, sizeof line) != 0) {
    }
    gxclose(handle);
    ASSERT_EQ(gxopen("/nowhere"), -1);
    ASSERT_EQ(gxopen(empty.path()), -1);
    fakes::clear_log();
  };
  for (int k = 0; k < 100; ++k) once();
  const int descriptors = fakes::open_descriptors(), mappings = fakes::mappings();
  const size_t memory = mallinfo2().uordblks;
  for (int k = 0; k < 10000; ++k) once();
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_NEAR(fakes::mappings(), mappings, 10);  // a sanitizer makes some of its own
  EXPECT_EQ(mallinfo2().uordblks, memory);
}

TEST(gxopen, eight_threads_open_read_and_close_handles_of_their_own) {
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t, &wrong] {
      const std::string text = "thread " + std::to_string(t);
      const Scratch file(text + "\nsecond\n");
      for (int k = 0; k < 500; ++k) {
        const int handle = gxopen(file.path());
        char line[16];
        if (gxline(handle, line, sizeof line) != 1 || text != line) ++wrong;
        if (gxtell(handle) != 9) ++wrong;
        if (gxseek(handle, 9) != 0 || gxline(handle, line, sizeof line) != 1) ++wrong;
        if (std::string("second") != line || gxclose(handle) != 0) ++wrong;
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}
