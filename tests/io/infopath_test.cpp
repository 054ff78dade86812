// fspath and infopath over scripted mount tables, and beside the tools that know the live host.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"
#include "tests/fakes/memory.h"
#include "tests/fakes/process.h"

using fakes::Lines;

static_assert(offsetof(PathInfo, fsid) == 0 && offsetof(PathInfo, host) == 4 &&
              offsetof(PathInfo, filesystem) == 68 && offsetof(PathInfo, bytes_avail) == 4168 &&
              offsetof(PathInfo, bytes_total) == 4176 && offsetof(PathInfo, inodes_avail) == 4184 &&
              offsetof(PathInfo, inodes_total) == 4192 && sizeof(PathInfo) == 4200);

namespace {

const struct statfs *figures;  // what statfs answers with; null: the host's own
int statfs_error;              // what it fails with
std::string statfs_path;       // what it was asked for

}  // namespace

extern "C" int statfs(const char *path, struct statfs *st) noexcept {
  statfs_path = path;
  if (statfs_error != 0) {
    errno = statfs_error;
    return -1;
  }
  if (figures == nullptr)
    return reinterpret_cast<decltype(&statfs)>(dlsym(RTLD_NEXT, "statfs"))(path, st);
  *st = *figures;
  return 0;
}

namespace {

struct Answer {
  int result;
  std::string host, filesystem;
  bool operator==(const Answer &) const = default;
};

void PrintTo(const Answer &answer, std::ostream *out) {
  *out << answer.result << " host '" << answer.host << "' filesystem '" << answer.filesystem << "'";
}

fakes::Guarded host_room(64), filesystem_room(4096);

Answer ask(const std::string &path) {
  auto *host = reinterpret_cast<char *>(host_room.last(64));
  auto *filesystem = reinterpret_cast<char *>(filesystem_room.last(4096));
  memset(host, '#', 64);
  memset(filesystem, '#', 4096);
  const int result = fspath(path.c_str(), host, filesystem);
  return {result, host, filesystem};
}

Answer ask(const std::string &path, const std::string &mounts) {
  fakes::Host host;
  host.file("/etc/mtab", mounts);
  return ask(path);
}

}  // namespace

TEST(fspath, the_root_mount_gives_its_device_and_no_host) {
  EXPECT_EQ(ask("/tmp", "/dev/sda1 / ext4 rw 0 0\n"), (Answer{0, "", "/dev/sda1"}));
}

