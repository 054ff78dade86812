// What every member has in common: counts, cursor, alignment, result, what stays untouched, and
// the order in which elements are read and written.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <thread>
#include <utility>
#include <vector>

#include "include/plintor.h"
#include "tests/conv/members.h"
#include "tests/conv/model.h"
#include "tests/fakes/memory.h"

using members::Function;
using model::Member;

namespace {

constexpr uint8_t kSentinel = 0xC3;
constexpr int kLongest = 130;

// Elements of a member with the bytes they become.
struct Sample {
  std::vector<uint8_t> from, to;
  std::vector<bool> exact;

  Sample(const Member &member, const std::vector<uint64_t> &values)
      : from(members::source_bytes(member, values)),
        to(values.size() * model::width(member.to())),
        exact(values.size()) {
    for (size_t k = 0; k < values.size(); ++k)
      exact[k] = model::convert_bytes(member, &from[k * model::width(member.from())],
                                      &to[k * model::width(member.to())]);
  }
  int result(int n) const {
    return std::find(exact.begin(), exact.begin() + std::max(n, 0), false) ==
                   exact.begin() + std::max(n, 0)
               ? 0
               : -1;
  }
};

// A signalling NaN may come out of float to double in two forms: leave it to other tests.
std::vector<uint64_t> without_nans(const Member &member, std::vector<uint64_t> values) {
  if (!model::is_floating(member.from())) return values;
  for (uint64_t &value : values)
    if (model::unpack(model::format(member.from()), value).kind == model::Real::kNan) value = 0;
  return values;
}

// The first bad values of a member's long list are subnormals: take some from all over it.
std::vector<uint64_t> some_bad_values(const Member &member) {
  const std::vector<uint64_t> bad = without_nans(member, members::bad_values(member));
  std::vector<uint64_t> some;
  for (const uint64_t value : bad)
    if (!model::convert(member, value).exact) some.push_back(value);
  std::vector<uint64_t> spread;
  constexpr size_t kWanted = 5;
  for (size_t k = 0; k < kWanted && !some.empty(); ++k)
    spread.push_back(some[k * (some.size() - 1) / (kWanted - 1)]);
  return spread;
}

}  // namespace

TEST(shape, counts_from_minus_3_to_130_at_all_alignments_between_guard_pages) {
  fakes::Guarded external_memory(4096), host_memory(4096);
  members::Random random(11);
  for (const Function &function : members::all()) {
    const Member &member = function.member;
    const size_t in = model::width(member.from()), out = model::width(member.to());
    const Sample good(member, members::friendly_values(member, kLongest, random));
    const Sample mixed(member,
                       without_nans(member, members::random_values(member, kLongest, random)));
    for (int n = -3; n <= kLongest; ++n) {
      const auto count = static_cast<size_t>(std::max(n, 0));
      const size_t external_bytes = count * (member.reads ? in : out);
      const size_t host_bytes = count * (member.reads ? out : in);
      // Every alignment counted from the page's first byte, and from its end: with 0 the buffer
      // touches the page that faults. The host's side takes turns.
      for (size_t place = 0; place < 32; ++place) {
        const size_t alignment = place / 2;
        uint8_t *external = place % 2 ? external_memory.last(external_bytes + alignment)
                                      : external_memory.first() + alignment;
        uint8_t *host = alignment & 1 ? host_memory.last(host_bytes) : host_memory.first();
        for (const Sample *sample : {&good, &mixed}) {
          uint8_t *from = member.reads ? external : host;
          uint8_t *to = member.reads ? host : external;
          fakes::Guarded &target = member.reads ? host_memory : external_memory;
          std::memcpy(from, sample->from.data(), count * in);
          const auto all = target.all();
          const size_t start = static_cast<size_t>(to - all.data());
          const size_t before = std::min<size_t>(start, 64);
          const size_t behind = std::min<size_t>(all.size() - start - count * out, 64);
          std::memset(to - before, kSentinel, before + count * out + behind);
          std::ptrdiff_t moved = -1;
          ASSERT_EQ(function(from, to, n, &moved), sample->result(n))
              << member.name << " n=" << n << " alignment=" << alignment;
          ASSERT_EQ(moved, static_cast<std::ptrdiff_t>(external_bytes)) << member.name << " " << n;
          ASSERT_EQ(std::memcmp(to, sample->to.data(), count * out), 0)
              << member.name << " n=" << n << " alignment=" << alignment;
          ASSERT_EQ(std::memcmp(from, sample->from.data(), count * in), 0)
              << member.name << " wrote into its source";
          for (size_t k = 1; k <= before; ++k)
            ASSERT_EQ(to[-static_cast<std::ptrdiff_t>(k)], kSentinel) << member.name << " n=" << n;
          for (size_t k = 0; k < behind; ++k)
            ASSERT_EQ(to[count * out + k], kSentinel) << member.name << " n=" << n;
        }
      }
    }
  }
}

