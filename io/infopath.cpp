// fspath, infopath: the mount that holds a path, from the mount table, and the room left in it.

#include "include/plintor.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/report.h"
#include "frame/vestan.h"

namespace {

constexpr size_t kPath = 4096;

bool exists(const char *path) {
  struct stat st;
  int result = 0;
  do result = stat(path, &st);
  while (result != 0 && errno == EINTR);
  return result == 0;
}

struct Mount {
  const char *host;
  char *device;  // what follows the host for a remote one
  char *point;
};

// "server:/export /mnt nfs rw 0 0": device and mount point; the rest is not read. `*point_before`
// is where the mount point of an earlier line began in the same buffer, null when none did.
bool parse_mount(char *line, char **point_before, Mount *mount) {
  char *rest = nullptr;
  mount->device = strtok_r(line, " \t", &rest);
  if (mount->device == nullptr) return false;
  mount->host = "";
  if (char *colon = strchr(mount->device, ':')) {
    *colon = '\0';
    mount->device = colon + 1;
    // Kept: not what stood before the colon, but what now stands in the buffer where an earlier
    // line had its mount point.
    if (*point_before != nullptr) mount->host = *point_before;
  }
  // Kept: as it is written, a blank as \040 and at the end of the line with the newline.
  mount->point = strtok_r(nullptr, " \t", &rest);
  if (mount->point == nullptr) return false;
  *point_before = mount->point;
  return true;
}

}  // namespace

extern "C" int fspath(const char *path, char *host, char *filesystem) {
  host[0] = '\0';
  filesystem[0] = '\0';
  char absolute[kPath];
  absolute[0] = '\0';
  abspath(path, absolute);
  if (!exists(absolute)) {
    elog_log(1, "can't stat %s", absolute);
    return -1;
  }
  FILE *table = fopen("/etc/mtab", "r");
  if (table == nullptr) {
    elog_log(1, "can't open /etc/mtab");
    return -1;
  }
  int result = -1;
  // A longer line is read as several. Zeros, because the host may be taken from anywhere in it.
  char line[4096] = {};
  char *point_before = nullptr;
  while (fgets(line, sizeof line, table) != nullptr) {
    Mount mount;
    if (!parse_mount(line, &point_before, &mount)) continue;
    // Kept: a prefix by characters, so /home holds /home2/x as well, and of the lines that match
    // the last one counts, not the one with the longest mount point.
    if (strncmp(absolute, mount.point, strlen(mount.point)) != 0) continue;
    strlcpy(host, mount.host, sizeof(PathInfo::host));
    strlcpy(filesystem, mount.device, sizeof(PathInfo::filesystem));
    result = 0;
  }
  fclose(table);
  return result;
}

extern "C" PathInfo *infopath(const char *path) {
  auto *info = static_cast<PathInfo *>(calloc(1, sizeof(PathInfo)));
  if (info == nullptr) DIE_OUT_OF_MEMORY("infopath", 70, "infopath.cpp", "info", 1);
  char clean[kPath];
  if (path[0] == '~') {
    clean[0] = '\0';
    cleanpath(path, 1, clean);
    path = clean;
  }
  if (fspath(path, info->host, info->filesystem) != 0) {
    elog_log(0, "can't resolve host, filesystem for %s", path);
    free(info);
    return nullptr;
  }
  struct statvfs st;
  if (std_statvfs(path, &st) != 0) {
    elog_log(1, "statvfs on '%s' fails", path);
    free(info);
    return nullptr;
  }
  info->fsid = static_cast<uint32_t>(st.f_fsid);  // Kept: std_statvfs puts the free blocks there
  const auto block = static_cast<double>(st.f_frsize);
  info->bytes_avail = static_cast<double>(st.f_bavail) * block;
  info->bytes_total = static_cast<double>(st.f_blocks) * block;
  info->inodes_avail = static_cast<double>(st.f_favail);
  info->inodes_total = static_cast<double>(st.f_files);
  return info;
}
