// name2ip: the first IPv4 address of a host name.

#include "include/plintor.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>

#include <cstring>

extern "C" int name2ip(const char *name, uint32_t *address, char *text) {
  // Guards the resolver's own storage, from the call to the end of the copying.
  static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
  int result = -1;
  pthread_mutex_lock(&lock);
  if (const hostent *host = gethostbyname(name)) {
    in_addr first;
    memcpy(&first, host->h_addr_list[0], sizeof first);
    *address = first.s_addr;
    strcpy(text, inet_ntoa(first));
    result = 0;
  } else {
    *address = 0xFFFFFFFF;
    *text = '\0';
  }
  pthread_mutex_unlock(&lock);
  return result;
}
