// my_ips: the addresses that the resolver answers for the host's node name, as one text.

#include "include/plintor.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/utsname.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

extern "C" int my_ips(char *list, int size) {
  const size_t room = size > 0 ? static_cast<size_t>(size) : 0;
  strlcpy(list, "", room);

  utsname host;
  if (uname(&host) < 0) return -1;

  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo *answers;
  if (const int error = getaddrinfo(host.nodename, nullptr, &hints, &answers); error != 0) {
    strlcpy(list, gai_strerror(error), room);
    return -1;
  }

  int result = -1;
  for (const addrinfo *answer = answers; answer != nullptr; answer = answer->ai_next) {
    char text[INET6_ADDRSTRLEN];
    const char *converted;
    if (answer->ai_family == AF_INET) {
      const auto *ipv4 = reinterpret_cast<const sockaddr_in *>(answer->ai_addr);
      converted = inet_ntop(AF_INET, &ipv4->sin_addr, text, sizeof text);
    } else {
      const auto *ipv6 = reinterpret_cast<const sockaddr_in6 *>(answer->ai_addr);
      converted = inet_ntop(AF_INET6, &ipv6->sin6_addr, text, sizeof text);
    }
    if (converted == nullptr) {
      fprintf(stderr, "inet_ntop fails in my_ips : %s\n", strerror(errno));
      continue;
    }
    // Kept: "::1", as inet_ntop writes the loopback address, is listed.
    if (strcmp(text, "127.0.0.1") == 0 || strcmp(text, "0::1") == 0) continue;
    strlcat(list, text, room);
    strlcat(list, " ", room);
    result = 0;
  }
  freeaddrinfo(answers);

  // Kept: in a list that was cut, the blank may be gone and an address incomplete.
  const size_t length = strnlen(list, room);
  if (length > 0 && list[length - 1] == ' ') list[length - 1] = '\0';
  return result;
}
