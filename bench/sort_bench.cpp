// sort_bench: btsort over the C library's qsort_r and std::sort.
//
//   sort_bench [--quick]
//
// All sort 100,000 elements by the same comparison; the last column's std::sort is the only one
// that has it inlined.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

#include "bench/alternate.h"
#include "include/plintor.h"

namespace {

constexpr size_t kCount = 100000;

uint64_t key_of(const void *element) {
  uint64_t key;
  memcpy(&key, element, sizeof key);
  return key;
}

int by_key(const void *a, const void *b) {
  const uint64_t x = key_of(a), y = key_of(b);
  return (x > y) - (x < y);
}
int with_context_first(void *, const void *a, const void *b) { return by_key(a, b); }
int with_context_last(const void *a, const void *b, void *) { return by_key(a, b); }

// Out of the compiler's sight, so that std::sort calls it as the others do.
int (*volatile hidden)(const void *, const void *) = by_key;

template <size_t Size>
struct Element {
  char bytes[Size];
};

template <size_t Size>
void measure(const char *order, const std::vector<uint64_t> &keys) {
  using Elements = std::vector<Element<Size>>;
  Elements unsorted(kCount), array;
  for (size_t k = 0; k < kCount; ++k) {
    memset(unsorted[k].bytes, static_cast<int>(k), Size);
    memcpy(unsorted[k].bytes, &keys[k], sizeof keys[k]);
  }
  // Each run sorts a fresh copy; the copying counts for everybody.
  const auto results = bench::alternate({
      {"btsort",
       [&] {
         array = unsorted;
         btsort(array.data(), kCount, Size, nullptr, with_context_first);
       }},
      {"qsort_r",
       [&] {
         array = unsorted;
         qsort_r(array.data(), kCount, Size, with_context_last, nullptr);
       }},
      {"std::sort",
       [&] {
         array = unsorted;
         const auto compare = hidden;
         std::sort(array.begin(), array.end(), [compare](const auto &a, const auto &b) {
           return compare(a.bytes, b.bytes) < 0;
         });
       }},
      {"std::sort, inlined",
       [&] {
         array = unsorted;
         std::sort(array.begin(), array.end(),
                   [](const auto &a, const auto &b) { return key_of(a.bytes) < key_of(b.bytes); });
       }},
  });
  printf("| %zu | %s | %.2f ms |", Size, order, results[0].seconds * 1e3);
  for (size_t c = 1; c < results.size(); ++c) {
    const bench::Result over = bench::inverse(results[c]);
    printf(" %.2f ± %.2f |", over.ratio, over.spread);
  }
  printf("\n");
  fflush(stdout);
}

}  // namespace

int main(int argc, char **argv) {
  bench::processor_time = true;
  bench::quick = argc > 1 && strcmp(argv[1], "--quick") == 0;
  std::mt19937_64 random(1);
  std::vector<uint64_t> shuffled(kCount), sorted(kCount), reversed(kCount), equal(kCount, 7);
  for (uint64_t &key : shuffled) key = random();
  std::iota(sorted.begin(), sorted.end(), 0u);
  std::copy(sorted.rbegin(), sorted.rend(), reversed.begin());
  const struct {
    const char *name;
    const std::vector<uint64_t> &keys;
  } orders[] = {{"random", shuffled}, {"sorted", sorted}, {"reversed", reversed}, {"equal", equal}};

  printf(
      "## sort\n\n"
      "| bytes an element | order | btsort | over qsort_r | over std::sort | over std::sort, "
      "inlined |\n|---|---|---|---|---|---|\n");
  for (const auto &[name, keys] : orders) {
    measure<8>(name, keys);
    measure<16>(name, keys);
    measure<100>(name, keys);
  }
  printf("\n");
}
