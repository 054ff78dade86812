#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/ipc.h>
#include <sys/ptrace.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"

using fakes::Lines;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SLOWED_DOWN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SLOWED_DOWN 1
#endif
#endif

namespace {

// What gettimeofday answers; the real time while it is negative.
timeval local{-1, 0};

}  // namespace

extern "C" int gettimeofday(timeval *time, void *) noexcept {
  if (local.tv_sec < 0) return static_cast<int>(syscall(SYS_gettimeofday, time, nullptr));
  *time = local;
  return 0;
}

namespace {

constexpr key_t kKey = 0x4E545030;
constexpr int kUntouched = 0x5a5a5a5a;

// The words of a segment, by their place.
enum {
  kMode,
  kCount,
  kClockSeconds,
  kClockMicroseconds,
  kReceiveSeconds,
  kReceiveMicroseconds,
  kLeap,
  kPrecision,
  kSamples,
  kValid,
  kWords = 20
};
using Words = std::array<int, kWords>;

// Segments of this process and its children alone, gone when they have ended.
bool private_segments() {
  return unshare(CLONE_NEWIPC) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0;
}

bool can_have_private_segments() {
  return fakes::in_child([] {
           if (!private_segments()) _exit(7);
         }).exit_code == 0;
}

#define NEEDS_PRIVATE_SEGMENTS() \
  if (!can_have_private_segments()) GTEST_SKIP() << "no IPC namespace of its own on this machine"

// What a daemon, or an earlier program, has made and filled before us. Removed at the end.
class Segment {
 public:
  explicit Segment(int unit = 0, size_t size = 80, int mode = 0777)
      : id_(shmget(kKey + unit, size, IPC_CREAT | mode)) {
    void *address = shmat(id_, nullptr, 0);
    if (id_ == -1 || address == reinterpret_cast<void *>(-1)) abort();
    words_ = static_cast<int *>(address);
  }
  ~Segment() {
    shmdt(words_);
    shmctl(id_, IPC_RMID, nullptr);
  }
  Segment(const Segment &) = delete;
  Segment &operator=(const Segment &) = delete;

  int *words() { return words_; }
  Words copy() const {
    Words words;
    std::copy_n(words_, kWords, words.begin());
    return words;
  }
  shmid_ds status() const {
    shmid_ds status;
    shmctl(id_, IPC_STAT, &status);
    return status;
  }

