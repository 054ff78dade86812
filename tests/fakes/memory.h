// Memory that faults where a buffer ends.

#ifndef TESTS_FAKES_MEMORY_H
#define TESTS_FAKES_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace fakes {

// Readable and writable bytes between two pages that may not be touched.
class Guarded {
 public:
  explicit Guarded(size_t size);  // rounded up to whole pages
  ~Guarded();
  Guarded(const Guarded &) = delete;
  Guarded &operator=(const Guarded &) = delete;

  std::span<uint8_t> all() { return {first_, size_}; }
  // The first and the last `size` bytes: one byte before or behind them faults.
  uint8_t *first() { return first_; }
  uint8_t *last(size_t size) { return first_ + size_ - size; }

 private:
  uint8_t *first_;
  size_t size_;
};

}  // namespace fakes

#endif