TEST(shape, no_elements_touch_nothing) {
  // Neither buffer may be looked at: both are in the page that faults.
  fakes::Guarded memory(4096);
  uint8_t *const nowhere = memory.last(0) + 64;
  for (const Function &function : members::all())
    for (const int n : {0, -1, -2, -130, -2147483647 - 1}) {
      std::ptrdiff_t moved = -1;
      ASSERT_EQ(function(nowhere, nowhere, n, &moved), 0) << function.member.name << " " << n;
      ASSERT_EQ(moved, 0) << function.member.name << " " << n;
    }
}

TEST(shape, one_bad_element_at_any_place_makes_the_result_minus_1) {
  members::Random random(12);
  alignas(64) static std::array<uint8_t, 8 * kLongest + 64> external, host;
  int never_fail = 0;
  for (const Function &function : members::all()) {
    const Member &member = function.member;
    const size_t in = model::width(member.from()), out = model::width(member.to());
    const std::vector<uint64_t> bad_values = some_bad_values(member);
    if (bad_values.empty()) ++never_fail;
    const std::vector<uint64_t> good_values = members::friendly_values(member, kLongest, random);
    const Sample good(member, good_values);
    size_t turn = 0;
    for (const int n : {1, 2, 3, 5, 7, 8, 9, 15, 16, 17, 31, 32, 33, 48, 63, 64, 65, 127, 130})
      for (int place = 0; place < n && !bad_values.empty(); ++place) {
        const Sample bad(member, {bad_values[turn % bad_values.size()]});
        const size_t alignment = turn++ % 16;
        uint8_t *const from = member.reads ? external.data() + alignment : host.data();
        uint8_t *const to = member.reads ? host.data() : external.data() + alignment;
        const auto bytes = static_cast<size_t>(n);
        std::memcpy(from, good.from.data(), bytes * in);
        ASSERT_EQ(function(from, to, n), 0) << member.name << " n=" << n;
        std::memcpy(from + static_cast<size_t>(place) * in, bad.from.data(), in);
        ASSERT_EQ(function(from, to, n), -1) << member.name << " n=" << n << " place=" << place;
        std::vector<uint8_t> expected = good.to;
        std::memcpy(&expected[static_cast<size_t>(place) * out], bad.to.data(), out);
        ASSERT_EQ(std::memcmp(to, expected.data(), bytes * out), 0)
            << member.name << " n=" << n << " place=" << place;
      }
  }
  // NaNs apart, these cannot fail: 48 integers and 12 floating values of the same type, 72
  // widened integers, 6 floats made doubles, 60 integers that the floating type always holds, 9
  // unsigned integers written as floating values, 4 readers of three bytes.
  EXPECT_EQ(never_fail, 48 + 12 + 72 + 6 + 60 + 9 + 4);
}

