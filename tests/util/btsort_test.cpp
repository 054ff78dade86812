#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <functional>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/log.h"
#include "tests/fakes/memory.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Pairs = std::vector<std::pair<size_t, size_t>>;

// Answers the comparison of two elements; `call` counts them from 0.
using Answer = std::function<int(const uint8_t *a, const uint8_t *b, size_t call)>;

// ---- The sort as it is described, on the numbers that the elements had at first -----------------

class Model {
 public:
  struct Call {
    uint32_t a, b;              // the places that were compared
    uint32_t a_stood, b_stood;  // the elements that stood there
  };

  Model(const Bytes &bytes, size_t count, size_t size, const Answer &answer)
      : bytes_(bytes), size_(size), answer_(answer), at_(count) {
    std::iota(at_.begin(), at_.end(), 0u);
    btsort(0, count);
  }

  const std::vector<Call> &calls() const { return calls_; }
  const Bytes &before() const { return bytes_; }
  size_t size() const { return size_; }
  const Answer &answer() const { return answer_; }

  Pairs pairs() const {
    Pairs pairs;
    for (const Call &call : calls_) pairs.emplace_back(call.a, call.b);
    return pairs;
  }
  Bytes after() const {
    Bytes result;
    for (const uint32_t k : at_) result.insert(result.end(), element(k), element(k) + size_);
    return result;
  }

 private:
  const uint8_t *element(size_t k) const { return bytes_.data() + k * size_; }

  int compare(size_t a, size_t b) {
    const size_t call = calls_.size();
    calls_.push_back({static_cast<uint32_t>(a), static_cast<uint32_t>(b), at_[a], at_[b]});
    return answer_(element(at_[a]), element(at_[b]), call);
  }
  void swap(size_t a, size_t b) { std::swap(at_[a], at_[b]); }

  void btsort(size_t base, size_t count) {
    if (count == 0 || count == 1) return;
    if (count < 4)
      insertion(base, count);
    else
      quick(base, count);
  }

  void quick(size_t base, size_t count) {
    for (;;) {
      const size_t first = base, middle = base + count / 2, last = base + count - 1;
      if (count >= 6) {
        size_t pivot;
        const int c1 = compare(first, middle);
        const int c2 = compare(middle, last);
        if (c1 < 0 && c2 > 0)
          pivot = compare(first, last) < 0 ? last : first;
        else if (c1 <= 0 || c2 >= 0)
          pivot = middle;
        else
          pivot = compare(first, last) > 0 ? last : first;
        if (pivot != middle) swap(pivot, middle);
      }

      size_t left = first, pivot = middle, right = last;
      bool swapped = false;
    a:
      while (left < pivot && compare(left, pivot) <= 0) left++;
      // b
      while (right > pivot) {
        if (compare(pivot, right) <= 0) {
          right--;
          continue;
        }
        if (left != pivot) {
          swap(left, right);
          right--;
          left++;
        } else {
          swap(pivot, right);
          pivot = right;
          left++;
        }
        swapped = true;
        goto a;
      }
      // c
      if (left != pivot) {
        swap(left, pivot);
        right = pivot - 1;
        pivot = left;
        swapped = true;
        goto a;
      }

      if (!swapped) {
        insertion(base, count);
        return;
      }
      const size_t left_count = pivot - base;
      const size_t right_count = count - left_count - 1;
      const bool left_is_now = left_count <= right_count;
      part(left_is_now ? base : pivot + 1, left_is_now ? left_count : right_count);
      base = left_is_now ? pivot + 1 : base;
      count = left_is_now ? right_count : left_count;
      if (count < 4) {
        part(base, count);
        return;
      }
    }
  }

  void part(size_t base, size_t count) {
    if (count == 2) {
      if (compare(base + 1, base) < 0) swap(base + 1, base);
    } else if (count == 3) {
      insertion(base, count);
    } else if (count >= 4) {
      btsort(base, count);
    }
  }

  void insertion(size_t base, size_t count) {
    for (size_t current = base + 1; current < base + count; ++current) {
      size_t place = current;
      while (place > base && compare(current, place - 1) < 0) --place;
      const uint32_t moved = at_[current];
      for (size_t k = current; k > place; --k) at_[k] = at_[k - 1];
      at_[place] = moved;
    }
  }

