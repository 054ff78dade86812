// Which vector registers this process may use, from CPUID and XGETBV.

#include "frame/processor.h"

#include <cpuid.h>

#include <cstdint>

namespace {

// The state components that the operating system saves, as XCR0 has them.
uint64_t saved_state() {
  uint32_t low, high;
  asm("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return uint64_t{high} << 32 | low;
}

}  // namespace

Vectors best_vectors() {
  unsigned int a, b, c, d;
  if (!__get_cpuid(1, &a, &b, &c, &d)) return Vectors::sse2;
  constexpr uint64_t kYmm = 0x06, kZmm = 0xe6;  // SSE and AVX; opmask and both zmm halves
  const uint64_t saved = c & bit_OSXSAVE ? saved_state() : 0;
  if (!(c & bit_AVX) || (saved & kYmm) != kYmm) return Vectors::sse2;
  if (!__get_cpuid_count(7, 0, &a, &b, &c, &d) || !(b & bit_AVX2)) return Vectors::sse2;
  constexpr unsigned int kWide =
      bit_AVX512F | bit_AVX512BW | bit_AVX512DQ | bit_AVX512VL | bit_AVX512CD;
  const bool wide = (b & kWide) == kWide && (b & bit_BMI2) && (c & bit_AVX512VBMI);
  return wide && (saved & kZmm) == kZmm ? Vectors::avx512 : Vectors::avx2;
}
