// gxline against its rule, byte by byte, over random files, with each kernel that this machine
// runs. Each file is mapped right before a page that may not be touched. The library's objects are
// part of this program, so that a kernel can be forced.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>

#include "include/plintor.h"
#include "io/kernels/kernels.h"
#include "tests/fakes/host.h"
#include "tests/fakes/memory.h"
#include "tests/io/scratch.h"

namespace {

struct Model {
  std::string data;
  int pos = 0;

  int line(char *buffer, int length) {
    const int remaining = static_cast<int>(data.size()) - pos;
    const char *p = data.data() + pos;
    int n = 0;
    int stored = 0;
    char last = '\0';
    while (n < length - 1 && n < remaining) {
      last = *p++;
      if (last == '\n') {
        n = n + 1;
        break;
      }
      if (last == '\0') break;
      buffer[stored++] = last;
      n = n + 1;
    }
    buffer[stored] = '\0';
    pos = pos + n;
    if (n == length - 1 && last != '\n' && last != '\0') return 2;
    return n > 0 ? 1 : 0;
  }

  int seek(int offset) {
    if (offset < 0 || offset > static_cast<int>(data.size())) return -1;
    pos = offset;
    return 0;
  }
};

using Random = std::mt19937;

int pick(Random &random, int from, int to) {
  return std::uniform_int_distribution<int>(from, to)(random);
}

std::string random_text(Random &random) {
  size_t size = static_cast<size_t>(pick(random, 1, 300));
  if (pick(random, 0, 7) == 0) size = static_cast<size_t>(pick(random, 4096 - 130, 4096));
  // How often a line ends, out of 1000 bytes; the same for a NUL, a carriage return, a byte > 127.
  const int newlines = pick(random, 0, 3) == 0 ? 300 : pick(random, 0, 60);
  const int nuls = pick(random, 0, 3) == 0 ? pick(random, 0, 30) : 0;
  std::string text(size, ' ');
  for (char &c : text) {
    const int draw = pick(random, 0, 999);
    if (draw < newlines)
      c = '\n';
    else if (draw < newlines + nuls)
      c = '\0';
    else if (draw < newlines + nuls + 20)
      c = '\r';
    else
      c = static_cast<char>(pick(random, 1, 255));
  }
  if (pick(random, 0, 1) == 0) text.back() = '\n';
  return text;
}

template <class Check>
void for_every_kernel(Check check) {
  for (const Vectors vectors : {Vectors::sse2, Vectors::avx2, Vectors::avx512}) {
    if (vectors > best_vectors()) break;
    SCOPED_TRACE("kernel " + std::to_string(static_cast<int>(vectors)));
    choose_line_kernel(vectors);
    check();
    if (testing::Test::HasFatalFailure()) return;
  }
}

// Reads `files` random files in buffers of `shortest` to `longest` bytes.
void compare_one_kernel(uint32_t seed, int files, int shortest, int longest) {
  Random random(seed);
  const Scratch scratch("");
  fakes::Host host;
  host.fence_mappings();
  const int fd = open(scratch.path(), O_RDWR);
  fakes::Guarded room(8192), model_room(8192);
  for (int file = 0; file < files; ++file) {
    Model model{random_text(random)};
    ASSERT_EQ(pwrite(fd, model.data.data(), model.data.size(), 0),
              static_cast<ssize_t>(model.data.size()));
    ASSERT_EQ(ftruncate(fd, static_cast<off_t>(model.data.size())), 0);
    const int handle = gxopen(scratch.path());
    ASSERT_EQ(handle, 0);
    int ends = 0;
    for (int step = 0; step < 60 && ends < 3; ++step) {
      const int length = pick(random, shortest, longest);
      const auto size = static_cast<size_t>(length);
      auto *buffer = reinterpret_cast<char *>(room.last(size));
      auto *expected = reinterpret_cast<char *>(model_room.last(size));
      memset(buffer, '#', size);
      memset(expected, '#', size);
      const int was = model.pos;
      const int result = model.line(expected, length);
      ASSERT_EQ(gxline(handle, buffer, length), result)
          << "file " << file << " from " << was << " length " << length;
      ASSERT_EQ(memcmp(buffer, expected, size), 0)
          << "file " << file << " from " << was << " length " << length;
      ASSERT_EQ(gxtell(handle), model.pos) << "file " << file << " from " << was;
      ends += result == 0;
      if (pick(random, 0, 5) == 0) {
        const int offset = pick(random, -3, static_cast<int>(model.data.size()) + 3);
        ASSERT_EQ(gxseek(handle, offset), model.seek(offset));
        ASSERT_EQ(gxtell(handle), model.pos);
      }
    }
    ASSERT_EQ(gxclose(handle), 0);
    host.clear_calls();
  }
  close(fd);
}

void compare(uint32_t seed, int files, int shortest, int longest) {
  for_every_kernel([=] { compare_one_kernel(seed, files, shortest, longest); });
}

}  // namespace

TEST(gxline, agrees_with_its_rule_in_short_buffers) { compare(1, 45000, 1, 70); }

TEST(gxline, agrees_with_its_rule_in_the_shortest_buffers) { compare(2, 20000, 1, 4); }

TEST(gxline, agrees_with_its_rule_in_buffers_around_vector_sizes) {
  compare(3, 7000, 15, 19);
  compare(4, 7000, 31, 35);
  compare(5, 7000, 62, 68);
}

TEST(gxline, agrees_with_its_rule_in_buffers_longer_than_the_file) { compare(6, 15000, 300, 8192); }

namespace {

// Every length of a line, at every distance from the end of the mapping and of the buffer, read
// from every alignment.
void compare_at_the_end_of_the_mapping() {
  fakes::Guarded room(4096), model_room(4096);
  const Scratch scratch("");
  fakes::Host host;
  host.fence_mappings();
  const int fd = open(scratch.path(), O_RDWR);
  for (const char end : {'\n', '\0', 'x'}) {
    for (int behind = 0; behind < 3; ++behind) {  // bytes between that end and the page's
      Model model{std::string(4096, 'x')};
      model.data[static_cast<size_t>(4095 - behind)] = end;
      ASSERT_EQ(pwrite(fd, model.data.data(), 4096, 0), 4096);
      const int handle = gxopen(scratch.path());
      for (int start = 4096 - 200; start <= 4096; ++start) {
        for (int length = 1; length < 210; length += length < 70 ? 1 : 13) {
          const auto size = static_cast<size_t>(length);
          auto *buffer = reinterpret_cast<char *>(room.last(size));
          auto *expected = reinterpret_cast<char *>(model_room.last(size));
          memset(buffer, '#', size);
          memset(expected, '#', size);
          model.pos = start;
          ASSERT_EQ(gxseek(handle, start), 0);
          ASSERT_EQ(gxline(handle, buffer, length), model.line(expected, length))
              << start << " " << length;
          ASSERT_EQ(memcmp(buffer, expected, size), 0) << start << " " << length;
          ASSERT_EQ(gxtell(handle), model.pos) << start << " " << length;
        }
      }
      gxclose(handle);
    }
  }
  close(fd);
}

}  // namespace

TEST(gxline, agrees_with_its_rule_at_the_end_of_the_mapping) {
  for_every_kernel(compare_at_the_end_of_the_mapping);
}