TEST(fspath, a_line_that_does_not_match_leaves_both_empty) {
  EXPECT_EQ(ask("/tmp", "/dev/sda1 /home ext4 rw 0 0\n"), (Answer{-1, "", ""}));
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(fspath, an_empty_table_matches_nothing) { EXPECT_EQ(ask("/tmp", ""), (Answer{-1, "", ""})); }

TEST(fspath, the_last_match_wins_and_not_the_longest_mount_point) {
  EXPECT_EQ(ask("/usr/bin", "a / x\nb /usr x\nc /usr/bin x\nd /usr x\n"), (Answer{0, "", "d"}));
  EXPECT_EQ(ask("/usr/bin", "a /usr/bin x\nb / x\n"), (Answer{0, "", "b"}));
}

TEST(fspath, a_mount_point_is_a_prefix_by_characters) {
  char folder[] = "/tmp/plintor-mount-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  const std::string home = std::string(folder) + "/home", home2 = home + "2";
  mkdir(home2.c_str(), 0700);
  EXPECT_EQ(ask(home2, "a " + home + " x\nb " + home2 + " x\n"), (Answer{0, "", "b"}));
  EXPECT_EQ(ask(home2, "b " + home2 + " x\na " + home + " x\n"), (Answer{0, "", "a"}));
  rmdir(home2.c_str());
  rmdir(folder);
}

TEST(fspath, a_mount_point_with_a_blank_in_its_name_does_not_match) {
  char folder[] = "/tmp/plintor-mount-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  const std::string point = std::string(folder) + "/my disk";
  mkdir(point.c_str(), 0700);
  EXPECT_EQ(ask(point, std::string("a / x\nb ") + folder + "/my\\040disk x\n"),
            (Answer{0, "", "a"}));
  EXPECT_EQ(ask(point, std::string("a / x\nb ") + folder + "/my disk x\n"), (Answer{0, "", "b"}));
  rmdir(point.c_str());
  rmdir(folder);
}

TEST(fspath, tokens_end_at_blanks_and_tabs) {
  EXPECT_EQ(ask("/tmp", " \t dev\t \t/\tx\n"), (Answer{0, "", "dev"}));
}

TEST(fspath, a_line_without_a_mount_point_is_passed_over) {
  EXPECT_EQ(ask("/tmp", "dev\n\n \t\n   "), (Answer{-1, "", ""}));
  EXPECT_EQ(ask("/tmp", "dev / x\nother\n\n  \t"), (Answer{0, "", "dev"}));
}

TEST(fspath, a_mount_point_that_ends_its_line_keeps_the_newline_and_does_not_match) {
  EXPECT_EQ(ask("/tmp", "dev /\n"), (Answer{-1, "", ""}));
  EXPECT_EQ(ask("/tmp", "dev /"), (Answer{0, "", "dev"}));
}

TEST(fspath, of_a_remote_device_the_text_behind_the_first_colon_is_the_file_system) {
  EXPECT_EQ(ask("/tmp", "a:b:c / nfs\n"), (Answer{0, "", "b:c"}));
  EXPECT_EQ(ask("/tmp", "a: / nfs\n"), (Answer{0, "", ""}));
}

TEST(fspath, of_a_remote_device_on_the_first_line_the_host_is_empty) {
  EXPECT_EQ(ask("/tmp", "server:/export / nfs rw 0 0\n"), (Answer{0, "", "/export"}));
}

TEST(fspath, the_host_is_what_stands_where_an_earlier_line_had_its_mount_point) {
  // "/dev/sda1 /" has it at 10, and "server:/export" has "port" there.
  EXPECT_EQ(ask("/tmp", "/dev/sda1 / ext4 rw 0 0\nserver:/export /tmp nfs rw 0 0\n"),
            (Answer{0, "port", "/export"}));
}

TEST(fspath, the_host_is_empty_where_that_place_is_the_colon) {
  EXPECT_EQ(ask("/tmp", "/dev/a / x\nserver2:/export /tmp nfs\n"), (Answer{0, "", "/export"}));
}

TEST(fspath, the_host_is_old_text_where_that_place_is_behind_the_line) {
  EXPECT_EQ(ask("/tmp", "/dev/mapper/long-name-of-a-volume /usr x\nh:/e /tmp x\n"),
            (Answer{0, "/usr", "/e"}));
}

TEST(fspath, the_host_ends_where_the_mount_point_ends) {
  EXPECT_EQ(ask("/tmp", "/dev/abc / x\ns:/e    /tmp nfs rw\n"), (Answer{0, "tmp", "/e"}));
}

TEST(fspath, the_place_is_kept_over_a_line_without_a_mount_point) {
  EXPECT_EQ(ask("/tmp", "/dev/sda1 / x\nalone\n\nserver:/export /tmp nfs\n"),
            (Answer{0, "port", "/export"}));
}

TEST(fspath, the_place_moves_with_every_line_that_has_a_mount_point) {
  // At 4 now, from a line that does not match.
  EXPECT_EQ(ask("/tmp", "/dev/sda1 / x\ndev /elsewhere x\nserver:/export /tmp nfs\n"),
            (Answer{0, "er", "/export"}));
}

TEST(fspath, a_host_is_cut_to_63_characters) {
  const std::string name(80, 'h');
  EXPECT_EQ(ask("/tmp", "d / x\n" + name + ":/e /tmp nfs\n"),
            (Answer{0, std::string(63, 'h'), "/e"}));
}

TEST(fspath, a_local_mount_after_a_remote_one_has_no_host) {
  EXPECT_EQ(ask("/tmp", "/dev/sda1 / x\nserver:/export /tmp nfs\n/dev/sdb /tmp x\n"),
            (Answer{0, "", "/dev/sdb"}));
}

TEST(fspath, a_line_longer_than_the_buffer_is_read_as_several) {
  // 4095 bytes are the first; what follows is a line of its own.
  const std::string first = "dev /nowhere " + std::string(4095 - 13, 'o');
  EXPECT_EQ(ask("/tmp", first + "second / x\n"), (Answer{0, "", "second"}));
}

TEST(fspath, a_device_that_fills_the_buffer_has_no_mount_point) {
  EXPECT_EQ(ask("/tmp", std::string(4095, 'd') + " / x\n"), (Answer{-1, "", ""}));
  const std::string longest(4095 - 2, 'd');
  EXPECT_EQ(ask("/tmp", longest + " / x\n"), (Answer{0, "", longest}));
}

TEST(fspath, a_relative_path_is_made_absolute) {
  char before[4096];
  ASSERT_NE(getcwd(before, sizeof before), nullptr);
  ASSERT_EQ(chdir("/usr"), 0);
  EXPECT_EQ(ask("bin", "a / x\nb /usr/bin x\n"), (Answer{0, "", "b"}));
  EXPECT_EQ(ask(".", "a /usr/bin x\nb /usr x\n"), (Answer{0, "", "b"}));
  ASSERT_EQ(chdir(before), 0);
}

TEST(fspath, asks_for_the_path_then_reads_the_table_once) {
  fakes::Host host;
  host.file("/etc/mtab", "dev / x\n");
  ask("/tmp");
  EXPECT_EQ(host.calls(), (Lines{"stat /tmp", "fopen /etc/mtab", "fclose"}));
}

TEST(fspath, a_path_that_does_not_exist_fails_before_the_table_is_opened) {
  fakes::Host host;
  EXPECT_EQ(ask("/nowhere/at/all"), (Answer{-1, "", ""}));
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): can't stat /nowhere/at/all"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{ENOENT});
  EXPECT_EQ(host.calls(), Lines{"stat /nowhere/at/all"});
}

