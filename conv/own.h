// Second, hidden names of members that others call by their exported ones: a program may put a
// function of its own in the exported place, and these tell whether it has.

#ifndef CONV_OWN_H
#define CONV_OWN_H

#include "include/plintor.h"

extern "C" __attribute__((visibility("hidden"))) decltype(mi2hi) own_mi2hi;
extern "C" __attribute__((visibility("hidden"))) decltype(hi2mi) own_hi2mi;

#endif
