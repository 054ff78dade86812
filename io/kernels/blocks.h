// Copying by whole vectors, for instruction sets whose loads and stores have no mask. Included like
// line.h, before it.

// The bytes that are looked at in one step.
struct Sixteen {
  __m128i bytes;

  static INLINE Sixteen load(const char *from) {
    return {_mm_loadu_si128(reinterpret_cast<const __m128i *>(from))};
  }
  INLINE void store(char *to) const { _mm_storeu_si128(reinterpret_cast<__m128i *>(to), bytes); }
  // A bit for each byte that ends a line, the first byte's the lowest.
  INLINE uint64_t ends() const {
    const __m128i zero_at_ends = _mm_min_epu8(bytes, _mm_xor_si128(bytes, _mm_set1_epi8('\n')));
    return static_cast<unsigned>(
        _mm_movemask_epi8(_mm_cmpeq_epi8(zero_at_ends, _mm_setzero_si128())));
  }
};

// 4 .. 15 bytes by words of 4, 16 .. 63 by words of 16: four moves that overlap, and no branch that
// would have to guess a line's length.
template <typename Word>
INLINE void copy_in_four(char *to, const char *from, size_t n) {
  constexpr size_t size = sizeof(Word);
  const size_t step = (n & 2 * size) / 2;  // a word when there are two or more, else 0
  Word first, second, third, last;
  memcpy(&first, from, size);
  memcpy(&second, from + step, size);
  memcpy(&third, from + n - size - step, size);
  memcpy(&last, from + n - size, size);
  memcpy(to, &first, size);
  memcpy(to + step, &second, size);
  memcpy(to + n - size - step, &third, size);
  memcpy(to + n - size, &last, size);
}

// n < 64
INLINE void copy_short(char *to, const char *from, size_t n) {
  if (n >= 16) {
    copy_in_four<__m128i>(to, from, n);
  } else if (n >= 4) {
    copy_in_four<uint32_t>(to, from, n);
  } else if (n > 0) {
    const char first = from[0], middle = from[n / 2], last = from[n - 1];
    to[0] = first;
    to[n / 2] = middle;
    to[n - 1] = last;
  }
}

// Goes on at n by whole blocks. Returns whether the line has ended.
template <typename Block>
INLINE bool copy_blocks(char *to, const char *from, size_t limit, size_t &n) {
  for (; limit - n >= sizeof(Block); n += sizeof(Block)) {
    _mm_prefetch(from + n + kAhead, _MM_HINT_T0);
    const Block block = Block::load(from + n);
    if (const uint64_t ends = block.ends()) {
      const auto rest = static_cast<size_t>(std::countr_zero(ends));
      copy_short(to + n, from + n, rest);
      n += rest;
      return true;
    }
    block.store(to + n);
  }
  return false;
}

// copy_line, with a block of 64 bytes that has what Sixteen has.
template <typename SixtyFour>
INLINE size_t copy_by_blocks(char *to, const char *from, size_t limit) {
  size_t n = 0;
  if (!copy_blocks<SixtyFour>(to, from, limit, n) && !copy_blocks<Sixteen>(to, from, limit, n))
    for (; n < limit && from[n] != '\n' && from[n] != '\0'; ++n) to[n] = from[n];
  to[n] = '\0';
  return n;
}
