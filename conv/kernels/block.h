// What rules for vectors are written for: a block of elements in whole vectors. Included like
// loop.h, after Vector, a vector's bits, and kVector, its size in bytes.

#define INLINE inline __attribute__((always_inline))

// N elements of T in whole vectors.
template <class T, int N>
struct Block {
  static constexpr int kCount = N * static_cast<int>(sizeof(T)) / kVector;
  static_assert(kCount * kVector == N * static_cast<int>(sizeof(T)));
  Vector of[kCount];
};

// Three bytes in layout R. Their order is the rule's business: they do not end with a vector.
template <char R>
struct Three {
  char bytes[3];
};
