// What a sampler costs beside the bare open, read and close of its file with a buffer of the same
// size, and sysproc beside the same ps with its output to a file. Limit: 1.10 times as long.

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/alternate.h"
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

template <typename Call>
double seconds_of(const Call &call) {
  const auto start = std::chrono::steady_clock::now();
  call();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Seconds of single calls, the other's and ours in turn.
struct Pair {
  double other, ours;
};

template <typename Other, typename Ours>
Pair measure(const Other &other, const Ours &ours, int round) {
  Pair taken;
  if (round % 2 == 0) taken.other = seconds_of(other);
  taken.ours = seconds_of(ours);
  if (round % 2 != 0) taken.other = seconds_of(other);
  return taken;
}

// Medians, because a call that another program interrupts says nothing. The spread is half the
// distance between the quartiles of the ratio over twenty-one parts of the run.
void print(const char *name, const char *other, const std::vector<Pair> &pairs) {
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
  const Pair whole = medians(pairs.begin(), pairs.end());
  const double ratio = bench::quantile(ratios, 0.5);
  const double spread = (bench::quantile(ratios, 0.75) - bench::quantile(ratios, 0.25)) / 2;
  printf("%-12s %9.2f us   %-28s %9.2f us   %.3f times as long, +- %.3f%s\n", name,
         1e6 * whole.ours, other, 1e6 * whole.other, ratio, spread,
         ratio > kLimit ? "   over the limit" : "");
  fflush(stdout);
}

template <typename Other, typename Ours>
void compare(const char *name, const char *other_name, const Other &other, const Ours &ours,
             int rounds = 10001) {
  for (int k = 0; k < 3; ++k) measure(other, ours, k);
  std::vector<Pair> pairs;
  for (int k = 0; k < rounds; ++k) pairs.push_back(measure(other, ours, k));
  print(name, other_name, pairs);
}

// Only the first call of a process reads the file, so every measurement has a process of its own.
// The process has sampled before, or the pages that it had not touched yet would count.
void compare_boottime() {
  std::vector<Pair> pairs;
  for (int round = 0; round < 1001; ++round) {
    int ends[2];
    if (pipe(ends) != 0) abort();
    const pid_t child = fork();
    if (child == 0) {
      const auto read_stat = [] { bare<16384>("/proc/stat"); };
      read_stat();
      sample_cpu();
      sample_memory();
      const Pair taken = measure(
          read_stat, [] { sysboottime(); }, round);
      _exit(write(ends[1], &taken, sizeof taken) == sizeof taken ? 0 : 1);
    }
    Pair taken;
    if (child < 0 || read(ends[0], &taken, sizeof taken) != sizeof taken) abort();
    close(ends[0]);
    close(ends[1]);
    waitpid(child, nullptr, 0);
    pairs.push_back(taken);
  }
  print("sysboottime", "open+read+close, first call", pairs);
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

int main() {
  compare_boottime();  // first, while a child has no page of ours to copy
  const char *same_file = "open+read+close";
  compare(
      "syscpu", same_file, [] { bare<8192>("/proc/stat"); }, sample_cpu);
  compare(
      "sysncpu", same_file, [] { bare<8192>("/proc/stat"); }, [] { sysncpu(); });
  compare(
      "sysmem", same_file, [] { bare<8192>("/proc/meminfo"); }, sample_memory);
  compare(
      "syspaging", same_file, [] { bare<8192>("/proc/vmstat"); }, sample_paging);
  compare(
      "sysloadavg", same_file, [] { bare<1024>("/proc/loadavg"); }, sample_load);
  const int pid = getpid();
  const std::string cmdline = "/proc/" + std::to_string(pid) + "/cmdline";
  compare(
      "pidcmdline", same_file, [&cmdline] { bare<8192 + 1>(cmdline.c_str()); },
      [pid] { free(pidcmdline(pid)); });

  const Sleepers sleepers;
  Tbl *processes = nullptr;
  compare(
      "sysproc", "ps -Ao ... into a file", ps_to_a_file, [&] { sysproc(&processes); }, 42);
  printf("sysproc listed %ld processes\n", lentbl(processes));
}
