// Lines: gxline beside a bare memchr walk of the same bytes, getline and fgets.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "bench/alternate.h"
#include "include/plintor.h"

namespace {

constexpr size_t kSize = 200 << 20;
constexpr int kRounds = 15;

volatile uint64_t sink;  // what a loop has found, so that it is not left out

// A file of lines with about `length` bytes each (newline included), gone at the end.
class Text {
 public:
  Text(size_t size, int length) {
    std::mt19937 random(1);
    std::uniform_int_distribution<int> lengths(length / 2, length + length / 2);
    std::string text;
    text.reserve(size + 2 * static_cast<size_t>(length));
    while (text.size() < size) {
      for (int k = lengths(random); k > 1; --k)
        text += static_cast<char>('a' + (text.size() * 7) % 26);
      text += '\n';
    }
    const int fd = mkstemp(name_);
    for (size_t at = 0; at < text.size();) {
      const ssize_t written = write(fd, text.data() + at, text.size() - at);
      if (written <= 0) abort();
      at += static_cast<size_t>(written);
    }
    size_ = text.size();
    data_ = static_cast<const char *>(mmap(nullptr, size_, PROT_READ, MAP_SHARED, fd, 0));
    close(fd);
  }
  ~Text() {
    munmap(const_cast<char *>(data_), size_);
    unlink(name_);
  }
  Text(const Text &) = delete;
  Text &operator=(const Text &) = delete;
  const char *path() const { return name_; }
  const char *data() const { return data_; }
  const char *end() const { return data_ + size_; }

 private:
  char name_[32] = "/tmp/plintor-bench-XXXXXX";
  size_t size_;
  const char *data_;
};

char line[10240];

uint64_t walk(const Text &text) {
  uint64_t bytes = 0;
  for (const char *at = text.data(); at < text.end();) {
    const auto *end =
        static_cast<const char *>(memchr(at, '\n', static_cast<size_t>(text.end() - at)));
    bytes += static_cast<uint64_t>(end - at);
    at = end + 1;
  }
  return bytes;
}

uint64_t count_lines(int handle) {
  uint64_t lines = 0;
  gxseek(handle, 0);
  while (gxline(handle, line, sizeof line) != 0) ++lines;
  return lines;
}

uint64_t take_lengths(int handle) {
  uint64_t bytes = 0;
  gxseek(handle, 0);
  while (gxline(handle, line, sizeof line) != 0) bytes += strlen(line);
  return bytes;
}

void print(const char *title, const std::vector<bench::Result> &results, size_t bytes) {
  printf("%s\n", title);
  for (const bench::Result &result : results)
    printf("  %-34s %7.2f GB/s  %6.2f  +- %.2f\n", result.name.c_str(),
           static_cast<double>(bytes) / result.seconds * 1e-9, result.ratio, result.spread);
}

}  // namespace

int main() {
  // Far beyond the caches, as everywhere here; mapped and touched before the clock runs.
  for (const int length : {60, 8, 1000}) {
    const Text text(kSize, length);
    const int handle = gxopen(text.path());
    const auto results = bench::alternate(
        {
            {"memchr walk", [&] { sink = walk(text); }},
            {"gxline, length taken by strlen", [&] { sink = take_lengths(handle); }},
            {"gxline, lines counted", [&] { sink = count_lines(handle); }},
        },
        kRounds);
    char title[64];
    snprintf(title, sizeof title, "lines of %d bytes, over memchr", length);
    print(title, results, static_cast<size_t>(text.end() - text.data()));
    gxclose(handle);
  }

  // The whole file from opening to closing, as a program reads it once.
  const Text text(kSize, 60);
  const auto results = bench::alternate(
      {
          {"getline",
           [&] {
             FILE *stream = fopen(text.path(), "r");
             char *room = nullptr;
             size_t size = 0;
             uint64_t lines = 0;
             while (getline(&room, &size, stream) > 0) ++lines;
             free(room);
             fclose(stream);
             sink = lines;
           }},
          {"fgets",
           [&] {
             FILE *stream = fopen(text.path(), "r");
             uint64_t lines = 0;
             while (fgets(line, sizeof line, stream) != nullptr) ++lines;
             fclose(stream);
             sink = lines;
           }},
          {"gxline",
           [&] {
             const int handle = gxopen(text.path());
             sink = count_lines(handle);
             gxclose(handle);
           }},
      },
      kRounds);
  print("a file of 200 MiB, lines of 60 bytes, opened, read and closed, over getline", results,
        static_cast<size_t>(text.end() - text.data()));
}