  Bytes bytes_;
  size_t size_;
  Answer answer_;
  std::vector<uint32_t> at_;  // which element stands where
  std::vector<Call> calls_;
};

// ---- btsort, held against it --------------------------------------------------------------------

struct Check {
  const Model *model;
  const uint8_t *base;
  size_t next = 0;
  std::string failure;
};

// The comparison: the model knows which places it must be given and what stands there.
int checked(void *context, const void *a, const void *b) {
  Check &check = *static_cast<Check *>(context);
  const Model &model = *check.model;
  const size_t call = check.next++;
  const auto *left = static_cast<const uint8_t *>(a);
  const auto *right = static_cast<const uint8_t *>(b);
  if (!check.failure.empty()) return 0;
  if (call >= model.calls().size()) {
    check.failure = "compares once more at call " + std::to_string(call);
    return 0;
  }
  const Model::Call &expected = model.calls()[call];
  const size_t size = model.size();
  if (left != check.base + expected.a * size || right != check.base + expected.b * size) {
    check.failure = "call " + std::to_string(call) + " compares bytes " +
                    std::to_string(left - check.base) + " and " +
                    std::to_string(right - check.base) + ", not elements " +
                    std::to_string(expected.a) + " and " + std::to_string(expected.b);
    return 0;
  }
  const uint8_t *before = model.before().data();
  if (memcmp(left, before + expected.a_stood * size, size) != 0 ||
      memcmp(right, before + expected.b_stood * size, size) != 0) {
    check.failure = "call " + std::to_string(call) + " finds other bytes";
    return 0;
  }
  return model.answer()(left, right, call);
}

// Sorts in memory that ends where the array does and compares with the model, call by call.
std::string difference(const Model &model, size_t count, size_t offset = 0) {
  const size_t size = model.size(), total = count * size;
  fakes::Guarded memory(total + offset);
  for (const bool at_the_end : {true, false}) {
    uint8_t *array = at_the_end ? memory.last(total + offset) : memory.first() + offset;
    std::fill(memory.all().begin(), memory.all().end(), uint8_t{0xA5});
    std::copy_n(model.before().data(), total, array);
    Check check{&model, array, 0, {}};
    btsort(array, count, size, &check, checked);
    if (!check.failure.empty()) return check.failure;
    if (check.next != model.calls().size())
      return "ends after " + std::to_string(check.next) + " calls, not " +
             std::to_string(model.calls().size());
    const Bytes after = model.after();
    if (total != 0 && memcmp(array, after.data(), total) != 0) return "leaves other bytes";
    for (const uint8_t &byte : memory.all())
      if ((&byte < array || &byte >= array + total) && byte != 0xA5)
        return "writes outside the array";
  }
  return "";
}

// ---- What is sorted -----------------------------------------------------------------------------

// The first half of an element is its key, highest byte first; the rest tells equal ones apart.
size_t key_size(size_t size) { return (size + 1) / 2; }

Answer by_key(size_t size) {
  return [=](const uint8_t *a, const uint8_t *b, size_t) { return memcmp(a, b, key_size(size)); };
}

Bytes elements(size_t size, const std::vector<uint64_t> &keys) {
  Bytes bytes(keys.size() * size);
  for (size_t k = 0; k < keys.size(); ++k) {
    uint8_t *element = bytes.data() + k * size;
    for (size_t n = 0; n < size; ++n) {
      const size_t width = key_size(size);
      const size_t place = n < width ? width - 1 - n : size - 1 - n;
      const uint64_t value = n < width ? keys[k] : k * 2654435761u;
      element[n] = static_cast<uint8_t>(place < 8 ? value >> (8 * place) : n * 31);
    }
  }
  return bytes;
}

enum Order { kRandom, kSorted, kReversed, kFewKeys, kOrganPipe, kEqual, kOrders };

