#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "frame/vestan.h"
#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"
#include "tests/sys/lists.h"

using fakes::Lines;

namespace {

constexpr int kNotAllowed = 77;

struct Entry {
  std::string mountpoint, host, path, fstype;
  bool operator==(const Entry &) const = default;
};
using Entries = std::vector<Entry>;

void PrintTo(const Entry &entry, std::ostream *out) {
  *out << "{" << entry.mountpoint << "|" << entry.host << "|" << entry.path << "|" << entry.fstype
       << "}";
}

// A field up to its NUL, which must be there.
template <size_t size>
std::string text_of(const char (&field)[size]) {
  EXPECT_LT(strnlen(field, size), size);
  return std::string(field, strnlen(field, size));
}

Entries entries(Tbl *list) {
  Entries all;
  for (long k = 0; k < lentbl(list); ++k) {
    const auto *mounted = static_cast<const Mounted *>(gettbl(list, k));
    all.push_back({text_of(mounted->mountpoint), text_of(mounted->host), text_of(mounted->path),
                   text_of(mounted->fstype)});
  }
  return all;
}

Entries mounts() {
  Tbl *list = nullptr;
  EXPECT_EQ(sysmounted(&list), 0);
  return entries(list);
}

Entries mounts_in(const std::string &text) {
  fakes::Host host;
  host.file("/etc/mtab", text);
  return mounts();
}

}  // namespace

TEST(sysmounted, makes_its_list_once_and_empties_it_from_then_on) {
  if (access("/etc/mtab", R_OK) != 0) GTEST_SKIP() << "this machine has no mount table";
  mounts();
  EXPECT_EQ(list_calls, Lines{"inittbl (nil) 0 1 (nil) 8320"});
  mounts();
  mounts();
  EXPECT_EQ(list_calls, (Lines{"inittbl (nil) 0 1 (nil) 8320", "clrtbl", "clrtbl"}));
}

TEST(sysmounted, record_has_four_fields_in_order) {
  EXPECT_EQ(offsetof(Mounted, mountpoint), 0u);
  EXPECT_EQ(offsetof(Mounted, host), 4096u);
  EXPECT_EQ(offsetof(Mounted, path), 4192u);
  EXPECT_EQ(offsetof(Mounted, fstype), 8288u);
  EXPECT_EQ(sizeof(Mounted), 8320u);
}

TEST(sysmounted, splits_a_remote_device_into_host_and_path) {
  EXPECT_EQ(mounts_in("server:/export /mnt/data nfs rw,hard 0 0\n"),
            (Entries{{"/mnt/data", "server", "/export", "nfs"}}));
}

TEST(sysmounted, gives_a_local_device_no_host) {
  EXPECT_EQ(mounts_in("/dev/sda1 / ext4 rw 0 0\n"), (Entries{{"/", "", "/dev/sda1", "ext4"}}));
}

TEST(sysmounted, cuts_a_device_at_its_first_colon) {
  EXPECT_EQ(mounts_in("a:b:c /m nfs rw 0 0\n"), (Entries{{"/m", "a", "b:c", "nfs"}}));
  EXPECT_EQ(mounts_in(":/p /m nfs rw 0 0\n"), (Entries{{"/m", "", "/p", "nfs"}}));
  EXPECT_EQ(mounts_in("h: /m nfs rw 0 0\n"), (Entries{{"/m", "h", "", "nfs"}}));
  EXPECT_EQ(mounts_in(": /m nfs rw 0 0\n"), (Entries{{"/m", "", "", "nfs"}}));
}

TEST(sysmounted, cuts_no_other_field_at_a_colon) {
  EXPECT_EQ(mounts_in("tmp /a:b fuse:x rw 0 0\n"), (Entries{{"/a:b", "", "tmp", "fuse:x"}}));
}

TEST(sysmounted, lists_entries_in_the_order_of_the_file) {
  EXPECT_EQ(mounts_in("proc /proc proc rw 0 0\nsysfs /sys sysfs rw 0 0\nproc /proc proc rw 0 0\n"),
            (Entries{{"/proc", "", "proc", "proc"},
                     {"/sys", "", "sysfs", "sysfs"},
                     {"/proc", "", "proc", "proc"}}));
}