TEST(fspath, a_relative_path_that_does_not_exist_is_reported_absolute) {
  ASSERT_EQ(chdir("/usr"), 0);
  EXPECT_EQ(ask("nothing of that name"), (Answer{-1, "", ""}));
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): can't stat /usr/nothing of that name"});
}

TEST(fspath, a_path_too_long_to_be_one_cannot_be_examined) {
  EXPECT_EQ(ask("/" + std::string(5000, 'x')), (Answer{-1, "", ""}));
  EXPECT_EQ(fakes::log().size(), 1u);
}

TEST(fspath, an_interrupted_stat_is_repeated) {
  fakes::Host host;
  host.file("/etc/mtab", "dev / x\n");
  host.fail("stat", EINTR);
  EXPECT_EQ(ask("/tmp"), (Answer{0, "", "dev"}));
  EXPECT_EQ(host.calls(), (Lines{"stat /tmp", "stat /tmp", "fopen /etc/mtab", "fclose"}));
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(fspath, a_table_that_cannot_be_opened_is_reported) {
  fakes::Host host;
  host.missing("/etc/mtab", EACCES);
  EXPECT_EQ(ask("/tmp"), (Answer{-1, "", ""}));
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): can't open /etc/mtab"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{EACCES});
  EXPECT_EQ(host.calls(), (Lines{"stat /tmp", "fopen /etc/mtab"}));
}

// ---- Against the rule, token by token --------------------------------------------------------

