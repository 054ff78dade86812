#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"
#include "tests/net/resolver.h"

using fakes::Lines;

namespace {

// What cuserid and getuid answer; the real ones while the name is null.
const char *login = nullptr;
uid_t user = 0;
int asked = 0;

}  // namespace

extern "C" char *cuserid(char *name) {
  if (login == nullptr) return resolver::next<char *(char *)>("cuserid")(name);
  ++asked;
  return std::strcpy(name, login);
}

extern "C" uid_t getuid() noexcept {
  if (login == nullptr) return resolver::next<uid_t()>("getuid")();
  return user;
}

TEST(my_username, is_the_name_that_cuserid_finds) {
  login = "someone";
  char name[32];
  std::memset(name, '#', sizeof name);
  EXPECT_EQ(my_username(name), 0);
  EXPECT_STREQ(name, "someone");
  EXPECT_EQ(name[8], '#');
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(my_username, keeps_a_name_once_it_is_found) {
  login = "someone";
  char name[32];
  EXPECT_EQ(my_username(name), 0);
  login = "other";
  user = 1000;
  EXPECT_EQ(my_username(name), 0);
  EXPECT_STREQ(name, "someone");
  login = "";
  EXPECT_EQ(my_username(name), 0);
  EXPECT_STREQ(name, "someone");
  EXPECT_EQ(asked, 1);
}

TEST(my_username, is_u_and_the_real_user_id_without_a_name) {
  login = "";
  const struct {
    uid_t id;
    const char *expected;
  } cases[] = {{1000, "u#1000"}, {0, "u#0"}, {2147483647, "u#2147483647"}, {4294967294, "u#-2"}};
  for (const auto &[id, expected] : cases) {
    user = id;
    char name[32];
    EXPECT_EQ(my_username(name), -1);
    EXPECT_STREQ(name, expected);
  }
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(my_username, asks_again_as_long_as_there_is_no_name) {
  login = "";
  user = 1000;
  char name[32];
  EXPECT_EQ(my_username(name), -1);
  EXPECT_EQ(my_username(name), -1);
  EXPECT_EQ(asked, 2);
  login = "someone";
  EXPECT_EQ(my_username(name), 0);
  EXPECT_STREQ(name, "someone");
  EXPECT_EQ(asked, 3);
}

TEST(my_username, has_room_for_a_name_of_31_characters) {
  const std::string longest(31, 'n');
  login = longest.c_str();
  char name[32];
  EXPECT_EQ(my_username(name), 0);
  EXPECT_EQ(name, longest);
}

TEST(my_username, is_the_live_users_name) {
  const passwd *entry = getpwuid(geteuid());
  if (entry == nullptr) GTEST_SKIP() << "this user has no name";
  char name[32];
  EXPECT_EQ(my_username(name), 0);
  EXPECT_EQ(name, std::string(entry->pw_name).substr(0, 8));  // cuserid's limit
}

TEST(my_username, is_the_number_of_a_live_user_without_a_name) {
  if (getuid() != 0) GTEST_SKIP() << "only root can become another user";
  const auto outcome = fakes::in_child([] {
    ASSERT_EQ(setresuid(54321, 54321, 54321), 0);
    char name[32];
    EXPECT_EQ(my_username(name), -1);
    EXPECT_STREQ(name, "u#54321");
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}
