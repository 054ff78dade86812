// The error log, recorded: the test program's own elog_log, elog_complain and elog_die take the
// place of the base library's for the shared object under test.

#ifndef TESTS_FAKES_LOG_H
#define TESTS_FAKES_LOG_H

#include <string>
#include <vector>

namespace fakes {

// One entry reads "elog_log(1): can't stat /nowhere": the call, its first argument, the text with
// everything filled in, ending newlines included.
using Lines = std::vector<std::string>;

// The entries of this process since its start or the last clear_log().
Lines log();
// errno as each of those calls found it.
std::vector<int> log_errors();
void clear_log();

// The status with which elog_die ends a process under test.
inline constexpr int kDied = 86;

namespace detail {
// Where entries go as well: the pipe that in_child() reads. -1 when nobody listens.
extern int log_pipe;
}  // namespace detail

}  // namespace fakes

#endif