TEST(shape, a_nan_at_any_place_is_what_the_rule_says) {
  members::Random random(13);
  for (const Function &function : members::all()) {
    const Member &member = function.member;
    if (!model::is_floating(member.from())) continue;
    const size_t in = model::width(member.from()), out = model::width(member.to());
    const std::vector<uint64_t> nans =
        member.from() == 'f' ? std::vector<uint64_t>{0x7FC00000, 0xFFC12345}
                             : std::vector<uint64_t>{0x7FF8000000000000, 0xFFF8123456789ABC};
    const Sample good(member, members::friendly_values(member, 70, random));
    for (const uint64_t bits : nans) {
      const Sample nan(member, {bits});
      for (size_t place = 0; place < 70; ++place) {
        std::vector<uint8_t> from = good.from, expected = good.to, to(70 * out);
        std::memcpy(&from[place * in], nan.from.data(), in);
        std::memcpy(&expected[place * out], nan.to.data(), out);
        ASSERT_EQ(function(from.data(), to.data(), 70), nan.result(1)) << member.name;
        ASSERT_EQ(to, expected) << member.name << " place=" << place;
      }
    }
  }
}

TEST(shape, the_result_stays_minus_1_over_exact_elements_that_follow) {
  members::Random random(14);
  constexpr int kMany = 5000;
  for (const Function &function : members::all()) {
    const Member &member = function.member;
    const std::vector<uint64_t> bad = some_bad_values(member);
    if (bad.empty()) continue;
    std::vector<uint64_t> values = members::friendly_values(member, kMany, random);
    values[0] = bad[0];
    const Sample sample(member, values);
    std::vector<uint8_t> to(sample.to.size());
    ASSERT_EQ(function(sample.from.data(), to.data(), kMany), -1) << member.name;
    ASSERT_EQ(to, sample.to) << member.name;
  }
}

namespace {

// One call with source and destination in the same bytes, against the model's sequence.
void expect_sequence(const Function &function, const std::vector<uint8_t> &content, size_t host_at,
                     std::ptrdiff_t offset, int n) {
  const Member &member = function.member;
  alignas(64) static std::array<uint8_t, 8192> arena, expected;
  std::memcpy(arena.data(), content.data(), content.size());
  expected = arena;
  const auto external_at = static_cast<size_t>(static_cast<std::ptrdiff_t>(host_at) + offset);
  const size_t from = member.reads ? external_at : host_at;
  const size_t to = member.reads ? host_at : external_at;
  std::ptrdiff_t moved = -1;
  const int result = function(&arena[from], &arena[to], n, &moved);
  ASSERT_EQ(moved, static_cast<std::ptrdiff_t>(model::width(member.external)) * n);
  const int sequence = model::run(member, &expected[from], &expected[to], n);
  if (result == sequence && arena == expected) return;
  // Signalling NaNs between float and double have a second form.
  std::memcpy(expected.data(), content.data(), content.size());
  ASSERT_EQ(model::run(member, &expected[from], &expected[to], n, false), result)
      << member.name << " n=" << n << " offset=" << offset;
  ASSERT_TRUE(arena == expected) << member.name << " n=" << n << " offset=" << offset;
}

}  // namespace

TEST(shape, overlapping_buffers_give_what_element_after_element_gives) {
  members::Random random(15);
  for (const Function &function : members::all()) {
    const Member &member = function.member;
    std::vector<uint8_t> uniform(4096), small(4096);
    for (uint8_t &byte : uniform) byte = static_cast<uint8_t>(random());
    for (uint8_t &byte : small) byte = random() % 4 == 0 ? static_cast<uint8_t>(random() % 3) : 0;
    const std::vector<uint8_t> friendly = members::source_bytes(
        member, members::friendly_values(member, 4096 / model::width(member.from()), random));
    const auto external = static_cast<std::ptrdiff_t>(model::width(member.external));
    const auto host = static_cast<std::ptrdiff_t>(model::width(member.host));
    for (const std::vector<uint8_t> &content : {uniform, small, friendly})
      for (const int n : {1, 2, 3, 4, 5, 8, 11, 16, 17, 24, 32, 33, 40, 64, 65, 100, 130}) {
        for (std::ptrdiff_t offset = -40; offset <= 40; ++offset)
          ASSERT_NO_FATAL_FAILURE(expect_sequence(function, content, 1536, offset, n));
        // And where their ends meet, as a buffer that is widened in place from its tail.
        for (std::ptrdiff_t step = -17; step <= 17; ++step)
          ASSERT_NO_FATAL_FAILURE(
              expect_sequence(function, content, 1536, n * (host - external) + step, n));
      }
  }
}

