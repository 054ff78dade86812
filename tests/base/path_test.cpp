#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "frame/vestan.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/memory.h"

namespace {

// What the function writes, into 4096 bytes that end at a guard page. "null" when it gives null,
// and then the result must be empty.
template <typename Function>
std::string written(Function function) {
  fakes::Guarded memory(PATH_MAX);
  char *result = reinterpret_cast<char *>(memory.first());
  memset(result, 'x', PATH_MAX);
  const char *given = function(result);
  if (given == nullptr) {
    EXPECT_STREQ(result, "");
    return "null";
  }
  EXPECT_EQ(given, result);
  return result;
}

std::string absolute(const char *path) {
  return written([&](char *result) { return abspath(path, result); });
}
std::string cleaned(const char *path) {
  return written([&](char *result) { return cleanpath(path, 0, result); });
}
std::string expanded(const char *path) {
  return written([&](char *result) { return cleanpath(path, 1, result); });
}

class FromFolder : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(chdir("/usr/lib"), 0); }
};
using abspath_ = FromFolder;

}  // namespace

// ---- abspath

TEST_F(abspath_, puts_the_working_directory_in_front) {
  EXPECT_EQ(absolute("a"), "/usr/lib/a");
  EXPECT_EQ(absolute("./a//b/."), "/usr/lib/a/b");
  EXPECT_EQ(absolute("."), "/usr/lib");
  EXPECT_EQ(absolute(""), "/usr/lib");
  EXPECT_EQ(absolute("~/a"), "/usr/lib/~/a");
  ASSERT_EQ(chdir("/"), 0);
  EXPECT_EQ(absolute("a"), "/a");
  EXPECT_EQ(absolute("."), "/");
}

TEST_F(abspath_, cleans_an_absolute_path) {
  EXPECT_EQ(absolute("/"), "/");
  EXPECT_EQ(absolute("//"), "/");
  EXPECT_EQ(absolute("/a//b/./c/"), "/a/b/c");
}

TEST_F(abspath_, keeps_what_a_symbolic_link_may_give_a_meaning) {
  EXPECT_EQ(absolute("/a/../b"), "/a/../b");
  EXPECT_EQ(absolute(".."), "/usr/lib/..");
}

TEST_F(abspath_, may_write_over_its_source) {
  char path[PATH_MAX] = "a/./b";
  EXPECT_EQ(abspath(path, path), path);
  EXPECT_STREQ(path, "/usr/lib/a/b");
}

TEST_F(abspath_, never_writes_more_than_4096_bytes) {
  const std::string longest = std::string("/").append(PATH_MAX - 2, 'p');
  EXPECT_EQ(absolute(longest.c_str()), longest);
  errno = 0;
  EXPECT_EQ(absolute((longest + "q").c_str()), "null");
  EXPECT_EQ(errno, ENAMETOOLONG);
  const std::string fits(PATH_MAX - 1 - strlen("/usr/lib/"), 'p');
  EXPECT_EQ(absolute(fits.c_str()), "/usr/lib/" + fits);
  EXPECT_EQ(absolute((fits + "q").c_str()), "null");
  EXPECT_EQ(absolute(std::string(100000, 'p').c_str()), "null");
  // What is cut out needs no room; what follows something too long does not slip in.
  EXPECT_EQ(absolute((std::string(9000, '/') + "a").c_str()), "/a");
  EXPECT_EQ(absolute((longest + "q/b").c_str()), "null");
}

