// sysmounted: the mounted file systems, from the mount table /etc/mtab.

#include "include/plintor.h"

#include <pthread.h>

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "frame/vestan.h"

namespace {

// strlcpy for a field: under our lock, no other service is called.
template <size_t size>
void copy(char (&field)[size], const char *text) {
  const size_t length = strnlen(text, size - 1);
  std::memcpy(field, text, length);
  field[length] = '\0';
}

// "server:/export /mnt/data nfs rw 0 0": device, mount point, type; the rest is not read.
// Cuts the line into its fields. False when it names no file system.
// Kept: a type that ends its line keeps the newline.
bool parse_mount(char *line, Mounted &mount) {
  char *rest;
  const char *host = "";
  char *path = strtok_r(line, " \t", &rest);
  if (path == nullptr) return false;
  if (char *colon = std::strchr(path, ':')) {
    *colon = '\0';
    host = path;
    path = colon + 1;
  }
  const char *mountpoint = strtok_r(nullptr, " \t", &rest);
  const char *fstype = strtok_r(nullptr, " \t", &rest);
  if (mountpoint == nullptr || std::strcmp(mountpoint, "0") == 0 || fstype == nullptr) return false;
  copy(mount.mountpoint, mountpoint);
  copy(mount.host, host);
  copy(mount.path, path);
  copy(mount.fstype, fstype);
  return true;
}

// Appends the file systems of the mount table. -1 when there is no table.
int read_mounts(Tbl *list) {
  FILE *table = std::fopen("/etc/mtab", "r");
  if (table == nullptr) {
    elog_log(1, "can't open /etc/mtab");
    return -1;
  }
  Mounted mount{};
  char line[256];  // Kept: a longer line is read in pieces, each taken as a line
  while (std::fgets(line, sizeof line, table) != nullptr)
    if (parse_mount(line, mount)) pushtbl(list, &mount);
  std::fclose(table);
  return 0;
}

}  // namespace

extern "C" int sysmounted(Tbl **mounted) {
  static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  static Tbl *list;

  pthread_mutex_lock(&mutex);
  if (list == nullptr)
    list = inittbl(nullptr, 0, 1, nullptr, sizeof(Mounted));
  else
    clrtbl(list, nullptr);
  const int result = read_mounts(list);
  *mounted = list;
  pthread_mutex_unlock(&mutex);  // Kept: the caller reads the list without the lock
  return result;
}
