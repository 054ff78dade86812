// Whatever the files of /proc hold, the samplers end and give what their types can hold.

#include <cmath>

#include "fuzz/host.h"
#include "fuzz/input.h"
#include "include/plintor.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t length) {
  if (length < 10) return 0;  // too short for any of these files: the process would end
  const std::string text(reinterpret_cast<const char *>(data), length);
  Host host(text);

  int processors = -1;
  CpuState *states = nullptr;
  syscpu(&processors, &states);
  const int now = sysncpu();
  REQUIRE(0 <= now && now <= processors && processors <= 8192 / 3);
  const size_t newline = text.find('\n');
  REQUIRE((now > 0) == (newline < 8188 && text.compare(newline, 4, "\ncpu") == 0));
  for (int k = 0; k < processors; ++k)
    for (const float share : states[k].slot) REQUIRE(!std::isnan(share));

  double total = -1, physical = -1, used = NAN;
  sysmem(&total, &physical, &used);
  REQUIRE(total >= 0 && physical > 0 && !std::isnan(used));

  double in = NAN, out = NAN;
  syspaging(0, &in, &out);
  REQUIRE(in == 0 && out == 0);  // the counters are never found where they are looked for

  double load[3] = {};
  int entities = 0;
  sysloadavg(load, &entities);

  if (char *words = pidcmdline(4711); words != nullptr) {
    REQUIRE(strlen(words) <= 8191);
    free(words);
  }
  if (char *program = pidexecname(4711); program != nullptr) {
    REQUIRE(strchr(program, ' ') == nullptr);
    free(program);
  }
  return 0;
}
