// One number for a fixed run of every member, shorthand and swap: equal wherever the conversions
// are compiled alike. same_everywhere.sh builds it with them and compares.

#include <dlfcn.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "tests/conv/members.h"
#include "tests/conv/model.h"

namespace {

uint64_t hash = 0xCBF29CE484222325;

void add(const void *bytes, size_t size) {
  for (size_t k = 0; k < size; ++k)
    hash = (hash ^ static_cast<const uint8_t *>(bytes)[k]) * 0x100000001B3;
}

template <class Function>
Function *found(const char *name) {
  void *const address = dlsym(RTLD_DEFAULT, name);
  if (!address) {
    std::fprintf(stderr, "no %s\n", name);
    std::exit(1);
  }
  return reinterpret_cast<Function *>(address);
}

}  // namespace

int main() {
  alignas(64) static uint8_t to[8 * 5000 + 64];
  members::Random random(41);
  for (const model::Member &member : model::all_members()) {
    const members::Function function{member, found<void>(member.name.c_str())};
    std::vector<uint64_t> values = members::boundaries(member);
    const std::vector<uint64_t> more = members::random_values(member, 4000, random);
    values.insert(values.end(), more.begin(), more.end());
    const std::vector<uint8_t> from = members::source_bytes(member, values);
    const size_t in = model::width(member.from()), out = model::width(member.to());
    // In pieces of changing length, so that results, tails and whole blocks all count.
    int count = 1;
    for (size_t at = 0; at < values.size();) {
      count = count % 131 + 1;
      count = static_cast<int>(std::min<size_t>(static_cast<size_t>(count), values.size() - at));
      std::ptrdiff_t moved = 0;
      const int result = function(&from[at * in], to, count, &moved);
      add(&result, sizeof result);
      add(&moved, sizeof moved);
      add(to, static_cast<size_t>(count) * out);
      at += static_cast<size_t>(count);
    }
  }

  std::vector<uint64_t> values(1000);
  for (uint64_t &value : values) value = random();
  for (const char *name :
       {"H2N2", "H2N4",  "H2NL",  "H2N8",  "UH2N2", "UH2N4", "UH2N8", "N2H2",  "N2H4",  "N2HL",
        "N2H8", "UN2H2", "UN2H4", "UN2H8", "HI2NC", "HI2NS", "HI2NF", "NC2HI", "NS2HI", "NF2HI"}) {
    const int result = found<int(void *, const void *, int)>(name)(to, values.data(), 1000);
    add(&result, sizeof result);
    add(to, 8000);
  }
  for (const char *name : {"NF2HD", "HD2NF", "N32H4", "H42N3"}) {
    found<void(void *, const void *, int)>(name)(to, values.data(), 1000);
    add(to, 8000);
  }
  for (const char *name : {"swap2", "swap4", "swap8"}) {
    found<void(const void *, void *, int)>(name)(values.data(), to, 1000);
    add(to, 8000);
  }
  for (const uint64_t value : values) {
    double real;
    float narrow;
    __builtin_memcpy(&real, &value, sizeof real);
    __builtin_memcpy(&narrow, &value, sizeof narrow);
    for (const char *name : {"htond", "ntohd"}) {
      const double result = found<double(double)>(name)(real);
      add(&result, sizeof result);
    }
    for (const char *name : {"htonf", "ntohf"}) {
      const float result = found<float(float)>(name)(narrow);
      add(&result, sizeof result);
    }
  }
  std::printf("%016lx\n", hash);
  return 0;
}
