// host_bench: what a sampler costs beside the bare open, read and close of its file with a buffer
// of the same size, beside libproc2 and libuv, and sysproc beside the same ps with its output to a
// file.
//
//   host_bench [--quick]
//
// libproc2 keeps most of its files open from call to call, and its memory as well.

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "bench/alternate.h"
#include "bench/host_peers.h"
#include "frame/vestan.h"
#include "include/plintor.h"

namespace {

constexpr int kProcesses = 1000;
constexpr double kLimit = 1.10;

template <size_t size>
void bare(const char *path) {
  char text[size];
  const int fd = open(path, O_RDONLY);
  if (fd < 0 || read(fd, text, size - 1) < 0) abort();
  close(fd);
}

void sample_cpu() {
  int ncpu;
  CpuState *cpu;
  syscpu(&ncpu, &cpu);
}

void sample_memory() {
  double total, physical, used;
  sysmem(&total, &physical, &used);
}

void sample_paging() {
  double in, out;
  syspaging(0, &in, &out);
}

void sample_load() {
  double avg[3];
  int nprocs;
  sysloadavg(avg, &nprocs);
}

using Call = std::function<void()>;

double seconds_of(const Call &call) {
  const auto start = std::chrono::steady_clock::now();
  call();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Seconds of single calls, the other's and ours in turn.
struct Pair {
  double other, ours;
};

Pair measure(const Call &other, const Call &ours, int round) {
  Pair taken;
  if (round % 2 == 0) taken.other = seconds_of(other);
  taken.ours = seconds_of(ours);
  if (round % 2 != 0) taken.other = seconds_of(other);
  return taken;
}

std::vector<Pair> measure_all(const Call &other, const Call &ours, int rounds) {
  for (int k = 0; k < 3; ++k) measure(other, ours, k);
  std::vector<Pair> pairs;
  for (int k = 0; k < rounds; ++k) pairs.push_back(measure(other, ours, k));
  return pairs;
}

// Only the first call of a process reads the file, so every measurement has a process of its own.
// The process has sampled before, or the pages that it had not touched yet would count.
std::vector<Pair> measure_boottime(const Call &other, int rounds) {
  std::vector<Pair> pairs;
  for (int round = 0; round < rounds; ++round) {
    int ends[2];
    if (pipe(ends) != 0) abort();
    const pid_t child = fork();
    if (child == 0) {
      other();
      sample_cpu();
      sample_memory();
      const Pair taken = measure(
          other, [] { sysboottime(); }, round);
      _exit(write(ends[1], &taken, sizeof taken) == sizeof taken ? 0 : 1);
    }
    Pair taken;
    if (child < 0 || read(ends[0], &taken, sizeof taken) != sizeof taken) abort();
    close(ends[0]);
    close(ends[1]);
    waitpid(child, nullptr, 0);
    pairs.push_back(taken);
  }
  return pairs;
}

// Medians, because a call that another program interrupts says nothing. The spread is half the
// distance between the quartiles of the ratio over parts of the run.
struct Comparison {
  Pair median;
  double ratio, spread;
};

Comparison compare(const std::vector<Pair> &pairs) {
  constexpr size_t kParts = 21;
  const auto medians = [](auto first, auto last) {
    std::vector<double> others, ours;
    for (; first != last; ++first) {
      others.push_back(first->other);
      ours.push_back(first->ours);
    }
    return Pair{bench::quantile(others, 0.5), bench::quantile(ours, 0.5)};
  };
  std::vector<double> ratios;
  for (size_t k = 0; k < kParts; ++k) {
    const auto start = pairs.begin() + static_cast<long>(pairs.size() * k / kParts);
    const auto end = pairs.begin() + static_cast<long>(pairs.size() * (k + 1) / kParts);
    const Pair part = medians(start, end);
    ratios.push_back(part.ours / part.other);
  }
  return {medians(pairs.begin(), pairs.end()), bench::quantile(ratios, 0.5),
          (bench::quantile(ratios, 0.75) - bench::quantile(ratios, 0.25)) / 2};
}

// A row: the sampler beside the bare calls, then beside the peers that answer the same.
void row(const std::string &name, const Call &bare, const std::vector<HostPeer> &peers,
         const std::function<std::vector<Pair>(const Call &)> &measure_beside) {
  const auto print = [](const Comparison &beside) {
    printf(" %.2f ± %.3f (%.2f µs) |", beside.ratio, beside.spread, 1e6 * beside.median.other);
  };
  const Comparison beside = compare(measure_beside(bare));
  printf("| %s | %.2f µs |%s", name.c_str(), 1e6 * beside.median.ours,
         beside.ratio > kLimit ? " over the limit:" : "");
  print(beside);
  for (const HostPeer &peer : peers) {
    const auto call = peer.calls.find(name);
    if (call == peer.calls.end())
      printf(" |");
    else
      print(compare(measure_beside(call->second)));
  }
  printf("\n");
  fflush(stdout);
}

// Processes for ps to list; gone when this goes out of scope, and with this process in any case.
class Sleepers {
 public:
  Sleepers() {
    for (int k = 0; k < kProcesses; ++k) {
      const pid_t pid = fork();
      if (pid < 0) abort();
      if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;) pause();
      }
      pids_.push_back(pid);
    }
  }
  ~Sleepers() {
    for (const pid_t pid : pids_) kill(pid, SIGKILL);
    for (const pid_t pid : pids_) waitpid(pid, nullptr, 0);
  }
  Sleepers(const Sleepers &) = delete;
  Sleepers &operator=(const Sleepers &) = delete;

