// Conversions that write more than caches hold: the library may store around them there, from a
// line of the destination on, and has a head and a tail to get right.

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "include/plintor.h"
#include "tests/conv/members.h"
#include "tests/conv/model.h"

using members::Function;
using model::Member;

namespace {

constexpr size_t kPeriod = 4096;      // elements after which the data repeats
constexpr size_t kLarge = 16u << 20;  // bytes written
constexpr uint8_t kSentinel = 0xC3;

// Anonymous memory, page by page when touched.
class Memory {
 public:
  explicit Memory(size_t size) : size_(size) {
    void *all = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (all == MAP_FAILED) abort();
    first_ = static_cast<uint8_t *>(all);
  }
  ~Memory() { munmap(first_, size_); }
  Memory(const Memory &) = delete;
  Memory &operator=(const Memory &) = delete;
  uint8_t *first() { return first_; }

 private:
  uint8_t *first_;
  size_t size_;
};

// Doubles the filled part until all is filled.
void repeat(uint8_t *bytes, size_t filled, size_t size) {
  while (filled < size) {
    const size_t more = std::min(filled, size - filled);
    std::memcpy(bytes + filled, bytes, more);
    filled += more;
  }
}

bool repeats(const uint8_t *bytes, const std::vector<uint8_t> &period, size_t size) {
  const size_t first = std::min(period.size(), size);
  if (std::memcmp(bytes, period.data(), first) != 0) return false;
  return size == first || std::memcmp(bytes, bytes + first, size - first) == 0;
}

// One conversion of `count` elements whose bytes repeat, into a destination `shift` bytes behind a
// page; the source lies `skew` bytes behind one.
struct Large {
  const char *name;
  size_t in, out;
  std::vector<uint8_t> from, expected;  // one period
  int result;
  std::function<int(const void *, void *, int)> call;
};

void expect_large(const Large &large, size_t shift, size_t skew) {
  static Memory source_memory((kLarge + (64u << 10)) * 8), target_memory(kLarge + (4u << 20));
  const size_t count = kLarge / large.out + 4321;
  uint8_t *const from = source_memory.first() + skew;
  uint8_t *const to = target_memory.first() + 64 + shift;
  std::memcpy(from, large.from.data(), large.from.size());
  repeat(from, large.from.size(), count * large.in);
  std::memset(to - 64 - shift, kSentinel, 64 + shift);
  std::memset(to + count * large.out, kSentinel, 64);
  ASSERT_EQ(large.call(from, to, static_cast<int>(count)), large.result)
      << large.name << " shift=" << shift << " skew=" << skew;
  ASSERT_TRUE(repeats(to, large.expected, count * large.out))
      << large.name << " shift=" << shift << " skew=" << skew;
  for (size_t k = 1; k <= 64 + shift; ++k) ASSERT_EQ(*(to - k), kSentinel) << large.name;
  for (size_t k = 0; k < 64; ++k) ASSERT_EQ(to[count * large.out + k], kSentinel) << large.name;
}

Large large(const Function &function, const std::vector<uint64_t> &values) {
  const Member &member = function.member;
  Large made{member.name.c_str(),
             model::width(member.from()),
             model::width(member.to()),
             members::source_bytes(member, values),
             std::vector<uint8_t>(values.size() * model::width(member.to())),
             0,
             function};
  made.result =
      model::run(member, made.from.data(), made.expected.data(), static_cast<int>(values.size()));
  return made;
}

// The functions of some members, each once.
void expect_all_large(bool reads, size_t least, size_t most) {
  members::Random random(51);
  std::set<void *> seen;
  for (const Function &function : members::all()) {
    const Member &member = function.member;
    const size_t out = model::width(member.to());
    if (member.reads != reads || out < least || out > most) continue;
    if (!seen.insert(function.address).second) continue;
    // All exact, at a line's start; then with one period's bad element, at an odd element.
    std::vector<uint64_t> values = members::friendly_values(member, kPeriod, random);
    ASSERT_NO_FATAL_FAILURE(expect_large(large(function, values), 0, reads ? 1 : 0));
    for (const uint64_t bad : members::bad_values(member)) {
      const model::Converted quiet = model::convert(member, bad, true);
      if (quiet.bits != model::convert(member, bad, false).bits) continue;
      values[kPeriod - 7] = bad;
      break;
    }
    ASSERT_NO_FATAL_FAILURE(expect_large(large(function, values), out, 0));
    // Where no element of the outside begins with a line.
    if (reads || out == 1) continue;
    ASSERT_NO_FATAL_FAILURE(expect_large(large(function, values), 1, 0));
  }
}

}  // namespace

TEST(large, readers_of_one_and_two_bytes) { expect_all_large(true, 1, 2); }
TEST(large, readers_of_four_bytes) { expect_all_large(true, 4, 4); }
TEST(large, readers_of_eight_bytes) { expect_all_large(true, 8, 8); }
TEST(large, writers_of_one_and_two_bytes) { expect_all_large(false, 1, 2); }
TEST(large, writers_of_three_and_four_bytes) { expect_all_large(false, 3, 4); }
TEST(large, writers_of_eight_bytes) { expect_all_large(false, 8, 8); }

TEST(large, shorthands_without_a_report) {
  members::Random random(52);
  const auto with = [&](const char *name, const char *member_name, auto call) {
    const Member member = *model::parse(member_name);
    Large made = large({member, nullptr}, members::friendly_values(member, kPeriod, random));
    made.name = name;
    made.result = 0;
    made.call = [call](const void *from, void *to, int n) { return call(from, to, n), 0; };
    for (const size_t shift : {size_t{0}, made.out})
      ASSERT_NO_FATAL_FAILURE(expect_large(made, shift, 0));
  };
  with("NF2HD", "mf2hd",
       [](const void *from, void *to, int n) { NF2HD(static_cast<double *>(to), from, n); });
  with("HD2NF", "hd2mf",
       [](const void *from, void *to, int n) { HD2NF(to, static_cast<const double *>(from), n); });
  with("N32H4", "mt2hi",
       [](const void *from, void *to, int n) { N32H4(static_cast<int *>(to), from, n); });
  with("H42N3", "hi2mt",  // small values, which do not wrap
       [](const void *from, void *to, int n) { H42N3(to, static_cast<const int *>(from), n); });
  with("swap2", "ms2hs", swap2);
  with("swap4", "mi2hi", swap4);
  with("swap8", "ml2hl", swap8);
}
