// Which kernels this process uses, and whether two buffers lie so that a kernel may be used.

#include <atomic>
#include <cstdint>

#include "conv/kernels/kernels.h"
#include "frame/processor.h"

namespace conv {
namespace {

// Relaxed is enough: the tables are constant, and two threads that choose at once choose the same.
std::atomic<const Kernels *> chosen{nullptr};

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
