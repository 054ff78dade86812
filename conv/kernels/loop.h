// The loop of every kernel: load a block, convert it, store it. Included within the unnamed
// namespace and the target region of a file that knows vectors and rules for blocks of them.
// That file provides
//
//   load, store, stream, fence    whole vectors; stream goes around the caches, fence ends that
//   kMasks                        whether there are load_some and store_some, a block's first
//                                 bytes: the others are zeros, which every rule takes for exact
//   ordered                       elements between an external order and the host's
//   kReads, kWrites               whether two types have a kernel
//   resized, narrowed, ...        the steps that rules.h names
//   read_threes, write_threes     the same for three bytes
//   Flaws, add, none              what was found inexact so far; more of that; whether nothing was

#include "conv/kernels/rules.h"

// The fewest elements that are whole vectors on both sides.
template <class S, class T>
constexpr int fewest_elements() {
  constexpr int kLess = sizeof(S) < sizeof(T) ? sizeof(S) : sizeof(T);
  return kLess == 3 ? kVector : kVector / kLess;
}

// Several times as many: four vectors on the larger side keep the processor's pipes full.
template <class S, class T>
constexpr int block_elements() {
  constexpr int kMore = sizeof(S) < sizeof(T) ? sizeof(T) : sizeof(S);
  constexpr int kFewest = fewest_elements<S, T>();
  constexpr int kVectors = kFewest * kMore / kVector;
  return kVectors >= 4 ? kFewest : kFewest * 4 / kVectors;
}

template <class T, int N>
INLINE Block<T, N> load_block(const char *from) {
  Block<T, N> block;
  for (int v = 0; v < block.kCount; ++v) {
    block.of[v] = load(from + v * kVector);
    asm("" : "+v"(block.of[v]));  // or compilers load again for every use
  }
  return block;
}

template <class T, int N>
INLINE void store_block(char *to, Block<T, N> block) {
  for (int v = 0; v < block.kCount; ++v) store(to + v * kVector, block.of[v]);
}

template <class T, int N>
INLINE void stream_block(char *to, Block<T, N> block) {
  for (int v = 0; v < block.kCount; ++v) stream(to + v * kVector, block.of[v]);
}

// A block's flaws are gathered by themselves first: the chain through all of them would be the
// slowest thing in the loop.
template <class Rule, class S, int N>
INLINE auto applied(Block<S, N> block, Flaws &flaws) {
  Flaws here{};
  const auto result = Rule::apply(block, here);
  add(here, flaws);
  return result;
}

constexpr long kAhead = 4096;  // bytes

// Rule says what becomes of a block: its types Source and Target, and its function apply.
template <class Rule, int N>
INLINE void convert_block(const char *from, char *to, long k, Flaws &flaws) {
  using S = typename Rule::Source;
  using T = typename Rule::Target;
  constexpr long kFrom = sizeof(S), kTo = sizeof(T);
  store_block<T, N>(to + k * kTo, applied<Rule>(load_block<S, N>(from + k * kFrom), flaws));
}

template <class Rule>
int convert(const char *from, char *to, long n, Way way, [[maybe_unused]] Loop loop) {
  using S = typename Rule::Source;
  using T = typename Rule::Target;
  constexpr int N = block_elements<S, T>();
  static_assert(N <= kLargestBlock);
  constexpr long kFrom = sizeof(S), kTo = sizeof(T);
  Flaws flaws{};
  long k = 0;
  if (way == Way::around) {
    for (; k + N <= n; k += N) {
      // What is read next: the processor's own reading ahead stops at every page. It may lie behind
      // the source; a prefetch touches nothing.
      for (long line = 0; line < N * kFrom; line += 64) {
        __builtin_prefetch(from + k * kFrom + line + kAhead);
      }
      stream_block<T, N>(to + k * kTo, applied<Rule>(load_block<S, N>(from + k * kFrom), flaws));
    }
    fence();
  } else {
    for (; k + N <= n; k += N) convert_block<Rule, N>(from, to, k, flaws);
  }

  if constexpr (kMasks) {
    if (k < n) {
      const auto rest = load_some<S, N>(from + k * kFrom, (n - k) * kFrom);
      store_some<T, N>(to + k * kTo, applied<Rule>(rest, flaws), (n - k) * kTo);
    }
    return Rule::exact(flaws) ? 0 : -1;
  } else {
    constexpr int kFewest = fewest_elements<S, T>();
    if constexpr (kFewest < N) {
      for (; k + kFewest <= n; k += kFewest) convert_block<Rule, kFewest>(from, to, k, flaws);
    }
    if (k < n && way != Way::forward && n >= kFewest) {
      convert_block<Rule, kFewest>(from, to, n - kFewest, flaws);  // the last ones once more
      k = n;
    }
    const int result = Rule::exact(flaws) ? 0 : -1;
    return k == n ? result : loop(from + k * kFrom, to + k * kTo, n - k) | result;
  }
}

