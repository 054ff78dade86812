// conv_bench: every function of the conversion family, over memcpy's rate for the same bytes.
//
//   conv_bench [--quick] [--brief | --calls | --odd | --failing] [PATTERN]
//
// One row a function: at L1 (16 KiB read and written in all), L2 (512 KiB) and out of cache
// (256 MiB, with --quick 96), then the plain loops at L1. --brief leaves the plain loops out,
// --calls measures short calls instead: 1, 4 and 16 elements over a plain loop's call; --odd an
// external address that is odd, and --failing data of which nothing is exact, over the same member
// without, at L1 and L2. PATTERN is part of a name. At the end the groups' geometric means and
// least members.

#include <sys/mman.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "bench/alternate.h"
#include "bench/conv_plain_types.h"
#include "conv/family.h"
#include "include/plintor.h"

namespace {

struct Member {
  const char *name;
  char from, to;  // type letters
  bool reads;
  int (*call)(const char *from, char *to, int n);
};

template <class H>
H host_of(int (*)(char **, H *, int));
template <class H>
H host_of(int (*)(const H *, char **, int));

#define READER(NAME, E, H)                                                     \
  {#NAME, #E[0], #H[0], true, [](const char *from, char *to, int n) {          \
     char *cursor = const_cast<char *>(from);                                  \
     return NAME(&cursor, reinterpret_cast<decltype(host_of(NAME)) *>(to), n); \
   }},
#define WRITER(NAME, E, H)                                                             \
  {#NAME, #H[0], #E[0], false, [](const char *from, char *to, int n) {                 \
     char *cursor = to;                                                                \
     return NAME(reinterpret_cast<const decltype(host_of(NAME)) *>(from), &cursor, n); \
   }},
#define PAIR(R, E, H) READER(R##E##2h##H, E, H) WRITER(h##H##2##R##E, E, H)
#define EACH(R, E, H) PAIR(R, E, H) READER(u##R##E##2h##H, E, H) WRITER(uh##H##2##R##E, E, H)
#define NONE(...)
#define PLAIN(NAME, FROM, TO, ...)                                \
  {#NAME, FROM, TO, true, [](const char *from, char *to, int n) { \
     __VA_ARGS__;                                                 \
     return 0;                                                    \
   }},

const Member kMembers[] = {
    // clang-format off
    FAMILY(EACH, PAIR, PAIR, NONE, NONE)
    READER(vt2hi, t, i) READER(mt2hi, t, i) READER(vt2hf, t, f) READER(mt2hf, t, f)
    WRITER(hi2vt, t, i) WRITER(hi2mt, t, i)
    PLAIN(H42N3, 'i', 't', H42N3(to, reinterpret_cast<const int *>(from), n))
    PLAIN(NF2HD, 'f', 'd', NF2HD(reinterpret_cast<double *>(to), from, n))
    PLAIN(HD2NF, 'd', 'f', HD2NF(to, reinterpret_cast<const double *>(from), n))
    PLAIN(swap2, 's', 's', swap2(from, to, n))
    PLAIN(swap4, 'i', 'i', swap4(from, to, n))
    PLAIN(swap8, 'l', 'l', swap8(from, to, n))
    // clang-format on
};

int size_of(char letter) {
  switch (letter) {
    case 'b':
      return 1;
    case 's':
      return 2;
    case 't':
      return 3;
    case 'i':
    case 'f':
      return 4;
    default:
      return 8;
  }
}

bool floating(char letter) { return letter == 'f' || letter == 'd'; }

std::string group_of(const Member &m) {
  const std::string name = m.name;
  if (m.from == 't') return "three bytes, reading";
  if (m.to == 't') return "three bytes, writing";
  if (m.from == m.to) {
    // Layouts that have the host's order: a but for the double.
    const bool plain = name.find('a') != std::string::npos && name[0] != 's' && m.from != 'd';
    return plain ? "plain copy" : "same-width reversal";
  }
  if (floating(m.from) && floating(m.to)) return "float and double";
  if (floating(m.to)) return "integer to floating";
  if (floating(m.from)) return "floating to integer";
  return size_of(m.from) < size_of(m.to) ? "widening" : "narrowing with report";
}

