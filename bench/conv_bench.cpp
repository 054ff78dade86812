// conv_bench: every function of the conversion family, over memcpy's rate for the same bytes.
//
//   conv_bench [--quick] [--brief] [--odd] [--failing] [--place] [--calls] [PATTERN]
//
// Rates at L1 (16 KiB read and written in all), L2 (512 KiB) and out of cache (256 MiB), beside
// plain loops and other libraries; then what should not cost: an external address that is odd, data
// of which nothing is exact and a destination that is the source, over the same member without, at
// L1 and L2, and calls of 1, 4 and 16 elements over a plain loop's call. --brief leaves all but our
// own rates out, the other options but --quick leave all but what they name out. PATTERN is part of
// a name.

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "bench/alternate.h"
#include "bench/conv_peers.h"
#include "bench/conv_plain_types.h"
#include "conv/family.h"
#include "include/plintor.h"

namespace {

// ---- The members -----------------------------------------------------------------------------

struct Member {
  const char *name;
  char layout;
  char from, to;  // type letters
  bool reads;
  int (*call)(const char *from, char *to, int n);
};

template <class H>
H host_of(int (*)(char **, H *, int));
template <class H>
H host_of(int (*)(const H *, char **, int));

#define READER(NAME, R, E, H)                                                  \
  {#NAME, #R[0], #E[0], #H[0], true, [](const char *from, char *to, int n) {   \
     char *cursor = const_cast<char *>(from);                                  \
     return NAME(&cursor, reinterpret_cast<decltype(host_of(NAME)) *>(to), n); \
   }},
#define WRITER(NAME, R, E, H)                                                          \
  {#NAME, #R[0], #H[0], #E[0], false, [](const char *from, char *to, int n) {          \
     char *cursor = to;                                                                \
     return NAME(reinterpret_cast<const decltype(host_of(NAME)) *>(from), &cursor, n); \
   }},
#define PAIR(R, E, H) READER(R##E##2h##H, R, E, H) WRITER(h##H##2##R##E, R, E, H)
#define EACH(R, E, H) \
  PAIR(R, E, H)       \
  READER(u##R##E##2h##H, R, E, H) WRITER(uh##H##2##R##E, R, E, H)
#define NONE(...)
#define PLAIN(NAME, FROM, TO, READS, ...)                               \
  {#NAME, 'm', FROM, TO, READS, [](const char *from, char *to, int n) { \
     __VA_ARGS__;                                                       \
     return 0;                                                          \
   }},

const Member kMembers[] = {
    // clang-format off
    FAMILY(EACH, PAIR, PAIR, NONE, NONE)
    READER(vt2hi, v, t, i) READER(mt2hi, m, t, i) READER(vt2hf, v, t, f) READER(mt2hf, m, t, f)
    WRITER(hi2vt, v, t, i) WRITER(hi2mt, m, t, i)
    PLAIN(H42N3, 'i', 't', false, H42N3(to, reinterpret_cast<const int *>(from), n))
    PLAIN(NF2HD, 'f', 'd', true, NF2HD(reinterpret_cast<double *>(to), from, n))
    PLAIN(HD2NF, 'd', 'f', false, HD2NF(to, reinterpret_cast<const double *>(from), n))
    PLAIN(swap2, 's', 's', false, swap2(from, to, n))
    PLAIN(swap4, 'i', 'i', false, swap4(from, to, n))
    PLAIN(swap8, 'l', 'l', false, swap8(from, to, n))
    // clang-format on
};

char external_of(const Member &m) { return m.reads ? m.from : m.to; }

bool is_plain_copy(const Member &m) {
  return m.from == m.to && (m.from == 'b' || (m.layout == 'a' && m.from != 'd'));
}

// Whether the external double is what only layout a has: neither big- nor little-endian.
bool is_mixed(const Member &m) { return m.layout == 'a' && external_of(m) == 'd'; }

Conversion conversion_of(const Member &m) {
  const bool is_unsigned = m.name[0] == 'u', big = m.layout == 'm' && external_of(m) != 'b';
  return {{m.from, is_unsigned && !floating(m.from), big && m.reads},
          {m.to, is_unsigned && !floating(m.to), big && !m.reads}};
}

// The group's name, and the least geometric mean and the least member that we aim at, at each size.
struct Group {
  const char *name;
  double mean[3], least[3];
};

