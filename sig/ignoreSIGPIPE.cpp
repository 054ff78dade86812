// ignoreSIGPIPE: makes the process ignore SIGPIPE.

#include "include/plintor.h"

#include <csignal>

#include "frame/vestan.h"

extern "C" void ignoreSIGPIPE() {
  struct sigaction action = {};
  action.sa_handler = SIG_IGN;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  if (sigaction(SIGPIPE, &action, nullptr) != 0)
    elog_die(1, "*stack*Unexpected failure: %s in file %s, line %d\n", "ignoreSIGPIPE",
             "ignoreSIGPIPE.cpp", 15);
}
