// Other libraries that convert arrays, as contenders of conv_bench.

#ifndef BENCH_CONV_PEERS_H
#define BENCH_CONV_PEERS_H

#include <cstddef>
#include <functional>
#include <vector>

// One side of a conversion. Its type is a letter of the family's names; its order is big-endian or
// the host's.
struct Side {
  char type;
  bool is_unsigned, is_big_endian;
};

struct Conversion {
  Side from, to;
};

inline int size_of(char type) {
  switch (type) {
    case 'b':
      return 1;
    case 's':
      return 2;
    case 't':
      return 3;
    case 'i':
    case 'f':
      return 4;
    default:
      return 8;
  }
}

inline bool floating(char type) { return type == 'f' || type == 'd'; }

struct Peer {
  const char *name;
  const char *lacks;  // what ours does and this one does not
  // A call that converts n elements, ready to be timed; an empty one where the peer has none.
  std::function<void()> (*run)(const Conversion &, const char *from, char *to, size_t n);
};

// Those that are installed.
std::vector<Peer> installed_peers();

// Those that it adds where their headers were found; none where they do not start.
std::vector<Peer> opencv();
std::vector<Peer> numpy();

#endif