std::vector<uint64_t> keys(Order order, size_t count, size_t size, uint64_t seed = 1) {
  std::mt19937_64 random(seed * 1000003 + count * 7 + size);
  std::vector<uint64_t> result(count);
  const uint64_t most = key_size(size) >= 8 ? UINT64_MAX : (1ull << (8 * key_size(size))) - 1;
  const uint64_t step = std::max<uint64_t>(1, std::min<uint64_t>(most / (count + 1), 1 << 20));
  for (size_t k = 0; k < count; ++k) {
    switch (order) {
      case kRandom:
        result[k] = random() & most;
        break;
      case kSorted:
        result[k] = std::min(most, k * step);
        break;
      case kReversed:
        result[k] = std::min(most, (count - k) * step);
        break;
      case kFewKeys:
        result[k] = random() % 4;
        break;
      case kOrganPipe:
        result[k] = std::min(most, std::min(k, count - k) * step);
        break;
      default:
        result[k] = 7;
    }
  }
  return result;
}

const size_t kSizes[] = {1, 2, 3, 4, 7, 8, 12, 16, 24, 100};

// The pairs of places that btsort compares when it sorts these single bytes.
Pairs pairs_of(Bytes bytes) {
  struct Seen {
    const uint8_t *base;
    Pairs pairs;
  } seen{bytes.data(), {}};
  btsort(bytes.data(), bytes.size(), 1, &seen, [](void *context, const void *a, const void *b) {
    auto &into = *static_cast<Seen *>(context);
    const auto *left = static_cast<const uint8_t *>(a), *right = static_cast<const uint8_t *>(b);
    into.pairs.emplace_back(left - into.base, right - into.base);
    return *left - *right;
  });
  EXPECT_TRUE(std::is_sorted(bytes.begin(), bytes.end()));
  return seen.pairs;
}

int by_value(void *, const void *a, const void *b) {
  uint64_t x, y;
  memcpy(&x, a, 8);
  memcpy(&y, b, 8);
  return (x > y) - (x < y);
}

int counting(void *context, const void *a, const void *b) {
  ++*static_cast<size_t *>(context);
  return by_value(nullptr, a, b);
}

void against_the_model(Order order) {
  for (const size_t size : kSizes) {
    for (size_t count = 0; count <= 300; ++count) {
      const Model model(elements(size, keys(order, count, size)), count, size, by_key(size));
      ASSERT_EQ(difference(model, count), "") << count << " elements of " << size;
    }
  }
}

}  // namespace

// ---- Every comparison, and the final bytes ------------------------------------------------------

TEST(btsort, compares_and_moves_as_described_random_elements) { against_the_model(kRandom); }
TEST(btsort, compares_and_moves_as_described_sorted_elements) { against_the_model(kSorted); }
TEST(btsort, compares_and_moves_as_described_reversed_elements) { against_the_model(kReversed); }
TEST(btsort, compares_and_moves_as_described_few_keys) { against_the_model(kFewKeys); }
TEST(btsort, compares_and_moves_as_described_organ_pipes) { against_the_model(kOrganPipe); }
TEST(btsort, compares_and_moves_as_described_equal_elements) { against_the_model(kEqual); }

TEST(btsort, compares_and_moves_as_described_every_arrangement_of_up_to_7) {
  for (size_t count = 0; count <= 7; ++count) {
    std::vector<uint64_t> values(count);
    std::iota(values.begin(), values.end(), 0u);
    do {
      const Model model(elements(2, values), count, 2, by_key(2));
      ASSERT_EQ(difference(model, count), "");
    } while (std::next_permutation(values.begin(), values.end()));
  }
}

TEST(btsort, compares_and_moves_as_described_every_row_of_8_with_3_keys) {
  for (unsigned code = 0; code < 6561; ++code) {
    std::vector<uint64_t> values;
    for (unsigned rest = code; values.size() < 8; rest /= 3) values.push_back(rest % 3);
    const Model model(elements(8, values), 8, 8, by_key(8));
    ASSERT_EQ(difference(model, 8), "") << code;
  }
}

