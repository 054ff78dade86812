#include "tests/fakes/host.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <mutex>

#include <set>
#include "tests/fakes/child.h"

namespace fakes {
namespace {

struct Failure {
  int error = 0;
  int turns = 0;  // calls left until it is due
  bool always = false;
};

struct Script {
  std::map<std::string, std::string> files;  // path: the file that stands in for it
  std::map<std::string, int> missing;
  std::map<std::string, Failure> failures;
  std::vector<std::string> temporary;
  std::vector<std::string> calls;
  std::string command_file;                     // what any other command prints
  std::map<std::string, std::string> commands;  // command: the file that it prints
  size_t longest_read = SIZE_MAX;
  bool fence = false;
  std::set<void *> fenced;  // mappings that end at a page of ours
};

std::atomic<bool> scripted{false};
std::recursive_mutex mutex;
Script script;
// Set while the script itself makes calls: those are nobody's business.
thread_local bool inside = false;

// Records the call. The errno to fail with, or 0 to go on.
int due(const char *function, const char *argument = nullptr) {
  if (!scripted.load(std::memory_order_acquire) || inside) return 0;
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  inside = true;
  script.calls.push_back(argument == nullptr ? function : std::string(function) + " " + argument);
  int error = 0;
  if (const auto found = script.failures.find(function); found != script.failures.end()) {
    Failure &failure = found->second;
    if (failure.turns > 0) --failure.turns;
    if (failure.turns == 0) {
      error = failure.error;
      if (!failure.always) script.failures.erase(found);
    }
  }
  inside = false;
  return error;
}

// Whole pages and one more.
size_t with_fence(size_t size) { return (size + 4095) / 4096 * 4096 + 4096; }

bool to_fence(int fd) {
  return scripted.load(std::memory_order_acquire) && script.fence && fd >= 0;
}

void fence(void *data) {
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  script.fenced.insert(data);
}

// Whether that mapping was fenced; it is forgotten then.
bool unfence(void *data) {
  if (!scripted.load(std::memory_order_acquire) || inside) return false;
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  return script.fenced.erase(data) != 0;
}

// The path that stands in for `path`, or an errno that it fails with.
struct Redirected {
  std::string path;
  int error = 0;
};
Redirected redirect(const char *function, const char *path) {
  Redirected to{path};
  to.error = due(function, path);
  if (to.error != 0 || !scripted.load(std::memory_order_acquire) || inside) return to;
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  if (const auto gone = script.missing.find(path); gone != script.missing.end())
    to.error = gone->second;
  if (const auto found = script.files.find(path); found != script.files.end())
    to.path = found->second;
  return to;
}

std::string temporary_file(const std::string &text, int mode) {
  std::string name = detail::folder + "/plintor-fake-XXXXXX";
  inside = true;
  const int fd = mkstemp(name.data());
  if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
      fchmod(fd, static_cast<mode_t>(mode)) != 0)
    abort();
  close(fd);
  inside = false;
  script.temporary.push_back(name);
  return name;
}

}  // namespace

Host::Host() {
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  script = Script{};
  scripted = true;
}

Host::~Host() {
  scripted = false;
  for (const std::string &name : script.temporary) unlink(name.c_str());
}

Threads::Threads(size_t count, std::function<void(size_t)> body) : body_(std::move(body)) {
  for (size_t t = 0; t < count; ++t) {
    threads_.emplace_back([this, t] {
      ++started_;
      while (!go_) std::this_thread::yield();
      body_(t);
    });
  }
  while (started_ < count) std::this_thread::yield();
}

void Threads::run() {
  go_ = true;
  for (std::thread &thread : threads_) thread.join();
}

void Host::file(const std::string &path, const std::string &text, int mode) {
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  script.missing.erase(path);
  script.files[path] = temporary_file(text, mode);
}

void Host::missing(const std::string &path, int error) {
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  script.missing[path] = error;
}

void Host::command(const std::string &text) {
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  script.command_file = temporary_file(text, 0644);
}

void Host::command(const std::string &command, const std::string &text) {
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  script.commands[command] = temporary_file(text, 0644);
}

void Host::fail(const std::string &function, int error, int nth) {
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  script.failures[function] = {error, nth, false};
}

void Host::fail_always(const std::string &function, int error, int nth) {
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  script.failures[function] = {error, nth, true};
}

void Host::short_reads(size_t bytes) {
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  script.longest_read = bytes;
}

void Host::fence_mappings() {
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  script.fence = true;
}

std::vector<std::string> Host::calls() const {
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  return script.calls;
}

int Host::count(const std::string &function) const {
  int count = 0;
  for (const std::string &call : calls())
    count += call == function || call.starts_with(function + " ");
  return count;
}

void Host::clear_calls() {
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  script.calls.clear();
}

}  // namespace fakes

// ---- The calls themselves