TEST(shape, shorthands_without_a_report_give_what_their_members_give) {
  // Each is a member without cursor and result; H42N3, which wraps, is not.
  struct Shorthand {
    const char *member;
    void (*call)(void *to, const void *from, int n);
  };
  const Shorthand shorthands[] = {
      {"mf2hd",
       [](void *to, const void *from, int n) { NF2HD(static_cast<double *>(to), from, n); }},
      {"hd2mf",
       [](void *to, const void *from, int n) { HD2NF(to, static_cast<const double *>(from), n); }},
      {"mt2hi", [](void *to, const void *from, int n) { N32H4(static_cast<int *>(to), from, n); }},
  };
  members::Random random(17);
  alignas(64) static std::array<uint8_t, 8192> arena, expected;
  for (const Shorthand &shorthand : shorthands) {
    const Member member = *model::parse(shorthand.member);
    const size_t in = model::width(member.from()), out = model::width(member.to());
    const std::vector<uint64_t> boundaries = members::boundaries(member);
    const std::vector<uint8_t> from = members::source_bytes(member, boundaries);
    std::vector<uint8_t> to(boundaries.size() * out);
    shorthand.call(to.data(), from.data(), static_cast<int>(boundaries.size()));
    for (size_t k = 0; k < boundaries.size(); ++k)
      ASSERT_TRUE(members::agrees(member, &from[k * in], &to[k * out]))
          << members::difference(member, &from[k * in], &to[k * out]);

    const std::vector<uint8_t> content =
        members::source_bytes(member, members::friendly_values(member, 4096 / in, random));
    for (const int n : {1, 2, 3, 7, 8, 15, 16, 17, 31, 33, 64, 65, 100, 130})
      for (std::ptrdiff_t offset = -40; offset <= 40; ++offset) {
        std::memcpy(arena.data(), content.data(), content.size());
        expected = arena;
        const size_t host_at = 1536;
        const auto net_at = static_cast<size_t>(static_cast<std::ptrdiff_t>(host_at) + offset);
        const size_t source = member.reads ? net_at : host_at;
        const size_t target = member.reads ? host_at : net_at;
        shorthand.call(&arena[target], &arena[source], n);
        model::run(member, &expected[source], &expected[target], n);
        if (arena != expected) {
          std::memcpy(expected.data(), content.data(), content.size());
          model::run(member, &expected[source], &expected[target], n, false);
        }
        ASSERT_TRUE(arena == expected) << shorthand.member << " n=" << n << " offset=" << offset;
      }
  }
}