namespace {

// The same answer by index arithmetic over one buffer of 4096 bytes.
Answer model(const std::string &path, const std::string &mounts) {
  std::string buffer(4096, '\0');
  Answer answer{-1, "", ""};
  bool had_mount = false;
  size_t mount_before = 0;
  for (size_t at = 0; at < mounts.size();) {
    size_t used = 0;
    while (used < 4095 && at < mounts.size()) {
      buffer[used++] = mounts[at++];
      if (buffer[used - 1] == '\n') break;
    }
    buffer[used] = '\0';
    size_t cursor = 0;
    const auto token = [&](size_t &start) {
      while (buffer[cursor] == ' ' || buffer[cursor] == '\t') ++cursor;
      if (buffer[cursor] == '\0') return false;
      start = cursor;
      while (buffer[cursor] != ' ' && buffer[cursor] != '\t' && buffer[cursor] != '\0') ++cursor;
      if (buffer[cursor] != '\0') buffer[cursor++] = '\0';
      return true;
    };
    size_t device = 0, mount = 0;
    if (!token(device)) continue;
    bool remote = false;
    for (size_t k = device; buffer[k] != '\0' && !remote; ++k) {
      if (buffer[k] != ':') continue;
      buffer[k] = '\0';
      device = k + 1;
      remote = true;
    }
    const bool host_known = remote && had_mount;
    const size_t host = mount_before;
    if (!token(mount)) continue;
    had_mount = true;
    mount_before = mount;
    const std::string point = buffer.c_str() + mount;
    if (path.compare(0, point.size(), point) != 0) continue;
    answer = {0, host_known ? std::string(buffer.c_str() + host).substr(0, 63) : "",
              buffer.c_str() + device};
  }
  return answer;
}

int pick(std::mt19937 &random, int from, int to) {
  return std::uniform_int_distribution<int>(from, to)(random);
}

std::string random_word(std::mt19937 &random) {
  static const char *const words[] = {"/",    "/usr",       "/usr/bin",      "/usr/lib", "/us",
                                      "/tmp", "server:/ex", "/dev/sda1",     "a:b:c",    ":",
                                      "none", "h:",         "systemd-1:/x:", "\n",       "0"};
  const int draw = pick(random, 0, 19);
  if (draw < 15) return words[draw];
  int length = pick(random, 1, 60);
  if (draw == 19) length = pick(random, 0, 9) == 0 ? pick(random, 4000, 4200) : length;
  std::string word(static_cast<size_t>(length), static_cast<char>(pick(random, 'a', 'z')));
  if (draw == 18) word[static_cast<size_t>(pick(random, 0, length - 1))] = ':';
  return word;
}

std::string random_table(std::mt19937 &random) {
  std::string text;
  for (int line = pick(random, 0, 8); line > 0; --line) {
    for (int word = pick(random, 0, 5); word > 0; --word) {
      text += random_word(random);
      text += std::string(static_cast<size_t>(pick(random, 0, 9) == 0 ? 3 : 1),
                          pick(random, 0, 5) == 0 ? '\t' : ' ');
    }
    if (pick(random, 0, 9) != 0) text += "\n";
  }
  // Mutated: a byte changed, taken out or doubled.
  for (int change = pick(random, -3, 4); change > 0 && !text.empty(); --change) {
    const auto at = static_cast<size_t>(pick(random, 0, static_cast<int>(text.size()) - 1));
    const int how = pick(random, 0, 2);
    if (how == 0) text[at] = static_cast<char>(pick(random, 0, 255));
    if (how == 1) text.erase(at, 1);
    if (how == 2) text.insert(at, 1, text[at]);
  }
  return text;
}

}  // namespace

TEST(fspath, agrees_with_its_rule_over_random_and_mutated_tables) {
  std::mt19937 random(1);
  int found = 0, remote = 0;
  for (int k = 0; k < 20000; ++k) {
    const std::string mounts = random_table(random);
    const std::string path = k % 2 == 0 ? "/usr/bin" : "/tmp";
    const Answer expected = model(path, mounts);
    ASSERT_EQ(ask(path, mounts), expected) << "table " << k << ":\n" << mounts;
    found += expected.result == 0;
    remote += !expected.host.empty();
  }
  EXPECT_GT(found, 5000);
  EXPECT_GT(remote, 1000);
}

// ---- infopath --------------------------------------------------------------------------------

TEST(infopath, fills_the_record_from_the_mount_table_and_statfs) {
  struct statfs st {};
  st.f_bsize = 4096;
  st.f_frsize = 512;
  st.f_blocks = 1UL << 50;
  st.f_bfree = 0x123456789aUL;
  st.f_bavail = 1000003;
  st.f_files = 77777777777UL;
  st.f_ffree = 66666666666UL;
  figures = &st;
  fakes::Host host;
  host.file("/etc/mtab", "/dev/sda1 / x\nserver:/export /tmp nfs\n");
  PathInfo *info = infopath("/tmp");
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->fsid, 0x3456789au);  // the free blocks, low half
  EXPECT_STREQ(info->host, "port");
  EXPECT_STREQ(info->filesystem, "/export");
  EXPECT_EQ(info->bytes_avail, 4096012288.0);
  EXPECT_EQ(info->bytes_total, 4611686018427387904.0);  // 2^62
  EXPECT_EQ(info->inodes_avail, 66666666666.0);
  EXPECT_EQ(info->inodes_total, 77777777777.0);
  EXPECT_EQ(fakes::log(), Lines{});
  free(info);
}