 private:
  int id_;
  int *words_;
};

bool exists(int unit) { return shmget(kKey + unit, 0, 0) != -1; }

// Runs `body` where segments are private; its failures are the test's.
void with_private_segments(const std::function<void()> &body) {
  const auto outcome = fakes::in_child([&] {
    ASSERT_TRUE(private_segments());
    body();
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log, Lines{});
}

fakes::Outcome end_of(const std::function<void()> &body) {
  return fakes::in_child([&] {
    if (private_segments()) body();
  });
}

}  // namespace

TEST(dlclock, writes_the_ten_words_of_its_layout_and_leaves_the_others) {
  NEEDS_PRIVATE_SEGMENTS();
  with_private_segments([] {
    Segment segment;
    std::fill_n(segment.words(), kWords, kUntouched);
    segment.words()[kCount] = 41;
    _init_Dlclock(0);
    local = {1700000001, 123456};
    set_Dlclock(1700000000.25);
    EXPECT_EQ(segment.copy(), (Words{1,          42,         1700000000, 250000,     1700000001,
                                     123456,     0,          -1,         kUntouched, 1,
                                     kUntouched, kUntouched, kUntouched, kUntouched, kUntouched,
                                     kUntouched, kUntouched, kUntouched, kUntouched, kUntouched}));
  });
}

TEST(dlclock, publishes_1700000000_25_as_seconds_and_250000_microseconds) {
  NEEDS_PRIVATE_SEGMENTS();
  with_private_segments([] {
    _init_Dlclock(0);
    Segment segment;
    set_Dlclock(1700000000.25);
    EXPECT_EQ(segment.words()[kClockSeconds], 1700000000);
    EXPECT_EQ(segment.words()[kClockMicroseconds], 250000);
  });
}

TEST(dlclock, truncates_a_negative_time_toward_zero) {
  NEEDS_PRIVATE_SEGMENTS();
  with_private_segments([] {
    _init_Dlclock(0);
    Segment segment;
    set_Dlclock(-1.5);
    EXPECT_EQ(segment.words()[kClockSeconds], -1);
    EXPECT_EQ(segment.words()[kClockMicroseconds], -500000);
    set_Dlclock(-0.75);
    EXPECT_EQ(segment.words()[kClockSeconds], 0);
    EXPECT_EQ(segment.words()[kClockMicroseconds], -750000);
  });
}

TEST(dlclock, publishes_the_low_32_bits_of_any_reference_time) {
  NEEDS_PRIVATE_SEGMENTS();
  with_private_segments([] {
    _init_Dlclock(0);
    Segment segment;
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    struct {
      double t;
      int seconds, microseconds;
    } const cases[] = {{0.0, 0, 0},
                       {-0.0, 0, 0},
                       {0.9999999, 0, 999999},
                       {-0.0000005, 0, 0},
                       {2147483647.5, 2147483647, 500000},
                       {2147483648.5, INT_MIN, 500000},
                       {4294967295.25, -1, 250000},
                       {4294967296.25, 0, 250000},
                       {-2147483649.5, 2147483647, -500000},
                       // The largest of 64 bits and its neighbour outside, at either end.
                       {9223372036854774784.0, -1024, 0},
                       {9223372036854775808.0, 0, 0},
                       {-9223372036854775808.0, 0, 0},
                       {-9223372036854777856.0, 0, -2048000000},
                       {1e300, 0, 0},
                       {-1e300, 0, 0},
                       {5e-324, 0, 0},
                       {kInfinity, 0, 0},
                       {-kInfinity, 0, 0},
                       {std::nan(""), 0, 0}};
    for (const auto &[t, seconds, microseconds] : cases) {
      set_Dlclock(t);
      EXPECT_EQ(segment.words()[kClockSeconds], seconds) << t;
      EXPECT_EQ(segment.words()[kClockMicroseconds], microseconds) << t;
      EXPECT_EQ(segment.words()[kValid], 1) << t;
    }
  });
}

TEST(dlclock, receives_at_the_hosts_time_of_the_call) {
  NEEDS_PRIVATE_SEGMENTS();
  with_private_segments([] {
    _init_Dlclock(0);
    Segment segment;
    timeval before, after;
    gettimeofday(&before, nullptr);
    set_Dlclock(5.0);
    gettimeofday(&after, nullptr);
    const timeval received{segment.words()[kReceiveSeconds], segment.words()[kReceiveMicroseconds]};
    EXPECT_FALSE(timercmp(&received, &before, <));
    EXPECT_FALSE(timercmp(&received, &after, >));
    local = {4294967296 + 77, 999999};  // the low 32 bits of this one too
    set_Dlclock(5.0);
    EXPECT_EQ(segment.words()[kReceiveSeconds], 77);
    EXPECT_EQ(segment.words()[kReceiveMicroseconds], 999999);
  });
}

TEST(dlclock, counts_every_sample_and_ends_it_valid) {
  NEEDS_PRIVATE_SEGMENTS();
  with_private_segments([] {
    _init_Dlclock(0);
    Segment segment;
    set_Dlclock(1.0);
    set_Dlclock(2.0);
    EXPECT_EQ(segment.words()[kCount], 2);
    EXPECT_EQ(segment.words()[kValid], 1);
    EXPECT_EQ(segment.words()[kMode], 1);
    EXPECT_EQ(segment.words()[kLeap], 0);
    EXPECT_EQ(segment.words()[kPrecision], -1);
    segment.words()[kCount] = INT_MAX;
    set_Dlclock(3.0);
    EXPECT_EQ(segment.words()[kCount], INT_MIN);
  });
}

TEST(dlclock, stores_not_valid_then_the_data_then_the_count_then_valid) {
  NEEDS_PRIVATE_SEGMENTS();
  with_private_segments([] {
    Segment segment;
    const Words first{7, 40, 7, 7, 7, 7, 7, 7, 7, 1, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7};
    std::copy(first.begin(), first.end(), segment.words());
    const pid_t writer = fork();
    if (writer == 0) {
      _init_Dlclock(0);
      local = {22, 33};
      set_Dlclock(-5.0);  // every binding and page is there when the steps are watched
      std::copy(first.begin(), first.end(), segment.words());
      if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(7);
      raise(SIGSTOP);
      set_Dlclock(11.5);
      raise(SIGSTOP);
      _exit(0);
    }
    int status = 0;
    waitpid(writer, &status, 0);
    if (!WIFSTOPPED(status)) {
      ADD_FAILURE() << "no process can be traced on this machine";
      return;
    }
    // The words as they change, machine instruction by machine instruction.
    std::vector<std::pair<int, int>> stores;
    Words seen = segment.copy();
    EXPECT_EQ(seen, first);
    for (int step = 0; step < 1000000; ++step) {
      if (ptrace(PTRACE_SINGLESTEP, writer, nullptr, nullptr) != 0) break;
      if (waitpid(writer, &status, 0) != writer || !WIFSTOPPED(status)) break;
      const Words now = segment.copy();
      for (int k = 0; k < kWords; ++k) {
        const auto word = static_cast<size_t>(k);
        if (now[word] != seen[word]) stores.emplace_back(k, now[word]);
      }
      seen = now;
      if (WSTOPSIG(status) == SIGSTOP) break;
    }
    kill(writer, SIGKILL);
    waitpid(writer, &status, 0);
    EXPECT_EQ(stores, (std::vector<std::pair<int, int>>{{kMode, 1},
                                                        {kValid, 0},
                                                        {kLeap, 0},
                                                        {kPrecision, -1},
                                                        {kClockSeconds, 11},
                                                        {kClockMicroseconds, 500000},
                                                        {kReceiveSeconds, 22},
                                                        {kReceiveMicroseconds, 33},
                                                        {kCount, 41},
                                                        {kValid, 1}}));
  });
}

// The reader that the count, bumped after the data only, asks for: it looks at valid once more.
TEST(dlclock, gives_another_process_no_torn_sample_while_it_publishes_without_pause) {
  NEEDS_PRIVATE_SEGMENTS();
#ifdef SLOWED_DOWN
  constexpr long kSamples = 1000000;
#else
  constexpr long kSamples = 10000000;
#endif
  with_private_segments([] {
    Segment segment;
    const pid_t writer = fork();
    if (writer == 0) {
      _init_Dlclock(0);
      // Sample k is (k, k % 4 quarters) at (3k, k % 1000000), and leaves the count at k.
      for (int k = 1;; ++k) {
        local = {3L * (k % 100000000), k % 1000000};
        set_Dlclock(k + 0.25 * (k % 4));
      }
    }
    const auto load = [words = segment.words()](int k) {
      return std::atomic_ref(words[k]).load(std::memory_order_acquire);
    };
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    long taken = 0, torn = 0, different = 0;
    int last = 0;
    for (long reads = 0; taken < kSamples || different < 100000; ++reads) {
      if (reads % 4096 == 0 && std::chrono::steady_clock::now() > deadline) break;
      const int count = load(kCount);
      if (load(kMode) != 1 || load(kValid) != 1) continue;
      const int clock = load(kClockSeconds), fraction = load(kClockMicroseconds);
      const int receive = load(kReceiveSeconds), microseconds = load(kReceiveMicroseconds);
      if (load(kValid) != 1 || load(kCount) != count) continue;
      ++taken;
      different += count != last;
      last = count;
      torn += clock != count || fraction != count % 4 * 250000 ||
              receive != 3 * (count % 100000000) || microseconds != count % 1000000;
    }
    kill(writer, SIGKILL);
    waitpid(writer, nullptr, 0);
    EXPECT_EQ(torn, 0) << " of " << taken;
    EXPECT_GE(taken, 100000);  // the machine may be busy
    EXPECT_GE(different, 1000);
  });
}

TEST(dlclock, ends_the_process_for_a_unit_outside_0_to_3) {
  for (const int unit : {4, -1, INT_MAX, INT_MIN}) {
    const auto outcome = fakes::in_child([&] {
      fakes::Host host;
      host.fail_always("shmget", EDOM);  // would show in the log
      _init_Dlclock(unit);
    });
    EXPECT_EQ(outcome.exit_code, fakes::kDied);
    EXPECT_EQ(outcome.log, Lines{"elog_die(0): init_Dlclock called with unit=" +
                                 std::to_string(unit) + " (should be in range 0..3)"});
  }
}

TEST(dlclock, attaches_the_segment_of_each_unit) {
  NEEDS_PRIVATE_SEGMENTS();
  for (int unit = 0; unit < 4; ++unit) {
    with_private_segments([&] {
      _init_Dlclock(unit);
      for (int other = 0; other < 4; ++other) EXPECT_EQ(exists(other), other == unit);
      Segment segment(unit);
      set_Dlclock(9.0);
      EXPECT_EQ(segment.words()[kClockSeconds], 9);
    });
  }
}

TEST(dlclock, stays_with_the_first_unit) {
  NEEDS_PRIVATE_SEGMENTS();
  with_private_segments([] {
    _init_Dlclock(0);
    fakes::Host host;
    _init_Dlclock(2);
    _init_Dlclock(17);  // not even looked at
    EXPECT_EQ(host.calls(), Lines{});
    EXPECT_FALSE(exists(2));
    Segment segment(0);
    set_Dlclock(3.0);
    EXPECT_EQ(segment.words()[kClockSeconds], 3);
  });
}

TEST(dlclock, attaches_with_one_shmget_and_one_shmat) {
  NEEDS_PRIVATE_SEGMENTS();
  with_private_segments([] {
    const int descriptors = fakes::open_descriptors();
    Segment segment(1);
    ASSERT_EQ(segment.status().shm_nattch, 1U);  // this test's own
    {
      fakes::Host host;
      _init_Dlclock(1);
      EXPECT_EQ(host.calls(), (Lines{"shmget", "shmat"}));
    }
    EXPECT_EQ(segment.status().shm_nattch, 2U);
    for (int k = 0; k < 1000; ++k) {
      _init_Dlclock(1);
      set_Dlclock(k);
    }
    EXPECT_EQ(segment.status().shm_nattch, 2U);
    EXPECT_EQ(fakes::open_descriptors(), descriptors);
  });
}

TEST(dlclock, creates_80_bytes_that_everyone_may_read_and_write) {
  NEEDS_PRIVATE_SEGMENTS();
  with_private_segments([] {
    umask(077);
    _init_Dlclock(3);
    Segment segment(3);
    EXPECT_EQ(segment.status().shm_segsz, 80U);
    EXPECT_EQ(segment.status().shm_perm.mode & 0777, 0777);
    EXPECT_EQ(segment.copy(), Words{});
  });
}

TEST(dlclock, leaves_the_segment_behind_when_the_process_ends) {
  NEEDS_PRIVATE_SEGMENTS();
  with_private_segments([] {
    const pid_t writer = fork();
    if (writer == 0) {
      _init_Dlclock(0);
      set_Dlclock(8.5);
      _exit(0);
    }
    waitpid(writer, nullptr, 0);
    ASSERT_TRUE(exists(0));
    Segment segment;
    EXPECT_EQ(segment.words()[kClockSeconds], 8);
    EXPECT_EQ(segment.words()[kClockMicroseconds], 500000);
    EXPECT_EQ(segment.words()[kValid], 1);
  });
}

TEST(dlclock, ends_the_process_when_the_segment_is_smaller_than_80_bytes) {
  NEEDS_PRIVATE_SEGMENTS();
  const auto outcome = end_of([] {
    const int id = shmget(kKey, 79, IPC_CREAT | 0777);
    _init_Dlclock(0);
    shmctl(id, IPC_RMID, nullptr);
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): unable to attach shared memory"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{EINVAL});
}

TEST(dlclock, ends_the_process_when_the_segment_cannot_be_had) {
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.fail("shmget", ENOSPC);
    host.fail_always("shmat", EDOM);  // would show in the log: without an id it is not called
    _init_Dlclock(0);
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): unable to attach shared memory"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{ENOSPC});
}

TEST(dlclock, ends_the_process_when_the_segment_cannot_be_mapped) {
  NEEDS_PRIVATE_SEGMENTS();
  const auto outcome = end_of([] {
    fakes::Host host;
    host.fail("shmat", ENOMEM);
    _init_Dlclock(0);
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): unable to attach shared memory"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{ENOMEM});
}

TEST(dlclock, publishes_into_a_segment_that_another_user_owns_and_opened_to_all) {
  NEEDS_PRIVATE_SEGMENTS();
  if (getuid() != 0) GTEST_SKIP() << "only root can become another user";
  with_private_segments([] {
    Segment segment(0, 80, 0777);
    const pid_t writer = fork();
    if (writer == 0) {
      if (setresuid(65534, 65534, 65534) != 0) _exit(7);
      _init_Dlclock(0);
      set_Dlclock(6.0);
      _exit(0);
    }
    int status = 0;
    waitpid(writer, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(segment.words()[kClockSeconds], 6);
    EXPECT_EQ(segment.status().shm_perm.uid, 0U);
  });
}

TEST(dlclock, ends_the_process_when_another_user_keeps_the_segment_to_himself) {
  NEEDS_PRIVATE_SEGMENTS();
  if (getuid() != 0) GTEST_SKIP() << "only root can become another user";
  const auto outcome = end_of([] {
    Segment segment(0, 80, 0600);
    const pid_t writer = fork();
    if (writer == 0) {
      if (setresgid(65534, 65534, 65534) != 0 || setresuid(65534, 65534, 65534) != 0) _exit(7);
      _init_Dlclock(0);
      _exit(0);
    }
    int status = 0;
    waitpid(writer, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), fakes::kDied);
    EXPECT_EQ(segment.copy(), Words{});
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): unable to attach shared memory"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{EACCES});
}

TEST(dlclock, ignores_a_sample_without_a_segment) {
  fakes::Host host;
  set_Dlclock(1700000000.25);
  set_Dlclock(std::nan(""));
  EXPECT_EQ(host.calls(), Lines{});
  EXPECT_EQ(fakes::log(), Lines{});
}

// A daemon built with 64-bit seconds, and what it makes of the 32-bit words. It asks for 96 bytes.
TEST(dlclock, keeps_32_bit_words_in_which_a_daemon_of_64_bit_seconds_finds_no_sample) {
  struct Wide {
    int mode;
    int count;
    int64_t clock_seconds;
    int clock_microseconds;
    int64_t receive_seconds;
    int receive_microseconds;
    int leap;
    int precision;
    int samples;
    int valid;
    unsigned clock_nanoseconds;
    unsigned receive_nanoseconds;
    int reserved[8];
  };
  static_assert(sizeof(Wide) == 96 && offsetof(Wide, valid) == 48);
  NEEDS_PRIVATE_SEGMENTS();
  with_private_segments([] {
    Segment made_by_the_daemon(0, sizeof(Wide));
    _init_Dlclock(0);
    local = {1700000001, 123456};
    set_Dlclock(1700000000.25);
    const auto *seen = reinterpret_cast<const Wide *>(made_by_the_daemon.words());
    EXPECT_EQ(seen->valid, 0);
    EXPECT_EQ(seen->leap, 1);  // our valid
    EXPECT_EQ(seen->clock_seconds, 250000LL << 32 | 1700000000);
    EXPECT_EQ(seen->clock_microseconds, 1700000001);
  });
  with_private_segments([] {
    _init_Dlclock(0);
    EXPECT_EQ(shmget(kKey, sizeof(Wide), IPC_CREAT | 0777), -1);
    EXPECT_EQ(errno, EINVAL);
    Segment removed;
  });
}