TEST(shape, threads_convert_at_once) {
  // From the first call on: whatever the library sets up then, it sets up once for all.
  members::Random random(18);
  std::vector<Function> functions;
  std::vector<Sample> samples;
  for (const Function &function : members::all()) {
    const Member &member = function.member;
    functions.push_back(function);
    samples.emplace_back(member, members::friendly_values(member, 1000, random));
  }
  std::atomic<bool> started = false;
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  for (size_t t = 0; t < 8; ++t)
    threads.emplace_back([&, t] {
      while (!started) std::this_thread::yield();
      for (size_t k = 0; k < functions.size(); ++k) {
        const size_t f = (k + t) % functions.size();
        std::vector<uint8_t> to(samples[f].to.size());
        if (functions[f](samples[f].from.data(), to.data(), 1000) != 0 || to != samples[f].to)
          ++wrong;
      }
    });
  started = true;
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

TEST(shape, reverses_and_narrows_in_place) {
  // Written out once, so that the sequence above is not the only witness.
  const auto call = [](const char *name, std::vector<uint8_t> bytes, int n) {
    const auto all = members::all();
    const auto found = std::find_if(all.begin(), all.end(), [&](const Function &function) {
      return function.member.name == name;
    });
    (*found)(bytes.data(), bytes.data(), n);
    return bytes;
  };
  EXPECT_EQ(call("ms2hs", {1, 2, 3, 4, 5, 6}, 3), (std::vector<uint8_t>{2, 1, 4, 3, 6, 5}));
  EXPECT_EQ(call("hi2mi", {1, 2, 3, 4, 5, 6, 7, 8}, 2),
            (std::vector<uint8_t>{4, 3, 2, 1, 8, 7, 6, 5}));
  EXPECT_EQ(call("hi2ms", {1, 0, 0, 0, 2, 1, 0, 0}, 2),
            (std::vector<uint8_t>{0, 1, 1, 2, 2, 1, 0, 0}));
  // Widening in place from the front reads what it has just written: 01 02 becomes 01 00, the
  // second element is the 00 that stands there now.
  EXPECT_EQ(call("ab2hs", {1, 2, 3, 4}, 2), (std::vector<uint8_t>{1, 0, 0, 0}));
}

namespace {

// A stretch of addresses of any length that shows the same two megabytes over and over.
class Repeated {
 public:
  explicit Repeated(size_t size) : size_((size + kPiece - 1) / kPiece * kPiece) {
    const int file = memfd_create("repeated", 0);
    if (file < 0 || ftruncate(file, kPiece) != 0) abort();
    void *all = mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (all == MAP_FAILED) abort();
    first_ = static_cast<uint8_t *>(all);
    for (size_t at = 0; at < size_; at += kPiece)
      if (mmap(first_ + at, kPiece, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0) ==
          MAP_FAILED)
        abort();
    close(file);
  }
  ~Repeated() { munmap(first_, size_); }
  Repeated(const Repeated &) = delete;
  Repeated &operator=(const Repeated &) = delete;
  uint8_t *first() { return first_; }

  static constexpr size_t kPiece = 2 << 20;

 private:
  size_t size_;
  uint8_t *first_;
};

}  // namespace

TEST(shape, counts_whose_bytes_exceed_32_bits_are_converted_whole) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "ThreadSanitizer keeps four bytes for each of these 20 billion";
#endif
  // Copies of 2^31 and of 2^32 bytes and some more: in 32 bits n times the width would be negative,
  // or small.
  const std::pair<const char *, size_t> sizes[] = {
      {"as2hs", size_t{1} << 31}, {"al2hl", size_t{1} << 32}, {"md2hd", size_t{1} << 31}};
  for (const auto &[name, size] : sizes) {
    const auto all = members::all();
    const std::string wanted = name;
    const Function function = *std::find_if(
        all.begin(), all.end(), [&](const Function &one) { return one.member.name == wanted; });
    const size_t width = model::width(function.member.from());
    const size_t count = size / width + 2;
    Repeated from(count * width), to(count * width);
    members::Random random(16);
    for (size_t k = 0; k < Repeated::kPiece; ++k)
      from.first()[k] = k % 8 == 7 || k % 8 == 0 ? 1 : static_cast<uint8_t>(random());
    std::ptrdiff_t moved = -1;
    EXPECT_EQ(function(from.first(), to.first(), static_cast<int>(count), &moved), 0) << name;
    EXPECT_EQ(moved, static_cast<std::ptrdiff_t>(count * width)) << name;
    std::vector<uint8_t> expected(Repeated::kPiece);
    model::run(function.member, from.first(), expected.data(),
               static_cast<int>(Repeated::kPiece / width));
    EXPECT_EQ(std::memcmp(to.first(), expected.data(), expected.size()), 0) << name;
  }
}
