// my_ip: the address that the resolver answers first for the host's node name.

#include "include/plintor.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/utsname.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "frame/vestan.h"

namespace {

constexpr size_t kTextSize = 64;  // of either text, the caller's

}  // namespace

extern "C" int my_ip(char *canonical, char *text, uint32_t *address) {
  *canonical = '\0';
  *text = '\0';
  *address = 0;

  utsname host;
  if (uname(&host) < 0) {
    fprintf(stderr, "uname fails : %s", strerror(errno));  // Kept: no newline
    return -1;
  }

  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_CANONNAME;
  addrinfo *answers;
  if (getaddrinfo(host.nodename, nullptr, &hints, &answers) != 0) return -1;

  // Kept: the first answer decides. A host that answers with a loopback address first has none.
  int result = -1;
  char found[INET6_ADDRSTRLEN] = "";  // Kept: stays so when inet_ntop fails, and the answer counts
  if (answers->ai_family == AF_INET) {
    const auto &ipv4 = reinterpret_cast<const sockaddr_in *>(answers->ai_addr)->sin_addr;
    if (inet_ntop(AF_INET, &ipv4, found, sizeof found) == nullptr)
      fprintf(stderr, "inet_ntop fails with ipv4 : %s\n", strerror(errno));
    if (strcmp(found, "127.0.0.1") != 0) {
      memcpy(address, &ipv4, sizeof *address);
      result = 0;
    }
  } else {
    const auto &ipv6 = reinterpret_cast<const sockaddr_in6 *>(answers->ai_addr)->sin6_addr;
    if (inet_ntop(AF_INET6, &ipv6, found, sizeof found) == nullptr)
      fprintf(stderr, "inet_ntop fails with ipv6 : %s\n", strerror(errno));
    if (strcmp(found, "0::1") != 0 && strcmp(found, "::1") != 0) {
      memcpy(address, &ipv6.s6_addr[12], sizeof *address);  // the last 4 of 16 bytes
      result = 0;
    }
  }
  if (result == 0) {
    strlcpy(canonical, okstr(answers->ai_canonname), kTextSize);
    strlcpy(text, found, kTextSize);
  }
  freeaddrinfo(answers);
  return result;
}
