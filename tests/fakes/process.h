// Other processes beside a test, and what disturbs a process that runs commands.

#ifndef TESTS_FAKES_PROCESS_H
#define TESTS_FAKES_PROCESS_H

#include <signal.h>
#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

namespace fakes {

// A program that runs beside the test, killed and reaped at the end of the scope.
class Process {
 public:
  // Started when the constructor returns. The first argument is the name it goes by; it gets
  // exactly this environment.
  Process(const std::string &program, const std::vector<std::string> &arguments,
          const std::vector<std::string> &environment = {});
  ~Process();
  Process(const Process &) = delete;
  Process &operator=(const Process &) = delete;

  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
};

// What a shell command prints to its standard output, ending newlines cut off.
std::string output_of(const std::string &command);

// The bytes that malloc has handed out and not got back, and a few that it holds in reserve: up to
// hundreds more or less. A block lost in each call shows as 32 bytes a call. 0 where a sanitizer
// replaces malloc.
size_t bytes_in_use();

// SIGALRM each millisecond, by a handler that interrupts calls for good, until the scope ends.
class Alarms {
 public:
  Alarms();
  ~Alarms();
  Alarms(const Alarms &) = delete;
  Alarms &operator=(const Alarms &) = delete;

  int count() const;  // so far

 private:
  struct sigaction before_;
};

// Closes descriptor k for each bit k that is set in the mask.
void close_standard(int mask);

}  // namespace fakes

#endif