TEST(sysmounted, skips_a_line_with_only_a_device_and_a_mount_point) {
  EXPECT_EQ(mounts_in("/dev/sda1 /\n/dev/sda2 \n/dev/sda3\nproc /proc proc rw 0 0\n"),
            (Entries{{"/proc", "", "proc", "proc"}}));
}

TEST(sysmounted, skips_a_mount_point_that_is_0) {
  EXPECT_EQ(mounts_in("a 0 ext4 rw 0 0\nb 00 ext4 rw 0 0\nc 0x ext4 rw 0 0\n"),
            (Entries{{"00", "", "b", "ext4"}, {"0x", "", "c", "ext4"}}));
}

TEST(sysmounted, skips_lines_without_a_token) {
  EXPECT_EQ(mounts_in("\n   \n\t \t\n \t "), Entries{});
  EXPECT_EQ(mounts_in(std::string("\0 a b c\n", 8)), Entries{});
}

TEST(sysmounted, separates_fields_by_any_number_of_blanks_and_tabs) {
  EXPECT_EQ(mounts_in("  \t/dev/sda1\t\t / \t ext4\trw 0 0\n"),
            (Entries{{"/", "", "/dev/sda1", "ext4"}}));
}

TEST(sysmounted, keeps_the_newline_of_a_type_that_ends_its_line) {
  EXPECT_EQ(mounts_in("proc /proc proc\nsysfs /sys sysfs"),
            (Entries{{"/proc", "", "proc", "proc\n"}, {"/sys", "", "sysfs", "sysfs"}}));
  EXPECT_EQ(mounts_in("a b \n"), (Entries{{"b", "", "a", "\n"}}));
}

TEST(sysmounted, keeps_a_carriage_return) {
  EXPECT_EQ(mounts_in("a /b c\r\n"), (Entries{{"/b", "", "a", "c\r\n"}}));
}

TEST(sysmounted, leaves_octal_escapes_as_they_are) {
  EXPECT_EQ(mounts_in("/dev/sdb1 /mnt/my\\040disk vfat rw 0 0\n"),
            (Entries{{"/mnt/my\\040disk", "", "/dev/sdb1", "vfat"}}));
}

TEST(sysmounted, takes_each_piece_of_a_line_over_255_characters_as_a_line) {
  // 255 characters, then "second third fourth"; the pieces meet in the middle of a word.
  const std::string head = "dev /mnt ext4 ";
  const std::string text = head + std::string(255 - head.size(), 'o') + "ptions /second third x\n";
  EXPECT_EQ(mounts_in(text),
            (Entries{{"/mnt", "", "dev", "ext4"}, {"/second", "", "ptions", "third"}}));
  EXPECT_EQ(mounts_in(std::string(254, 'd') + " /m ext4\n"), Entries{});
  EXPECT_EQ(mounts_in(std::string(254, 'd') + " a /m ext4\n"),
            (Entries{{"/m", "", "a", "ext4\n"}}));
}

TEST(sysmounted, takes_a_line_of_255_characters_whole) {
  const std::string line = std::string(248, 'd') + " /m ext";
  ASSERT_EQ(line.size(), 255u);
  EXPECT_EQ(mounts_in(line + "\n"), (Entries{{"/m", "", std::string(248, 'd'), "ext"}}));
  const std::string shorter = line.substr(1);
  EXPECT_EQ(mounts_in(shorter + "\n"), (Entries{{"/m", "", std::string(247, 'd'), "ext\n"}}));
}

TEST(sysmounted, cuts_a_host_to_95_characters) {
  for (const size_t size : {94u, 95u, 96u, 97u, 200u})
    EXPECT_EQ(mounts_in(std::string(size, 'h') + ":/p /m nfs rw\n"),
              (Entries{{"/m", std::string(std::min<size_t>(size, 95), 'h'), "/p", "nfs"}}))
        << size;
}

TEST(sysmounted, cuts_a_type_to_31_characters) {
  for (const size_t size : {30u, 31u, 32u, 33u, 200u})
    EXPECT_EQ(mounts_in("dev /m " + std::string(size, 't') + " rw\n"),
              (Entries{{"/m", "", "dev", std::string(std::min<size_t>(size, 31), 't')}}))
        << size;
}

