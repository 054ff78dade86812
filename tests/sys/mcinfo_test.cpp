#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "frame/vestan.h"
#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"

using fakes::Lines;

namespace {

// The host information text; the base library's while there is none.
const char *information = nullptr;
Lines calls;
bool got_an_empty_buffer = false;

struct Texts {
  std::string result, raw;
};

Texts texts() {
  char *raw = nullptr;
  char *result = mcinfo(&raw);
  EXPECT_NE(raw, result);  // each is the caller's own
  const Texts both{result, raw};
  free(raw);
  free(result);
  return both;
}

}  // namespace

extern "C" int lpms0w(char *buffer) {
  calls.push_back("lpms0w");
  got_an_empty_buffer = buffer[0] == '\0';
  strcpy(buffer, information);
  return -7;  // ignored
}

extern "C" void pushstr(void **handle, const char *text) {
  calls.push_back((*handle == nullptr ? "pushstr to none " : "pushstr ") + std::string(text));
  reinterpret_cast<decltype(&pushstr)>(dlsym(RTLD_NEXT, "pushstr"))(handle, text);
}

extern "C" char *popstr(void **handle, int finish) {
  calls.push_back("popstr " + std::to_string(finish));
  return reinterpret_cast<decltype(&popstr)>(dlsym(RTLD_NEXT, "popstr"))(handle, finish);
}

TEST(mcinfo, passes_the_text_once_through_a_growing_string) {
  information = "Linux host";
  texts();
  EXPECT_EQ(calls, (Lines{"lpms0w", "pushstr to none Linux host", "popstr 1"}));
}

TEST(mcinfo, returns_the_information_text_twice) {
  information = "Linux host x86_64\nprocessor 7";
  const Texts got = texts();
  EXPECT_EQ(got.result, "Linux host x86_64\nprocessor 7");
  EXPECT_EQ(got.raw, "Linux host x86_64\nprocessor 7");
  EXPECT_TRUE(got_an_empty_buffer);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(mcinfo, returns_empty_texts_for_a_host_without_information) {
  information = "";
  const Texts got = texts();
  EXPECT_EQ(got.result, "");
  EXPECT_EQ(got.raw, "");
}

TEST(mcinfo, takes_1023_characters) {
  const std::string longest(1023, 'x');
  information = longest.c_str();
  const Texts got = texts();
  EXPECT_EQ(got.result, longest);
  EXPECT_EQ(got.raw, longest);
}

TEST(mcinfo, keeps_nothing_over_10000_calls) {
  information = "some text";
  const int descriptors = fakes::open_descriptors(), mappings = fakes::mappings();
  const size_t heap = fakes::heap_bytes();
  for (int k = 0; k < 10000; ++k) {
    calls.clear();
    texts();
  }
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_LE(fakes::mappings(), mappings + 64);  // a sanitizer maps its own
  EXPECT_LE(fakes::heap_bytes(), heap + 4096);
}