TEST(btsort, compares_and_moves_as_described_large_arrays) {
  for (const auto &[count, size] : {std::pair<size_t, size_t>{100000, 8},
                                    {20000, 16},
                                    {20000, 100},
                                    {10007, 7},
                                    {65536, 4},
                                    {5000, 1},
                                    {4096, 12}}) {
    for (const Order order : {kRandom, kSorted, kReversed, kOrganPipe, kEqual}) {
      if (order == kOrganPipe && count > 5000) continue;  // quadratic
      const Model model(elements(size, keys(order, count, size)), count, size, by_key(size));
      ASSERT_EQ(difference(model, count), "") << count << " elements of " << size << " " << order;
    }
  }
}

TEST(btsort, sorts_at_every_alignment) {
  for (const size_t size : kSizes) {
    for (size_t offset = 0; offset < 64; ++offset) {
      const size_t count = 50;
      const Model model(elements(size, keys(kRandom, count, size, offset)), count, size,
                        by_key(size));
      ASSERT_EQ(difference(model, count, offset), "") << size << " at " << offset;
    }
  }
}

TEST(btsort, sorts_elements_of_every_size_to_300) {
  for (size_t size = 1; size <= 300; ++size) {
    const Model model(elements(size, keys(kRandom, 40, size)), 40, size, by_key(size));
    ASSERT_EQ(difference(model, 40), "") << size;
  }
}

// ---- Comparisons that lie -----------------------------------------------------------------------

TEST(btsort, stays_in_the_array_and_ends_when_the_answers_are_random) {
  for (const size_t size : kSizes) {
    for (uint64_t seed = 0; seed < 100; ++seed) {
      const size_t count = seed * 3;
      const Answer answer = [=](const uint8_t *, const uint8_t *, size_t call) {
        const uint64_t mixed = (seed * 1000003 + call + 1) * 0x9E3779B97F4A7C15u;
        return static_cast<int>((mixed ^ mixed >> 31) % 3) - 1;
      };
      const Model model(elements(size, keys(kRandom, count, size)), count, size, answer);
      ASSERT_EQ(difference(model, count), "") << count << " elements of " << size;
    }
  }
}

TEST(btsort, stays_in_the_array_and_ends_when_the_answer_is_always_the_same) {
  for (const int constant : {-1, 0, 1, INT_MIN, INT_MIN + 1, INT_MAX}) {
    for (const size_t size : kSizes) {
      for (const size_t count : {2u, 3u, 4u, 5u, 6u, 7u, 8u, 31u, 64u, 1000u}) {
        const Model model(elements(size, keys(kRandom, count, size)), count, size,
                          [=](const uint8_t *, const uint8_t *, size_t) { return constant; });
        ASSERT_EQ(difference(model, count), "") << count << " elements of " << size;
      }
    }
  }
}

TEST(btsort, stays_in_the_array_and_ends_when_the_answers_go_in_circles) {
  for (const size_t size : {1u, 4u, 8u, 16u, 24u}) {
    for (size_t count = 2; count <= 200; ++count) {
      // By turns, with every period to 7.
      for (size_t period = 2; period <= 7; ++period) {
        const Model model(elements(size, keys(kRandom, count, size)), count, size,
                          [=](const uint8_t *, const uint8_t *, size_t call) {
                            return call % period == 0 ? -1 : 1;
                          });
        ASSERT_EQ(difference(model, count), "") << count << " elements of " << size;
      }
      // Each key below the next one, and the highest below the lowest.
      const Model model(
          elements(size, keys(kRandom, count, size)), count, size,
          [](const uint8_t *a, const uint8_t *b, size_t) { return (*a - *b + 9) % 3 - 1; });
      ASSERT_EQ(difference(model, count), "") << count << " elements of " << size;
    }
  }
}

TEST(btsort, uses_only_the_sign_of_an_answer) {
  const size_t count = 200;
  const Bytes bytes = elements(8, keys(kRandom, count, 8));
  const Answer plain = by_key(8);
  const Model model(bytes, count, 8, [=](const uint8_t *a, const uint8_t *b, size_t call) {
    const int sign = plain(a, b, call);
    return sign < 0 ? (call % 2 ? INT_MIN : -5) : sign > 0 ? (call % 2 ? INT_MAX : 77) : 0;
  });
  EXPECT_EQ(model.after(), Model(bytes, count, 8, plain).after());
  EXPECT_EQ(difference(model, count), "");
}

