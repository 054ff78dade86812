// ignoreSIGALRM: makes the process ignore SIGALRM.

#include "include/plintor.h"

#include <csignal>

#include "frame/vestan.h"

extern "C" void ignoreSIGALRM() {
  struct sigaction action = {};
  action.sa_handler = SIG_IGN;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  if (sigaction(SIGALRM, &action, nullptr) != 0)
    elog_die(1, "*stack*Unexpected failure: %s in file %s, line %d\n", "ignoreSIGALRM",
             "ignoreSIGALRM.cpp", 15);
}