template <char R, class E, class H>
struct Reading {
  using Source = E;
  using Target = H;
  template <int N>
  static INLINE Block<H, N> apply(Block<E, N> external, Flaws &flaws) {
    for (Vector &vector : external.of) vector = ordered<R, E>(vector);
    return read<H>(external, flaws);
  }
  static INLINE bool exact(Flaws flaws) { return none<E, H>(flaws); }
};

template <char R, class E, class H>
struct Writing {
  using Source = H;
  using Target = E;
  template <int N>
  static INLINE Block<E, N> apply(Block<H, N> host, Flaws &flaws) {
    auto external = write<E>(host, flaws);
    for (Vector &vector : external.of) vector = ordered<R, E>(vector);
    return external;
  }
  static INLINE bool exact(Flaws flaws) { return none<H, E>(flaws); }
};

template <char R, class H>
struct ReadingThree {
  using Source = Three<R>;
  using Target = H;
  template <int N>
  static INLINE Block<H, N> apply(Block<Three<R>, N> external, Flaws &) {
    return read_threes<H>(external);
  }
  static INLINE bool exact(Flaws) { return true; }
};

template <char R, bool Saturate>
struct WritingThree {
  using Source = int;
  using Target = Three<R>;
  template <int N>
  static INLINE Block<Three<R>, N> apply(Block<int, N> host, Flaws &flaws) {
    return write_threes<R, Saturate>(host, flaws);
  }
  static INLINE bool exact(Flaws flaws) { return none<int, int>(flaws); }
};

// Only bytes are moved: memmove's business.
template <char R, class E, class H>
constexpr bool kPlainCopy = std::is_integral_v<E> &&std::is_same_v<E, H> &&R == 'a';

template <char R, class E, class H>
constexpr Kernel reading() {
  if constexpr (kPlainCopy<R, E, H> || !kReads<E, H>)
    return nullptr;
  else
    return convert<Reading<R, E, H>>;
}

template <char R, class E, class H>
constexpr Kernel writing() {
  if constexpr (kPlainCopy<R, E, H> || !kWrites<E, H>)
    return nullptr;
  else
    return convert<Writing<R, E, H>>;
}

// The table's entries, in the order of Member.
#define KERNELS_OF(R, E, H, U)                      \
  reading<#R[0], Type<#E[0], U>, Type<#H[0], U>>(), \
      writing<#R[0], Type<#E[0], U>, Type<#H[0], U>>(),
#define KERNELS_PAIR(R, E, H) KERNELS_OF(R, E, H, false)
#define KERNELS_EACH(R, E, H) KERNELS_OF(R, E, H, false) KERNELS_OF(R, E, H, true)
#define KERNELS_NONE(...)
#define KERNELS_OF_FAMILY \
  FAMILY(KERNELS_EACH, KERNELS_PAIR, KERNELS_PAIR, KERNELS_NONE, KERNELS_NONE)
#define KERNELS_OF_THREE                                                    \
  convert<ReadingThree<'v', int>>, convert<ReadingThree<'m', int>>,         \
      convert<ReadingThree<'v', float>>, convert<ReadingThree<'m', float>>, \
      convert<WritingThree<'v', true>>, convert<WritingThree<'m', true>>,   \
      convert<WritingThree<'m', false>>