// ---- One rule each ------------------------------------------------------------------------------

TEST(btsort, compares_nothing_in_an_array_of_0_or_1) {
  uint8_t byte = 7;
  btsort(nullptr, 0, 8, nullptr, nullptr);
  btsort(&byte, 0, 1, nullptr, nullptr);
  btsort(&byte, 1, 1, nullptr, nullptr);
  EXPECT_EQ(byte, 7);
  EXPECT_EQ(fakes::log(), fakes::Lines{});
}

TEST(btsort, does_nothing_with_elements_of_0_bytes) {
  uint8_t byte = 7;
  btsort(&byte, 100, 0, nullptr, nullptr);
  EXPECT_EQ(byte, 7);
}

TEST(btsort, sorts_2_with_one_comparison_of_the_second_with_the_first) {
  EXPECT_EQ(pairs_of({1, 2}), (Pairs{{1, 0}}));
  EXPECT_EQ(pairs_of({2, 1}), (Pairs{{1, 0}}));
}

TEST(btsort, sorts_3_by_insertion) {
  EXPECT_EQ(pairs_of({1, 2, 3}), (Pairs{{1, 0}, {2, 1}}));
  EXPECT_EQ(pairs_of({3, 2, 1}), (Pairs{{1, 0}, {2, 1}, {2, 0}}));
  EXPECT_EQ(pairs_of({2, 3, 1}), (Pairs{{1, 0}, {2, 1}, {2, 0}}));
}

TEST(btsort, keeps_the_order_of_equal_elements_in_2_and_3) {
  for (const size_t count : {2u, 3u}) {
    const Bytes bytes = elements(8, std::vector<uint64_t>(count, 5));
    Bytes array = bytes;
    btsort(array.data(), count, 8, nullptr,
           [](void *, const void *a, const void *b) { return memcmp(a, b, 4); });
    EXPECT_EQ(array, bytes);
  }
}

TEST(btsort, takes_the_middle_of_4_and_5_without_a_median) {
  // Index 2 is the pivot; both of its neighbours are in order, so all are sorted by insertion.
  EXPECT_EQ(pairs_of({1, 2, 3, 4}), (Pairs{{0, 2}, {1, 2}, {2, 3}, {1, 0}, {2, 1}, {3, 2}}));
  EXPECT_EQ(pairs_of({1, 2, 3, 4, 5}),
            (Pairs{{0, 2}, {1, 2}, {2, 4}, {2, 3}, {1, 0}, {2, 1}, {3, 2}, {4, 3}}));
}

TEST(btsort, swaps_what_both_cursors_found) {
  // 9 1 5 3: 9 and 3 change places. The right part of 1 needs nothing, the left one is 3 1.
  EXPECT_EQ(pairs_of({9, 1, 5, 3}), (Pairs{{0, 2}, {2, 3}, {1, 2}, {1, 0}}));
}

TEST(btsort, moves_the_pivot_right_when_the_left_cursor_is_at_it) {
  // 1 2 3 0: 3 and 0 change places, and 3 is in its final one. 1 2 0 is sorted by insertion.
  EXPECT_EQ(pairs_of({1, 2, 3, 0}), (Pairs{{0, 2}, {1, 2}, {2, 3}, {1, 0}, {2, 1}, {2, 0}}));
}

TEST(btsort, moves_the_pivot_left_when_the_right_cursor_is_at_it) {
  // 9 1 5 7: 9 and 5 change places, then 5 and 1. The right part is 9 7.
  EXPECT_EQ(pairs_of({9, 1, 5, 7}), (Pairs{{0, 2}, {2, 3}, {0, 1}, {3, 2}}));
}