TEST(infopath, forms_products_beyond_64_bits_in_double) {
  if (access("/etc/mtab", R_OK) != 0) GTEST_SKIP() << "this machine has no mount table";
  struct statfs st {};
  st.f_bsize = 1L << 20;
  st.f_blocks = st.f_bavail = ~0UL;
  figures = &st;
  PathInfo *info = infopath("/");
  EXPECT_EQ(info->bytes_total, std::ldexp(1.0, 84));
  EXPECT_EQ(info->bytes_avail, std::ldexp(1.0, 84));
  free(info);
}

TEST(infopath, a_file_system_that_counts_no_files_has_two_to_the_31) {
  if (access("/etc/mtab", R_OK) != 0) GTEST_SKIP() << "this machine has no mount table";
  struct statfs st {};
  figures = &st;
  PathInfo *info = infopath("/");
  EXPECT_EQ(info->inodes_avail, 2147483648.0);
  EXPECT_EQ(info->inodes_total, 2147483648.0);
  free(info);
}

TEST(infopath, the_rest_of_its_texts_is_zero) {
  fakes::Host host;
  host.file("/etc/mtab", "dev / x\n");
  PathInfo *info = infopath("/tmp");
  EXPECT_EQ(std::string(info->host, 64), std::string(64, '\0'));
  EXPECT_EQ(std::string(info->filesystem, 4096), "dev" + std::string(4093, '\0'));
  free(info);
}

TEST(infopath, asks_in_that_order) {
  fakes::Host host;
  host.file("/etc/mtab", "dev / x\n");
  free(infopath("/tmp"));
  EXPECT_EQ(host.calls(), (Lines{"calloc", "stat /tmp", "fopen /etc/mtab", "fclose"}));
  EXPECT_EQ(statfs_path, "/tmp");
}

TEST(infopath, a_tilde_is_expanded_first) {
  setenv("HOME", "/usr", 1);
  fakes::Host host;
  host.file("/etc/mtab", "a / x\nb /usr/bin x\n");
  PathInfo *info = infopath("~/bin");
  ASSERT_NE(info, nullptr);
  EXPECT_STREQ(info->filesystem, "b");
  EXPECT_EQ(statfs_path, "/usr/bin");
  free(info);
  info = infopath("~");
  EXPECT_STREQ(info->filesystem, "a");
  EXPECT_EQ(statfs_path, "/usr");
  free(info);
}

TEST(infopath, of_an_expanded_path_the_expansion_is_reported) {
  setenv("HOME", "/nowhere", 1);
  EXPECT_EQ(infopath("~/x"), nullptr);
  EXPECT_EQ(fakes::log(), (Lines{"elog_log(1): can't stat /nowhere/x",
                                 "elog_log(0): can't resolve host, filesystem for /nowhere/x"}));
}

TEST(infopath, any_other_path_is_looked_up_unchanged) {
  if (access("/etc/mtab", R_OK) != 0) GTEST_SKIP() << "this machine has no mount table";
  ASSERT_EQ(chdir("/usr"), 0);
  free(infopath("bin"));
  EXPECT_EQ(statfs_path, "bin");
  EXPECT_EQ(infopath("a~b"), nullptr);
  EXPECT_EQ(fakes::log(), (Lines{"elog_log(1): can't stat /usr/a~b",
                                 "elog_log(0): can't resolve host, filesystem for a~b"}));
}

TEST(infopath, fails_where_fspath_fails) {
  fakes::Host host;
  host.file("/etc/mtab", "dev /elsewhere x\n");
  EXPECT_EQ(infopath("/tmp"), nullptr);
  EXPECT_EQ(fakes::log(), Lines{"elog_log(0): can't resolve host, filesystem for /tmp"});
  fakes::clear_log();
  host.missing("/etc/mtab", EMFILE);
  EXPECT_EQ(infopath("/tmp"), nullptr);
  EXPECT_EQ(fakes::log(), (Lines{"elog_log(1): can't open /etc/mtab",
                                 "elog_log(0): can't resolve host, filesystem for /tmp"}));
  EXPECT_EQ(statfs_path, "");
}

