#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"

using fakes::Lines;

namespace {

std::vector<int> all_on_dev_null() {
  std::vector<int> found;
  for (int fd = 0; fd < 256; ++fd) {
    char target[32];
    const ssize_t length =
        readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), target, sizeof target);
    if (length > 0 && std::string(target, static_cast<size_t>(length)) == "/dev/null")
      found.push_back(fd);
  }
  return found;
}

const std::vector<int> inherited = all_on_dev_null();

// The descriptors on /dev/null that this process opened itself.
std::vector<int> on_dev_null() {
  std::vector<int> own;
  for (const int fd : all_on_dev_null())
    if (std::count(inherited.begin(), inherited.end(), fd) == 0) own.push_back(fd);
  return own;
}

}  // namespace

TEST(release_FILE, before_any_reserve_does_nothing) {
  const int before = fakes::open_descriptors();
  fakes::Host host;
  release_FILE();
  EXPECT_EQ(host.calls(), Lines{"calloc"});
  EXPECT_EQ(fakes::open_descriptors(), before);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(reserve_FILE, opens_two_streams_and_a_second_call_none) {
  ASSERT_EQ(on_dev_null().size(), 0u);
  fakes::Host host;
  reserve_FILE();
  EXPECT_EQ(host.calls(), (Lines{"calloc", "fopen /dev/null", "fopen /dev/null"}));
  EXPECT_EQ(on_dev_null().size(), 2u);
  host.clear_calls();
  reserve_FILE();
  EXPECT_EQ(host.calls(), Lines{});
  EXPECT_EQ(on_dev_null().size(), 2u);
}

TEST(reserve_FILE, fills_up_what_was_released) {
  reserve_FILE();
  release_FILE();
  EXPECT_EQ(on_dev_null().size(), 1u);
  fakes::Host host;
  reserve_FILE();
  EXPECT_EQ(host.calls(), Lines{"fopen /dev/null"});
  EXPECT_EQ(on_dev_null().size(), 2u);
  host.clear_calls();
  reserve_FILE();
  EXPECT_EQ(host.calls(), Lines{});
}

TEST(reserve_FILE, opens_its_streams_for_reading_only) {
  reserve_FILE();
  for (const int fd : on_dev_null()) EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_RDONLY);
}

TEST(release_FILE, closes_exactly_one_stream_the_one_in_the_lowest_slot) {
  reserve_FILE();
  const auto held = on_dev_null();
  ASSERT_EQ(held.size(), 2u);
  fakes::Host host;
  release_FILE();
  EXPECT_EQ(host.calls(), Lines{"fclose"});
  EXPECT_EQ(on_dev_null(), std::vector<int>{held[1]});
  release_FILE();
  EXPECT_EQ(on_dev_null(), std::vector<int>{});
  host.clear_calls();
  release_FILE();
  EXPECT_EQ(host.calls(), Lines{});
}

TEST(reserve_FILE, leaves_out_a_stream_that_cannot_be_opened_and_says_nothing) {
  fakes::Host host;
  host.fail("fopen", EMFILE, 1);
  reserve_FILE();
  EXPECT_EQ(host.count("fopen"), 2);
  EXPECT_EQ(on_dev_null().size(), 1u);
  EXPECT_EQ(fakes::log(), Lines{});
  // The first slot is the one that stayed free; the next call fills it and no other.
  const int second = on_dev_null()[0];
  host.clear_calls();
  reserve_FILE();
  EXPECT_EQ(host.calls(), Lines{"fopen /dev/null"});
  release_FILE();
  EXPECT_EQ(on_dev_null(), std::vector<int>{second});
}

TEST(release_FILE, frees_the_second_slot_when_the_first_is_empty) {
  fakes::Host host;
  host.fail("fopen", EMFILE, 1);
  reserve_FILE();
  release_FILE();
  EXPECT_EQ(on_dev_null(), std::vector<int>{});
}

TEST(reserve_FILE, without_any_stream_to_be_had_the_reserve_stays_empty) {
  fakes::Host host;
  host.fail_always("fopen", ENFILE);
  reserve_FILE();
  EXPECT_EQ(on_dev_null(), std::vector<int>{});
  host.clear_calls();
  release_FILE();
  EXPECT_EQ(host.calls(), Lines{});
}

TEST(reserve_FILE, makes_room_for_a_stream_at_the_limit_of_descriptors) {
  const auto outcome = fakes::in_child([] {
    reserve_FILE();
    while (open("/dev/zero", O_RDONLY) >= 0) {
    }
    EXPECT_EQ(fopen("/dev/zero", "r"), nullptr);
    EXPECT_EQ(errno, EMFILE);
    release_FILE();
    EXPECT_NE(fopen("/dev/zero", "r"), nullptr);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(reserve_FILE, ends_the_process_without_memory_for_its_slots) {
  for (void (*function)() : {reserve_FILE, release_FILE}) {
    const auto outcome = fakes::in_child([function] {
      fakes::Host host;
      host.fail("calloc", ENOMEM);
      function();
    });
    EXPECT_EQ(outcome.exit_code, fakes::kDied);
    EXPECT_EQ(outcome.log,
              Lines{"elog_die(1): Out of memory in initFiles at line 17 of 'reserve_FILE.cpp'\n\t"
                    "Can't malloc 2 bytes for Files\n"});
    EXPECT_EQ(outcome.log_errors, std::vector<int>{ENOMEM});
  }
}

TEST(reserve_FILE, ten_thousand_times_leave_nothing_behind) {
  reserve_FILE();
  release_FILE();
  const int descriptors = fakes::open_descriptors(), mappings = fakes::mappings();
  const size_t memory = mallinfo2().uordblks;
  for (int k = 0; k < 10000; ++k) {
    reserve_FILE();
    release_FILE();
  }
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_NEAR(fakes::mappings(), mappings, 10);  // a sanitizer makes some of its own
  EXPECT_EQ(mallinfo2().uordblks, memory);
}

TEST(reserve_FILE, eight_threads_never_hold_more_than_two_streams) {
  const int before = fakes::open_descriptors();
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([] {
      for (int k = 0; k < 1000; ++k) {
        reserve_FILE();
        release_FILE();
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_LE(fakes::open_descriptors(), before + 1);
  reserve_FILE();
  EXPECT_EQ(fakes::open_descriptors(), before + 2);
}
