// The fields of any text, joined by the separator, are the text again.

#include <cstring>
#include <string>

#include "frame/vestan.h"
#include "fuzz/input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t length) {
  Input input(data, length);
  const char separator = static_cast<char>(input.byte() % 2 == 0 ? ' ' : ':');
  const auto bytes = input.rest();
  const std::string all(reinterpret_cast<const char *>(bytes.data()), bytes.size());
  const std::string text = all.c_str();
  char *copy = strdup(text.c_str());
  Tbl *fields = split(copy, separator);
  std::string joined;
  for (long k = 0; k < lentbl(fields); ++k) {
    if (k > 0) joined += separator;
    joined += static_cast<const char *>(gettbl(fields, k));
  }
  REQUIRE(joined == text);
  REQUIRE(lentbl(fields) >= 1);
  REQUIRE(gettbl(fields, lentbl(fields)) == nullptr);
  freetbl(fields, nullptr);
  free(copy);
  return 0;
}
