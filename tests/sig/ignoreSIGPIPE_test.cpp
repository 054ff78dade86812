#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"
#include "tests/sig/ignoring.h"

TEST(ignoreSIGPIPE, installs_SIG_IGN_with_an_empty_mask_and_SA_RESTART_alone) {
  ignoring::expect_installed(ignoreSIGPIPE, 13);
}

TEST(ignoreSIGPIPE, lets_a_write_without_a_reader_fail_with_EPIPE) {
  const auto outcome = fakes::in_child([] {
    ignoreSIGPIPE();
    ignoreSIGPIPE();  // does no harm
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    EXPECT_EQ(write(ends[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_EQ(ignoring::handler_of(SIGPIPE), SIG_IGN);
    EXPECT_EQ(ignoring::handler_of(SIGALRM), SIG_DFL);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log, fakes::Lines{});
}

TEST(ignoreSIGPIPE, ends_the_process_when_the_handler_cannot_be_installed) {
  ignoring::expect_end_without_handler(
      ignoreSIGPIPE,
      "elog_die(1): *stack*Unexpected failure: ignoreSIGPIPE in file ignoreSIGPIPE.cpp, line 15\n");
}
