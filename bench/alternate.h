// Contenders timed against each other on a noisy machine: every round times each of them once, in
// rotating order, and what counts is the median over the rounds of the ratio within a round.

#ifndef BENCH_ALTERNATE_H
#define BENCH_ALTERNATE_H

#include <time.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace bench {

struct Contender {
  std::string name;
  std::function<void()> run;
};

struct Result {
  std::string name;
  double seconds = 0;  // median time of one run
  double ratio = 0;    // median of this contender's speed over the first contender's
  double spread = 0;   // half the distance between the quartiles of that ratio
};

// The first contender's speed over this one's.
inline Result inverse(Result result) {
  result.spread /= result.ratio * result.ratio;
  result.ratio = 1 / result.ratio;
  return result;
}

inline double quantile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  return values[static_cast<size_t>(part * static_cast<double>(values.size() - 1) + 0.5)];
}

// Whether to count the time that the thread had a processor, not the clock's: for contenders that
// never wait, on a machine where others work too.
inline bool processor_time = false;

inline double now() {
  timespec time;
  clock_gettime(processor_time ? CLOCK_THREAD_CPUTIME_ID : CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// Seconds that `times` runs take.
inline double time_of(const Contender &contender, long times) {
  const double start = now();
  for (long k = 0; k < times; ++k) contender.run();
  return now() - start;
}

// Whether to be content with fewer and shorter rounds: for trying a change, not for publishing.
inline bool quick = false;

// The first contender is what the others are measured against. Each timing repeats a contender
// until it takes about `slice` seconds.
inline std::vector<Result> alternate(const std::vector<Contender> &contenders, int rounds = 31,
                                     double slice = 0.001) {
  if (quick) rounds = std::min(rounds, 9), slice /= 4;
  const size_t count = contenders.size();
  std::vector<long> times(count, 1);
  for (size_t c = 0; c < count; ++c) {
    time_of(contenders[c], 1);  // warm
    while (times[c] < (1L << 30)) {
      const double taken = time_of(contenders[c], times[c]);
      if (taken >= slice) break;
      const double wanted = slice / std::max(taken / static_cast<double>(times[c]), 1e-10);
      times[c] = std::max(times[c] + 1, std::min(times[c] * 10, static_cast<long>(wanted * 1.05)));
    }
  }
  std::vector<std::vector<double>> seconds(count), ratios(count);
  for (int round = 0; round < rounds; ++round) {
    std::vector<double> taken(count);
    for (size_t k = 0; k < count; ++k) {
      const size_t c = (k + static_cast<size_t>(round)) % count;
      taken[c] = time_of(contenders[c], times[c]) / static_cast<double>(times[c]);
    }
    for (size_t c = 0; c < count; ++c) {
      seconds[c].push_back(taken[c]);
      ratios[c].push_back(taken[0] / taken[c]);
    }
  }
  std::vector<Result> results;
  for (size_t c = 0; c < count; ++c)
    results.push_back({contenders[c].name, quantile(seconds[c], 0.5), quantile(ratios[c], 0.5),
                       (quantile(ratios[c], 0.75) - quantile(ratios[c], 0.25)) / 2});
  return results;
}

}  // namespace bench

#endif
