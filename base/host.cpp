// The host's description, and digests such as the one it is published as.

#include <fcntl.h>
#include <md5.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "frame/errno_guard.h"
#include "frame/vestan.h"

namespace {

constexpr size_t kTextSize = 1024;  // what the caller of lpms0w provides

// The beginning of a file, as much as fits.
template <size_t size>
std::string_view beginning(const char *path, char (&room)[size]) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return {};
  const ssize_t length = read(fd, room, size);
  close(fd);
  return {room, length > 0 ? static_cast<size_t>(length) : 0};
}

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\n'; }

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
  return text;
}

// "model name\t: Name of the processor\n", of the first processor
std::string_view processor_model(std::string_view cpuinfo) {
  const size_t key = cpuinfo.find("model name");
  if (key == cpuinfo.npos) return {};
  cpuinfo.remove_prefix(key);
  const std::string_view line(cpuinfo.data(), std::min(cpuinfo.find('\n'), cpuinfo.size()));
  const size_t colon = line.find(':');
  if (colon == line.npos) return {};
  return trimmed({line.data() + colon + 1, line.size() - colon - 1});
}

// Appends ", " and the part, as far as there is room.
void append(char *buffer, std::string_view part) {
  if (part.empty()) return;
  size_t length = strlen(buffer);
  for (const std::string_view piece : {std::string_view(length > 0 ? ", " : ""), part}) {
    const size_t copied = std::min(piece.size(), kTextSize - 1 - length);
    memcpy(buffer + length, piece.data(), copied);
    length += copied;
    buffer[length] = '\0';
  }
}

}  // namespace

extern "C" {

void mdhex(char *out, const char *data, long length) {
  const size_t size = data != nullptr && length > 0 ? static_cast<size_t>(length) : 0;
  MD5Data(reinterpret_cast<const uint8_t *>(size > 0 ? data : ""), size, out);
}

int lpms0w(char *buffer) {
  const ErrnoGuard guard;
  buffer[0] = '\0';
  utsname name;
  if (uname(&name) == 0) {
    append(buffer, name.sysname);
    append(buffer, name.machine);
  }
  char room[4096];
  append(buffer, processor_model(beginning("/proc/cpuinfo", room)));
  append(buffer, trimmed(beginning("/etc/machine-id", room)));
  return static_cast<int>(strlen(buffer));
}

}  // extern "C"
