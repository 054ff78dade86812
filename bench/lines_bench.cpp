// lines_bench: gxline over a bare memchr walk of the same bytes, getline and fgets.
//
//   lines_bench [--quick]

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

constexpr int kRounds = 15;

volatile uint64_t sink;  // what a loop has found, so that it is not left out

// A file of lines with about `length` bytes each (newline included), gone at the end.
class Text {
 public:
  Text(size_t size, int length) {
    std::mt19937 random(1);
    std::uniform_int_distribution<int> lengths(length / 2, length + length / 2);
    const std::string letters(2 * static_cast<size_t>(length), 'a');
    std::string text;
    text.reserve(size + letters.size());
    while (text.size() < size)
      text.append(letters, 0, static_cast<size_t>(lengths(random)) - 1) += '\n';
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

// A line's length counts only where somebody asks for it: strlen, or what getline returns.
enum Wanted { kCount, kLengths };

uint64_t read_gxline(int handle, Wanted wanted) {
  uint64_t found = 0;
  while (gxline(handle, line, sizeof line) != 0) found += wanted == kCount ? 1 : strlen(line);
  return found;
}

uint64_t whole_gxline(const char *path, Wanted wanted) {
  const int handle = gxopen(path);
  const uint64_t found = read_gxline(handle, wanted);
  gxclose(handle);
  return found;
}

uint64_t whole_getline(const char *path, Wanted wanted) {
  FILE *stream = fopen(path, "r");
  char *room = nullptr;
  size_t size = 0;
  uint64_t found = 0;
  for (ssize_t length; (length = getline(&room, &size, stream)) > 0;)
    found += wanted == kCount ? 1 : static_cast<uint64_t>(length);
  free(room);
  fclose(stream);
  return found;
}

uint64_t whole_fgets(const char *path, Wanted wanted) {
  FILE *stream = fopen(path, "r");
  uint64_t found = 0;
  while (fgets(line, sizeof line, stream) != nullptr) found += wanted == kCount ? 1 : strlen(line);
  fclose(stream);
  return found;
}

// Cells of the tables.
std::string rate(const bench::Result &result, const Text &text) {
  char cell[32];
  snprintf(cell, sizeof cell, " %.2f GB/s |",
           static_cast<double>(text.end() - text.data()) / result.seconds * 1e-9);
  return cell;
}
std::string ratio(const bench::Result &result) {
  char cell[32];
  snprintf(cell, sizeof cell, " %.2f ± %.2f |", result.ratio, result.spread);
  return cell;
}

}  // namespace

int main(int argc, char **argv) {
  bench::processor_time = true;
  bench::quick = argc > 1 && strcmp(argv[1], "--quick") == 0;
  printf(
      "## lines mapped\n\n"
      "| bytes a line | memchr walk | gxline, lines counted | gxline, lengths by strlen |\n"
      "|---|---|---|---|\n");
  std::string whole;  // the second table's rows
  const struct {
    int length;
    size_t size;
  } files[] = {{60, 200u << 20}, {8, 50u << 20}, {1000, 200u << 20}};
  for (const auto &[length, size] : files) {
    // Beyond the caches, as everywhere here; mapped and touched before the clock runs.
    const Text text(size, length);
    const int handle = gxopen(text.path());
    const auto again = [handle](Wanted wanted) {
      gxseek(handle, 0);
      sink = read_gxline(handle, wanted);
    };
    const auto results = bench::alternate({{"memchr walk", [&] { sink = walk(text); }},
                                           {"gxline, counted", [&] { again(kCount); }},
                                           {"gxline, lengths", [&] { again(kLengths); }}},
                                          kRounds);
    gxclose(handle);
    printf("| %d |%s%s%s\n", length, rate(results[0], text).c_str(), ratio(results[1]).c_str(),
           ratio(results[2]).c_str());
    fflush(stdout);

    // The whole file from opening to closing, as a program reads it once.
    whole += "| " + std::to_string(length) + " |";
    for (const Wanted wanted : {kCount, kLengths}) {
      const auto others =
          bench::alternate({{"gxline", [&] { sink = whole_gxline(text.path(), wanted); }},
                            {"getline", [&] { sink = whole_getline(text.path(), wanted); }},
                            {"fgets", [&] { sink = whole_fgets(text.path(), wanted); }}},
                           kRounds);
      whole += rate(others[0], text) + ratio(bench::inverse(others[1])) +
               ratio(bench::inverse(others[2]));
    }
    whole += "\n";
  }
  printf(
      "\n## lines whole\n\n"
      "| bytes a line | gxline, lines counted | over getline | over fgets "
      "| gxline, lengths taken | over getline | over fgets |\n|---|---|---|---|---|---|---|\n"
      "%s\n",
      whole.c_str());
}
