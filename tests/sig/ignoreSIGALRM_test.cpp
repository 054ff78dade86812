#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>
#include <time.h>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"
#include "tests/sig/ignoring.h"

TEST(ignoreSIGALRM, installs_SIG_IGN_with_an_empty_mask_and_SA_RESTART_alone) {
  ignoring::expect_installed(ignoreSIGALRM, 14);
}

TEST(ignoreSIGALRM, keeps_the_process_alive_when_an_alarm_fires) {
  const auto outcome = fakes::in_child([] {
    ignoreSIGALRM();
    ignoreSIGALRM();  // does no harm
    const itimerval soon = {{0, 0}, {0, 1000}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    const timespec wait = {0, 50000000};
    EXPECT_EQ(nanosleep(&wait, nullptr), 0);
    EXPECT_EQ(ignoring::handler_of(SIGALRM), SIG_IGN);
    EXPECT_EQ(ignoring::handler_of(SIGPIPE), SIG_DFL);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log, fakes::Lines{});
}

TEST(ignoreSIGALRM, ends_the_process_when_the_handler_cannot_be_installed) {
  ignoring::expect_end_without_handler(
      ignoreSIGALRM,
      "elog_die(1): *stack*Unexpected failure: ignoreSIGALRM in file ignoreSIGALRM.cpp, line 15\n");
}