const std::vector<std::string> kGroups = {
    "plain copy",          "same-width reversal", "widening",         "narrowing with report",
    "integer to floating", "floating to integer", "float and double", "three bytes, reading",
    "three bytes, writing"};

// Small numbers that every conversion keeps: as host values for a writer; for a reader as zeros
// with a few low bits, which no layout makes a large number of.
void fill(const Member &m, char *from, size_t bytes) {
  std::memset(from, 0, bytes);
  if (m.reads) return;
  const auto n = bytes / static_cast<size_t>(size_of(m.from));
  for (size_t k = 0; k < n; ++k) {
    const double value = static_cast<double>(k % 101);
    if (m.from == 'f') reinterpret_cast<float *>(from)[k] = static_cast<float>(value);
    if (m.from == 'd') reinterpret_cast<double *>(from)[k] = value;
    if (!floating(m.from))
      from[k * static_cast<size_t>(size_of(m.from))] = static_cast<char>(k % 101);
  }
}

char *pages(size_t bytes) {
  void *at = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
  if (at == MAP_FAILED) std::perror("mmap"), std::exit(1);
  return static_cast<char *>(at);
}

struct Options {
  bool quick = false, brief = false, calls = false, odd = false, failing = false;
  std::string pattern;
};

struct Buffers {
  char *from, *to;
};

// Ratios over memcpy of ours and the loops given, for `total` bytes read and written.
std::vector<bench::Result> compare(const Member &m, size_t total, Buffers at,
                                   const Options &options, bool loops) {
  const auto from_size = static_cast<size_t>(size_of(m.from)),
             to_size = static_cast<size_t>(size_of(m.to));
  const auto n = static_cast<int>(total / (from_size + to_size));
  const size_t half = static_cast<size_t>(n) * (from_size + to_size) / 2;
  fill(m, at.from, static_cast<size_t>(n) * from_size);
  std::vector<bench::Contender> contenders = {{"memcpy",
                                               [=] {
                                                 std::memcpy(at.to, at.from, half);
                                                 asm volatile("" ::: "memory");
                                               }},
                                              {m.name, [=] { m.call(at.from, at.to, n); }}};
  if (loops) {
    for (const PlainLoop loop : {plain_loop_o2(m.name), plain_loop_native(m.name)}) {
      if (loop) contenders.push_back({"loop", [=] { loop(at.from, at.to, n); }});
    }
  }
  const bool large = total > (8u << 20);
  return bench::alternate(contenders, large ? (options.quick ? 3 : 7) : (options.quick ? 9 : 31),
                          large           ? 1e-9
                          : options.quick ? 0.0004
                                          : 0.002);
}

// One call of n elements over the same through a plain loop's function.
double call_ratio(const Member &m, int n, Buffers at, const Options &options) {
  const PlainLoop loop = plain_loop_o2(m.name);
  if (!loop) return NAN;
  fill(m, at.from, 1024);
  constexpr int kTimes = 1000;
  const auto results = bench::alternate({{"loop",
                                          [=] {
                                            for (int k = 0; k < kTimes; ++k)
                                              loop(at.from, at.to, n);
                                          }},
                                         {"ours",
                                          [=] {
                                            for (int k = 0; k < kTimes; ++k)
                                              m.call(at.from, at.to, n);
                                          }}},
                                        options.quick ? 9 : 31, options.quick ? 0.0002 : 0.001);
  return results[1].ratio;
}

// With an odd external address, or with bytes of all kinds, over the same without.
double disturbed_ratio(const Member &m, size_t total, Buffers at, const Options &options) {
  const auto from_size = static_cast<size_t>(size_of(m.from));
  const auto to_size = static_cast<size_t>(size_of(m.to));
  const auto n = static_cast<int>(total / (from_size + to_size));
  fill(m, at.from, static_cast<size_t>(n) * from_size + 64);
  const char *from = at.from + (options.odd && m.reads ? 1 : 0);
  char *to = at.to + (options.odd && !m.reads ? 1 : 0);
  if (options.failing) {
    char *bytes = at.from + (64u << 20);
    for (size_t k = 0; k < static_cast<size_t>(n) * from_size; ++k) {
      bytes[k] = static_cast<char>(k * k * 31 + k / 7 + 77);
    }
    from = bytes;
  }
  const auto results = bench::alternate(
      {{"plain", [=] { m.call(at.from, at.to, n); }}, {"disturbed", [=] { m.call(from, to, n); }}},
      options.quick ? 9 : 31, options.quick ? 0.0004 : 0.002);
  return results[1].ratio;
}