const Group kGroups[] = {
    {"plain copy", {0.97, 0.97, 0.98}, {0.95, 0.93, 0.95}},
    {"same-width reversal", {1.35, 0.93, 1.2}, {0.95, 0.88, 1.1}},
    {"widening", {1.0, 0.9, 1.1}, {0.75, 0.8, 0.95}},
    {"narrowing with report", {0.85, 0.85, 1.15}, {0.6, 0.65, 0.95}},
    {"integer to floating", {0.9, 0.86, 1.15}, {0.5, 0.55, 1.0}},
    {"floating to integer", {0.45, 0.56, 1.1}, {0.25, 0.3, 0.9}},
    {"float and double", {0.65, 0.7, 1.15}, {0.44, 0.53, 1.0}},
    {"three bytes, reading", {0.8, 0.8, 0.95}, {}},
    {"three bytes, writing", {0.5, 0.65, 0.75}, {}},
};

const char *group_of(const Member &m) {
  if (m.from == 't') return "three bytes, reading";
  if (m.to == 't') return "three bytes, writing";
  if (m.from == m.to) return is_plain_copy(m) ? "plain copy" : "same-width reversal";
  if (floating(m.from) && floating(m.to)) return "float and double";
  if (floating(m.to)) return "integer to floating";
  if (floating(m.from)) return "floating to integer";
  return size_of(m.from) < size_of(m.to) ? "widening" : "narrowing with report";
}

// ---- The data --------------------------------------------------------------------------------

struct Buffers {
  char *from, *to;
};

// Huge pages where there are any: which small ones a process gets decides how well half a megabyte
// fits its cache.
char *pages(size_t bytes) {
  void *at = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (at == MAP_FAILED) std::perror("mmap"), std::exit(1);
  madvise(at, bytes, MADV_HUGEPAGE);
  std::memset(at, 0, bytes);
  return static_cast<char *>(at);
}

// The member that undoes this one, or null.
const Member *inverse_of(const Member &m) {
  const std::string name = m.name, sign = name[0] == 'u' ? "u" : "";
  const size_t two = name.find('2');
  const std::string inverse =
      sign + name.substr(two + 1) + "2" + name.substr(sign.size(), two - sign.size());
  const auto *end = std::end(kMembers),
             *found = std::find_if(std::begin(kMembers), end,
                                   [&](const Member &other) { return inverse == other.name; });
  return found == end ? nullptr : found;
}

void fill_host(char type, char *at, int n) {
  const auto size = static_cast<size_t>(size_of(type));
  std::memset(at, 0, static_cast<size_t>(n) * size);
  for (int k = 0; k < n; ++k) {
    if (type == 'f')
      reinterpret_cast<float *>(at)[k] = static_cast<float>(k % 101);
    else if (type == 'd')
      reinterpret_cast<double *>(at)[k] = k % 101;
    else
      at[static_cast<size_t>(k) * size] = static_cast<char>(k % 101);
  }
}

// Small numbers that every conversion keeps. What no member writes is zeros.
void fill(const Member &m, Buffers at, int n) {
  if (!m.reads) {
    fill_host(m.from, at.from, n);
  } else if (const Member *writer = inverse_of(m)) {
    fill_host(m.to, at.to, n);
    writer->call(at.to, at.from, n);
  } else {
    std::memset(at.from, 0, static_cast<size_t>(n) * static_cast<size_t>(size_of(m.from)));
  }
}

// Elements for `total` bytes read and written.
int count_for(const Member &m, size_t total) {
  return static_cast<int>(total / static_cast<size_t>(size_of(m.from) + size_of(m.to)));
}

// ---- The measurements ------------------------------------------------------------------------

const char *const kLoop = "loop";
constexpr size_t kL1 = 16u << 10, kL2 = 512u << 10;

// A peer's call, if it can do what the member does and gives the same bytes for what fill() gives.
std::function<void()> run_of(const Peer &peer, const Member &m, Buffers at, int n) {
  const auto size = static_cast<size_t>(n) * static_cast<size_t>(size_of(m.to));
  m.call(at.from, at.to, n);
  const std::string ours(at.to, size);
  std::memset(at.to, 0xa5, size);
  auto run = peer.run(conversion_of(m), at.from, at.to, static_cast<size_t>(n));
  if (run) run();
  return ours == std::string_view(at.to, size) ? run : nullptr;
}