 private:
  std::vector<pid_t> pids_;
};

void ps_to_a_file() {
  char name[] = "/tmp/host_benchXXXXXX";
  const int fd = mkstemp(name);
  if (fd < 0) abort();
  unlink(name);
  const pid_t child = fork();
  if (child == 0) {
    dup2(fd, STDOUT_FILENO);
    dup2(fd, STDERR_FILENO);
    char *const arguments[] = {
        const_cast<char *>("/bin/ps"), const_cast<char *>("-Ao"),
        const_cast<char *>("pid,ppid,uid,vsz,rss,state,pcpu,pmem,time,lstart,user,command"),
        nullptr};
    char *const environment[] = {const_cast<char *>("LANG=C"), nullptr};
    execve("/bin/ps", arguments, environment);
    _exit(1);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || status != 0) abort();
  close(fd);
}

}  // namespace

int main(int argc, char **argv) {
  const bool quick = argc > 1 && strcmp(argv[1], "--quick") == 0;
  const std::vector<HostPeer> peers = installed_host_peers();
  printf("## host\n\nPeers found:");
  for (const HostPeer &peer : peers) printf(" %s", peer.name);
  printf("\n\n| sampler | takes | times as long as bare calls |");
  for (const HostPeer &peer : peers) printf(" as %s |", peer.name);
  printf("\n|---|---|---|");
  for (size_t k = 0; k < peers.size(); ++k) printf("---|");
  printf("\n");

  row(  // first, while a child has no page of ours to copy
      "sysboottime", [] { bare<16384>("/proc/stat"); }, peers,
      [&](const Call &other) { return measure_boottime(other, quick ? 101 : 1001); });
  const auto sampler = [&](const char *name, const Call &bare_call, const Call &ours) {
    row(name, bare_call, peers,
        [&](const Call &other) { return measure_all(other, ours, quick ? 1001 : 10001); });
  };
  sampler(
      "syscpu", [] { bare<8192>("/proc/stat"); }, sample_cpu);
  sampler(
      "sysncpu", [] { bare<8192>("/proc/stat"); }, [] { sysncpu(); });
  sampler(
      "sysmem", [] { bare<8192>("/proc/meminfo"); }, sample_memory);
  sampler(
      "syspaging", [] { bare<8192>("/proc/vmstat"); }, sample_paging);
  sampler(
      "sysloadavg", [] { bare<1024>("/proc/loadavg"); }, sample_load);
  const int pid = getpid();
  const std::string cmdline = "/proc/" + std::to_string(pid) + "/cmdline";
  sampler(
      "pidcmdline", [&cmdline] { bare<8192 + 1>(cmdline.c_str()); },
      [pid] { free(pidcmdline(pid)); });

  const Sleepers sleepers;
  Tbl *processes = nullptr;
  row("sysproc", ps_to_a_file, peers, [&](const Call &other) {
    return measure_all(
        other, [&] { sysproc(&processes); }, 42);
  });
  printf(
      "\nsysproc listed %ld processes; its bare call is the same ps with its output to a file.\n\n",
      static_cast<long>(lentbl(processes)));
}