TEST_F(abspath_, fails_without_a_working_directory) {
  const auto outcome = fakes::in_child([] {
    char folder[] = "/tmp/plintor-test-XXXXXX";
    if (mkdtemp(folder) == nullptr || chdir(folder) != 0 || rmdir(folder) != 0) _exit(2);
    errno = 0;
    EXPECT_EQ(absolute("a"), "null");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(absolute("/a"), "/a");
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST_F(abspath_, of_null_fails) {
  errno = 0;
  EXPECT_EQ(absolute(nullptr), "null");
  EXPECT_EQ(errno, EINVAL);
}

// ---- cleanpath

TEST(cleanpath, takes_out_what_does_not_matter) {
  EXPECT_EQ(cleaned("a//b/./c/"), "a/b/c");
  EXPECT_EQ(cleaned("./a"), "a");
  EXPECT_EQ(cleaned("./."), ".");
  EXPECT_EQ(cleaned("."), ".");
  EXPECT_EQ(cleaned(".a/b."), ".a/b.");
  EXPECT_EQ(cleaned("..."), "...");
  EXPECT_EQ(cleaned("a/.."), "a/..");
  EXPECT_EQ(cleaned("/"), "/");
  EXPECT_EQ(cleaned("///a"), "/a");
  EXPECT_EQ(cleaned("/."), "/");
  EXPECT_EQ(cleaned(""), "");
}

TEST(cleanpath, leaves_a_tilde_that_is_not_to_be_expanded) {
  setenv("HOME", "/home/me", 1);
  EXPECT_EQ(cleaned("~/a"), "~/a");
  EXPECT_EQ(cleaned("~"), "~");
}

TEST(cleanpath, expands_a_leading_tilde_to_the_home_directory) {
  setenv("HOME", "/home/me/", 1);
  EXPECT_EQ(expanded("~"), "/home/me");
  EXPECT_EQ(expanded("~/"), "/home/me");
  EXPECT_EQ(expanded("~/a//b"), "/home/me/a/b");
  EXPECT_EQ(expanded("a/~"), "a/~");
  EXPECT_EQ(expanded("/~/a"), "/~/a");
  setenv("HOME", "/", 1);
  EXPECT_EQ(expanded("~"), "/");
  EXPECT_EQ(expanded("~/a"), "/a");
}

TEST(cleanpath, asks_the_password_list_where_home_is_not_set) {
  const std::string home = getpwuid(getuid())->pw_dir;
  unsetenv("HOME");
  EXPECT_EQ(expanded("~/a"), home + "/a");
  setenv("HOME", "", 1);
  EXPECT_EQ(expanded("~/a"), home + "/a");
}

TEST(cleanpath, expands_the_name_of_a_user) {
  setenv("HOME", "/home/me", 1);
  EXPECT_EQ(expanded("~root"), getpwnam("root")->pw_dir);
  EXPECT_EQ(expanded("~root/a/"), std::string(getpwnam("root")->pw_dir) + "/a");
  EXPECT_EQ(expanded("~nobody_of_this_name/a/"), "~nobody_of_this_name/a");
  const std::string name(5000, 'n');
  EXPECT_EQ(expanded(("~" + name).c_str()), "null");  // unknown, and too long to stay
  const std::string shorter(300, 'n');
  EXPECT_EQ(expanded(("~" + shorter + "/a").c_str()), "~" + shorter + "/a");
}

TEST(cleanpath, never_writes_more_than_4096_bytes) {
  setenv("HOME", "/home/me", 1);
  const std::string fits(PATH_MAX - 1 - strlen("/home/me/"), 'p');
  EXPECT_EQ(expanded(("~/" + fits).c_str()), "/home/me/" + fits);
  errno = 0;
  EXPECT_EQ(expanded(("~/" + fits + "q").c_str()), "null");
  EXPECT_EQ(errno, ENAMETOOLONG);
  setenv("HOME", std::string("/").append(5000, 'h').c_str(), 1);
  EXPECT_EQ(expanded("~"), "null");
}

TEST(cleanpath, may_write_over_its_source) {
  setenv("HOME", "/home/somebody", 1);
  char path[PATH_MAX] = "~/a//b";
  EXPECT_EQ(cleanpath(path, 1, path), path);
  EXPECT_STREQ(path, "/home/somebody/a/b");
}

TEST(cleanpath, of_null_fails) {
  errno = 0;
  EXPECT_EQ(expanded(nullptr), "null");
  EXPECT_EQ(errno, EINVAL);
}

// ---- is_present, restat

TEST(is_present, is_1_for_what_a_path_leads_to) {
  EXPECT_EQ(is_present("/"), 1);
  EXPECT_EQ(is_present("/proc/self/stat"), 1);
  EXPECT_EQ(is_present("/dev/null"), 1);
}

TEST(is_present, is_0_for_what_is_not_there_and_leaves_errno_alone) {
  char link[] = "/tmp/plintor-test-XXXXXX";
  ASSERT_NE(mkdtemp(link), nullptr);
  const std::string dangling = std::string(link) + "/link";
  ASSERT_EQ(symlink("/nowhere/at/all", dangling.c_str()), 0);
  errno = EBUSY;
  EXPECT_EQ(is_present("/nowhere/at/all"), 0);
  EXPECT_EQ(is_present(dangling.c_str()), 0);
  EXPECT_EQ(is_present("/dev/null/x"), 0);
  EXPECT_EQ(is_present(""), 0);
  EXPECT_EQ(is_present(nullptr), 0);
  EXPECT_EQ(is_present(std::string(5000, 'p').c_str()), 0);
  EXPECT_EQ(errno, EBUSY);
  unlink(dangling.c_str());
  rmdir(link);
}

TEST(restat, fills_the_record_as_stat_does) {
  struct stat ours {};
  struct stat theirs {};
  EXPECT_EQ(restat("/usr/lib", &ours), 0);
  ASSERT_EQ(stat("/usr/lib", &theirs), 0);
  EXPECT_EQ(ours.st_ino, theirs.st_ino);
  EXPECT_EQ(ours.st_mode, theirs.st_mode);
}

TEST(restat, fails_with_errno) {
  struct stat st;
  errno = 0;
  EXPECT_EQ(restat("/nowhere/at/all", &st), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(restat("/dev/null/x", &st), -1);
  EXPECT_EQ(errno, ENOTDIR);
}

TEST(restat, repeats_an_interrupted_stat) {
  fakes::Host host;
  host.fail("stat", EINTR);
  struct stat st {};
  EXPECT_EQ(restat("/usr/lib", &st), 0);
  EXPECT_EQ(host.count("stat"), 2);
  EXPECT_TRUE(S_ISDIR(st.st_mode));
}

TEST(restat, repeats_no_other_failure) {
  fakes::Host host;
  host.fail("stat", EIO);
  struct stat st;
  EXPECT_EQ(restat("/usr/lib", &st), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(host.count("stat"), 1);
}

// ---- getvestan

TEST(getvestan, is_the_variable_without_slashes_at_its_end) {
  const auto root = [] { return written([](char *buffer) { return getvestan(buffer); }); };
  setenv("VESTAN", "/srv/vestan", 1);
  EXPECT_EQ(root(), "/srv/vestan");
  setenv("VESTAN", "/srv//vestan///", 1);
  EXPECT_EQ(root(), "/srv//vestan");
  setenv("VESTAN", "/", 1);
  EXPECT_EQ(root(), "");  // "" + "/lib/..." lies in the root directory
  setenv("VESTAN", "relative/", 1);
  EXPECT_EQ(root(), "relative");
}

TEST(getvestan, is_the_root_it_was_built_for_otherwise) {
  const auto root = [] { return written([](char *buffer) { return getvestan(buffer); }); };
  unsetenv("VESTAN");
  EXPECT_EQ(root(), "/opt/vestan");
  setenv("VESTAN", "", 1);
  EXPECT_EQ(root(), "/opt/vestan");
}

TEST(getvestan, never_writes_more_than_4096_bytes) {
  const std::string longest = std::string("/").append(PATH_MAX - 2, 'v');
  setenv("VESTAN", (longest + "vvv").c_str(), 1);
  EXPECT_EQ(written([](char *buffer) { return getvestan(buffer); }), longest);
}