// memcpy, the member, the loops and the peers that there are.
std::vector<bench::Result> compare(const Member &m, size_t total, Buffers at,
                                   const std::vector<PlainLoop> &loops,
                                   const std::vector<Peer> &peers) {
  const int n = count_for(m, total);
  const size_t half =
      static_cast<size_t>(n) * static_cast<size_t>(size_of(m.from) + size_of(m.to)) / 2;
  fill(m, at, n);
  std::vector<bench::Contender> contenders = {{"memcpy",
                                               [=] {
                                                 std::memcpy(at.to, at.from, half);
                                                 asm volatile("" ::: "memory");
                                               }},
                                              {m.name, [=] { m.call(at.from, at.to, n); }}};
  for (const PlainLoop loop : loops) {
    if (loop) contenders.push_back({kLoop, [=] { loop(at.from, at.to, n); }});
  }
  for (const Peer &peer : peers) {
    if (auto run = run_of(peer, m, at, n)) contenders.push_back({peer.name, run});
  }
  return total > kL2 ? bench::alternate(contenders, bench::quick ? 3 : 7, 1e-9)
                     : bench::alternate(contenders);
}

enum class Disturbance { odd, failing, in_place };

// With an odd external address, with bytes of all kinds, or where the source is, over the same
// without. Left out are in place those that widen, which overtake their source, and plain copies,
// which find nothing to do.
double disturbed_ratio(const Member &m, size_t total, Buffers at, Disturbance disturbance) {
  if (disturbance == Disturbance::in_place &&
      (size_of(m.to) > size_of(m.from) || group_of(m) == std::string("plain copy")))
    return NAN;
  const int n = count_for(m, total);
  fill(m, at, n);
  const char *from = at.from;
  char *to = at.to;
  if (disturbance == Disturbance::in_place) {
    to = at.from;
  } else if (disturbance == Disturbance::odd) {
    if (m.reads)
      ++from;
    else
      ++to;
  } else {
    char *bytes = at.from + (64u << 20);
    for (size_t k = 0; k < total; ++k) bytes[k] = static_cast<char>(k * k * 31 + k / 7 + 77);
    from = bytes;
  }
  return bench::alternate({{"plain", [=] { m.call(at.from, at.to, n); }},
                           {"disturbed", [=] { m.call(from, to, n); }}})[1]
      .ratio;
}

// One call of n elements over the same through a plain loop's function.
double call_ratio(const Member &m, int n, Buffers at) {
  const PlainLoop loop = plain_loop_o2(m.name);
  if (!loop) return NAN;
  fill(m, at, n);
  const auto thousand = [=](auto call) {
    return [=] {
      for (int k = 0; k < 1000; ++k) call(at.from, at.to, n);
    };
  };
  return bench::alternate({{"loop", thousand(loop)}, {"ours", thousand(m.call)}})[1].ratio;
}

// ---- The tables ------------------------------------------------------------------------------

struct Mean {
  double logs = 0, least = 1e9;
  int count = 0;
  void add(double ratio) {
    if (std::isnan(ratio)) return;
    logs += std::log(ratio);
    ++count;
    least = std::min(least, ratio);
  }
  double value() const { return std::exp(logs / count); }
};

struct Versus {
  Mean theirs, ours;
};

// Odd, failing and in place at L1 and L2, calls of 1, 4 and 16.
using Row = std::array<double, 9>;

// What is known of a group. The peers at L1 and L2; the best of them is one more.
struct Tally {
  Mean ratio[3], loops[2];
  std::map<std::string, Versus> peers[2];
  std::array<Mean, std::tuple_size_v<Row>> costs;
};
std::map<std::string, Tally> tallies;
const char *const kBest = "best of them";

std::string number(double value) {
  char text[16] = "";
  if (!std::isnan(value)) std::snprintf(text, sizeof text, value < 0.0995 ? "%.3f" : "%.2f", value);
  return text;
}
std::string number(const Mean &mean) { return mean.count == 0 ? "" : number(mean.value()); }

