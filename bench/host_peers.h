// How libproc2 and libuv answer what the samplers answer, as contenders of host_bench.

#ifndef BENCH_HOST_PEERS_H
#define BENCH_HOST_PEERS_H

#include <functional>
#include <map>
#include <string>
#include <vector>

struct HostPeer {
  const char *name;
  std::map<std::string, std::function<void()>> calls;  // by the sampler's name
};

// Those that are installed.
std::vector<HostPeer> installed_host_peers();

#endif
