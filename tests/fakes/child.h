// A piece of a test in a process of its own: for what ends the process, what changes it for good,
// and what writes to standard error.

#ifndef TESTS_FAKES_CHILD_H
#define TESTS_FAKES_CHILD_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace fakes {

struct Outcome {
  int exit_code = -1;            // -1 when a signal ended the child
  int signal = 0;                // that signal
  std::string out;               // all of its standard output
  std::string err;               // all of its standard error
  std::vector<std::string> log;  // as fakes::log() gives it, entries of its children included
  std::vector<int> log_errors;   // errno as each entry found it
};

// Runs `body` in a forked child that then ends with status 0, or with 1 when an EXPECT in it
// failed (the failure's text is then in `err`).
Outcome in_child(const std::function<void()> &body);

// What this process holds: open descriptors, children not yet waited for, mappings, allocated bytes
// (give or take what the allocator keeps at hand).
int open_descriptors();
int children();
int mappings();
size_t heap_bytes();

// Puts `text` in place of the file `path` for this process and its children, in a mount namespace
// of its own. False where the machine does not allow that: skip the test then. Use in in_child().
bool mount_over(const std::string &path, const std::string &text, int mode = 0644);

// Sets a numeric locale with a decimal comma, made for the purpose. False where the machine cannot
// make one: skip the test then. Use in in_child().
bool set_decimal_comma();

namespace detail {
// Where temporary files of this process go. A child's go with it, however it ends.
extern std::string folder;
}  // namespace detail

}  // namespace fakes

#endif
