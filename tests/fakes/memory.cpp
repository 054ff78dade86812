#include "tests/fakes/memory.h"

#include <sys/mman.h>

#include <cstdlib>

namespace fakes {

namespace {
constexpr size_t kPage = 4096;
}

Guarded::Guarded(size_t size) : size_((size + kPage - 1) / kPage * kPage) {
  if (size_ == 0) size_ = kPage;
  void *all = mmap(nullptr, size_ + 2 * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (all == MAP_FAILED) abort();
  first_ = static_cast<uint8_t *>(all) + kPage;
  if (mprotect(first_, size_, PROT_READ | PROT_WRITE) != 0) abort();
}

Guarded::~Guarded() { munmap(first_ - kPage, size_ + 2 * kPage); }

}  // namespace fakes
