#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"

namespace {

const std::string kSixty = "Area/" + std::string(55, 'x');

// TZ as a test finds it; null when it is unset.
const char *environment() { return getenv("TZ"); }

}  // namespace

TEST(getTZ, is_UTC_when_TZ_is_unset_and_leaves_it_unset) {
  unsetenv("TZ");
  EXPECT_STREQ(getTZ(), "UTC");
  EXPECT_EQ(environment(), nullptr);
}

TEST(getTZ, is_UTC_when_TZ_is_empty) {
  setenv("TZ", "", 1);
  EXPECT_STREQ(getTZ(), "UTC");
  EXPECT_STREQ(environment(), "");
  EXPECT_STREQ(getTZ(), "UTC");
}

TEST(getTZ, is_the_environments_own_text) {
  setenv("TZ", "Europe/Paris", 1);
  EXPECT_STREQ(getTZ(), "Europe/Paris");
  EXPECT_EQ(getTZ(), environment());
}

TEST(getTZ, does_not_see_later_changes_of_TZ) {
  char first[] = "TZ=Europe/Paris", second[] = "TZ=Asia/Tokyo";
  putenv(first);
  EXPECT_STREQ(getTZ(), "Europe/Paris");
  putenv(second);
  EXPECT_STREQ(getTZ(), "Europe/Paris");
  unsetenv("TZ");
  EXPECT_STREQ(getTZ(), "Europe/Paris");
}

TEST(getTZ, keeps_UTC_when_TZ_is_set_after_the_first_call) {
  unsetenv("TZ");
  EXPECT_STREQ(getTZ(), "UTC");
  setenv("TZ", "Europe/Paris", 1);
  EXPECT_STREQ(getTZ(), "UTC");
}

TEST(getTZ, is_never_empty_even_when_its_text_is_emptied_in_place) {
  char entry[] = "TZ=Europe/Paris";
  putenv(entry);
  EXPECT_EQ(getTZ(), entry + 3);
  entry[3] = '\0';
  EXPECT_STREQ(getTZ(), "UTC");
  entry[3] = 'E';
  EXPECT_STREQ(getTZ(), "UTC");
  unsetenv("TZ");
}

TEST(getTZ, leaves_errno_alone_and_logs_nothing) {
  unsetenv("TZ");
  errno = EDOM;
  getTZ();
  setTZ();
  EXPECT_EQ(errno, EDOM);
  EXPECT_EQ(fakes::log(), fakes::Lines{});
}

TEST(setTZ, makes_UTC_explicit_when_TZ_is_unset) {
  unsetenv("TZ");
  setTZ();
  EXPECT_STREQ(environment(), "UTC");
  EXPECT_STREQ(getTZ(), "UTC");
  EXPECT_NE(getTZ(), environment());
}

TEST(setTZ, does_nothing_when_TZ_is_set) {
  char entry[] = "TZ=Asia/Tokyo";
  putenv(entry);
  setTZ();
  EXPECT_EQ(environment(), entry + 3);
  unsetenv("TZ");
}

TEST(setTZ, does_nothing_when_TZ_is_set_to_an_empty_string) {
  setenv("TZ", "", 1);
  EXPECT_STREQ(getTZ(), "UTC");
  setTZ();
  EXPECT_STREQ(environment(), "");
}

TEST(setTZ, restores_the_zone_that_getTZ_found_before_TZ_was_unset) {
  setenv("TZ", "Europe/Paris", 1);
  EXPECT_STREQ(getTZ(), "Europe/Paris");
  unsetenv("TZ");
  setTZ();
  EXPECT_STREQ(environment(), "Europe/Paris");
}

TEST(setTZ, is_what_local_time_is_told_in) {
  setenv("TZ", "IST-5:30", 1);
  EXPECT_STREQ(getTZ(), "IST-5:30");
  unsetenv("TZ");
  setTZ();
  ::tzset();
  const time_t noon = 43200;
  tm local;
  localtime_r(&noon, &local);
  EXPECT_EQ(local.tm_hour, 17);
  EXPECT_EQ(local.tm_min, 30);
}

TEST(setTZ, keeps_a_name_of_60_characters_whole) {
  ASSERT_EQ(kSixty.size(), 60U);
  setenv("TZ", kSixty.c_str(), 1);
  getTZ();
  unsetenv("TZ");
  setTZ();
  EXPECT_EQ(environment(), kSixty);
}

TEST(setTZ, cuts_a_name_to_60_characters) {
  for (const size_t more : {1U, 2U, 64U, 5000U}) {
    const auto outcome = fakes::in_child([&] {
      setenv("TZ", (kSixty + std::string(more, 'y')).c_str(), 1);
      getTZ();
      unsetenv("TZ");
      setTZ();
      EXPECT_EQ(environment(), kSixty);
      EXPECT_EQ(getTZ(), kSixty + std::string(more, 'y'));
    });
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  }
}

// Every sequence of five steps against a model of the two functions.
TEST(setTZ, follows_getTZ_and_the_environment_in_every_order) {
  enum { kGet, kSet, kParis, kEmpty, kUnset, kSteps };
  for (int sequence = 0; sequence < kSteps * kSteps * kSteps * kSteps * kSteps; ++sequence) {
    const pid_t child = fork();
    if (child == 0) {
      unsetenv("TZ");
      std::string cached, zone;
      bool set = false;
      for (int step = 0, rest = sequence; step < 5; ++step, rest /= kSteps) {
        const bool asks = rest % kSteps == kGet || (rest % kSteps == kSet && !set);
        if (asks && cached.empty()) cached = set && !zone.empty() ? zone : "UTC";
        switch (rest % kSteps) {
          case kGet:
            if (getTZ() != cached) _exit(10 + step);
            break;
          case kSet:
            setTZ();
            if (!set) zone = cached;
            set = true;
            break;
          case kParis:
            setenv("TZ", "Europe/Paris", 1);
            zone = "Europe/Paris";
            set = true;
            break;
          case kEmpty:
            setenv("TZ", "", 1);
            zone = "";
            set = true;
            break;
          case kUnset:
            unsetenv("TZ");
            set = false;
            break;
        }
        const char *now = environment();
        if ((now != nullptr) != set || (set && now != zone)) _exit(20 + step);
      }
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_EQ(status, 0) << "sequence " << sequence;
  }
}

// The environment keeps pointing at the library's text when the library has been closed.
TEST(setTZ, leaves_an_environment_that_outlives_a_dlclose) {
  const auto outcome = fakes::in_child([] {
    // A copy that this program is not linked with, so that it is really loaded and closed.
    char copy[] = "/tmp/plintor-test-XXXXXX";
    close(mkstemp(copy));
    std::ofstream(copy) << std::ifstream(BINARY_DIR "/libplintor.so.3").rdbuf();
    unsetenv("TZ");
    void *library = dlopen(copy, RTLD_NOW | RTLD_LOCAL);
    unlink(copy);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto set = reinterpret_cast<void (*)()>(dlsym(library, "setTZ"));
    ASSERT_NE(set, &setTZ);
    set();
    EXPECT_EQ(dlclose(library), 0);
    EXPECT_STREQ(getenv("TZ"), "UTC");
    setenv("TZ", "Asia/Tokyo", 1);
    EXPECT_STREQ(getenv("TZ"), "Asia/Tokyo");
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}