void print_groups() {
  std::printf(
      "## conv groups\n\n"
      "| group | members | L1 | L2 | out of cache | loop `-O2` | loop `-O3` |\n"
      "|---|---|---|---|---|---|---|\n");
  for (const Group &group : kGroups) {
    const Tally &tally = tallies[group.name];
    if (tally.ratio[0].count == 0) continue;
    std::printf("| %s | %d |", group.name, tally.ratio[0].count);
    for (size_t size = 0; size < 3; ++size) {
      std::printf(" %.2f, %.2f (%.2f", tally.ratio[size].value(), tally.ratio[size].least,
                  group.mean[size]);
      if (group.least[size] > 0) std::printf(", %.2f", group.least[size]);
      std::printf(") |");
    }
    std::printf(" %s | %s |\n", number(tally.loops[0]).c_str(), number(tally.loops[1]).c_str());
  }
}

void print_peers(const std::vector<Peer> &peers) {
  std::vector<std::string> names = {kBest};
  for (const Peer &peer : peers) names.push_back(peer.name);
  std::printf("## conv peers\n\n");
  for (size_t size = 0; size < 2; ++size) {
    std::printf("| at L%zu |", size + 1);
    for (const std::string &name : names) std::printf(" %s |", name.c_str());
    std::printf("\n|---|");
    for (size_t k = 0; k < names.size(); ++k) std::printf("---|");
    std::printf("\n");
    for (const Group &group : kGroups) {
      auto &versus = tallies[group.name].peers[size];
      if (versus.empty()) continue;
      std::printf("| %s |", group.name);
      for (const std::string &name : names) {
        const auto &[theirs, ours] = versus[name];
        if (theirs.count > 0)
          std::printf(" %s : %s (%d)", number(theirs).c_str(), number(ours).c_str(), ours.count);
        std::printf(" |");
      }
      std::printf("\n");
    }
    std::printf("\n");
  }
  for (const Peer &peer : peers) std::printf("- %s: %s\n", peer.name, peer.lacks);
  std::printf("\n");
}

// Adds what the loops and the peers did beside ours; returns the words of a row about them.
std::string tally_others(Tally &tally, size_t size, const std::vector<bench::Result> &results) {
  const double ours = results[1].ratio;
  std::string loops, best_name;
  double best = NAN;
  for (size_t c = 2, loop = 0; c < results.size(); ++c) {
    const auto &[name, seconds, ratio, spread] = results[c];
    if (name == kLoop) {
      loops += (ratio < 0.0995 ? "  " : "   ") + number(ratio);
      tally.loops[loop++].add(ratio);
      continue;
    }
    tally.peers[size][name].theirs.add(ratio);
    tally.peers[size][name].ours.add(ours);
    if (std::isnan(best) || ratio > best)
      best = ratio, best_name = "   " + number(ratio) + " " + name;
  }
  if (!std::isnan(best)) {
    tally.peers[size][kBest].theirs.add(best);
    tally.peers[size][kBest].ours.add(ours);
  }
  return loops + best_name;
}

void measure_rates(const std::vector<Member> &members, Buffers at, size_t large, bool brief) {
  const std::vector<Peer> peers = brief ? std::vector<Peer>() : installed_peers(), none;
  const size_t sizes[] = {kL1, kL2, large};
  std::vector<double> rates[3], spreads[3];
  std::printf("## conv functions\n\nPeers found:");
  for (const Peer &peer : peers) std::printf(" %s", peer.name);
  std::printf("\n\n```\n%-8s %-22s %-12s %-12s %-12s  %5s  %5s   %s\n", "", "", "L1", "L2",
              "out of cache", "-O2", "-O3", "best peer, these at L1");
  for (const Member &m : members) {
    const bool comparable = !is_plain_copy(m) && !is_mixed(m) && m.from != 't' && m.to != 't';
    std::vector<PlainLoop> loops;
    if (!brief) loops = {plain_loop_o2(m.name), plain_loop_native(m.name)};
    Tally &tally = tallies[group_of(m)];
    std::printf("%-8s %-22s", m.name, group_of(m));
    std::string others;
    for (size_t size = 0; size < 3; ++size) {
      const auto results =
          compare(m, sizes[size], at, loops, size < 2 && comparable ? peers : none);
      const bench::Result &ours = results[1];
      std::printf(" %5.2f ±%4.2f ", ours.ratio, ours.spread);
      rates[size].push_back(static_cast<double>(sizes[size]) / results[0].seconds * 1e-9);
      spreads[size].push_back(ours.spread);
      tally.ratio[size].add(ours.ratio);
      const std::string words = tally_others(tally, size, results);
      if (size == 0) others = words;
      loops.clear();  // at L1 only
    }
    std::printf("%s\n", others.c_str());
    std::fflush(stdout);
  }
  std::printf("```\n\n");

  print_groups();
  const auto median = [](const std::vector<double> &values) {
    return bench::quantile(values, 0.5);
  };
  std::printf(
      "\nmemcpy reads and writes %.0f, %.0f and %.0f GB/s at L1, at L2 and out of cache. The "
      "median member's spread is "
      "%.3f, %.3f and %.3f.\n\n",
      median(rates[0]), median(rates[1]), median(rates[2]), median(spreads[0]), median(spreads[1]),
      median(spreads[2]));
  if (!brief) print_peers(peers);
}

