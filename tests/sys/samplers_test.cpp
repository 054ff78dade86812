// The samplers together: none of them allocates once its first call is over.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>

#include "include/plintor.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

TEST(samplers, allocate_nothing_after_the_first_call) {
  GTEST_SKIP() << "the sanitizer's allocator is in the way";
}

#else

namespace {
std::atomic<int> allocations{0};
}

#define COUNTED(function, parameters, arguments)                                 \
  extern "C" void *function parameters noexcept {                                \
    static void *(*next)parameters;                                              \
    if (next == nullptr)                                                         \
      next = reinterpret_cast<void *(*)parameters>(dlsym(RTLD_NEXT, #function)); \
    ++allocations;                                                               \
    return next arguments;                                                       \
  }

COUNTED(malloc, (size_t size), (size))
COUNTED(calloc, (size_t count, size_t size), (count, size))
COUNTED(realloc, (void *data, size_t size), (data, size))

TEST(samplers, allocate_nothing_after_the_first_call) {
  int ncpu, nprocs, counts[3];
  CpuState *cpu;
  double figures[3];
  for (int &count : counts) {
    const int before = allocations;
    syscpu(&ncpu, &cpu);
    sysncpu();
    cpu_utilization();
    sysmem(&figures[0], &figures[1], &figures[2]);
    syspaging(0, &figures[0], &figures[1]);
    sysloadavg(figures, &nprocs);
    sysboottime();
    std_now();
    count = allocations - before;
  }
  EXPECT_EQ(counts[0], 3);  // syscpu's arrays
  EXPECT_EQ(counts[1], 0);
  EXPECT_EQ(counts[2], 0);
  const int before = allocations;
  free(pidcmdline(1));
  EXPECT_EQ(allocations - before, 1);  // the text that the caller frees
}

#endif
