#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"
#include "tests/fakes/memory.h"

using fakes::Lines;
namespace fs = std::filesystem;

namespace {

const char kTree[] = "/usr/share/zoneinfo";

#define NEEDS_ZONES() \
  if (!fs::exists(fs::path(kTree) / "Europe/Paris")) GTEST_SKIP() << "no zones on this machine"

// A tree of zones of our own, named by ZONEINFO.
class Tree {
 public:
  Tree() {
    char name[] = "/tmp/plintor-zones-XXXXXX";
    root_ = mkdtemp(name);
    setenv("ZONEINFO", root_.c_str(), 1);
  }
  ~Tree() { fs::remove_all(root_); }
  Tree(const Tree &) = delete;
  Tree &operator=(const Tree &) = delete;

  const std::string &root() const { return root_; }
  void zone(const std::string &name) {
    fs::create_directories((fs::path(root_) / name).parent_path());
    std::ofstream(root_ + "/" + name) << "TZif2";
  }

 private:
  std::string root_;
};

}  // namespace

TEST(is_timezone, is_1_for_a_zone_0_for_a_folder_of_zones_and_0_for_a_missing_name) {
  NEEDS_ZONES();
  unsetenv("ZONEINFO");
  EXPECT_EQ(is_timezone("Europe/Paris"), 1);
  EXPECT_EQ(is_timezone("Europe"), 0);
  EXPECT_EQ(is_timezone("Europe/Nowhere"), 0);
}

TEST(is_timezone, is_1_for_every_name_of_the_zone_data) {
  std::ifstream data(std::string(kTree) + "/tzdata.zi");
  if (!data) GTEST_SKIP() << "no tzdata.zi on this machine";
  unsetenv("ZONEINFO");
  int names = 0;
  for (std::string line; std::getline(data, line);) {
    // "Z Europe/Paris 0:9:21 - LMT ..." and "L Europe/Paris Europe/Monaco".
    std::istringstream fields(line);
    std::string kind, first, second;
    fields >> kind >> first >> second;
    if (kind != "Z" && kind != "L") continue;
    const std::string &name = kind == "Z" ? first : second;
    EXPECT_EQ(is_timezone(name.c_str()), 1) << name;
    ++names;
  }
  EXPECT_GT(names, 400);
}

TEST(is_timezone, is_0_for_every_folder_of_the_tree) {
  NEEDS_ZONES();
  unsetenv("ZONEINFO");
  int folders = 0;
  for (const auto &entry : fs::recursive_directory_iterator(kTree)) {
    if (!entry.is_directory()) continue;
    EXPECT_EQ(is_timezone(fs::relative(entry.path(), kTree).c_str()), 0) << entry.path();
    ++folders;
  }
  EXPECT_GT(folders, 10);
}

