// Which kernels this process uses, and whether two buffers lie so that a kernel may be used.

#include <cpuid.h>

#include <atomic>
#include <cstdint>

#include "conv/kernels/kernels.h"

namespace conv {
namespace {

// Relaxed is enough: the tables are constant, and two threads that choose at once choose the same.
std::atomic<const Kernels *> chosen{nullptr};

// The state components that the operating system saves, as XCR0 has them.
uint64_t saved_state() {
  uint32_t low, high;
  asm("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return uint64_t{high} << 32 | low;
}

// A store around the caches saves reading the line first, and pays where the data does not fit
// them: below this many bytes written it only costs.
constexpr long kLarge = 16l << 20;

constexpr long kLine = 64;

// Whether some element begins where a line does.
bool lines_up(uintptr_t target, long size) {
  return size % 2 != 0 || target % static_cast<uintptr_t>(size) == 0;
}

}  // namespace

const Kernels &best_kernels() {
  unsigned int a, b, c, d;
  if (!__get_cpuid(1, &a, &b, &c, &d)) return kSse2;
  constexpr uint64_t kYmm = 0x06, kZmm = 0xe6;  // SSE and AVX; opmask and both zmm halves
  const uint64_t saved = c & bit_OSXSAVE ? saved_state() : 0;
  if (!(c & bit_AVX) || (saved & kYmm) != kYmm) return kSse2;
  if (!__get_cpuid_count(7, 0, &a, &b, &c, &d) || !(b & bit_AVX2)) return kSse2;
  constexpr unsigned int kWide =
      bit_AVX512F | bit_AVX512BW | bit_AVX512DQ | bit_AVX512VL | bit_AVX512CD;
  const bool wide = (b & kWide) == kWide && (b & bit_BMI2) && (c & bit_AVX512VBMI);
  return wide && (saved & kZmm) == kZmm ? kAvx512 : kAvx2;
}

void choose_kernels(const Kernels &kernels) { chosen.store(&kernels, std::memory_order_relaxed); }

Progress run_kernel(Member member, const char *from, long from_size, char *to, long to_size,
                    long n) {
  const Kernels *kernels = chosen.load(std::memory_order_relaxed);
  if (kernels == nullptr) {
    kernels = &best_kernels();
    choose_kernels(*kernels);
  }
  const Kernel kernel = kernels->of[member];
  if (kernel == nullptr) return {0, true};

  const auto source = reinterpret_cast<uintptr_t>(from);
  const auto target = reinterpret_cast<uintptr_t>(to);
  const uintptr_t source_end = source + static_cast<uintptr_t>(n * from_size);
  const uintptr_t target_end = target + static_cast<uintptr_t>(n * to_size);
  const bool apart = target >= source_end || target_end <= source;
  if (!apart && (target > source || target_end > source_end)) return {0, true};
  if (!apart) return kernel(from, to, n, Way::forward);
  if (n * to_size < kLarge || !lines_up(target, to_size)) return kernel(from, to, n, Way::apart);

  // The head, as many elements as line the destination up and some whole blocks, then the rest.
  long head = kLargestBlock;
  while ((target + static_cast<uintptr_t>(head * to_size)) % kLine != 0) ++head;
  const Progress first = kernel(from, to, head, Way::apart);
  const Progress rest = kernel(from + head * from_size, to + head * to_size, n - head, Way::around);
  return {head + rest.done, first.exact && rest.exact};
}

}  // namespace conv
