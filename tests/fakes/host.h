// The host, scripted: other files under the library's paths, calls that fail when it is their
// turn, and a record of which calls were made in which order.
//
// The test program defines open, read, fork, calloc, ... itself and forwards to the next
// definition, so the real shared object meets them. Each is weak: a test that needs an answer of
// its own (a gethostbyname, a uname) defines that function itself, in its file.

#ifndef TESTS_FAKES_HOST_H
#define TESTS_FAKES_HOST_H

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace fakes {

// One at a time; everything is real again when it goes out of scope. Children inherit the script.
class Host {
 public:
  Host();
  ~Host();
  Host(const Host &) = delete;
  Host &operator=(const Host &) = delete;

  // open, fopen, stat, access, readlink, execv and execve of `path` find this text instead.
  void file(const std::string &path, const std::string &text, int mode = 0644);
  // ... or fail with `error`.
  void missing(const std::string &path, int error);
  // popen runs a command that prints `text`, whatever it was asked for.
  void command(const std::string &text);
  // popen of exactly `command` runs one that prints `text`.
  void command(const std::string &command, const std::string &text);

  // The nth next call of the function fails with `error` (nth = 1: the next one), once.
  void fail(const std::string &function, int error, int nth = 1);
  // The same for every call from the nth on.
  void fail_always(const std::string &function, int error, int nth = 1);
  // Every read returns at most that many bytes.
  void short_reads(size_t bytes);
  // Every file mapped from now on ends at a page that may not be touched.
  void fence_mappings();

  // What was called since the Host was made, in order: "open /proc/stat", "read", "close", "fork",
  // "popen COMMAND", "execve PROGRAM". Made by this process, in any thread.
  std::vector<std::string> calls() const;
  // How many of them were calls of that function.
  int count(const std::string &function) const;
  void clear_calls();
};

// Threads for a Host, made before it: one that starts allocates, and ThreadSanitizer cannot follow
// recorded calls there yet.
class Threads {
 public:
  // body(0), body(1), ... each in a thread that has started when the constructor returns, and
  // waits.
  Threads(size_t count, std::function<void(size_t)> body);
  // Lets them all go on at once and waits for their ends.
  void run();

 private:
  std::function<void(size_t)> body_;
  std::atomic<size_t> started_{0};
  std::atomic<bool> go_{false};
  std::vector<std::thread> threads_;
};

}  // namespace fakes

#endif
