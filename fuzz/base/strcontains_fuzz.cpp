// A match in any text lies inside the text, and is found again with the pattern that was kept.

#include <cstring>
#include <string>

#include "frame/vestan.h"
#include "fuzz/input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t length) {
  // Patterns are the programs' own; only the texts come from elsewhere.
  static constexpr const char *kPatterns[] = {"/opt/vestan/.*/bin/korvex", "^[a-z]+ *$",
                                              "(a|ab)(c|bcd)", "x*"};
  static void *hooks[std::size(kPatterns)];
  Input input(data, length);
  const size_t which = input.byte() % std::size(kPatterns);
  const auto bytes = input.rest();
  const std::string text(reinterpret_cast<const char *>(bytes.data()), bytes.size());
  char *copy = strdup(text.c_str());

  long start = -7, end = -7;
  const int found = strcontains(copy, kPatterns[which], &hooks[which], &start, &end);
  REQUIRE(found == 0 || found == 1);
  if (found == 1)
    REQUIRE(0 <= start && start <= end && end <= static_cast<long>(strlen(copy)));
  else
    REQUIRE(start == -7 && end == -7);
  long start_again = -7, end_again = -7;
  REQUIRE(strcontains(copy, kPatterns[which], nullptr, &start_again, &end_again) == found);
  REQUIRE(start == start_again && end == end_again);
  free(copy);
  return 0;
}