struct Costs {
  bool odd, failing, in_place, calls;
};

void measure_costs(const std::vector<Member> &members, Buffers at, Costs costs) {
  std::printf("## conv costs of functions\n\n```\n%-8s %-15s %-15s %-15s %s\n", "", "odd: L1, L2",
              "failing: L1, L2", "in place: L1, L2", "n = 1, 4, 16");
  for (const Member &m : members) {
    const auto disturbed = [&](size_t total, bool wanted, Disturbance disturbance) {
      return wanted ? disturbed_ratio(m, total, at, disturbance) : NAN;
    };
    const auto call = [&](int n) { return costs.calls ? call_ratio(m, n, at) : NAN; };
    const Row row = {disturbed(kL1, costs.odd, Disturbance::odd),
                     disturbed(kL2, costs.odd, Disturbance::odd),
                     disturbed(kL1, costs.failing, Disturbance::failing),
                     disturbed(kL2, costs.failing, Disturbance::failing),
                     disturbed(kL1, costs.in_place, Disturbance::in_place),
                     disturbed(kL2, costs.in_place, Disturbance::in_place),
                     call(1),
                     call(4),
                     call(16)};
    std::printf("%-8s", m.name);
    for (size_t k = 0; k < row.size(); ++k) {
      tallies[group_of(m)].costs[k].add(row[k]);
      std::printf(" %7s", number(row[k]).c_str());
    }
    std::printf("\n");
    std::fflush(stdout);
  }
  std::printf(
      "```\n\n## conv costs\n\n"
      "| group | odd address | nothing exact | in place | n = 1 | n = 4 | n = 16 |\n"
      "|---|---|---|---|---|---|---|\n");
  for (const Group &group : kGroups) {
    std::array<std::string, std::tuple_size_v<Row>> text;
    for (size_t k = 0; k < text.size(); ++k) text[k] = number(tallies[group.name].costs[k]);
    if (std::all_of(text.begin(), text.end(), [](const auto &cell) { return cell.empty(); }))
      continue;
    const auto both = [&](size_t k) {
      return text[k].empty() ? "" : text[k] + " / " + text[k + 1];
    };
    std::printf("| %s | %s | %s | %s | %s | %s | %s |\n", group.name, both(0).c_str(),
                both(2).c_str(), both(4).c_str(), text[6].c_str(), text[7].c_str(),
                text[8].c_str());
  }
  std::printf("\n");
}

}  // namespace

int main(int argc, char **argv) {
  bench::processor_time = true;
  bool brief = false;
  Costs costs{};
  std::string pattern;
  for (int k = 1; k < argc; ++k) {
    const std::string argument = argv[k];
    if (argument == "--quick")
      bench::quick = true;
    else if (argument == "--brief")
      brief = true;
    else if (argument == "--odd")
      costs.odd = true;
    else if (argument == "--failing")
      costs.failing = true;
    else if (argument == "--place")
      costs.in_place = true;
    else if (argument == "--calls")
      costs.calls = true;
    else
      pattern = argument;
  }
  const bool everything = !brief && !costs.odd && !costs.failing && !costs.in_place && !costs.calls;
  if (everything) costs = {true, true, true, true};
  std::vector<Member> members;
  std::copy_if(
      std::begin(kMembers), std::end(kMembers), std::back_inserter(members),
      [&](const Member &m) { return std::string(m.name).find(pattern) != std::string::npos; });

  const size_t large = (bench::quick ? 96u : 256u) << 20;
  const Buffers buffers{pages(large), pages(large)};
  if (everything || brief) measure_rates(members, buffers, large, brief);
  if (!brief) measure_costs(members, buffers, costs);
}
