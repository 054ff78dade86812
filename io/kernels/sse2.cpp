// Lines by SSE2, which every processor has.

#include <emmintrin.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "io/kernels/kernels.h"

namespace {

#include "io/kernels/blocks.h"

struct SixtyFour {
  Sixteen part[4];

  static INLINE SixtyFour load(const char *from) {
    return {{Sixteen::load(from), Sixteen::load(from + 16), Sixteen::load(from + 32),
             Sixteen::load(from + 48)}};
  }
  INLINE void store(char *to) const {
    for (int k = 0; k < 4; ++k) part[k].store(to + 16 * k);
  }
  INLINE uint64_t ends() const {
    return part[0].ends() | part[1].ends() << 16 | part[2].ends() << 32 | part[3].ends() << 48;
  }
};

INLINE size_t copy_line(char *to, const char *from, size_t limit) {
  return copy_by_blocks<SixtyFour>(to, from, limit);
}

#include "io/kernels/line.h"

}  // namespace

int read_line_sse2(GxFile *file, char *buffer, int length) {
  return read_line(file, buffer, length);
}
