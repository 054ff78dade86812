// What conv_bench and its plain loops have in common.

#ifndef BENCH_CONV_PLAIN_TYPES_H
#define BENCH_CONV_PLAIN_TYPES_H

#include <string>

using PlainLoop = int (*)(const char *from, char *to, int n);

// The plain loop of a member, or null where there is none.
PlainLoop plain_loop_o2(const std::string &name);
PlainLoop plain_loop_native(const std::string &name);

#endif