TEST(btsort, handles_the_left_of_two_equal_parts_first) {
  // 5 4 3 2 1: 5 and 1, then 4 and 2 change places. One comparison for each part of 2.
  EXPECT_EQ(pairs_of({5, 4, 3, 2, 1}), (Pairs{{0, 2}, {2, 4}, {1, 2}, {2, 3}, {1, 0}, {4, 3}}));
  // The same with parts of 3, and a median of three first, which is the middle.
  EXPECT_EQ(pairs_of({7, 6, 5, 4, 3, 2, 1}), (Pairs{{0, 3},
                                                    {3, 6},
                                                    {0, 3},
                                                    {3, 6},
                                                    {1, 3},
                                                    {3, 5},
                                                    {2, 3},
                                                    {3, 4},
                                                    {1, 0},
                                                    {2, 1},
                                                    {5, 4},
                                                    {6, 5}}));
}

TEST(btsort, handles_the_smaller_part_first) {
  // 1 2 6 5 3 4 7 becomes 1 2 4 3 5 6 7: first the right part of 2, then the left one of 4, and of
  // that an empty right part and a left one of 3.
  EXPECT_EQ(pairs_of({1, 2, 6, 5, 3, 4, 7}), (Pairs{{0, 3},
                                                    {3, 6},
                                                    {0, 3},
                                                    {1, 3},
                                                    {2, 3},
                                                    {3, 6},
                                                    {3, 5},
                                                    {3, 4},
                                                    {6, 5},
                                                    {0, 2},
                                                    {1, 2},
                                                    {2, 3},
                                                    {1, 0},
                                                    {2, 1}}));
}

TEST(btsort, takes_the_median_of_three_from_6_on) {
  const auto first_four = [](const Bytes &bytes) {
    Pairs pairs = pairs_of(bytes);
    pairs.resize(4);
    return pairs;
  };
  // The middle is the largest. 1 . . 9 . 5: the last, 5, comes to the middle and is compared with
  // the first again.
  EXPECT_EQ(first_four({1, 2, 3, 9, 4, 5}), (Pairs{{0, 3}, {3, 5}, {0, 5}, {0, 3}}));
  // 5 . . 9 . 1: the first does.
  EXPECT_EQ(first_four({5, 2, 3, 9, 4, 1}), (Pairs{{0, 3}, {3, 5}, {0, 5}, {0, 3}}));
  // The middle is the smallest.
  EXPECT_EQ(first_four({9, 2, 3, 1, 4, 5}), (Pairs{{0, 3}, {3, 5}, {0, 5}, {0, 3}}));
  // The middle is the median: no third comparison, the partition begins.
  EXPECT_EQ(first_four({1, 2, 3, 4, 5, 6}), (Pairs{{0, 3}, {3, 5}, {0, 3}, {1, 3}}));
  EXPECT_EQ(first_four({6, 2, 3, 4, 5, 1}), (Pairs{{0, 3}, {3, 5}, {0, 3}, {3, 5}}));
}

TEST(btsort, sorts_a_range_by_insertion_that_the_partition_left_alone) {
  // 1 0 2 4 3 is arranged around 2 and not sorted.
  EXPECT_EQ(pairs_of({1, 0, 2, 4, 3}),
            (Pairs{{0, 2}, {1, 2}, {2, 4}, {2, 3}, {1, 0}, {2, 1}, {3, 2}, {4, 3}, {4, 2}}));
}

TEST(btsort, sorts_a_long_arranged_range_by_insertion) {
  // 1000 elements, the lower half reversed below the middle, the upper half above it.
  std::vector<uint64_t> array(1000);
  for (size_t k = 0; k < 1000; ++k) array[k] = k < 500 ? 499 - k : k == 500 ? 500 : 1500 - k;
  size_t calls = 0;
  btsort(array.data(), 1000, 8, &calls, counting);
  EXPECT_TRUE(std::is_sorted(array.begin(), array.end()));
  // 2 for the median, 999 for the partition, then half of 500 * 499 each, and 500 where they stop:
  // at the middle, and once for each above it.
  EXPECT_EQ(calls, 2u + 999u + 500u * 499u / 2u + 1u + 499u * 498u / 2u + 499u);
}

TEST(btsort, finishes_1000_sorted_elements_in_one_pass_of_each_kind) {
  std::vector<uint64_t> array(1000);
  std::iota(array.begin(), array.end(), 0u);
  size_t calls = 0;
  btsort(array.data(), 1000, 8, &calls, counting);
  EXPECT_EQ(calls, 2u + 999u + 999u);
  for (size_t k = 0; k < 1000; ++k) EXPECT_EQ(array[k], k);
}

