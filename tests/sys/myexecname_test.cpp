#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"
#include "tests/fakes/process.h"

using fakes::Lines;

// readlink as the tests need it: the real one, a failure, or a text of any length.
namespace {

int failure = 0;
std::string target;
std::atomic<int> asked{0};
bool no_memory = false;

// In a process of its own: the library asks once.
void expect_passes(const std::function<void()> &body) {
  const auto outcome = fakes::in_child(body);
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log, Lines{});
}

}  // namespace

extern "C" ssize_t readlink(const char *path, char *text, size_t size) noexcept {
  EXPECT_STREQ(path, "/proc/self/exe");
  ++asked;
  if (failure != 0) {
    errno = failure;
    return -1;
  }
  const size_t length = std::min(size, target.size());
  memcpy(text, target.data(), length);
  return static_cast<ssize_t>(length);
}

extern "C" char *strdup(const char *text) noexcept {
  if (no_memory) return nullptr;
  char *copy = static_cast<char *>(malloc(strlen(text) + 1));
  return copy == nullptr ? nullptr : strcpy(copy, text);
}

TEST(getexecname, is_the_path_of_this_program) {
  expect_passes([] {
    target = std::filesystem::canonical("/proc/thread-self/exe");
    EXPECT_EQ(target.substr(target.rfind('/')), "/sys_myexecname_test");
    EXPECT_STREQ(getexecname(), target.c_str());
  });
}

TEST(getexecname, is_the_same_pointer_on_every_call) {
  expect_passes([] {
    target = "/opt/one";
    char *first = getexecname();
    target = "/opt/two";
    EXPECT_EQ(getexecname(), first);
    EXPECT_STREQ(getexecname(), "/opt/one");
    EXPECT_EQ(asked, 1);
  });
}

TEST(getexecname, stays_empty_after_a_failed_first_call) {
  expect_passes([] {
    failure = EACCES;
    char *first = getexecname();
    EXPECT_STREQ(first, "");
    failure = 0;
    target = "/opt/one";
    EXPECT_EQ(getexecname(), first);
    EXPECT_STREQ(first, "");
    EXPECT_EQ(asked, 1);
  });
}

TEST(getexecname, is_empty_for_an_empty_link) {
  expect_passes([] {
    target = "";
    EXPECT_STREQ(getexecname(), "");
    EXPECT_STREQ(getexecname(), "");
    EXPECT_EQ(asked, 1);
  });
}

TEST(getexecname, keeps_4095_characters_and_cuts_what_is_longer) {
  for (const size_t length : {4094u, 4095u, 4096u, 5000u}) {
    expect_passes([length] {
      target = std::string(length - 1, 'a') + "z";
      EXPECT_EQ(getexecname(), target.substr(0, 4095)) << length;
    });
  }
}

TEST(getexecname, is_null_without_memory_and_asks_again) {
  expect_passes([] {
    target = "/opt/one";
    no_memory = true;
    EXPECT_EQ(getexecname(), nullptr);
    no_memory = false;
    EXPECT_STREQ(getexecname(), "/opt/one");
    EXPECT_EQ(asked, 2);
  });
}

TEST(getexecname, gives_one_pointer_to_threads_that_call_first_at_once) {
  expect_passes([] {
    target = "/opt/one";
    std::vector<std::thread> threads;
    std::atomic<int> waiting{8};
    std::atomic<char *> answers[8] = {};
    for (auto &answer : answers)
      threads.emplace_back([&waiting, &answer] {
        --waiting;
        while (waiting > 0) std::this_thread::yield();
        answer = getexecname();
      });
    for (auto &thread : threads) thread.join();
    for (auto &answer : answers) EXPECT_EQ(answer, answers[0]);
    EXPECT_STREQ(answers[0], "/opt/one");
  });
}

TEST(getexecname, keeps_one_text_over_ten_thousand_calls) {
  expect_passes([] {
    target = "/opt/one";
    getexecname();
    const int descriptors = fakes::open_descriptors();
    const int mappings = fakes::mappings();
    const size_t bytes = fakes::bytes_in_use();
    for (int k = 0; k < 10000; ++k) getexecname();
    EXPECT_LT(fakes::bytes_in_use(), bytes + 10000 * 8);
    EXPECT_EQ(fakes::mappings(), mappings);
    EXPECT_EQ(fakes::open_descriptors(), descriptors);
  });
}
