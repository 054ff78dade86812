// is_nfs: whether a path is on a remote mount.

#include "include/plintor.h"

extern "C" int is_nfs(const char *path) {
  PathInfo info;  // for its two texts
  if (fspath(path, info.host, info.filesystem) != 0) return -1;
  return info.host[0] != '\0' ? 1 : 0;
}
