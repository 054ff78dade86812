// Which kernels this process uses, and whether two buffers lie so that a kernel may be used.

#include <atomic>
#include <cstdint>

#include "conv/kernels/kernels.h"
#include "frame/processor.h"

namespace conv {
namespace {

// Relaxed is enough: the tables are constant, and two threads that choose at once choose the same.
std::atomic<const Kernels *> chosen{nullptr};

// Stores around the caches save reading each line first, and reading ahead by hand passes the ends
// of pages: both pay from about this many bytes read and written on, and cost in the caches.
constexpr long kLarge = 16l << 20;

constexpr long kLine = 64;

// Whether some element begins where a line does.
bool lines_up(uintptr_t target, long size) {
  return size % 2 != 0 || target % static_cast<uintptr_t>(size) == 0;
}

}  // namespace

const Kernels &best_kernels() {
  switch (best_vectors()) {
    case Vectors::avx512:
      return kAvx512;
    case Vectors::avx2:
      return kAvx2;
    default:
      return kSse2;
  }
}

void choose_kernels(const Kernels &kernels) { chosen.store(&kernels, std::memory_order_relaxed); }

// Large buffers: the destination is lined up by a head of some whole blocks and more. This and
// the next have no part in the path of a short call, and what it would save of their arguments
// would cost it a frame: hence not static.
[[gnu::noinline]] int run_large(const char *from, char *to, long n, Conversion conversion,
                                Kernel kernel, Loop loop) {
  const auto target = reinterpret_cast<uintptr_t>(to);
  if (!lines_up(target, conversion.to_size)) return kernel(from, to, n, Way::apart, loop);
  long head = kLargestBlock;
  while ((target + static_cast<uintptr_t>(head * conversion.to_size)) % kLine != 0) ++head;
  return kernel(from, to, head, Way::apart, loop) |
         kernel(from + head * conversion.from_size, to + head * conversion.to_size, n - head,
                Way::around, loop);
}

[[gnu::noinline]] int run_first_kernel(const char *from, char *to, long n, Conversion conversion,
                                       Loop loop) {
  choose_kernels(best_kernels());
  return run_kernel(from, to, n, conversion, loop);
}

int run_kernel(const char *from, char *to, long n, Conversion conversion, Loop loop) {
  const Kernels *kernels = chosen.load(std::memory_order_relaxed);
  if (kernels == nullptr) return run_first_kernel(from, to, n, conversion, loop);
  const Kernel kernel = kernels->of[conversion.member];
  if (kernel == nullptr) return loop(from, to, n);

  const auto source = reinterpret_cast<uintptr_t>(from);
  const auto target = reinterpret_cast<uintptr_t>(to);
  const uintptr_t source_end = source + static_cast<uintptr_t>(n * conversion.from_size);
  const uintptr_t target_end = target + static_cast<uintptr_t>(n * conversion.to_size);
  if (target >= source_end || target_end <= source) {
    if (n * (conversion.from_size + conversion.to_size) >= kLarge)
      return run_large(from, to, n, conversion, kernel, loop);
    return kernel(from, to, n, Way::apart, loop);
  }
  if (target > source || target_end > source_end) return loop(from, to, n);
  return kernel(from, to, n, Way::forward, loop);
}

}  // namespace conv
