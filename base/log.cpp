// The error log: every entry is one write of whole lines to standard error.

#include <errno.h>
#include <pthread.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "frame/errno_guard.h"
#include "frame/vestan.h"

namespace {

// The process whose stdio streams and exit handlers are its own to run down: the one that loaded
// us. A child made by fork clears it, and one made by vfork or clone has another id.
pid_t owner;

[[gnu::constructor]] void remember_owner() {
  owner = getpid();
  pthread_atfork(nullptr, nullptr, [] { owner = 0; });
}

// The thread that is ending the process.
std::atomic<pid_t> ending{0};

void write_all(const char *text, size_t length) {
  while (length > 0) {
    const ssize_t written = write(STDERR_FILENO, text, length);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    text += written;
    length -= static_cast<size_t>(written);
  }
}

// The entry begins in room of this size. What does not fit is formatted again, into memory asked
// for, so that the room for the start of the line and for the cause is always there.
constexpr size_t kRoom = 4096;
constexpr size_t kStart = 1024;
constexpr size_t kCause = 128;

// ": No such file or directory". Not strerror, which translates and so takes a lock.
size_t print_cause(char (&cause)[kCause], int error) {
  const char *known = strerrordesc_np(error);
  const int length = known != nullptr ? snprintf(cause, sizeof cause, ": %s", known)
                                      : snprintf(cause, sizeof cause, ": Unknown error %d", error);
  return static_cast<size_t>(length);
}

// "program: severity: message: cause". Formatted in memory of its own and never through stdio: a
// child forked while another thread logs would find the stream locked for good.
void report(const char *severity, int syserr, const char *format, va_list arguments) {
  const ErrnoGuard guard;
  const int error = errno;
  char cause[kCause];
  const size_t cause_length = syserr != 0 ? print_cause(cause, error) : 0;

  char room[kRoom];
  const int wanted_start =
      snprintf(room, kStart, "%s: %s: ", program_invocation_short_name, severity);
  const size_t start = std::min(static_cast<size_t>(wanted_start), kStart - 1);
  const size_t longest = kRoom - start - cause_length - 1;  // the newline takes one

  va_list again;
  va_copy(again, arguments);
  errno = error;  // a %m in the format tells the same cause
  const int wanted = vsnprintf(room + start, longest, format, arguments);
  size_t length = static_cast<size_t>(wanted);
  if (wanted < 0) {  // cannot be filled in: the format itself, as far as there is room
    snprintf(room + start, longest, "%s", format);
    length = strlen(room + start);
  }
  char *line = room;
  if (length >= longest) {
    line = static_cast<char *>(malloc(start + length + 1 + cause_length + 1));
    if (line != nullptr) {
      memcpy(line, room, start);
      errno = error;
      vsnprintf(line + start, length + 1, format, again);
    } else {
      line = room;
      length = longest - 1;
    }
  }
  va_end(again);

  while (length > 0 && line[start + length - 1] == '\n') --length;
  char *end = line + start + length;
  memcpy(end, cause, cause_length);
  end[cause_length] = '\n';
  write_all(line, start + length + cause_length + 1);
  if (line != room) free(line);
}

[[noreturn]] void end_process() {
  if (getpid() != owner) _exit(EXIT_FAILURE);
  pid_t none = 0;
  const pid_t self = gettid();
  if (ending.compare_exchange_strong(none, self)) exit(EXIT_FAILURE);
  if (none == self) _exit(EXIT_FAILURE);  // called by an exit handler: exit is already under way
  while (true) pause();                   // another thread is in exit, which must not run twice
}

}  // namespace

extern "C" {

void elog_log(int syserr, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  report("error", syserr, format, arguments);
  va_end(arguments);
}

void elog_complain(int syserr, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  report("warning", syserr, format, arguments);
  va_end(arguments);
}

void elog_die(int syserr, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  report("fatal", syserr, format, arguments);
  va_end(arguments);
  end_process();
}

}  // extern "C"
