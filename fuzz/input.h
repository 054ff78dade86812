// What a fuzzer takes from its input: numbers from the front, the rest as bytes.

#ifndef FUZZ_INPUT_H
#define FUZZ_INPUT_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>

// Ends the fuzzer when a rule is broken.
#define REQUIRE(rule)                                            \
  do {                                                           \
    if (!(rule)) {                                               \
      fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #rule); \
      abort();                                                   \
    }                                                            \
  } while (false)

class Input {
 public:
  Input(const uint8_t *data, size_t size) : rest_(data, size) {}

  // 0 when the input is used up.
  uint8_t byte() {
    if (rest_.empty()) return 0;
    const uint8_t first = rest_[0];
    rest_ = rest_.subspan(1);
    return first;
  }
  uint16_t word() {
    const unsigned low = byte();
    return static_cast<uint16_t>(low | static_cast<unsigned>(byte()) << 8);
  }
  std::span<const uint8_t> rest() const { return rest_; }

 private:
  std::span<const uint8_t> rest_;
};

#endif
