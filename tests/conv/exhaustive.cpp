// conv_exhaustive: proves every member of the family whose source has 32 bits or fewer on all of
// its inputs. Too long for every day; `./dev test --exhaustive` runs it. docs/testing.md says what
// is proved, how, and what it found.
//
//   conv_exhaustive [--threads N] [NAME ...]     all members, or the named ones

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <numeric>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/conv/members.h"
#include "tests/conv/model.h"

using members::Function;
using model::Converted;
using model::Member;

namespace {

constexpr size_t kChunk = 8192;

// ---- The model in a fast form, for sources of 32 bits -------------------------------------------
//
// The model proper takes every value apart anew; here the rules are put as conditions on the bits.
// rehearse() holds it against the model before it is trusted.

constexpr uint32_t kInfinity = 0x7F800000;

constexpr uint64_t low_bytes(uint64_t bits, size_t width) {
  return width == 8 ? bits : bits & ((uint64_t{1} << (8 * width)) - 1);
}

// Integers, written or read, to a type of `width` bytes.
template <bool u>
Converted wrapped(uint32_t bits, size_t width) {
  const int64_t value = u ? static_cast<int64_t>(bits) : static_cast<int32_t>(bits);
  if (width >= 4) return {low_bytes(static_cast<uint64_t>(value), width), true};
  const int size = static_cast<int>(8 * width);
  const int64_t low = u ? 0 : -(int64_t{1} << (size - 1));
  const int64_t high = u ? (int64_t{1} << size) - 1 : -low - 1;
  return {low_bytes(bits, width), low <= value && value <= high};
}

template <bool u>
Converted saturated(uint32_t bits, size_t width) {
  const Converted result = wrapped<u>(bits, width);
  if (result.exact) return result;
  const uint64_t all = low_bytes(~uint64_t{0}, width);
  if (u) return {all, false};
  return {bits >> 31 ? (all >> 1) + 1 : all >> 1, false};
}

// Integers to floating: shifted until the top bit is the hidden one, what falls off rounds.
template <bool u, bool to_double>
Converted floated(uint32_t bits, bool always_exact) {
  if (bits == 0) return {0, true};
  const bool negative = !u && bits >> 31;
  const uint32_t magnitude = negative ? 0 - bits : bits;
  const int top = 31 - std::countl_zero(magnitude);
  if (to_double) {
    const uint64_t fraction = static_cast<uint64_t>(magnitude) << (52 - top);
    const uint64_t exponent = static_cast<uint64_t>(1022 + top) << 52;
    return {(static_cast<uint64_t>(negative) << 63) | (exponent + fraction), true};
  }
  const uint64_t wide = static_cast<uint64_t>(magnitude) << (55 - top);  // 24 bits over 32 others
  const auto lost = static_cast<uint32_t>(wide);
  auto fraction = static_cast<uint32_t>(wide >> 32);
  fraction += lost > 0x80000000 || (lost == 0x80000000 && (fraction & 1));
  const uint32_t exponent = static_cast<uint32_t>(126 + top) << 23;
  return {(static_cast<uint32_t>(negative) << 31) | (exponent + fraction),
          always_exact || lost == 0};
}

// A float's integer part, as far as 64 bits hold it, and whether there was a fraction.
struct Whole {
  uint64_t magnitude;
  bool fraction;
  bool fits;  // below 2^64
};

inline Whole whole_part(uint32_t bits) {
  const int exponent = static_cast<int>(bits >> 23 & 0xFF) - 127;
  const uint64_t significand = (bits & 0x7FFFFF) | 0x800000;
  if (exponent < 0) return {0, (bits & 0x7FFFFFFF) != 0, true};
  if (exponent >= 64) return {0, false, false};
  if (exponent >= 23) return {significand << (exponent - 23), false, true};
  const int lost = 23 - exponent;
  return {significand >> lost, (significand & ((uint64_t{1} << lost) - 1)) != 0, true};
}

// The truncation of the width that belongs to the integer type, narrowed to it.
template <bool u, char type>
uint64_t truncation(uint32_t bits, const Whole &whole) {
  const size_t width = model::width(type);
  const bool negative = bits >> 31;
  const bool nan = (bits & 0x7FFFFFFF) > kInfinity;
  const uint64_t signed_value = negative ? 0 - whole.magnitude : whole.magnitude;
  if (u && type == 'l' && (!negative || nan)) return whole.fits && !nan ? whole.magnitude : 0;
  constexpr bool kWide = type == 'l' || (u && type == 'i');
  const uint64_t half = kWide ? uint64_t{1} << 63 : uint64_t{1} << 31;
  if (!whole.fits || whole.magnitude >= half) return low_bytes(half, width);
  return low_bytes(signed_value, width);
}

// Reading, and writing to as wide a signed type: exact when the value is one of the type's.
template <bool u, char type>
Converted truncated(uint32_t bits) {
  const Whole whole = whole_part(bits);
  const bool negative = bits >> 31;
  const int size = static_cast<int>(8 * model::width(type));
  const uint64_t high = ~uint64_t{0} >> (64 - size + (u ? 0 : 1));
  const uint64_t limit = negative ? (u ? 0 : high + 1) : high;
  return {truncation<u, type>(bits, whole),
          whole.fits && !whole.fraction && whole.magnitude <= limit};
}

// Writing to a narrower or unsigned type: the bits of the bounds, compared as floats are ordered.
template <bool u, char type>
Converted clipped(uint32_t bits) {
  constexpr uint32_t kHigh = type == 'b'   ? (u ? 0x437F0000 : 0x42FE0000)  // 255, 127
                             : type == 's' ? (u ? 0x477FFF00 : 0x46FFFE00)  // 65535, 32767
                             : type == 'i' ? 0x4F800000
                                           : 0x5F800000;                    // 2^32, 2^64
  constexpr uint32_t kLow = u ? 0 : type == 'b' ? 0x43000000 : 0x47000000;  // -128, -32768
  const uint32_t magnitude = bits & 0x7FFFFFFF;
  const uint64_t all = low_bytes(~uint64_t{0}, model::width(type));
  if (magnitude <= kInfinity) {
    if (bits >> 31) {
      if (magnitude > kLow) return {u ? 0 : (all >> 1) + 1, false};
    } else if (magnitude > kHigh) {
      return {u ? all : all >> 1, false};
    }
  }
  return {truncation<u, type>(bits, whole_part(bits)), true};
}

Converted widened(uint32_t bits) {
  const uint64_t sign = static_cast<uint64_t>(bits >> 31) << 63;
  const uint32_t magnitude = bits & 0x7FFFFFFF;
  if (magnitude > kInfinity)
    return {sign | 0x7FF8000000000000 | static_cast<uint64_t>(magnitude & 0x7FFFFF) << 29, false};
  if (magnitude == kInfinity) return {sign | 0x7FF0000000000000, true};
  if (magnitude == 0) return {sign, true};
  if (magnitude >= 0x800000)
    return {sign | ((static_cast<uint64_t>(magnitude) << 29) + (uint64_t{896} << 52)), true};
  const int top = 31 - std::countl_zero(magnitude);  // a subnormal: 2^(top - 149)
  return {sign | ((static_cast<uint64_t>(magnitude) << (52 - top)) +
                  (static_cast<uint64_t>(1023 - 149 + top - 1) << 52)),
          true};
}

// ---- One rule over many values

struct Expected {
  uint64_t bits[kChunk];
  uint8_t exact[kChunk];
};

// A rule: what the layouts of a pair of types have in common.
struct Rule {
  char from, to;
  bool is_unsigned, reads, plain_copy;
  auto operator<=>(const Rule &) const = default;
};

template <class Convert>
void fill(Expected &expected, uint32_t base, Convert &&convert) {
  for (size_t k = 0; k < kChunk; ++k) {
    const Converted converted = convert(base + static_cast<uint32_t>(k));
    expected.bits[k] = converted.bits;
    expected.exact[k] = converted.exact;
  }
}

template <bool u>
bool fill_fast(const Rule &rule, Expected &expected, uint32_t base) {
  const size_t width = model::width(rule.to);
  const bool always = u && !rule.reads;
  if (rule.from == 'i') switch (rule.to) {
      case 'f':
        return fill(expected, base, [&](uint32_t v) { return floated<u, false>(v, always); }), true;
      case 'd':
        return fill(expected, base, [&](uint32_t v) { return floated<u, true>(v, true); }), true;
      default:
        if (rule.reads)
          return fill(expected, base, [&](uint32_t v) { return wrapped<u>(v, width); }), true;
        return fill(expected, base, [&](uint32_t v) { return saturated<u>(v, width); }), true;
    }
  const bool wraps = rule.reads || (!u && width >= 4);
  switch (rule.to) {
    case 'b':
      if (wraps) return fill(expected, base, truncated<u, 'b'>), true;
      return fill(expected, base, clipped<u, 'b'>), true;
    case 's':
      if (wraps) return fill(expected, base, truncated<u, 's'>), true;
      return fill(expected, base, clipped<u, 's'>), true;
    case 'i':
      if (wraps) return fill(expected, base, truncated<u, 'i'>), true;
      return fill(expected, base, clipped<u, 'i'>), true;
    case 'l':
      if (wraps) return fill(expected, base, truncated<u, 'l'>), true;
      return fill(expected, base, clipped<u, 'l'>), true;
    case 'd':
      return fill(expected, base, widened), true;
    default:
      return fill(expected, base,
                  [&](uint32_t v) {
                    return Converted{v, rule.plain_copy || (v & 0x7FFFFFFF) <= kInfinity};
                  }),
             true;
  }
}

// What the rule makes of the values from `base` on.
void expect(const Rule &rule, const Member &member, Expected &expected, uint32_t base) {
  if (model::width(rule.from) < 4) {
    fill(expected, base, [&](uint32_t v) {
      return model::convert(
          member, v & static_cast<uint32_t>(low_bytes(~uint64_t{0}, model::width(rule.from))));
    });
  } else if (rule.is_unsigned) {
    fill_fast<true>(rule, expected, base);
  } else {
    fill_fast<false>(rule, expected, base);
  }
}

// Holds the fast form against the model: every exponent, bound and tie, and random values, each
// with what lies around it.
bool rehearse(const Rule &rule, const Member &member) {
  if (model::width(rule.from) < 4) return true;  // these use the model itself
  constexpr uint64_t kAround = 64;
  members::Random random(31);
  std::vector<uint64_t> values = members::boundaries(member);
  const std::vector<uint64_t> more = members::random_values(member, 5000, random);
  values.insert(values.end(), more.begin(), more.end());
  static Expected expected;
  for (const uint64_t value : values) {
    const uint64_t base = value / kChunk * kChunk;
    expect(rule, member, expected, static_cast<uint32_t>(base));
    const uint64_t first = value - std::min(value - base, kAround);
    const uint64_t last = std::min(base + kChunk - 1, value + kAround);
    for (uint64_t bits = first; bits <= last; ++bits) {
      const Converted converted = model::convert(member, bits);
      const uint64_t fast = expected.bits[bits - base];
      const bool exact = expected.exact[bits - base] != 0;
      if (converted.bits == fast && converted.exact == exact) continue;
      std::printf("%s of %08lx: the fast form is wrong: %016lx %d, the model %016lx %d\n",
                  member.name.c_str(), bits, fast, exact, converted.bits, converted.exact);
      return false;
    }
  }
  return true;
}

// ---- Layouts, many values at a time

template <class T>
void encode_as(char layout, char type, const uint64_t *bits, uint8_t *bytes) {
  for (size_t k = 0; k < kChunk; ++k) {
    T value = static_cast<T>(bits[k]);
    if constexpr (sizeof(T) == 2)
      value = layout == 'm' ? __builtin_bswap16(value) : value;
    else if constexpr (sizeof(T) == 4)
      value = layout == 'm' ? __builtin_bswap32(value) : value;
    else if constexpr (sizeof(T) == 8) {
      if (layout == 'm') value = __builtin_bswap64(value);
      if (layout == 'a' && type == 'd') value = value << 32 | value >> 32;
    }
    std::memcpy(bytes + k * sizeof(T), &value, sizeof(T));
  }
}

void encode(char layout, char type, const uint64_t *bits, uint8_t *bytes) {
  switch (model::width(type)) {
    case 1:
      return encode_as<uint8_t>(layout, type, bits, bytes);
    case 2:
      return encode_as<uint16_t>(layout, type, bits, bytes);
    case 4:
      return encode_as<uint32_t>(layout, type, bits, bytes);
    case 8:
      return encode_as<uint64_t>(layout, type, bits, bytes);
    default:
      for (size_t k = 0; k < kChunk; ++k) model::store(layout, type, bits[k], bytes + 3 * k);
  }
}

// ---- The proof

// One function of the shared object under all of its names, and what was found.
struct Subject {
  Function function;
  std::string names;
  std::atomic<uint64_t> inexact = 0, wrong = 0;
};

std::mutex printing;

void report(Subject &subject, const char *what, const uint8_t *from, const uint8_t *to) {
  if (subject.wrong++ >= 5) return;
  const std::lock_guard<std::mutex> lock(printing);
  std::printf("  WRONG: %s: %s\n", what,
              members::difference(subject.function.member, from, to).c_str());
}

// Buffers of one worker.
struct Worker {
  Expected expected;
  uint64_t values[kChunk];
  alignas(64) uint8_t from[kChunk * 8], wanted[kChunk * 8], to[kChunk * 8], some[kChunk * 8];
};

// One element alone, with as little around it as can be: there are billions.
template <bool reads>
int alone(void *address, const uint8_t *from, uint8_t *to) {
  if constexpr (reads) {
    char *cursor = reinterpret_cast<char *>(const_cast<uint8_t *>(from));
    return reinterpret_cast<int (*)(char **, void *, int)>(address)(&cursor, to, 1);
  } else {
    char *cursor = reinterpret_cast<char *>(to);
    return reinterpret_cast<int (*)(const void *, char **, int)>(address)(from, &cursor, 1);
  }
}

// Exact elements that a failing one is put among, as many as a block of the widest kernel and one.
constexpr size_t kAmong = 65;
// ... which is done for every one of so many that fail.
constexpr size_t kEvery = 256;

template <bool reads>
void prove(Subject &subject, Worker &worker, size_t count, const std::vector<uint8_t> &friendly) {
  const Function &function = subject.function;
  const Member &member = function.member;
  const size_t in = model::width(member.from()), out = model::width(member.to());
  encode(member.reads ? member.layout : 'h', member.from(), worker.values, worker.from);
  encode(member.reads ? 'h' : member.layout, member.to(), worker.expected.bits, worker.wanted);
  const uint8_t *const exact = worker.expected.exact;
  size_t passing = 0;
  for (size_t k = 0; k < count; ++k) passing += exact[k];
  subject.inexact += count - passing;

  // Every byte, and the result of the whole.
  std::memset(worker.to, 0xA5, count * out);
  const int result = function(worker.from, worker.to, static_cast<int>(count));
  if (std::memcmp(worker.to, worker.wanted, count * out) != 0)
    for (size_t k = 0; k < count; ++k)
      if (!members::agrees(member, worker.from + k * in, worker.to + k * out))
        report(subject, "bytes", worker.from + k * in, worker.to + k * out);
  if (result != (passing == count ? 0 : -1))
    report(subject, "result of a block", worker.from, worker.to);
  if (passing == count) return;

  // All that pass, together: none of them fails.
  if (passing > 0) {
    size_t gathered = 0;
    for (size_t k = 0; k < count; ++k) {
      std::memcpy(worker.some + gathered * in, worker.from + k * in, 8);
      gathered += exact[k];
    }
    if (function(worker.some, worker.to, static_cast<int>(passing)) != 0)
      for (size_t k = 0; k < passing; ++k)
        if (alone<reads>(function.address, worker.some + k * in, worker.to) != 0)
          report(subject, "fails", worker.some + k * in, worker.to);
  }

  // Each that fails, alone; and some among others that pass, each at a place of its own.
  size_t failing = 0;
  for (size_t k = 0; k < count; ++k) {
    if (exact[k]) continue;
    const uint8_t *const element = worker.from + k * in;
    if (alone<reads>(function.address, element, worker.to) != -1)
      report(subject, "passes", element, worker.to);
    if (failing++ % kEvery != 0) continue;
    const size_t place = (failing / kEvery + k) % kAmong;
    std::memcpy(worker.some, friendly.data(), kAmong * in);
    std::memcpy(worker.some + place * in, element, in);
    if (function(worker.some, worker.to, static_cast<int>(kAmong)) != -1)
      report(subject, "passes among others", element, worker.to + place * out);
  }
}

double seconds() {
  static const auto start = std::chrono::steady_clock::now();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string grouped(uint64_t number) {
  const std::string digits = std::to_string(number);
  std::string text;
  for (size_t k = 0; k < digits.size(); ++k) {
    if (k > 0 && (digits.size() - k) % 3 == 0) text += ',';
    text += digits[k];
  }
  return text;
}

}  // namespace

int main(int argc, char **argv) {
  unsigned threads = 2;
  std::vector<std::string> wanted;
  for (int k = 1; k < argc; ++k) {
    if (std::string(argv[k]) == "--threads" && k + 1 < argc)
      threads = static_cast<unsigned>(std::max(1, std::atoi(argv[++k])));
    else
      wanted.push_back(argv[k]);
  }
  seconds();

  // Names that are one function are proved once.
  std::map<Rule, std::vector<Subject *>> rules;
  std::map<void *, Subject *> subjects;
  size_t names = 0;
  for (const Function &function : members::all()) {
    const Member &member = function.member;
    if (model::width(member.from()) > 4) continue;
    if (!wanted.empty() && std::find(wanted.begin(), wanted.end(), member.name) == wanted.end())
      continue;
    ++names;
    Subject *&subject = subjects[function.address];
    if (subject) {
      subject->names += " " + member.name;
      continue;
    }
    subject = new Subject{function, member.name};
    rules[{member.from(), member.to(), member.is_unsigned, member.reads, member.plain_copy}]
        .push_back(subject);
  }
  std::printf("%zu names, %zu functions, %zu rules, %u threads\n", names, subjects.size(),
              rules.size(), threads);

  for (const auto &[rule, list] : rules)
    if (!rehearse(rule, list[0]->function.member)) return 2;
  std::printf("%7.1f s  the fast form agrees with the model\n", seconds());

  uint64_t inputs = 0, wrong = 0;
  size_t done = 0;
  for (const auto &entry : rules) {
    const Rule &rule = entry.first;
    const std::vector<Subject *> &list = entry.second;
    const uint64_t total = uint64_t{1} << (8 * model::width(rule.from));
    std::vector<std::vector<uint8_t>> friendly;
    for (const Subject *subject : list) {
      members::Random random(32);
      const Member &member = subject->function.member;
      friendly.push_back(
          members::source_bytes(member, members::friendly_values(member, kAmong, random)));
    }
    std::atomic<uint64_t> next = 0;
    std::vector<std::thread> workers;
    for (unsigned k = 0; k < threads; ++k)
      workers.emplace_back([&] {
        const auto worker = std::make_unique<Worker>();
        for (uint64_t base; (base = next.fetch_add(kChunk)) < total;) {
          expect(rule, list[0]->function.member, worker->expected, static_cast<uint32_t>(base));
          std::iota(worker->values, worker->values + kChunk, base);
          const size_t count = std::min<uint64_t>(kChunk, total - base);
          for (size_t s = 0; s < list.size(); ++s) {
            if (rule.reads)
              prove<true>(*list[s], *worker, count, friendly[s]);
            else
              prove<false>(*list[s], *worker, count, friendly[s]);
          }
        }
      });
    for (std::thread &worker : workers) worker.join();
    for (const Subject *subject : list) {
      ++done;
      inputs += total;
      wrong += subject->wrong;
      std::printf("%7.1f s  %3zu/%zu  %14s inputs, %14s not exact, %s wrong: %s\n", seconds(), done,
                  subjects.size(), grouped(total).c_str(), grouped(subject->inexact).c_str(),
                  grouped(subject->wrong).c_str(), subject->names.c_str());
    }
    std::fflush(stdout);
  }

  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  std::printf("%zu functions under %zu names, %s inputs, %s wrong; %.0f s, %ld s of processor\n",
              subjects.size(), names, grouped(inputs).c_str(), grouped(wrong).c_str(), seconds(),
              static_cast<long>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec));
  return wrong == 0 ? 0 : 1;
}