TEST(is_timezone, leaves_errno_alone) {
  Tree tree;
  tree.zone("Area/City");
  errno = EDOM;
  EXPECT_EQ(is_timezone("Area/City"), 1);
  EXPECT_EQ(errno, EDOM);
  EXPECT_EQ(is_timezone("Area/Nowhere"), 0);
  EXPECT_EQ(errno, EDOM);
  errno = 0;
  EXPECT_EQ(is_timezone("Area/City/below_a_file"), 0);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(is_timezone(std::string(300, 'n').c_str()), 0);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(is_timezone(std::string(10000, 'n').c_str()), 0);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(is_timezone, looks_under_ZONEINFO_as_it_was_at_the_first_call) {
  Tree tree;
  tree.zone("Area/City");
  EXPECT_EQ(is_timezone("Area/City"), 1);
  EXPECT_EQ(is_timezone("Europe/Paris"), 0);
  setenv("ZONEINFO", kTree, 1);
  EXPECT_EQ(is_timezone("Area/City"), 1);
  EXPECT_EQ(is_timezone("Europe/Paris"), 0);
  unsetenv("ZONEINFO");
  EXPECT_EQ(is_timezone("Area/City"), 1);
}

TEST(is_timezone, keeps_a_copy_of_ZONEINFO) {
  Tree tree;
  tree.zone("Area/City");
  std::string entry = "ZONEINFO=" + tree.root();
  putenv(entry.data());
  EXPECT_EQ(is_timezone("Area/City"), 1);
  entry[10] = '\0';
  EXPECT_EQ(is_timezone("Area/City"), 1);
  unsetenv("ZONEINFO");
}

TEST(is_timezone, does_not_see_ZONEINFO_set_after_the_first_call) {
  unsetenv("ZONEINFO");
  is_timezone("Area/City");
  Tree tree;
  tree.zone("Area/City");
  EXPECT_EQ(is_timezone("Area/City"), 0);
}

TEST(is_timezone, looks_under_the_root_when_ZONEINFO_is_empty) {
  Tree tree;
  tree.zone("City");
  setenv("ZONEINFO", "", 1);
  EXPECT_EQ(is_timezone((tree.root().substr(1) + "/City").c_str()), 1);
  EXPECT_EQ(is_timezone("City"), 0);
}

TEST(is_timezone, counts_a_symbolic_link_by_what_it_points_to) {
  Tree tree;
  tree.zone("Area/City");
  fs::create_symlink("City", tree.root() + "/Area/Alias");
  fs::create_symlink("Area", tree.root() + "/Region");
  fs::create_symlink("nowhere", tree.root() + "/Broken");
  fs::create_symlink("Loop", tree.root() + "/Loop");
  EXPECT_EQ(is_timezone("Area/Alias"), 1);
  EXPECT_EQ(is_timezone("Region"), 0);
  EXPECT_EQ(is_timezone("Region/City"), 1);
  EXPECT_EQ(is_timezone("Broken"), 0);
  EXPECT_EQ(is_timezone("Loop"), 0);
}

TEST(is_timezone, is_0_for_what_is_neither_file_nor_folder) {
  Tree tree;
  ASSERT_EQ(mkfifo((tree.root() + "/Fifo").c_str(), 0600), 0);
  fs::create_symlink("/dev/null", tree.root() + "/Device");
  EXPECT_EQ(is_timezone("Fifo"), 0);  // and does not wait for a writer
  EXPECT_EQ(is_timezone("Device"), 0);
}

TEST(is_timezone, is_0_for_hostile_names) {
  Tree tree;
  tree.zone("City");
  for (const char *name :
       {"", "/", ".", "..", "//", "./", "City/", "City/.", " City", "City ", "City\n", "%s%s%n%n",
        "\xff\xfe", "../..", "../../../../../../../../..", "\x01", "~", "$HOME", "City;true"})
    EXPECT_EQ(is_timezone(name), 0) << name;
}

// Whatever regular file the path leads to is a zone; what is in it is not looked at.
TEST(is_timezone, is_1_for_any_regular_file) {
  Tree tree;
  tree.zone("City");
  std::ofstream(tree.root() + "/zone.tab") << "# no zone\n";
  std::ofstream(tree.root() + "/empty");
  fs::create_directory(tree.root() + "/Area");
  EXPECT_EQ(is_timezone("zone.tab"), 1);
  EXPECT_EQ(is_timezone("empty"), 1);
  EXPECT_EQ(is_timezone("//City"), 1);
  EXPECT_EQ(is_timezone("./City"), 1);
  EXPECT_EQ(is_timezone("Area/../City"), 1);
  EXPECT_EQ(is_timezone("../../etc/passwd"), 1);
}

TEST(is_timezone, finds_the_longest_path_and_refuses_one_character_more) {
  Tree tree;
  tree.zone("City");
  const std::string path = tree.root() + "/City";
  // "////...City": 4095 characters are the most that fit.
  const std::string longest(4095 - path.size(), '/');
  EXPECT_EQ(is_timezone((longest + "City").c_str()), 1);
  fakes::Host host;
  EXPECT_EQ(is_timezone((longest + "/City").c_str()), 0);
  EXPECT_EQ(is_timezone(std::string(1000000, '/').c_str()), 0);
  EXPECT_EQ(host.count("stat"), 0);
}

TEST(is_timezone, refuses_every_name_under_a_root_that_does_not_fit) {
  setenv("ZONEINFO", std::string(5000, '/').c_str(), 1);
  EXPECT_EQ(is_timezone("etc/passwd"), 0);
}

TEST(is_timezone, reads_the_name_no_further_than_its_end) {
  Tree tree;
  tree.zone("City");
  fakes::Guarded page(1);
  char *name = reinterpret_cast<char *>(page.last(5));
  std::memcpy(name, "City", 5);
  EXPECT_EQ(is_timezone(name), 1);
}

TEST(is_timezone, repeats_stat_while_a_signal_interrupts_it) {
  Tree tree;
  tree.zone("City");
  const std::string call = "stat " + tree.root() + "/City";
  fakes::Host host;
  host.fail("stat", EINTR);
  errno = EDOM;
  EXPECT_EQ(is_timezone("City"), 1);
  EXPECT_EQ(host.calls(), (Lines{call, call}));
  EXPECT_EQ(errno, EDOM);
}

TEST(is_timezone, is_0_when_stat_fails) {
  Tree tree;
  tree.zone("City");
  fakes::Host host;
  host.fail("stat", EACCES);
  errno = EDOM;
  EXPECT_EQ(is_timezone("City"), 0);
  EXPECT_EQ(host.count("stat"), 1);
  EXPECT_EQ(errno, EDOM);
}