TEST(btsort, moves_nothing_among_equal_elements) {
  const Bytes bytes = elements(16, std::vector<uint64_t>(1000, 5));
  Bytes array = bytes;
  btsort(array.data(), 1000, 16, nullptr,
         [](void *, const void *a, const void *b) { return memcmp(a, b, 8); });
  EXPECT_EQ(array, bytes);
}

TEST(btsort, gives_its_context_to_every_comparison) {
  for (const uintptr_t value : {uintptr_t{0}, uintptr_t{1}, uintptr_t{0x1234567}, UINTPTR_MAX}) {
    static std::vector<void *> given;
    given.clear();
    std::vector<uint64_t> array(1000);
    for (size_t k = 0; k < 1000; ++k) array[k] = 1000 - k;
    btsort(array.data(), 1000, 8, reinterpret_cast<void *>(value),
           [](void *context, const void *a, const void *b) {
             given.push_back(context);
             return by_value(nullptr, a, b);
           });
    EXPECT_TRUE(std::is_sorted(array.begin(), array.end()));
    EXPECT_GT(given.size(), 2000u);
    for (const void *context : given) ASSERT_EQ(context, reinterpret_cast<void *>(value));
  }
}

TEST(btsort, sorts_single_bytes_and_elements_of_7) {
  Bytes bytes{3, 255, 0, 128, 7, 7, 1, 254, 2};
  btsort(bytes.data(), bytes.size(), 1, nullptr, [](void *, const void *a, const void *b) {
    return *static_cast<const uint8_t *>(a) - *static_cast<const uint8_t *>(b);
  });
  EXPECT_EQ(bytes, (Bytes{0, 1, 2, 3, 7, 7, 128, 254, 255}));

  char words[] = "tuesdaymonday.friday.sunday.";
  btsort(words, 4, 7, nullptr,
         [](void *, const void *a, const void *b) { return memcmp(a, b, 7); });
  EXPECT_STREQ(words, "friday.monday.sunday.tuesday");
}

// Kept: the partition that this library has always had.
TEST(btsort, is_quadratic_in_the_elements_of_one_value) {
  for (const auto &[count, least, most] :
       {std::tuple<size_t, size_t, size_t>{5000, 400000, 600000}, {10000, 1600000, 2300000}}) {
    std::mt19937_64 random(1);
    std::vector<uint64_t> array(count);
    for (uint64_t &value : array) value = random() % 16;
    size_t calls = 0;
    btsort(array.data(), count, 8, &calls, counting);
    EXPECT_TRUE(std::is_sorted(array.begin(), array.end()));
    EXPECT_GT(calls, least);
    EXPECT_LT(calls, most);
  }
}

TEST(btsort, needs_little_stack) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer's frames are larger";
#endif
  // For a million elements it calls itself 20 times at most: with their work, below 8 KiB.
  static uintptr_t lowest;
  std::mt19937_64 random(1);
  std::vector<uint64_t> array(1000000);
  for (uint64_t &value : array) value = random();
  lowest = UINTPTR_MAX;
  const auto here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
  btsort(array.data(), array.size(), 8, nullptr, [](void *, const void *a, const void *b) {
    lowest = std::min(lowest, reinterpret_cast<uintptr_t>(__builtin_frame_address(0)));
    return by_value(nullptr, a, b);
  });
  EXPECT_TRUE(std::is_sorted(array.begin(), array.end()));
  EXPECT_LT(here - lowest, 8192u);
}

TEST(btsort, sorts_in_four_threads_at_once) {
  std::vector<std::thread> threads;
  for (size_t k = 0; k < 4; ++k) {
    threads.emplace_back([k] {
      for (const size_t size : kSizes) {
        const Model model(elements(size, keys(kRandom, 200, size, k)), 200, size, by_key(size));
        EXPECT_EQ(difference(model, 200), "");
      }
    });
  }
  for (auto &thread : threads) thread.join();
}