// The next definition of the function behind ours. Constant-initialised and without a guard, so
// that calloc may come here before main.
#define NEXT(function)                                   \
  ([] {                                                  \
    static std::atomic<void *> next{nullptr};            \
    void *known = next.load(std::memory_order_acquire);  \
    if (known == nullptr) {                              \
      known = dlsym(RTLD_NEXT, #function);               \
      next.store(known, std::memory_order_release);      \
    }                                                    \
    return reinterpret_cast<decltype(&function)>(known); \
  }())

#define WEAK extern "C" __attribute__((weak, visibility("default")))

// A call that can be told to fail and is otherwise passed on as it is.
#define FORWARD(result, failure, function, parameters, arguments) \
  WEAK result function parameters {                               \
    if (const int error = fakes::due(#function)) {                \
      errno = error;                                              \
      return failure;                                             \
    }                                                             \
    return NEXT(function) arguments;                              \
  }

// The same for a call that names a path.
#define REDIRECT(result, failure, function, parameters, arguments) \
  WEAK result function parameters {                                \
    const auto to = fakes::redirect(#function, path);              \
    if (to.error != 0) {                                           \
      errno = to.error;                                            \
      return failure;                                              \
    }                                                              \
    return NEXT(function) arguments;                               \
  }

// The declarations of some of them promise not to throw; so do the definitions then.
// clang-format off
FORWARD(int, -1, close, (int fd), (fd))
FORWARD(int, -1, fstat, (int fd, struct stat *st) noexcept, (fd, st))
FORWARD(int, -1, pipe, (int ends[2]) noexcept, (ends))
FORWARD(int, -1, mkstemp, (char *name), (name))
FORWARD(pid_t, -1, waitpid, (pid_t pid, int *status, int options), (pid, status, options))
FORWARD(int, -1, pclose, (FILE *stream), (stream))
FORWARD(int, EOF, fclose, (FILE *stream), (stream))
FORWARD(int, -1, getrusage, (__rusage_who_t who, struct rusage *usage) noexcept, (who, usage))
FORWARD(int, -1, gettimeofday, (struct timeval *time, void *zone) noexcept, (time, zone))
FORWARD(int, -1, getitimer, (__itimer_which_t which, struct itimerval *value) noexcept,
        (which, value))
FORWARD(int, -1, setitimer,
        (__itimer_which_t which, const struct itimerval *value, struct itimerval *old) noexcept,
        (which, value, old))
FORWARD(int, -1, sigaction, (int number, const struct sigaction *action, struct sigaction *old)
        noexcept, (number, action, old))
FORWARD(int, -1, shmget, (key_t key, size_t size, int flags) noexcept, (key, size, flags))
FORWARD(void *, reinterpret_cast<void *>(-1), shmat, (int id, const void *address, int flags)
        noexcept, (id, address, flags))
FORWARD(void *, nullptr, calloc, (size_t count, size_t size) noexcept, (count, size))
FORWARD(void *, nullptr, realloc, (void *data, size_t size) noexcept, (data, size))
FORWARD(int, -1, unlink, (const char *path) noexcept, (path))
FORWARD(long, -1, lseek, (int fd, off_t offset, int whence) noexcept, (fd, offset, whence))
FORWARD(pid_t, -1, fork, () noexcept, ())

REDIRECT(FILE *, nullptr, fopen, (const char *path, const char *mode), (to.path.c_str(), mode))
REDIRECT(int, -1, stat, (const char *path, struct stat *st) noexcept, (to.path.c_str(), st))
REDIRECT(int, -1, access, (const char *path, int mode) noexcept, (to.path.c_str(), mode))
REDIRECT(int, -1, statfs, (const char *path, struct statfs *st) noexcept, (to.path.c_str(), st))
REDIRECT(ssize_t, -1, readlink, (const char *path, char *text, size_t size) noexcept,
         (to.path.c_str(), text, size))
REDIRECT(int, -1, execv, (const char *path, char *const *argv) noexcept, (to.path.c_str(), argv))
REDIRECT(int, -1, execve, (const char *path, char *const *argv, char *const *envp) noexcept,
         (to.path.c_str(), argv, envp))
// clang-format on

WEAK int open(const char *path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = static_cast<mode_t>(va_arg(arguments, int));
    va_end(arguments);
  }
  const auto to = fakes::redirect("open", path);
  if (to.error != 0) {
    errno = to.error;
    return -1;
  }
  return NEXT(open)(to.path.c_str(), flags, mode);
}

WEAK void *mmap(void *data, size_t size, int protection, int flags, int fd, off_t offset) noexcept {
  if (const int error = fakes::due("mmap")) {
    errno = error;
    return MAP_FAILED;
  }
  if (fakes::to_fence(fd)) {
    data =
        NEXT(mmap)(nullptr, fakes::with_fence(size), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    flags |= MAP_FIXED;
    fakes::fence(data);
  }
  return NEXT(mmap)(data, size, protection, flags, fd, offset);
}

WEAK int munmap(void *data, size_t size) noexcept {
  if (const int error = fakes::due("munmap")) {
    errno = error;
    return -1;
  }
  return NEXT(munmap)(data, fakes::unfence(data) ? fakes::with_fence(size) : size);
}

WEAK ssize_t read(int fd, void *data, size_t size) {
  if (const int error = fakes::due("read")) {
    errno = error;
    return -1;
  }
  if (fakes::scripted.load(std::memory_order_acquire) && size > fakes::script.longest_read)
    size = fakes::script.longest_read;
  return NEXT(read)(fd, data, size);
}

WEAK FILE *popen(const char *command, const char *mode) {
  if (const int error = fakes::due("popen", command)) {
    errno = error;
    return nullptr;
  }
  if (!fakes::scripted.load(std::memory_order_acquire)) return NEXT(popen)(command, mode);
  std::string printed = fakes::script.command_file;
  if (const auto found = fakes::script.commands.find(command);
      found != fakes::script.commands.end())
    printed = found->second;
  if (printed.empty()) return NEXT(popen)(command, mode);
  return NEXT(popen)(("cat " + printed).c_str(), mode);
}