TEST(sysmounted, opens_the_table_once_and_closes_it) {
  fakes::Host host;
  host.file("/etc/mtab", "proc /proc proc rw 0 0\n");
  mounts();
  EXPECT_EQ(host.count("fopen /etc/mtab"), 1);
  EXPECT_EQ(host.count("fopen"), 1);
  EXPECT_EQ(host.count("fclose"), 1);
}

TEST(sysmounted, refills_the_same_list_on_every_call) {
  fakes::Host host;
  host.file("/etc/mtab", "proc /proc proc rw 0 0\nsysfs /sys sysfs rw 0 0\n");
  Tbl *first = nullptr, *second = nullptr;
  EXPECT_EQ(sysmounted(&first), 0);
  EXPECT_EQ(lentbl(first), 2);
  host.file("/etc/mtab", "tmpfs /tmp tmpfs rw 0 0\n");
  EXPECT_EQ(sysmounted(&second), 0);
  EXPECT_EQ(second, first);
  EXPECT_EQ(entries(first), (Entries{{"/tmp", "", "tmpfs", "tmpfs"}}));
}

TEST(sysmounted, logs_a_missing_table_and_hands_back_an_empty_list) {
  fakes::Host host;
  host.missing("/etc/mtab", ENOENT);
  Tbl *list = nullptr;
  EXPECT_EQ(sysmounted(&list), -1);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(lentbl(list), 0);
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): can't open /etc/mtab"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{ENOENT});
}

TEST(sysmounted, empties_the_list_when_the_table_has_gone) {
  fakes::Host host;
  host.file("/etc/mtab", "proc /proc proc rw 0 0\n");
  Tbl *first = nullptr, *second = nullptr;
  EXPECT_EQ(sysmounted(&first), 0);
  host.missing("/etc/mtab", EACCES);
  EXPECT_EQ(sysmounted(&second), -1);
  EXPECT_EQ(second, first);
  EXPECT_EQ(lentbl(first), 0);
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{EACCES});
}

TEST(sysmounted, releases_its_lock_after_a_failure) {
  if (access("/etc/mtab", R_OK) != 0) GTEST_SKIP() << "this machine has no mount table";
  {
    fakes::Host host;
    host.missing("/etc/mtab", EMFILE);
    Tbl *list = nullptr;
    EXPECT_EQ(sysmounted(&list), -1);
  }
  std::thread other([] { mounts(); });  // would wait for ever
  other.join();
}

TEST(sysmounted, returns_0_and_no_entries_for_an_empty_table) {
  EXPECT_EQ(mounts_in(""), Entries{});
}

// ---- Against the rules, spelled out

namespace {

Entries model(const std::string &text) {
  Entries all;
  for (size_t at = 0; at < text.size();) {
    // A piece: at most 255 characters, up to and with a newline. What follows a NUL is not seen.
    std::string piece;
    while (at < text.size() && piece.size() < 255) {
      piece.push_back(text[at++]);
      if (piece.back() == '\n') break;
    }
    piece = piece.c_str();
    std::vector<std::string> tokens;
    std::string token;
    for (const char c : piece + " ") {
      if (c != ' ' && c != '\t') {
        token.push_back(c);
      } else if (!token.empty()) {
        tokens.push_back(token);
        token.clear();
      }
    }
    if (tokens.size() < 3 || tokens[1] == "0") continue;
    Entry entry{tokens[1], "", tokens[0], tokens[2].substr(0, 31)};
    if (const size_t colon = tokens[0].find(':'); colon != std::string::npos) {
      entry.host = tokens[0].substr(0, colon).substr(0, 95);
      entry.path = tokens[0].substr(colon + 1);
    }
    all.push_back(entry);
  }
  return all;
}

}  // namespace