TEST(infopath, fails_where_statfs_fails) {
  if (access("/etc/mtab", R_OK) != 0) GTEST_SKIP() << "this machine has no mount table";
  statfs_error = EIO;
  EXPECT_EQ(infopath("/tmp"), nullptr);
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): statvfs on '/tmp' fails"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{EIO});
}

TEST(infopath, ends_the_process_without_memory_for_the_record) {
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.fail("calloc", ENOMEM);
    infopath("/tmp");
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log,
            Lines{"elog_die(1): Out of memory in infopath at line 70 of 'infopath.cpp'\n\t"
                  "Can't malloc 1 bytes for info\n"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{ENOMEM});
}

// ---- The live host ---------------------------------------------------------------------------

TEST(infopath, agrees_with_findmnt_and_stat_about_the_live_host) {
  if (access("/etc/mtab", R_OK) != 0) GTEST_SKIP() << "this machine has no mount table";
  std::istringstream mounts(fakes::output_of("findmnt --list --noheadings -v -o TARGET,SOURCE"));
  std::vector<std::pair<std::string, std::string>> known;
  for (std::string point, device; mounts >> point >> device;) known.emplace_back(point, device);
  if (known.empty()) GTEST_SKIP() << "findmnt knows no mount here";
  for (const std::string path : {"/", "/proc", "/sys/kernel", "/dev/shm", "/tmp", "/usr/bin"}) {
    if (access(path.c_str(), F_OK) != 0) continue;
    PathInfo *info = infopath(path.c_str());
    ASSERT_NE(info, nullptr) << path;
    std::string device;
    for (const auto &[point, from] : known)
      if (path.starts_with(point)) device = from;
    if (device.find(':') == std::string::npos) {
      EXPECT_EQ(info->filesystem, device) << path;
      EXPECT_STREQ(info->host, "") << path;
    }
    double block = 0, blocks = 0, available = 0, files = 0, free_files = 0;
    ASSERT_EQ(sscanf(fakes::output_of("stat -f -c '%s %b %a %c %d' " + path).c_str(),
                     "%lf %lf %lf %lf %lf", &block, &blocks, &available, &files, &free_files),
              5);
    EXPECT_EQ(info->bytes_total, block * blocks) << path;
    EXPECT_NEAR(info->bytes_avail, block * available, 0.02 * block * blocks) << path;
    EXPECT_NEAR(info->inodes_total, files == 0 ? 2147483648.0 : files, 0.02 * files) << path;
    EXPECT_NEAR(info->inodes_avail, files == 0 ? 2147483648.0 : free_files, 0.02 * files) << path;
    free(info);
  }
}

// ---- Many times, many threads ----------------------------------------------------------------

TEST(infopath, ten_thousand_calls_leave_nothing_behind) {
  fakes::Host host;
  host.file("/etc/mtab", "/dev/sda1 / x\nserver:/export /tmp nfs\n");
  const auto once = [&host] {
    PathInfo *info = infopath("/tmp");
    ASSERT_NE(info, nullptr);
    free(info);
    ASSERT_EQ(infopath("/nowhere"), nullptr);
    statfs_error = EIO;
    ASSERT_EQ(infopath("/tmp"), nullptr);
    statfs_error = 0;
    fakes::clear_log();
    host.clear_calls();
  };
  for (int k = 0; k < 100; ++k) once();
  const int descriptors = fakes::open_descriptors(), mappings = fakes::mappings();
  const size_t memory = mallinfo2().uordblks;
  for (int k = 0; k < 10000; ++k) once();
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_NEAR(fakes::mappings(), mappings, 10);  // a sanitizer makes some of its own
  EXPECT_EQ(mallinfo2().uordblks, memory);
}

TEST(fspath, eight_threads_read_the_table_at_once) {
  std::vector<int> right(8);
  fakes::Threads threads(8, [&right](size_t t) {
    char host[64], filesystem[4096];
    for (int k = 0; k < 300; ++k)
      right[t] += fspath("/tmp", host, filesystem) == 0 && std::string("port") == host &&
                  std::string("/export") == filesystem && is_nfs("/tmp") == 1;
  });
  fakes::Host scripted;
  scripted.file("/etc/mtab", "/dev/sda1 / x\nserver:/export /tmp nfs\n");
  threads.run();
  EXPECT_EQ(right, std::vector<int>(8, 300));
}
