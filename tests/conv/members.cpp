#include "tests/conv/members.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "include/plintor.h"

namespace members {

using model::Member;

int Function::operator()(const void *from, void *to, int n, std::ptrdiff_t *moved) const {
  int result;
  std::ptrdiff_t distance;
  if (member.reads) {
    char *cursor = static_cast<char *>(const_cast<void *>(from));
    result = reinterpret_cast<int (*)(char **, void *, int)>(address)(&cursor, to, n);
    distance = cursor - static_cast<const char *>(from);
  } else {
    char *cursor = static_cast<char *>(to);
    result = reinterpret_cast<int (*)(const void *, char **, int)>(address)(from, &cursor, n);
    distance = cursor - static_cast<char *>(to);
  }
  if (moved) *moved = distance;
  return result;
}

void *exported(const char *name) {
  static void *const library = [] {
    Dl_info info;
    if (!dladdr(reinterpret_cast<void *>(&vt2hi), &info)) std::abort();
    return dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
  }();
  return dlsym(library, name);
}

const std::vector<Function> &all() {
  static const std::vector<Function> functions = [] {
    std::vector<Function> found;
    for (const Member &member : model::all_members()) {
      void *address = exported(member.name.c_str());
      if (!address) {
        std::fprintf(stderr, "libplintor.so.3 does not export %s\n", member.name.c_str());
        std::abort();
      }
      found.push_back({member, address});
    }
    return found;
  }();
  return functions;
}

namespace {

uint64_t mask(char type) {
  const size_t bits = 8 * model::width(type);
  return bits == 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1;
}

void add_integers(char type, std::vector<uint64_t> &values) {
  for (int shift = 0; shift < 64; ++shift)
    for (int step = -3; step <= 3; ++step) {
      const uint64_t value = (uint64_t{1} << shift) + static_cast<uint64_t>(step);
      values.push_back(value & mask(type));
      values.push_back((0 - value) & mask(type));
    }
  // Halfway between two floats or doubles, just below and just above: even and odd neighbours.
  for (const int precision : {24, 53})
    for (int shift = precision; shift < 64; ++shift)
      for (const uint64_t odd : {uint64_t{0}, uint64_t{1}, (uint64_t{1} << (precision - 1)) - 1})
        for (int step = -1; step <= 1; ++step) {
          const uint64_t unit = uint64_t{1} << (shift - precision + 1);
          const uint64_t value =
              (uint64_t{1} << shift) + odd * unit + unit / 2 + static_cast<uint64_t>(step);
          values.push_back(value & mask(type));
          values.push_back((0 - value) & mask(type));
        }
}

void add_floating(char type, std::vector<uint64_t> &values) {
  const model::Format format = model::format(type);
  const uint64_t sign = uint64_t{1} << (format.fraction_bits + format.exponent_bits);
  const auto add = [&](uint64_t bits) {
    for (uint64_t step = 0; step <= 3; ++step)
      for (const uint64_t near : {bits + step, bits - step}) {
        values.push_back(near & mask(type));
        values.push_back((near ^ sign) & mask(type));
      }
  };
  // Every bound, with the fractions at which truncation and comparison part ways.
  constexpr model::Wide one = 1;
  const model::Wide bounds[] = {0,
                                1,
                                2,
                                100,
                                127,
                                128,
                                255,
                                256,
                                32767,
                                32768,
                                65535,
                                65536,
                                8388607,
                                8388608,
                                16777215,
                                16777216,
                                16777217,
                                33554431,
                                2147483583,
                                2147483584,
                                2147483647,
                                one << 31,
                                4294967040,
                                4294967295,
                                one << 32,
                                one << 53,
                                one << 62,
                                one << 63,
                                (one << 63) - 1,
                                (one << 64) - 1,
                                one << 64,
                                one << 65,
                                one << 24,
                                (one << 53) + 1};
  for (const model::Wide bound : bounds) {
    add(model::rounded(format, model::real_of(bound)));
    for (int fraction = 1; fraction < 16; ++fraction) {
      model::Real value = model::real_of(bound * 16 + fraction);
      value.power = -4;
      add(model::rounded(format, value));
    }
    for (int step = -3; step <= 3; ++step)
      add(model::rounded(format, model::real_of(bound + step)));
  }
  // Every exponent: the powers of two with their neighbours, and in a double the float's ties.
  const uint64_t last = (uint64_t{1} << format.exponent_bits) - 1;
  for (uint64_t exponent = 0; exponent <= last; ++exponent) {
    const uint64_t power = exponent << format.fraction_bits;
    add(power);
    add(power | (uint64_t{1} << (format.fraction_bits - 1)));
    if (type == 'd') {
      add(power | (uint64_t{1} << 28));
      add(power | (uint64_t{1} << 29) | (uint64_t{1} << 28));
      add(power | (((uint64_t{1} << 23) - 1) << 29));
      add(power | (((uint64_t{1} << 24) - 1) << 28));
    }
  }
}

}  // namespace

std::vector<uint64_t> boundaries(const Member &member) {
  std::vector<uint64_t> values;
  if (model::is_floating(member.from()))
    add_floating(member.from(), values);
  else
    add_integers(member.from(), values);
  std::sort(values.begin(), values.end());
  values.erase(std::unique(values.begin(), values.end()), values.end());
  return values;
}

std::vector<uint64_t> random_values(const Member &member, size_t count, Random &random) {
  const char type = member.from();
  std::vector<uint64_t> values(count);
  for (size_t k = 0; k < count; ++k) {
    const uint64_t uniform = random();
    uint64_t value = uniform;
    if (k % 2 == 1 && !model::is_floating(type)) {
      // Any length is as likely as any other, of either sign.
      value >>= random() % 64;
      if (random() & 1) value = 0 - value;
    } else if (k % 2 == 1) {
      const model::Format format = model::format(type);
      const uint64_t bias = (uint64_t{1} << (format.exponent_bits - 1)) - 1;
      const uint64_t sign = random() & 1;
      const uint64_t all_ones = 2 * bias + 1;
      uint64_t exponent = bias - 3 + random() % 72;             // 0.125 to 2^68
      if (k % 16 == 1) exponent = 0;                            // zero and subnormals
      if (k % 16 == 3) exponent = all_ones;                     // infinities and NaNs
      if (k % 16 == 5) exponent = bias - 155 + random() % 300;  // about a float's range
      uint64_t fraction = uniform & ((uint64_t{1} << format.fraction_bits) - 1);
      // As often as not a short fraction, so that whole and exact values occur.
      if (random() & 1)
        fraction &= ~uint64_t{0} << (random() % static_cast<uint64_t>(format.fraction_bits + 1));
      exponent &= all_ones;
      value = (((sign << format.exponent_bits) | exponent) << format.fraction_bits) | fraction;
    }
    values[k] = value & mask(type);
  }
  return values;
}

std::vector<uint64_t> friendly_values(const Member &member, size_t count, Random &random) {
  std::vector<uint64_t> values(count);
  for (uint64_t &value : values) {
    value = random() % 101;
    if (model::is_floating(member.from()))
      value = model::rounded(model::format(member.from()), model::real_of(value));
  }
  return values;
}

std::vector<uint64_t> bad_values(const Member &member) {
  std::vector<uint64_t> values;
  for (const uint64_t value : boundaries(member))
    if (!model::convert(member, value).exact) values.push_back(value);
  return values;
}

std::vector<uint8_t> source_bytes(const Member &member, const std::vector<uint64_t> &values) {
  const size_t width = model::width(member.from());
  std::vector<uint8_t> bytes(values.size() * width);
  for (size_t k = 0; k < values.size(); ++k)
    model::store(member.reads ? member.layout : 'h', member.from(), values[k], &bytes[k * width]);
  return bytes;
}

bool agrees(const Member &member, const uint8_t *from, const uint8_t *to) {
  uint8_t expected[8];
  const size_t width = model::width(member.to());
  model::convert_bytes(member, from, expected);
  if (std::memcmp(expected, to, width) == 0) return true;
  model::convert_bytes(member, from, expected, false);
  return std::memcmp(expected, to, width) == 0;
}

std::string difference(const Member &member, const uint8_t *from, const uint8_t *to) {
  uint8_t expected[8];
  const bool exact = model::convert_bytes(member, from, expected);
  const auto hex = [](const uint8_t *bytes, size_t size) {
    std::string text;
    char two[4];
    for (size_t k = 0; k < size; ++k) {
      std::snprintf(two, sizeof two, " %02x", bytes[k]);
      text += two;
    }
    return text;
  };
  const size_t width = model::width(member.to());
  return member.name + " of" + hex(from, model::width(member.from())) + " wrote" + hex(to, width) +
         ", the model" + hex(expected, width) + (exact ? " (exact)" : " (not exact)");
}

}  // namespace members