struct Mean {
  double logs = 0, least = 1e9;
  int count = 0;
  const char *least_name = "";
  void add(double ratio, const char *name) {
    logs += std::log(ratio);
    ++count;
    if (ratio < least) least = ratio, least_name = name;
  }
  double value() const { return std::exp(logs / count); }
};

}  // namespace

int main(int argc, char **argv) {
  bench::processor_time = true;
  Options options;
  for (int k = 1; k < argc; ++k) {
    const std::string argument = argv[k];
    if (argument == "--quick")
      options.quick = true;
    else if (argument == "--brief")
      options.brief = true;
    else if (argument == "--calls")
      options.calls = true;
    else if (argument == "--odd")
      options.odd = true;
    else if (argument == "--failing")
      options.failing = true;
    else
      options.pattern = argument;
  }
  const size_t large = (options.quick ? 96u : 256u) << 20;
  const Buffers buffers{pages(large), pages(large)};
  const size_t sizes[] = {16u << 10, 512u << 10, large};
  std::map<std::string, Mean> means[3], loops_means[2];

  if (options.odd || options.failing)
    std::printf("%-8s %6s %6s   over the same member without\n", "", "L1", "L2");
  else if (options.calls)
    std::printf("%-8s %6s %6s %6s   over a plain loop's call\n", "n =", "1", "4", "16");
  else
    std::printf("%-8s %-22s %-12s %-12s %-12s %s\n", "over", "memcpy", "L1", "L2", "out of cache",
                options.brief ? "" : "loop -O2, -O3 -march=native at L1");
  for (const Member &m : kMembers) {
    if (std::string(m.name).find(options.pattern) == std::string::npos) continue;
    const std::string group = group_of(m);
    if (options.calls) {
      std::printf("%-8s", m.name);
      for (int k = 0; k < 3; ++k) {
        const double ratio = call_ratio(m, k == 0 ? 1 : k == 1 ? 4 : 16, buffers, options);
        if (!std::isnan(ratio)) means[k][group].add(ratio, m.name);
        std::printf(" %6.2f", ratio);
      }
      std::printf("\n");
      continue;
    }
    if (options.odd || options.failing) {
      std::printf("%-8s", m.name);
      for (int k = 0; k < 2; ++k) {
        const double ratio = disturbed_ratio(m, sizes[k], buffers, options);
        means[k][group].add(ratio, m.name);
        std::printf(" %6.2f", ratio);
      }
      std::printf("\n");
      continue;
    }
    std::printf("%-8s %-22s", m.name, group.c_str());
    std::string loops;
    for (int k = 0; k < 3; ++k) {
      const auto results = compare(m, sizes[k], buffers, options, k == 0 && !options.brief);
      means[k][group].add(results[1].ratio, m.name);
      std::printf(" %5.2f ±%4.2f ", results[1].ratio, results[1].spread);
      for (size_t c = 2; c < results.size(); ++c) {
        char text[32];
        std::snprintf(text, sizeof text, " %5.2f", results[c].ratio);
        loops += text;
        loops_means[c - 2][group].add(results[c].ratio, m.name);
      }
    }
    std::printf("%s\n", loops.c_str());
    std::fflush(stdout);
  }
  std::printf("\n");
  for (const std::string &group : kGroups) {
    if (means[0][group].count == 0) continue;
    std::printf("%-22s %3d", group.c_str(), means[0][group].count);
    for (auto &size : means) {
      if (size[group].count == 0) continue;
      std::printf("   %5.2f least %5.2f %-7s", size[group].value(), size[group].least,
                  size[group].least_name);
    }
    for (auto &loop : loops_means) {
      if (loop[group].count != 0) std::printf("   loop %5.2f", loop[group].value());
    }
    std::printf("\n");
  }
}