TEST(sysmounted, reads_random_and_mutated_tables_as_the_model_does) {
  std::mt19937 random(17);
  const char *pieces[] = {
      "/dev/sda1", "server:/export", "a:b:c", " ", " ",     " ",          "\t", "\n",
      "0",         "/mnt/data",      "nfs4",  ":", "\\040", "rw,relatime"};
  for (int k = 0; k < 3000; ++k) {
    std::string text;
    for (size_t n = random() % 60; n > 0; --n) {
      text += pieces[random() % std::size(pieces)];
      if (random() % 20 == 0) text += std::string(random() % 300, "hx:/ "[random() % 5]);
      if (random() % 100 == 0) text.push_back('\0');
      if (random() % 50 == 0) text.push_back(static_cast<char>(random()));
    }
    ASSERT_EQ(mounts_in(text), model(text)) << text;
  }
}

TEST(sysmounted, reads_a_table_cut_at_every_byte_as_the_model_does) {
  const std::string text =
      "proc /proc proc rw,relatime 0 0\n\nserver:/export /mnt/data nfs rw 0 0\nshort /line\n"
      "/dev/sda1 / ext4 rw 0 0\n";
  for (size_t cut = 0; cut <= text.size(); ++cut)
    EXPECT_EQ(mounts_in(text.substr(0, cut)), model(text.substr(0, cut))) << cut;
}

TEST(sysmounted, reads_fields_of_4096_bytes_as_the_model_does) {
  for (const size_t size : {254u, 255u, 256u, 511u, 4095u, 4096u, 4097u, 8191u, 8192u, 8193u}) {
    const std::string field(size, 'x');
    for (const std::string &text : {field + " /m ext4 rw 0 0\n", "dev " + field + " ext4 rw 0 0\n",
                                    "dev /m " + field + " rw 0 0\n",
                                    field + ":" + field + " " + field + " " + field + "\n", field})
      EXPECT_EQ(mounts_in(text), model(text)) << size;
  }
}

// ---- The host as it is, and many threads

TEST(sysmounted, reads_the_real_path_of_the_host) {
  const auto outcome = fakes::in_child([] {
    if (!fakes::mount_over("/etc/mtab", "server:/export /mnt/data nfs rw 0 0\n"))
      _exit(kNotAllowed);
    EXPECT_EQ(mounts(), (Entries{{"/mnt/data", "server", "/export", "nfs"}}));
  });
  if (outcome.exit_code == kNotAllowed) GTEST_SKIP() << "no mount namespaces here";
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(sysmounted, agrees_with_findmnt_on_the_live_host) {
  if (access("/etc/mtab", R_OK) != 0) GTEST_SKIP() << "this machine has no mount table";
  FILE *output = popen("findmnt --mtab -rn -o TARGET,FSTYPE 2>/dev/null", "r");
  ASSERT_NE(output, nullptr);
  std::vector<std::string> expected;
  char line[8192];
  while (fgets(line, sizeof line, output) != nullptr) expected.push_back(line);
  pclose(output);
  if (expected.empty()) GTEST_SKIP() << "no findmnt(8) here";
  std::vector<std::string> got;
  for (const Entry &entry : mounts()) got.push_back(entry.mountpoint + " " + entry.fstype + "\n");
  std::sort(expected.begin(), expected.end());
  std::sort(got.begin(), got.end());
  EXPECT_EQ(got, expected);
}

TEST(sysmounted, keeps_nothing_more_over_10000_calls) {
  if (access("/etc/mtab", R_OK) != 0) GTEST_SKIP() << "this machine has no mount table";
  mounts();
  const int descriptors = fakes::open_descriptors(), mappings = fakes::mappings();
  const size_t heap = fakes::heap_bytes();
  for (int k = 0; k < 10000; ++k) {
    list_calls.clear();
    Tbl *list;
    ASSERT_EQ(sysmounted(&list), 0);
  }
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_LE(fakes::mappings(), mappings + 64);  // a sanitizer maps its own
  EXPECT_LE(fakes::heap_bytes(), heap + 4096);
}

TEST(sysmounted, may_be_called_by_8_threads_at_once) {
  std::atomic<int> failed{0};
  fakes::Threads threads(8, [&failed](size_t) {
    for (int k = 0; k < 300; ++k) {
      Tbl *list = nullptr;
      if (sysmounted(&list) != 0 || list == nullptr) ++failed;
    }
  });
  fakes::Host host;
  host.file("/etc/mtab", "a /1 x rw\nb /2 x rw\nc /3 x rw\n");
  threads.run();
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(mounts().size(), 3u);
}
