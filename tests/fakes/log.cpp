#include "tests/fakes/log.h"

#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "frame/vestan.h"

namespace fakes {
namespace detail {
int log_pipe = -1;
}

namespace {

std::mutex mutex;
Lines lines;
std::vector<int> errors;

void record(const char *call, int syserr, const char *format, va_list arguments) {
  const int error = errno;
  char *text = nullptr;
  if (vasprintf(&text, format, arguments) < 0) abort();
  const std::string line = std::string(call) + "(" + std::to_string(syserr) + "): " + text;
  free(text);
  if (detail::log_pipe >= 0) {
    std::string sent = std::to_string(error) + " " + line;
    sent.push_back('\0');
    if (write(detail::log_pipe, sent.data(), sent.size()) < 0) abort();
  }
  const std::lock_guard<std::mutex> lock(mutex);
  lines.push_back(line);
  errors.push_back(error);
  errno = error;
}

}  // namespace

Lines log() {
  const std::lock_guard<std::mutex> lock(mutex);
  return lines;
}

std::vector<int> log_errors() {
  const std::lock_guard<std::mutex> lock(mutex);
  return errors;
}

void clear_log() {
  const std::lock_guard<std::mutex> lock(mutex);
  lines.clear();
  errors.clear();
}

}  // namespace fakes

extern "C" {

void elog_log(int syserr, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  fakes::record("elog_log", syserr, format, arguments);
  va_end(arguments);
}

void elog_complain(int syserr, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  fakes::record("elog_complain", syserr, format, arguments);
  va_end(arguments);
}

void elog_die(int syserr, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  fakes::record("elog_die", syserr, format, arguments);
  va_end(arguments);
  const std::string last = fakes::log().back() + "\n";
  if (write(STDERR_FILENO, last.data(), last.size()) < 0) _exit(fakes::kDied + 1);
  _exit(fakes::kDied);
}
}
