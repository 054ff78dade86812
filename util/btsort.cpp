// btsort: sorts an array in place, by a comparison that carries the caller's context.
//
// A quicksort whose pivot, the median of three, travels with the partition. The order of its
// comparisons, the places they look at and what stands there are part of the interface. How the
// elements move is not: they go through registers, word by word.

#include "include/plintor.h"

#include <cstdint>
#include <cstring>
#include <utility>

namespace {

using Compare = int (*)(void *context, const void *a, const void *b);

// ---- Elements: how they move -------------------------------------------------------------------

using Word16 = uint64_t __attribute__((vector_size(16)));

template <typename Word>
void swap_word(char *a, char *b) {
  Word word_of_a, word_of_b;
  std::memcpy(&word_of_a, a, sizeof(Word));
  std::memcpy(&word_of_b, b, sizeof(Word));
  std::memcpy(a, &word_of_b, sizeof(Word));
  std::memcpy(b, &word_of_a, sizeof(Word));
}

// The word at `current` moves down to `place`, those of the elements between one element up.
template <typename Word>
void rotate_word(char *place, char *current, size_t size) {
  Word word, next;
  std::memcpy(&word, current, sizeof(Word));
  for (; current > place; current -= size) {
    std::memcpy(&next, current - size, sizeof(Word));
    std::memcpy(current, &next, sizeof(Word));
  }
  std::memcpy(place, &word, sizeof(Word));
}

// An element that is one word.
template <typename Word>
struct OneWord {
  static constexpr size_t size = sizeof(Word);
  static void swap(char *a, char *b) { swap_word<Word>(a, b); }
  static void rotate(char *place, char *current) { rotate_word<Word>(place, current, size); }
};

// An element of any size.
struct Words {
  size_t size;

  void swap(char *a, char *b) const {
    each([=](auto word, size_t k) { swap_word<decltype(word)>(a + k, b + k); });
  }
  void rotate(char *place, char *current) const {
    each([=, this](auto word, size_t k) {
      rotate_word<decltype(word)>(place + k, current + k, size);
    });
  }

 private:
  // Calls `move` for each word, with a word of its type and its offset.
  template <typename Move>
  void each(Move move) const {
    size_t k = 0;
    for (; k + 16 <= size; k += 16) move(Word16(), k);
    if ((size & 8) != 0) {
      move(uint64_t(), k);
      k += 8;
    }
    if ((size & 4) != 0) {
      move(uint32_t(), k);
      k += 4;
    }
    if ((size & 2) != 0) {
      move(uint16_t(), k);
      k += 2;
    }
    if ((size & 1) != 0) move(uint8_t(), k);
  }
};

// ---- Sorting -----------------------------------------------------------------------------------

template <typename Element>
void btinsertion_sort(char *base, size_t count, Element element, void *context, Compare compare) {
  const size_t size = element.size;
  for (size_t k = 1; k < count; ++k) {
    char *current = base + k * size;
    char *place = current;
    while (place > base && compare(context, current, place - size) < 0) place -= size;
    if (place != current) element.rotate(place, current);
  }
}

// All bits set or none, so that a choice is made without a branch.
using Mask = uintptr_t;

char *either(Mask yes, char *a, char *b) {
  const auto bits_of_a = reinterpret_cast<uintptr_t>(a);
  const auto bits_of_b = reinterpret_cast<uintptr_t>(b);
  return reinterpret_cast<char *>(bits_of_b ^ ((bits_of_a ^ bits_of_b) & yes));
}

// Swaps that were decided and are still to be made.
template <typename Element>
class Pending {
 public:
  explicit Pending(Element element) : element_(element) {}
  void add_if(Mask yes, char *a, char *b) {
    end_->a = a;
    end_->b = b;
    end_ -= static_cast<ptrdiff_t>(yes);  // all bits set is -1
    if (end_ == pairs_ + kMost) make();
  }
  void make() {
    for (const Pair *pair = pairs_; pair < end_; ++pair) {
      element_.swap(pair->a, pair->b);
      made_any_ = true;
    }
    end_ = pairs_;
  }
  bool made_any() const { return made_any_; }

