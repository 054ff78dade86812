#include "tests/fakes/process.h"

#include <fcntl.h>
#include <malloc.h>
#include <sched.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace fakes {
namespace {

std::vector<char *> pointers(std::vector<std::string> &texts) {
  std::vector<char *> all;
  for (std::string &text : texts) all.push_back(text.data());
  all.push_back(nullptr);
  return all;
}

// posix_spawn, waitid and syscall are not scripted: a scripted host notices none of this.
void reap(pid_t pid) {
  siginfo_t ended;
  while (waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED) != 0 && errno == EINTR) {
  }
}

volatile sig_atomic_t alarms;
void count_alarm(int) { alarms = alarms + 1; }

}  // namespace

Process::Process(const std::string &program, const std::vector<std::string> &arguments,
                 const std::vector<std::string> &environment) {
  std::vector<std::string> kept_arguments = arguments;
  std::vector<std::string> kept_environment = environment;
  // A process group of its own, so that what it starts ends with it.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  if (posix_spawn(&pid_, program.c_str(), nullptr, &attributes, pointers(kept_arguments).data(),
                  pointers(kept_environment).data()) != 0)
    abort();
  posix_spawnattr_destroy(&attributes);
  // The new program is there before its arguments are.
  const std::string path = "/proc/" + std::to_string(pid_) + "/cmdline";
  for (char letter;;) {
    const int fd = static_cast<int>(syscall(SYS_open, path.c_str(), O_RDONLY));
    const bool there = syscall(SYS_read, fd, &letter, 1) == 1;
    syscall(SYS_close, fd);
    if (there) break;
    sched_yield();
  }
}

Process::~Process() {
  kill(-pid_, SIGKILL);
  reap(pid_);
}

std::string output_of(const std::string &command) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) abort();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  std::vector<std::string> arguments{"sh", "-c", command};
  pid_t pid;
  if (posix_spawn(&pid, "/bin/sh", &actions, nullptr, pointers(arguments).data(), environ) != 0)
    abort();
  posix_spawn_file_actions_destroy(&actions);
  syscall(SYS_close, ends[1]);
  FILE *stream = fdopen(ends[0], "r");
  std::string text;
  for (int letter; (letter = getc(stream)) != EOF;) text.push_back(static_cast<char>(letter));
  fclose(stream);
  reap(pid);
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

size_t bytes_in_use() {
  const auto usage = mallinfo2();
  return usage.uordblks + usage.hblkhd;
}

Alarms::Alarms() {
  alarms = 0;
  struct sigaction action = {};
  action.sa_handler = count_alarm;
  sigaction(SIGALRM, &action, &before_);
  const itimerval each_millisecond{{0, 1000}, {0, 1000}};
  setitimer(ITIMER_REAL, &each_millisecond, nullptr);
}

Alarms::~Alarms() {
  const itimerval off{};
  setitimer(ITIMER_REAL, &off, nullptr);
  sigaction(SIGALRM, &before_, nullptr);
}

int Alarms::count() const { return alarms; }

void close_standard(int mask) {
  for (int fd = 0; fd < 3; ++fd)
    if ((mask >> fd & 1) != 0) ::close(fd);
}

}  // namespace fakes
