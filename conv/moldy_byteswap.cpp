// moldy_byteswap: short names for conversions between host and network order (the layout m), and
// plain byte reversal. Members are called by their exported names, so a program's own one counts.

#include "include/plintor.h"

#include <bit>
#include <cstring>

#include "conv/elements.h"
#include "conv/layout.h"
#include "conv/own.h"

#pragma GCC diagnostic error "-Wmissing-declarations"
#ifndef __clang__  // one function under several names takes several pointer types, which pass alike
#pragma GCC diagnostic ignored "-Wattribute-alias"
#endif

// ---- Arrays: destination first, and a plain pointer in place of the cursor ----

#define HOST_TO_NET(NAME, T, MEMBER)                     \
  extern "C" int NAME(void *net, const T *host, int n) { \
    char *cursor = static_cast<char *>(net);             \
    return MEMBER(host, &cursor, n);                     \
  }
#define NET_TO_HOST(NAME, T, MEMBER)                                   \
  extern "C" int NAME(T *host, const void *net, int n) {               \
    char *cursor = const_cast<char *>(static_cast<const char *>(net)); \
    return MEMBER(&cursor, host, n);                                   \
  }
#define HOST_TO_NET_IS(NAME, T, OTHER) \
  extern "C" int NAME(void *net, const T *host, int n) __attribute__((alias(#OTHER)));
#define NET_TO_HOST_IS(NAME, T, OTHER) \
  extern "C" int NAME(T *host, const void *net, int n) __attribute__((alias(#OTHER)));

// Kept: the signed 8-byte names mean doubles, which fail for a NaN; only the L names and the
// unsigned ones mean integers.
// clang-format off
HOST_TO_NET(H2N2, short, hs2ms)            HOST_TO_NET_IS(H2NS, short, H2N2)
HOST_TO_NET(H2N4, int, hi2mi)              HOST_TO_NET_IS(H2NI, int, H2N4)
HOST_TO_NET(H2NL, long, hl2ml)
HOST_TO_NET(H2N8, double, hd2md)           HOST_TO_NET_IS(H2ND, double, H2N8)
HOST_TO_NET(UH2N2, unsigned short, uhs2ms) HOST_TO_NET_IS(UH2NS, unsigned short, UH2N2)
HOST_TO_NET(UH2N4, unsigned int, uhi2mi)   HOST_TO_NET_IS(UH2NI, unsigned int, UH2N4)
HOST_TO_NET(UH2N8, unsigned long, uhl2ml)  HOST_TO_NET_IS(UH2NL, unsigned long, UH2N8)

NET_TO_HOST(N2H2, short, ms2hs)            NET_TO_HOST_IS(N2HS, short, N2H2)
NET_TO_HOST(N2H4, int, mi2hi)              NET_TO_HOST_IS(N2HI, int, N2H4)
NET_TO_HOST(N2HL, long, ml2hl)
NET_TO_HOST(N2H8, double, md2hd)           NET_TO_HOST_IS(N2HD, double, N2H8)
NET_TO_HOST(UN2H2, unsigned short, ums2hs) NET_TO_HOST_IS(UN2HS, unsigned short, UN2H2)
NET_TO_HOST(UN2H4, unsigned int, umi2hi)   NET_TO_HOST_IS(UN2HI, unsigned int, UN2H4)
NET_TO_HOST(UN2H8, unsigned long, uml2hl)  NET_TO_HOST_IS(UN2HL, unsigned long, UN2H8)

HOST_TO_NET(HI2NC, int, hi2mb)             NET_TO_HOST(NC2HI, int, mb2hi)
HOST_TO_NET(HI2NS, int, hi2ms)             NET_TO_HOST(NS2HI, int, ms2hi)
HOST_TO_NET(HI2NF, int, hi2mf)             NET_TO_HOST(NF2HI, int, mf2hi)
// clang-format on

// ---- Network floats and host doubles, without a report ----

extern "C" decltype(N2H4) own_N2H4 __attribute__((alias("N2H4"), visibility("hidden")));
extern "C" decltype(H2N4) own_H2N4 __attribute__((alias("H2N4"), visibility("hidden")));

namespace {

// Whether a call of the exported name ends in our function. The empty statement keeps compilers
// from answering: both symbols are one address here, until a program is linked.
template <class Function>
bool is_own(Function *exported, Function *own) {
  asm("" : "+r"(exported));
  return exported == own;
}

bool widen_float(const char *from, char *to) {
  const auto value = std::bit_cast<float>(conv::reversed(conv::load<float>(from)));
  conv::store<double>(to, std::bit_cast<uint64_t>(static_cast<double>(value)));
  return true;
}

bool narrow_double(const char *from, char *to) {
  const auto value = static_cast<float>(std::bit_cast<double>(conv::load<double>(from)));
  conv::store<float>(to, conv::reversed(std::bit_cast<uint32_t>(value)));
  return true;
}

}  // namespace

// Both are one call of N2H4 or H2N4 an element. Where that is ours, nobody sees the calls, and the
// elements go the way of mf2hd and hd2mf, whose report is not asked for.

extern "C" void NF2HD(double *host, const void *net, int n) {
  auto source = static_cast<const char *>(net);
  auto target = reinterpret_cast<char *>(host);
  if (is_own(N2H4, own_N2H4) && is_own(mi2hi, own_mi2hi)) {
    conv::all_elements<widen_float, sizeof(float), sizeof(double), conv::mf2hd>(source, target, n);
    return;
  }
  for (int k = 0; k < n; ++k, source += sizeof(float), target += sizeof(double)) {
    int bits;
    N2H4(&bits, source, 1);
    const double value = std::bit_cast<float>(bits);
    std::memcpy(target, &value, sizeof value);
  }
}

extern "C" void HD2NF(void *net, const double *host, int n) {
  auto source = reinterpret_cast<const char *>(host);
  auto target = static_cast<char *>(net);
  if (is_own(H2N4, own_H2N4) && is_own(hi2mi, own_hi2mi)) {
    conv::all_elements<narrow_double, sizeof(double), sizeof(float), conv::hd2mf>(source, target,
                                                                                  n);
    return;
  }
  for (int k = 0; k < n; ++k, source += sizeof(double), target += sizeof(float)) {
    double value;
    std::memcpy(&value, source, sizeof value);
    const int bits = std::bit_cast<int>(static_cast<float>(value));
    H2N4(target, &bits, 1);
  }
}

// ---- Three bytes ----

extern "C" void N32H4(int *host, const void *net, int n) {
  char *cursor = const_cast<char *>(static_cast<const char *>(net));
  mt2hi(&cursor, host, n);
}

namespace {

// Kept: wraps where hi2mt saturates, and reports nothing.
bool write_low_three(const char *from, char *to) {
  const uint32_t bits = conv::reversed(conv::load<uint32_t>(from));
  std::memcpy(to, reinterpret_cast<const char *>(&bits) + 1, 3);
  return true;
}

}  // namespace

extern "C" void H42N3(void *net, const int *host, int n) {
  conv::all_elements<write_low_three, sizeof(int), 3, conv::H42N3>(
      reinterpret_cast<const char *>(host), static_cast<char *>(net), n);
}

// ---- Single values: source first, as in the family ----

#define HOST_TO_NET_ONE(NAME, T, MEMBER)          \
  extern "C" int NAME(const T *host, void *net) { \
    char *cursor = static_cast<char *>(net);      \
    return MEMBER(host, &cursor, 1);              \
  }
#define NET_TO_HOST_ONE(NAME, T, MEMBER)                               \
  extern "C" int NAME(const void *net, T *host) {                      \
    char *cursor = const_cast<char *>(static_cast<const char *>(net)); \
    return MEMBER(&cursor, host, 1);                                   \
  }

// clang-format off
HOST_TO_NET_ONE(htondp, double, hd2md)  NET_TO_HOST_ONE(ntohdp, double, md2hd)
HOST_TO_NET_ONE(htonfp, float, hf2mf)   NET_TO_HOST_ONE(ntohfp, float, mf2hf)
HOST_TO_NET_ONE(hton8p, long, hl2ml)    NET_TO_HOST_ONE(ntoh8p, long, ml2hl)
// clang-format on

// By value: a reversed pattern travels in a floating register, where it is only ever moved.

extern "C" double htond(double host) {
  double net;
  char *cursor = reinterpret_cast<char *>(&net);
  hd2md(&host, &cursor, 1);
  return net;
}

extern "C" double ntohd(double net) {
  double host;
  char *cursor = reinterpret_cast<char *>(&net);
  md2hd(&cursor, &host, 1);
  return host;
}

extern "C" float htonf(float host) {
  float net;
  char *cursor = reinterpret_cast<char *>(&net);
  hf2mf(&host, &cursor, 1);
  return net;
}

extern "C" float ntohf(float net) {
  float host;
  char *cursor = reinterpret_cast<char *>(&net);
  mf2hf(&cursor, &host, 1);
  return host;
}

// ---- Plain swaps: each element is read whole before it is written, so in place is fine ----

namespace {

template <class T>
bool swap_element(const char *from, char *to) {
  conv::store<T>(to, conv::reversed(conv::load<T>(from)));
  return true;
}

// The kernels are those of the members that reverse integers.
template <class T, conv::Member member>
void swap(const void *from, void *to, int n) {
  conv::all_elements<swap_element<T>, sizeof(T), sizeof(T), member>(static_cast<const char *>(from),
                                                                    static_cast<char *>(to), n);
}

}  // namespace

extern "C" void swap2(const void *from, void *to, int n) {
  swap<uint16_t, conv::ms2hs>(from, to, n);
}
extern "C" void swap4(const void *from, void *to, int n) {
  swap<uint32_t, conv::mi2hi>(from, to, n);
}
extern "C" void swap8(const void *from, void *to, int n) {
  swap<uint64_t, conv::ml2hl>(from, to, n);
}
