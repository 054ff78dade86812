// Whatever a comparison answers, btsort compares elements of the array, ends, and leaves all of
// them there; when the answers are honest, in order.

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "include/plintor.h"

namespace {

struct Run {
  const char *base;
  size_t count, size;
  Input answers;
  bool honest;
};

int compare(void *context, const void *a, const void *b) {
  Run &run = *static_cast<Run *>(context);
  for (const void *element : {a, b}) {
    const auto offset = static_cast<size_t>(static_cast<const char *>(element) - run.base);
    REQUIRE(offset % run.size == 0 && offset / run.size < run.count);
  }
  if (run.honest) return memcmp(a, b, run.size);
  return static_cast<int>(run.answers.byte()) - 128;
}

std::vector<std::string> elements(const char *base, size_t count, size_t size) {
  std::vector<std::string> result;
  for (size_t k = 0; k < count; ++k) result.emplace_back(base + k * size, size);
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t length) {
  Input input(data, length);
  const size_t size = input.byte() % 40 + 1;
  const bool honest = input.byte() % 2 == 0;
  const auto bytes = input.rest();
  const size_t count = bytes.size() / size;
  char *array = static_cast<char *>(malloc(count * size));  // its end is the block's end
  if (count > 0) memcpy(array, bytes.data(), count * size);
  auto before = elements(array, count, size);

  Run run{array, count, size, Input(bytes.data(), bytes.size()), honest};
  btsort(array, count, size, &run, compare);

  auto after = elements(array, count, size);
  std::sort(before.begin(), before.end());
  if (!honest) std::sort(after.begin(), after.end());
  REQUIRE(before == after);
  free(array);
  return 0;
}
