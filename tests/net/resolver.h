// The host's identity and its resolver, scripted: the calls that net/ makes, defined in the test
// program. Each is the real one until a test arms it. Include it in one file per program.

#ifndef TESTS_NET_RESOLVER_H
#define TESTS_NET_RESOLVER_H

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netdb.h>
#include <netinet/in.h>
#include <stdio.h>
#include <sys/socket.h>
#include <sys/utsname.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "tests/fakes/log.h"

namespace resolver {

// uname's answer.
struct Host {
  std::string node = "alpha";
  std::string machine = "x86_64";
  std::string system = "Linux";
  int result = 0;
  int error = 0;
};

// One of getaddrinfo's answers. The address is in inet_pton's form; family 0 is what the form says.
struct Answer {
  std::string address;
  const char *canonical = nullptr;
  int family = 0;
};

inline std::optional<Host> host;
inline std::optional<std::vector<Answer>> answers;
inline void answer_with(std::initializer_list<Answer> list) { answers = list; }
inline int lookup_error = 0;  // getaddrinfo's result, when it is not 0
inline int failing_ntop = 0;  // which call of inet_ntop fails, from 1; -1: all of them
inline int ntop_error = ENOSPC;
inline const char *ntop_text = nullptr;  // what inet_ntop writes instead
inline std::function<hostent *(const char *)> by_name;
inline std::function<hostent *(const void *, socklen_t, int)> by_address;
// "uname", "getaddrinfo NODE service family socktype flags", "freeaddrinfo", of the armed calls.
inline fakes::Lines calls;

inline int lists = 0;  // of answers, handed out and not yet freed

template <typename Function>
Function *next(const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

inline void copy(char (&field)[65], const std::string &text) {
  std::memset(field, 0, sizeof field);
  std::memcpy(field, text.data(), std::min(text.size(), sizeof field - 1));
}

inline addrinfo *one(const Answer &answer) {
  auto *info = new addrinfo{};
  auto *storage = new sockaddr_storage{};
  if (answer.address.find(':') == std::string::npos) {
    auto *ipv4 = reinterpret_cast<sockaddr_in *>(storage);
    ipv4->sin_family = AF_INET;
    inet_pton(AF_INET, answer.address.c_str(), &ipv4->sin_addr);
  } else {
    auto *ipv6 = reinterpret_cast<sockaddr_in6 *>(storage);
    ipv6->sin6_family = AF_INET6;
    ipv6->sin6_flowinfo = 0x44332211;
    ipv6->sin6_scope_id = 7;
    inet_pton(AF_INET6, answer.address.c_str(), &ipv6->sin6_addr);
  }
  if (answer.family != 0) storage->ss_family = static_cast<sa_family_t>(answer.family);
  info->ai_family = storage->ss_family;
  info->ai_socktype = SOCK_STREAM;
  info->ai_addr = reinterpret_cast<sockaddr *>(storage);
  info->ai_addrlen = sizeof *storage;
  if (answer.canonical != nullptr) info->ai_canonname = ::strdup(answer.canonical);
  return info;
}

// A host entry in static storage, as gethostbyname and gethostbyaddr hand it out.
inline hostent *entry(const char *name, std::vector<std::string> addresses) {
  static char text[1025];
  static in_addr bytes[4];
  static char *list[5];
  static hostent found;
  snprintf(text, sizeof text, "%s", name);
  size_t count = 0;
  for (const std::string &address : addresses) {
    inet_pton(AF_INET, address.c_str(), &bytes[count]);
    list[count] = reinterpret_cast<char *>(&bytes[count]);
    ++count;
  }
  list[count] = nullptr;
  found.h_name = text;
  found.h_addrtype = AF_INET;
  found.h_length = 4;
  found.h_addr_list = list;
  return &found;
}

// An address as the library passes it: four bytes as they lie in memory.
inline uint32_t quad(const char *text) {
  in_addr bytes;
  inet_pton(AF_INET, text, &bytes);
  return bytes.s_addr;
}

}  // namespace resolver

extern "C" int uname(utsname *name) noexcept {
  if (!resolver::host) return resolver::next<int(utsname *)>("uname")(name);
  resolver::calls.push_back("uname");
  if (resolver::host->result != 0) {
    errno = resolver::host->error;
    return resolver::host->result;
  }
  resolver::copy(name->nodename, resolver::host->node);
  resolver::copy(name->machine, resolver::host->machine);
  resolver::copy(name->sysname, resolver::host->system);
  return 0;
}

extern "C" int getaddrinfo(const char *node, const char *service, const addrinfo *hints,
                           addrinfo **result) {
  if (!resolver::answers)
    return resolver::next<decltype(getaddrinfo)>("getaddrinfo")(node, service, hints, result);
  addrinfo rest = *hints;
  rest.ai_family = rest.ai_socktype = rest.ai_flags = 0;
  const addrinfo zero{};
  const bool others_are_zero = std::memcmp(&rest, &zero, sizeof rest) == 0;
  resolver::calls.push_back(
      "getaddrinfo " + std::string(node) + " " + (service == nullptr ? "(none)" : service) + " " +
      std::to_string(hints->ai_family) + " " + std::to_string(hints->ai_socktype) + " " +
      std::to_string(hints->ai_flags) + (others_are_zero ? "" : " more"));
  if (resolver::lookup_error != 0) return resolver::lookup_error;
  *result = nullptr;
  for (addrinfo **end = result; const auto &answer : *resolver::answers) {
    *end = resolver::one(answer);
    end = &(*end)->ai_next;
  }
  ++resolver::lists;
  return 0;
}

extern "C" void freeaddrinfo(addrinfo *list) noexcept {
  if (!resolver::answers) return resolver::next<void(addrinfo *)>("freeaddrinfo")(list);
  resolver::calls.push_back("freeaddrinfo");
  --resolver::lists;
  while (list != nullptr) {
    addrinfo *rest = list->ai_next;
    delete reinterpret_cast<sockaddr_storage *>(list->ai_addr);
    free(list->ai_canonname);
    delete list;
    list = rest;
  }
}

extern "C" const char *inet_ntop(int family, const void *address, char *text,
                                 socklen_t size) noexcept {
  if (resolver::failing_ntop != 0 &&
      (resolver::failing_ntop < 0 || --resolver::failing_ntop == 0)) {
    errno = resolver::ntop_error;
    return nullptr;
  }
  if (resolver::ntop_text != nullptr) return std::strcpy(text, resolver::ntop_text);
  return resolver::next<const char *(int, const void *, char *, socklen_t)>("inet_ntop")(
      family, address, text, size);
}

extern "C" hostent *gethostbyname(const char *name) {
  if (resolver::by_name) return resolver::by_name(name);
  return resolver::next<hostent *(const char *)>("gethostbyname")(name);
}

extern "C" hostent *gethostbyaddr(const void *address, socklen_t length, int family) {
  if (resolver::by_address) return resolver::by_address(address, length, family);
  return resolver::next<decltype(gethostbyaddr)>("gethostbyaddr")(address, length, family);
}

#endif
