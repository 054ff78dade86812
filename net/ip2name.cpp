// ip2name: the host name of an IPv4 address. What has no name is asked for once per process.

#include "include/plintor.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/vestan.h"

namespace {

// Guards the resolver's own storage, and no_dns.
pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
// The addresses without a name: "%d" of the address, and its dotted quad.
// Kept: never emptied, also when the resolver would know one of them later.
Arr *no_dns;

// With the lock held.
int look_up(uint32_t address, char *name) {
  char key[12];  // "-2147483648"
  snprintf(key, sizeof key, "%d", static_cast<int>(address));
  if (no_dns != nullptr) {
    if (const void *quad = getarr(no_dns, key)) {
      strcpy(name, static_cast<const char *>(quad));
      return -1;
    }
  }

  const in_addr bytes{address};
  if (const hostent *host = gethostbyaddr(&bytes, sizeof bytes, AF_INET)) {
    strcpy(name, host->h_name);
    return 0;
  }

  strcpy(name, inet_ntoa(bytes));
  if (no_dns == nullptr) no_dns = newarr(nullptr);
  setarr(no_dns, key, strdup(name));
  elog_complain(0, "Can't lookup hostname for ip address %s", name);
  return -1;
}

}  // namespace

extern "C" int ip2name(uint32_t address, char *name) {
  // Kept: compared as an integer, so that this is 1.0.0.127 here, and 127.0.0.1 is looked up.
  if (address == 0x7F000001) {
    strcpy(name, "localhost");
    return 0;
  }
  pthread_mutex_lock(&lock);
  const int result = look_up(address, name);
  pthread_mutex_unlock(&lock);
  return result;
}
