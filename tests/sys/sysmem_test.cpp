#include <gtest/gtest.h>
#include <sys/sysinfo.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"

using fakes::Lines;

namespace {

constexpr int kNotAllowed = 77;

struct Memory {
  double total = -1, physical = -1, used = -1;
};

Memory memory() {
  Memory asked;
  sysmem(&asked.total, &asked.physical, &asked.used);
  return asked;
}

Memory memory_in(const std::string &text) {
  fakes::Host host;
  host.file("/proc/meminfo", text);
  return memory();
}

double machine_megabytes() {
  struct sysinfo info;
  sysinfo(&info);
  return static_cast<double>(info.totalram * info.mem_unit) / 1048576;
}

}  // namespace

TEST(sysmem, adds_memory_and_swap_in_megabytes) {
  fakes::Host host;
  host.file("/proc/meminfo",
            "MemTotal:        8192 kB\n"
            "MemFree:         1024 kB\n"
            "MemAvailable:    7777 kB\n"
            "Buffers:         3333 kB\n"
            "Cached:          4444 kB\n"
            "SwapCached:      5555 kB\n"
            "SwapTotal:       4096 kB\n"
            "SwapFree:        3072 kB\n");
  const Memory got = memory();
  EXPECT_EQ(got.total, 12.0);
  EXPECT_EQ(got.used, 8.0);  // 8 - 1 + 4 - 3: caches count as used
  EXPECT_EQ(got.physical, machine_megabytes());
  EXPECT_EQ(host.calls(), (Lines{"open /proc/meminfo", "read", "close"}));
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(sysmem, counts_missing_keys_as_0) {
  const Memory got = memory_in("MemTotal:       2048 kB\n");
  EXPECT_EQ(got.total, 2.0);
  EXPECT_EQ(got.used, 2.0);
  EXPECT_EQ(got.physical, machine_megabytes());
}

TEST(sysmem, multiplies_by_1024_for_kB_and_by_1048576_for_MB) {
  EXPECT_EQ(memory_in("MemTotal: 3 MB\n").total, 3.0);
  EXPECT_EQ(memory_in("MemTotal: 3072 kB\n").total, 3.0);
  EXPECT_EQ(memory_in("MemTotal: 3 MB\nMemFree: 1024 kB\n").used, 2.0);
}

TEST(sysmem, takes_a_number_without_a_unit_as_bytes) {
  EXPECT_EQ(memory_in("MemTotal: 3145728\n").total, 3.0);
  EXPECT_EQ(memory_in("MemTotal: 3145728").total, 3.0);
  EXPECT_EQ(memory_in("MemTotal: 3145728 ").total, 3.0);
  EXPECT_EQ(memory_in("MemTotal: 3145728 k").total, 3.0);
  EXPECT_EQ(memory_in("MemTotal: 3145728 GB\n").total, 3.0);
}

TEST(sysmem, compares_two_characters_of_a_unit_and_their_case) {
  EXPECT_EQ(memory_in("MemTotal: 2048 kBytes\n").total, 2.0);
  EXPECT_EQ(memory_in("MemTotal: 2097152 KB\n").total, 2.0);
  EXPECT_EQ(memory_in("MemTotal: 2097152 mB\n").total, 2.0);
}

TEST(sysmem, looks_for_the_unit_one_character_behind_the_number) {
  EXPECT_EQ(memory_in("MemTotal: 2048\tkB\n").total, 2.0);
  EXPECT_EQ(memory_in("MemTotal: 2048,kB\n").total, 2.0);
  EXPECT_EQ(memory_in("MemTotal: 2097152  kB\n").total, 2.0);  // two blanks: no unit
  EXPECT_EQ(memory_in("MemTotal: 2097152kB\n").total, 2.0);    // none: "B"
}

TEST(sysmem, finds_a_key_anywhere_and_takes_the_first) {
  EXPECT_EQ(memory_in("xxMemTotal: 1 MB\nMemTotal: 9 MB\n").total, 1.0);
  EXPECT_EQ(memory_in("SwapTotal: 2 MB MemTotal: 1 MB").total, 3.0);
}

TEST(sysmem, reads_octal_and_hexadecimal_numbers) {
  EXPECT_EQ(memory_in("MemTotal: 0x10 MB\nSwapTotal: 010 MB\n").total, 24.0);
}

TEST(sysmem, starts_each_number_right_behind_its_key) {
  const Memory got = memory_in("MemTotal:16 MB\nMemFree:4 MB\nSwapTotal:8 MB\nSwapFree:2 MB\n");
  EXPECT_EQ(got.total, 24.0);
  EXPECT_EQ(got.used, 18.0);
}

// Where it starts shows in nothing, because no result contains it, and in no read past the end.
TEST(sysmem, reads_buffers_13_characters_behind_its_key_and_uses_it_in_no_result) {
  for (const char *buffers :
       {"Buffers:", "Buffers:1", "Buffers:    7", "Buffers:     7", "Buffers:     7 kB\n",
        "Buffers:         3333 kB\n", "Buffers:99999999999 MB\n"}) {
    const Memory got = memory_in(std::string("MemTotal: 4 MB\nMemFree: 1 MB\n") + buffers);
    EXPECT_EQ(got.total, 4.0) << buffers;
    EXPECT_EQ(got.used, 3.0) << buffers;
  }
}

TEST(sysmem, ends_the_process_without_errno_when_the_file_cannot_be_opened) {
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.missing("/proc/meminfo", EACCES);
    memory();
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(0): Can't open /proc/meminfo"});
}

TEST(sysmem, counts_a_failed_read_as_an_empty_text) {
  fakes::Host host;
  host.file("/proc/meminfo", "MemTotal: 4 MB\n");
  host.fail("read", EIO);
  const Memory got = memory();
  EXPECT_EQ(got.total, 0.0);
  EXPECT_EQ(got.used, 0.0);
  EXPECT_EQ(got.physical, machine_megabytes());
  EXPECT_EQ(host.calls(), (Lines{"open /proc/meminfo", "read", "close"}));
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(sysmem, accepts_an_empty_file) { EXPECT_EQ(memory_in("").total, 0.0); }

TEST(sysmem, accepts_a_text_of_fewer_than_10_bytes) {
  EXPECT_EQ(memory_in("MemTotal:").total, 0.0);
}

TEST(sysmem, takes_keys_beyond_8191_bytes_as_missing) {
  // The key ends with the 8191st byte or behind it; or one digit of the number is left.
  for (const size_t size : {8191u, 8192u, 8193u}) {
    const std::string line = "MemTotal:7";
    std::string text(size - line.size(), '.');
    text += line;
    ASSERT_EQ(text.size(), size);
    EXPECT_EQ(memory_in(text + "00 MB\n").total * 1048576, size == 8191 ? 7.0 : 0.0) << size;
  }
  const std::string line = "MemTotal:1 MB";
  for (const size_t size : {8190u, 8191u, 8192u, 8193u})
    EXPECT_EQ(memory_in(std::string(size - line.size(), '.') + line).total * 1048576,
              size <= 8191 ? 1048576.0 : 1.0)
        << size;
}

// ---- Against the search, spelled out ------------------------------------------------------------

namespace {

// A C text as the buffer holds it: characters up to the first NUL for the search, all of the data
// for what lies behind a key.
struct Model {
  std::string data;

  double value(const std::string &key, size_t start) const {
    const std::string text = data.c_str();
    for (size_t at = 0; at + key.size() <= text.size(); ++at) {
      bool here = true;
      for (size_t k = 0; k < key.size(); ++k) here = here && text[at + k] == key[k];
      if (!here) continue;
      const std::string behind = data.substr(std::min(at + start, data.size()));
      char *end;
      const double number = static_cast<double>(strtoul(behind.c_str(), &end, 0));
      const size_t unit = static_cast<size_t>(end - behind.c_str()) + 1;
      if (unit + 2 <= behind.size() && behind[unit + 1] == 'B') {
        if (behind[unit] == 'k') return number * 1024;
        if (behind[unit] == 'M') return number * 1024 * 1024;
      }
      return number;
    }
    return 0;
  }
};

void expect_model(const std::string &text) {
  const Model model{text.substr(0, 8191)};
  const double mem = model.value("MemTotal:", 9), mem_free = model.value("MemFree:", 8);
  const double swap = model.value("SwapTotal:", 10), swap_free = model.value("SwapFree:", 9);
  const Memory got = memory_in(text);
  ASSERT_EQ(got.total, (mem + swap) / 1048576) << text;
  ASSERT_EQ(got.used, (mem - mem_free + swap - swap_free) / 1048576) << text;
}

const std::string kLive =
    "MemTotal:       24678920 kB\nMemFree:        22063420 kB\nMemAvailable:   23896304 kB\n"
    "Buffers:           38204 kB\nCached:          1993460 kB\nSwapCached:            0 kB\n"
    "SwapTotal:        524288 kB\nSwapFree:         524280 kB\nHugepagesize:       2048 kB\n";

}  // namespace

TEST(sysmem, reads_a_text_cut_at_every_byte_as_the_model_does) {
  for (size_t cut = 0; cut <= kLive.size(); ++cut) expect_model(kLive.substr(0, cut));
}

TEST(sysmem, reads_random_and_mutated_text_as_the_model_does) {
  std::mt19937 random(3);
  const char *pieces[] = {
      "MemTotal:", "MemFree:", "SwapTotal:", "SwapFree:", "Buffers:",
      " ",         "    ",     "kB",         "MB",        "\n",
      "12345",     "0x1f",     "077",        "-1",        "99999999999999999999999",
      "Mem",       ":"};
  const char spoilers[] = "M: kB\n0x9\0\xff";
  for (int k = 0; k < 4000; ++k) {
    std::string text;
    if (k % 2 == 0) {
      for (size_t n = random() % 30; n > 0; --n) text += pieces[random() % std::size(pieces)];
    } else {
      text = kLive;
      for (size_t n = random() % 12; n > 0; --n)
        text[random() % text.size()] = spoilers[random() % (sizeof spoilers - 1)];
      text.erase(random() % text.size(), random() % 40);
    }
    expect_model(text);
    if (HasFatalFailure()) return;
  }
}

TEST(sysmem, reads_texts_of_8191_8192_and_8193_bytes_as_the_model_does) {
  for (const size_t size : {8191u, 8192u, 8193u})
    for (const char *line :
         {"Buffers:", "MemTotal:", "SwapFree:9", "MemFree:    1 k", "SwapTotal"}) {
      std::string text = kLive;
      while (text.size() + strlen(line) < size) text += '.';
      expect_model(text + line);
      std::string bare(size - strlen(line), '\n');
      expect_model(bare + line);
    }
}

// ---- The host as it is --------------------------------------------------------------------------

TEST(sysmem, reads_the_real_path_of_the_host) {
  const auto outcome = fakes::in_child([] {
    if (!fakes::mount_over("/proc/meminfo", "MemTotal: 2048 kB\nSwapTotal: 1 MB\n"))
      _exit(kNotAllowed);
    EXPECT_EQ(memory().total, 3.0);
  });
  if (outcome.exit_code == kNotAllowed) GTEST_SKIP() << "no mount namespaces here";
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(sysmem, agrees_with_free_on_the_live_host) {
  const auto free_says = [](double &total, double &used) {
    FILE *output = popen("LANG=C free -k", "r");
    long mem, mem_free, swap, swap_free;
    const int got = fscanf(output, "%*[^\n] Mem: %ld %*d %ld %*[^\n] Swap: %ld %*d %ld", &mem,
                           &mem_free, &swap, &swap_free);
    pclose(output);
    total = static_cast<double>(mem + swap) / 1024;
    used = static_cast<double>(mem - mem_free + swap - swap_free) / 1024;
    return got == 4;
  };
  double total, before, after;
  if (!free_says(total, before)) GTEST_SKIP() << "no free(1) here";
  const Memory got = memory();
  ASSERT_TRUE(free_says(total, after));
  EXPECT_EQ(got.total, total);
  EXPECT_GE(got.used, std::min(before, after) - 256);  // other programs run meanwhile
  EXPECT_LE(got.used, std::max(before, after) + 256);
  EXPECT_EQ(got.physical, machine_megabytes());
}

TEST(sysmem, keeps_nothing_over_10000_calls) {
  const int descriptors = fakes::open_descriptors(), mappings = fakes::mappings();
  const size_t heap = fakes::heap_bytes();
  for (int k = 0; k < 10000; ++k) memory();
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_LE(fakes::mappings(), mappings + 64);  // a sanitizer maps its own
  EXPECT_LE(fakes::heap_bytes(), heap + 4096);
}
