// Every kernel that this machine runs, against the element loop: the same bytes and the same
// report, wherever the buffers lie. The library's objects are part of this program, so that a set
// of kernels can be forced.

#include "conv/kernels/kernels.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/memory.h"

namespace {

struct Case {
  const char *name;
  char source;  // the type letter of the source
  long from_size;
  long to_size;
  int (*call)(const char *from, char *to, int n);  // -2 when the cursor went wrong
};

template <auto member, class H>
int read(const char *from, char *to, int n, long size) {
  char *cursor = const_cast<char *>(from);
  const int result = member(&cursor, reinterpret_cast<H *>(to), n);
  return cursor == from + size * (n > 0 ? n : 0) ? result : -2;
}

template <auto member, class H>
int write(const char *from, char *to, int n, long size) {
  char *cursor = to;
  const int result = member(reinterpret_cast<const H *>(from), &cursor, n);
  return cursor == to + size * (n > 0 ? n : 0) ? result : -2;
}

constexpr long size_of(char letter) {
  return letter == 'b'                    ? 1
         : letter == 's'                  ? 2
         : letter == 't'                  ? 3
         : letter == 'i' || letter == 'f' ? 4
                                          : 8;
}

template <class H>
H host_of(int (*)(char **, H *, int));
template <class H>
H host_of(int (*)(const H *, char **, int));

#define READER(NAME, E, H)                                                               \
  {#NAME, #E[0], size_of(#E[0]), size_of(#H[0]), [](const char *from, char *to, int n) { \
     return read<NAME, decltype(host_of(NAME))>(from, to, n, size_of(#E[0]));            \
   }},
#define WRITER(NAME, E, H)                                                               \
  {#NAME, #H[0], size_of(#H[0]), size_of(#E[0]), [](const char *from, char *to, int n) { \
     return write<NAME, decltype(host_of(NAME))>(from, to, n, size_of(#E[0]));           \
   }},
#define PAIR(R, E, H) READER(R##E##2h##H, E, H) WRITER(h##H##2##R##E, E, H)
#define EACH(R, E, H) PAIR(R, E, H) READER(u##R##E##2h##H, E, H) WRITER(uh##H##2##R##E, E, H)
#define NONE(...)
#define PLAIN(NAME, FROM, TO, ...)                                                  \
  {#NAME, FROM, size_of(FROM), size_of(TO), [](const char *from, char *to, int n) { \
     __VA_ARGS__;                                                                   \
     return 0;                                                                      \
   }},

const Case kCases[] = {
    FAMILY(EACH, PAIR, PAIR, NONE, NONE) READER(vt2hi, t, i) READER(mt2hi, t, i) READER(vt2hf, t, f)
        READER(mt2hf, t, f) WRITER(hi2vt, t, i) WRITER(hi2mt, t, i)
            PLAIN(H42N3, 'i', 't', H42N3(to, reinterpret_cast<const int *>(from), n))
                PLAIN(NF2HD, 'f', 'd', NF2HD(reinterpret_cast<double *>(to), from, n))
                    PLAIN(HD2NF, 'd', 'f', HD2NF(to, reinterpret_cast<const double *>(from), n))
                        PLAIN(N32H4, 't', 'i', N32H4(reinterpret_cast<int *>(to), from, n))
                            PLAIN(swap2, 's', 's', swap2(from, to, n))
                                PLAIN(swap4, 'i', 'i', swap4(from, to, n))
                                    PLAIN(swap8, 'l', 'l', swap8(from, to, n))};

constinit const conv::Kernels kNone{};  // every conversion is the element loop's

struct Level {
  const char *name;
  const conv::Kernels *kernels;
};

std::vector<Level> levels() {
  std::vector<Level> all{{"sse2", &conv::kSse2}};
  const conv::Kernels *best = &conv::best_kernels();
  if (best != &conv::kSse2) all.push_back({"avx2", &conv::kAvx2});
  if (best == &conv::kAvx512) all.push_back({"avx512", &conv::kAvx512});
  return all;
}

std::mt19937_64 random_bits{20261120};

template <class T>
void append(std::vector<char> &bytes, T value) {
  const char *at = reinterpret_cast<const char *>(&value);
  bytes.insert(bytes.end(), at, at + sizeof value);
}

// Values at which a rule changes its mind, as patterns of the source type's size.
std::vector<char> edges(char source) {
  std::vector<char> all;
  const double bounds[] = {0,
                           1,
                           127,
                           128,
                           255,
                           256,
                           32767,
                           32768,
                           65535,
                           65536,
                           8388607,
                           8388608,
                           16777216,
                           2147483647.0,
                           2147483648.0,
                           4294967295.,
                           4294967296.0,
                           0x1p52,
                           0x1p53,
                           0x1p62,
                           0x1p63,
                           0x1p64,
                           0x1p65,
                           0x1p127,
                           0x1p-149,
                           0.5,
                           2.5,
                           0.999};
  for (double bound : bounds) {
    for (double sign : {1.0, -1.0}) {
      const double value = sign * bound;
      if (source == 'd') {
        for (double v : {value, value + 0.5, value - 0.5, value + 1, value - 1,
                         std::nextafter(value, 1e308), std::nextafter(value, -1e308)}) {
          append(all, v);
        }
      } else if (source == 'f') {
        const float f = static_cast<float>(value);
        for (float v : {f, f + 0.5f, f - 0.5f, f + 1, f - 1, std::nextafterf(f, 1e38f),
                        std::nextafterf(f, -1e38f)}) {
          append(all, v);
        }
      } else if (bound < 0x1p63) {
        for (long d : {-1, 0, 1}) {
          const long v = static_cast<long>(value) + d;
          const char *at = reinterpret_cast<const char *>(&v);
          all.insert(all.end(), at, at + size_of(source));
        }
      }
    }
  }
  if (source == 'd') {
    for (uint64_t v :
         {0x7ff0000000000000, 0x7ff8000000000000, 0x7ff0000000000001, 0x7fefffffffffffff,
          0x47efffffefffffff, 0x47effffff0000000, 0x3ff0000010000000, 0x000fffffffffffff}) {
      append(all, v);
      append(all, v | 0x8000000000000000);
    }
  }
  if (source == 'f') {
    for (uint32_t v : {0x7f800000, 0x7fc00000, 0x7f800001, 0x7f7fffff, 0x007fffff, 1}) {
      append(all, v);
      append(all, v | 0x80000000);
    }
  }
  if (source == 'l') {
    for (int shift = 24; shift < 64; ++shift) {
      for (long d : {-1, 0, 1}) append(all, (1ul << shift) + static_cast<unsigned long>(d));
      append(all, (1ul << shift) + (1ul << (shift - 24)));
      append(all, (1ul << shift) + (3ul << (shift - 24)) + 1);
    }
  }
  return all;
}

// n elements of every kind: edges in each byte order, small numbers, any bits.
std::vector<char> elements(char source, long n) {
  const auto size = static_cast<size_t>(size_of(source));
  const std::vector<char> pool = edges(source);
  std::vector<char> bytes(static_cast<size_t>(n) * size);
  for (size_t k = 0; k < static_cast<size_t>(n); ++k) {
    char *at = bytes.data() + k * size;
    const uint64_t bits = random_bits();
    const auto kind = random_bits() % 8;
    if (kind == 7) {
      std::memcpy(at, &bits, size);
      continue;
    }
    std::memcpy(at, pool.data() + bits % (pool.size() / size) * size, size);
    if (kind < 3) std::reverse(at, at + size);
    if (kind == 3 && size == 8) std::rotate(at, at + 4, at + 8);
  }
  return bytes;
}

struct Outcome {
  std::vector<char> bytes;
  int result;
  bool operator==(const Outcome &) const = default;
};

// What a conversion makes of the bytes at `from`, with a sentinel around the destination.
Outcome outcome(const Case &c, const conv::Kernels &kernels, const char *from, int n,
                size_t misalignment) {
  conv::choose_kernels(kernels);
  const size_t size = static_cast<size_t>(c.to_size) * static_cast<size_t>(n < 0 ? 0 : n);
  std::vector<char> to(size + 192, 'S');
  const int result = c.call(from, to.data() + 64 + misalignment, n);
  return {to, result};
}

template <class Check>
void for_every_kernel(Check check) {
  for (const Level &level : levels()) {
    for (const Case &c : kCases) {
      SCOPED_TRACE(std::string(level.name) + " " + c.name);
      check(c, *level.kernels);
      if (testing::Test::HasFailure()) return;
    }
  }
}

}  // namespace

TEST(kernels, agree_with_the_element_loop_on_every_kind_of_value) {
  for_every_kernel([](const Case &c, const conv::Kernels &kernels) {
    const int n = 20000;
    const std::vector<char> from = elements(c.source, n);
    EXPECT_EQ(outcome(c, kernels, from.data(), n, 0), outcome(c, kNone, from.data(), n, 0));
    // One by one in a crowd of zeros: nobody else's failure hides a wrong report.
    const auto size = static_cast<size_t>(c.from_size);
    std::vector<char> crowd(64 * size);
    for (size_t k = 0; k < 2000; ++k) {
      std::memcpy(&crowd[k % 64 * size], &from[k * size], size);
      ASSERT_EQ(outcome(c, kernels, crowd.data(), 64, 0), outcome(c, kNone, crowd.data(), 64, 0));
      std::fill(crowd.begin(), crowd.end(), '\0');
    }
  });
}

TEST(kernels, agree_at_all_counts_and_alignments) {
  for_every_kernel([](const Case &c, const conv::Kernels &kernels) {
    const std::vector<char> from = elements(c.source, 420);
    for (int n = -3; n <= 300; ++n) {
      const auto shift = static_cast<size_t>(n + 3);
      ASSERT_EQ(outcome(c, kernels, &from[shift % 67], n, shift % 61),
                outcome(c, kNone, &from[shift % 67], n, shift % 61))
          << n;
    }
    for (size_t shift = 0; shift < 64; ++shift) {
      ASSERT_EQ(outcome(c, kernels, &from[shift], 203, 63 - shift),
                outcome(c, kNone, &from[shift], 203, 63 - shift))
          << shift;
    }
  });
}

TEST(kernels, report_one_inexact_element_wherever_it_is) {
  for_every_kernel([](const Case &c, const conv::Kernels &kernels) {
    const auto size = static_cast<size_t>(c.from_size);
    const std::vector<char> pool = elements(c.source, 500);
    size_t bad = 0;  // the first element of the pool that is not exact
    while (bad < 500 && outcome(c, kNone, &pool[bad * size], 1, 0).result == 0) ++bad;
    if (bad == 500) return;  // never fails
    for (const size_t count : {1u, 7u, 45u, 131u, 300u}) {
      for (size_t at = 0; at < count; ++at) {
        std::vector<char> from(count * size);  // zeros are exact everywhere
        if (at == 0) {
          ASSERT_EQ(outcome(c, kernels, from.data(), static_cast<int>(count), 0).result, 0);
        }
        std::memcpy(&from[at * size], &pool[bad * size], size);
        ASSERT_EQ(outcome(c, kernels, from.data(), static_cast<int>(count), 0).result, -1) << at;
      }
    }
  });
}

TEST(kernels, give_overlapping_buffers_what_the_element_loop_gives) {
  for_every_kernel([](const Case &c, const conv::Kernels &kernels) {
    const auto run = [&](const conv::Kernels &chosen, const std::vector<char> &start, int offset,
                         int n) {
      conv::choose_kernels(chosen);
      std::vector<char> buffer = start;
      const int result = c.call(&buffer[256], &buffer[static_cast<size_t>(256 + offset)], n);
      return Outcome{buffer, result};
    };
    for (const int n : {17, 67, 150}) {
      std::vector<char> start(256 + 150 * 8 + 256, 'S');
      const std::vector<char> from = elements(c.source, n);
      std::memcpy(&start[256], from.data(), from.size());
      for (int offset = -130; offset <= 130; ++offset) {
        ASSERT_EQ(run(kernels, start, offset, n), run(kNone, start, offset, n))
            << n << " elements, destination " << offset << " bytes behind the source";
      }
    }
    // Both ends of the destination before the source's, by more than a block, and the reverse.
    for (const int offset : {-1000, -700, -400, 400, 700, 1000}) {
      std::vector<char> start(4000, 'S');
      const std::vector<char> from = elements(c.source, 150);
      std::memcpy(&start[1100], from.data(), from.size());
      const auto far = [&](const conv::Kernels &chosen) {
        conv::choose_kernels(chosen);
        std::vector<char> buffer = start;
        const int result = c.call(&buffer[1100], &buffer[static_cast<size_t>(1100 + offset)], 150);
        return Outcome{buffer, result};
      };
      ASSERT_EQ(far(kernels), far(kNone)) << offset;
    }
  });
}

TEST(kernels, touch_nothing_outside_the_buffers) {
  fakes::Guarded source(4096), target(4096);
  for_every_kernel([&](const Case &c, const conv::Kernels &kernels) {
    conv::choose_kernels(kernels);
    for (int n = 0; n <= 300; ++n) {
      const auto from_bytes = static_cast<size_t>(c.from_size * n);
      const auto to_bytes = static_cast<size_t>(c.to_size * n);
      const auto from = [](uint8_t *at) { return reinterpret_cast<const char *>(at); };
      const auto to = [](uint8_t *at) { return reinterpret_cast<char *>(at); };
      ASSERT_GE(c.call(from(source.first()), to(target.first()), n), -1);
      ASSERT_GE(c.call(from(source.last(from_bytes)), to(target.last(to_bytes)), n), -1);
      ASSERT_GE(c.call(from(source.first()), to(target.last(to_bytes)), n), -1);
      ASSERT_GE(c.call(from(source.last(from_bytes)), to(target.first()), n), -1);
    }
  });
}

// So much is written around the caches, and a destination that is not aligned lined up first.
TEST(kernels, agree_where_the_destination_does_not_fit_the_caches) {
  const size_t written = (16u << 20) + 12345;
  std::vector<char> from(written * 8 + 128), expected(written + 256), got(written + 256);
  for (size_t k = 0; k + 8 <= from.size(); k += 8) {
    const uint64_t bits = random_bits();
    std::memcpy(&from[k], &bits, 8);
  }
  for_every_kernel([&](const Case &c, const conv::Kernels &kernels) {
    const int n = static_cast<int>(written / static_cast<size_t>(c.to_size));
    const std::string name = c.name;
    static const std::string kSome[] = {"ab2hs",  "ms2hi", "hi2ms", "md2hd", "ad2hi", "hl2ab",
                                        "uhf2ml", "mt2hi", "hi2vt", "H42N3", "ms2hb"};
    if (std::find(std::begin(kSome), std::end(kSome), name) == std::end(kSome)) return;
    const size_t shift = name[0] == 'm' ? 16 : 5;
    std::fill(expected.begin(), expected.end(), 'S');
    got = expected;
    conv::choose_kernels(kNone);
    const int result = c.call(from.data() + 3, expected.data() + shift, n);
    conv::choose_kernels(kernels);
    ASSERT_EQ(c.call(from.data() + 3, got.data() + shift, n), result);
    ASSERT_TRUE(got == expected);
  });
}

namespace {

// Address space in which one MiB of memory repeats, so that buffers of many GiB cost little.
char *repeated(long bytes) {
  constexpr long kPiece = 1 << 20;
  const int memory = memfd_create("repeated", 0);
  EXPECT_EQ(ftruncate(memory, kPiece), 0);
  const auto size = static_cast<size_t>(bytes + kPiece);
  char *all = static_cast<char *>(
      mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
  for (long at = 0; at < bytes; at += kPiece) {
    mmap(all + at, kPiece, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, memory, 0);
  }
  close(memory);
  return all;
}

}  // namespace

TEST(kernels, convert_more_than_2_to_the_31_bytes) {
  constexpr int kLongs = (1 << 28) + 1000;
  constexpr long kBytes = kLongs * 8l;
  char *from = repeated(kBytes), *to = repeated(kBytes);
  from[7] = 1;  // the first long of every MiB, big-endian
  conv::choose_kernels(conv::best_kernels());
  char *cursor = from;
  auto *longs = reinterpret_cast<long *>(to);
  ASSERT_EQ(ml2hl(&cursor, longs, kLongs), 0);
  EXPECT_EQ(cursor - from, kBytes);
  EXPECT_EQ(longs[1 << 28], 1);
  EXPECT_EQ(longs[(1 << 28) + 999], 0);

  const auto *ints = reinterpret_cast<const int *>(from);  // 0, 0x01000000, 0, ...
  cursor = to;
  EXPECT_EQ(hi2mb(ints, &cursor, 2 * kLongs), -1);
  EXPECT_EQ(cursor - to, 2l * kLongs);
  EXPECT_EQ(to[(1 << 29) + 1], 127);
  EXPECT_EQ(to[(1 << 29) + 1999], 0);
  munmap(from, static_cast<size_t>(kBytes));
  munmap(to, static_cast<size_t>(kBytes));
}

TEST(kernels, threads_may_make_the_first_call_at_once) {
  std::vector<std::thread> threads;
  std::vector<int> results(8, -2);
  for (size_t t = 0; t < results.size(); ++t) {
    threads.emplace_back([&results, t] {
      std::vector<long> from(500, 1), to(500);
      char *cursor = reinterpret_cast<char *>(from.data());
      results[t] = ml2hl(&cursor, to.data(), 500) + (to[499] == 0x0100000000000000 ? 0 : -3);
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(results, std::vector<int>(8, 0));
}

TEST(kernels, are_chosen_as_the_kernel_lists_the_processor) {
  std::ifstream file("/proc/cpuinfo");
  std::string line, flags;
  while (std::getline(file, line) && flags.empty()) {
    if (line.rfind("flags", 0) == 0) flags = line + " ";
  }
  const auto has = [&](const char *flag) {
    return flags.find(std::string(" ") + flag + " ") != std::string::npos;
  };
  const conv::Kernels *expected = &conv::kSse2;
  if (has("avx2")) expected = &conv::kAvx2;
  if (has("avx2") && has("avx512f") && has("avx512bw") && has("avx512dq") && has("avx512vl") &&
      has("avx512vbmi") && has("avx512cd") && has("bmi2")) {
    expected = &conv::kAvx512;
  }
  EXPECT_EQ(&conv::best_kernels(), expected);
}
