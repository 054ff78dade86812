// Whatever the mount table holds, its readers keep to their fields.

#include <algorithm>

#include "fuzz/host.h"
#include "fuzz/input.h"
#include "include/plintor.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t length) {
  const std::string text(reinterpret_cast<const char *>(data), length);
  Host host(text);
  Tbl *mounts = nullptr;
  REQUIRE(sysmounted(&mounts) == 0);
  const auto lines = std::count(text.begin(), text.end(), '\n') + 1;
  REQUIRE(lentbl(mounts) <= lines + static_cast<long>(length) / 255);
  for (long k = 0; k < lentbl(mounts); ++k) {
    const auto &mount = *static_cast<Mounted *>(gettbl(mounts, k));
    REQUIRE_END(mount.mountpoint);
    REQUIRE_END(mount.host);
    REQUIRE_END(mount.path);
    REQUIRE_END(mount.fstype);
    REQUIRE(mount.mountpoint[0] != '\0' && strcmp(mount.mountpoint, "0") != 0);
    REQUIRE(strpbrk(mount.mountpoint, " \t") == nullptr && mount.fstype[0] != '\0');
    REQUIRE(strchr(mount.host, ':') == nullptr);
  }

  const int remote = is_nfs("/");
  if (PathInfo *info = infopath("/"); info != nullptr) {
    REQUIRE(remote == (info->host[0] != '\0'));
    REQUIRE_END(info->host);
    REQUIRE_END(info->filesystem);
    free(info);
  } else {
    REQUIRE(remote == -1);
  }
  return 0;
}