 private:
  static constexpr size_t kMost = 32;
  struct Pair {
    char *a, *b;
  };
  Element element_;
  bool made_any_ = false;
  Pair pairs_[kMost];
  Pair *end_ = pairs_;
};

// Brings what is not above the pivot before it and the rest behind it. The pivot stands between
// `left` and `right`, the ends of the range, and travels. Returns its final place; null when
// nothing had to be swapped.
//
// Not inlined, so that its list is not on the stack while btsort recurses.
template <typename Element>
__attribute__((noinline)) char *partition(char *left, char *pivot, char *right, Element element,
                                          void *context, Compare compare) {
  const size_t size = element.size;

  // While neither cursor is at the pivot. Half the answers would surprise a branch, so an answer
  // selects what comes next, all of which is known before. The swaps wait, as no comparison here
  // looks at a place that a cursor has left. When the right cursor moves, the left one waits at an
  // element to be swapped.
  Mask on_right = 0;
  Pending<Element> swaps(element);
  const char *a = left;
  const char *b = pivot;
  while (left < pivot && pivot < right) {
    char *const next_right = right - (size & on_right);
    // In order: the same cursor goes on.
    char *const left_going_on = left + (size & ~on_right);
    char *const a_going_on = either(on_right, pivot, left_going_on);
    char *const b_going_on = either(on_right, next_right, pivot);
    // Not in order: the other cursor's turn.
    char *const left_in_turn = left + (size & on_right);
    char *const a_in_turn = either(on_right, left_in_turn, pivot);
    char *const b_in_turn = either(on_right, pivot, right);

    const Mask turn = static_cast<Mask>(-static_cast<int64_t>(compare(context, a, b)) >> 63);
    a = either(turn, a_in_turn, a_going_on);
    b = either(turn, b_in_turn, b_going_on);
    swaps.add_if(on_right & turn, left, right);
    left += size & ~(on_right ^ turn);
    right = next_right;
    on_right ^= turn;
  }
  swaps.make();
  bool swapped = swaps.made_any();

  // One cursor is at the pivot, and from now on one of them always is.
  if (on_right == 0) {
    while (left < pivot && compare(context, left, pivot) <= 0) left += size;
  }
  for (;;) {
    while (pivot < right && compare(context, pivot, right) <= 0) right -= size;
    if (pivot < right) {
      // The left cursor is at the pivot, which moves to the right.
      element.swap(pivot, right);
      pivot = right;
      left += size;
    } else if (left < pivot) {
      // The right cursor is at the pivot, which moves to the left.
      element.swap(left, pivot);
      right = pivot - size;
      pivot = left;
    } else {
      return swapped ? pivot : nullptr;
    }
    swapped = true;
    while (left < pivot && compare(context, left, pivot) <= 0) left += size;
  }
}

// The place of the median of three; in doubt the middle.
char *median(char *first, char *middle, char *last, void *context, Compare compare) {
  const int before = compare(context, first, middle);
  const int behind = compare(context, middle, last);
  if (before < 0 && behind > 0) return compare(context, first, last) < 0 ? last : first;
  if (before <= 0 || behind >= 0) return middle;
  return compare(context, first, last) > 0 ? last : first;
}

template <typename Element>
void sort(char *base, size_t count, Element element, void *context, Compare compare);

// For a count of at least 4.
template <typename Element>
void _btsort(char *base, size_t count, Element element, void *context, Compare compare) {
  const size_t size = element.size;
  for (;;) {
    char *middle = base + count / 2 * size;
    char *last = base + (count - 1) * size;
    if (count >= 6) {
      char *pivot = median(base, middle, last, context, compare);
      if (pivot != middle) element.swap(pivot, middle);
    }
    const char *pivot = partition(base, middle, last, element, context, compare);
    // Kept: a range that is arranged around its pivot need not be sorted, and may be long.
    if (pivot == nullptr) return btinsertion_sort(base, count, element, context, compare);

    char *now = base;
    size_t now_count = static_cast<size_t>(pivot - base) / size;
    char *later = base + (now_count + 1) * size;
    size_t later_count = count - now_count - 1;
    if (now_count > later_count) {
      std::swap(now, later);
      std::swap(now_count, later_count);
    }
    sort(now, now_count, element, context, compare);  // the smaller part: the stack stays low
    if (later_count < 4) return btinsertion_sort(later, later_count, element, context, compare);
    base = later;
    count = later_count;
  }
}

template <typename Element>
void sort(char *base, size_t count, Element element, void *context, Compare compare) {
  if (count < 4) {  // of 2, it makes one comparison: of the second with the first
    btinsertion_sort(base, count, element, context, compare);
  } else {
    _btsort(base, count, element, context, compare);
  }
}

}  // namespace

extern "C" void btsort(void *base, size_t count, size_t size, void *context,
                       int (*compare)(void *context, const void *a, const void *b)) {
  char *first = static_cast<char *>(base);
  switch (size) {
    case 0:
      return;  // elements without bytes have no order
    case 4:
      return sort(first, count, OneWord<uint32_t>(), context, compare);
    case 8:
      return sort(first, count, OneWord<uint64_t>(), context, compare);
    case 16:
      return sort(first, count, OneWord<Word16>(), context, compare);
    default:
      return sort(first, count, Words{size}, context, compare);
  }
}
