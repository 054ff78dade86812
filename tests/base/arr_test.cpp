#include <gtest/gtest.h>
#include <strings.h>

#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "frame/vestan.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"

namespace {

void *number(intptr_t value) { return reinterpret_cast<void *>(value); }

std::vector<std::string> keys_of(const Arr *a) {
  Tbl *keys = keysarr(a);
  std::vector<std::string> texts;
  for (long k = 0; k < lentbl(keys); ++k) texts.emplace_back(static_cast<char *>(gettbl(keys, k)));
  freetbl(keys, nullptr);
  return texts;
}

std::vector<void *> seen;
void see(void *value) { seen.push_back(value); }

}  // namespace

TEST(newarr, is_empty) {
  Arr *a = newarr(nullptr);
  EXPECT_EQ(getarr(a, "key"), nullptr);
  EXPECT_EQ(getarr(a, ""), nullptr);
  EXPECT_EQ(keys_of(a), std::vector<std::string>{});
  freearr(a, nullptr);
}

TEST(setarr, stores_under_a_copy_of_the_key) {
  Arr *a = newarr(nullptr);
  char key[] = "host";
  setarr(a, key, number(7));
  strcpy(key, "tsoh");
  EXPECT_EQ(getarr(a, "host"), number(7));
  EXPECT_EQ(getarr(a, "tsoh"), nullptr);
  EXPECT_EQ(getarr(a, "hos"), nullptr);
  EXPECT_EQ(getarr(a, "hosts"), nullptr);
  freearr(a, nullptr);
}

TEST(setarr, replaces_an_earlier_value) {
  Arr *a = newarr(nullptr);
  setarr(a, "key", number(1));
  setarr(a, "key", number(2));
  EXPECT_EQ(getarr(a, "key"), number(2));
  setarr(a, "key", nullptr);
  EXPECT_EQ(getarr(a, "key"), nullptr);
  EXPECT_EQ(keys_of(a), std::vector<std::string>{"key"});  // a null value is still under a key
  freearr(a, nullptr);
}

TEST(setarr, takes_the_empty_key_and_its_own_keys) {
  Arr *a = newarr(nullptr);
  setarr(a, "", number(1));
  setarr(a, "k", number(2));
  Tbl *keys = keysarr(a);
  for (long k = 0; k < lentbl(keys); ++k)
    setarr(a, static_cast<char *>(gettbl(keys, k)), number(5));
  freetbl(keys, nullptr);
  EXPECT_EQ(getarr(a, ""), number(5));
  EXPECT_EQ(getarr(a, "k"), number(5));
  freearr(a, nullptr);
}

TEST(arr, does_nothing_with_null) {
  setarr(nullptr, "key", number(1));
  EXPECT_EQ(getarr(nullptr, "key"), nullptr);
  EXPECT_EQ(keys_of(nullptr), std::vector<std::string>{});
  freearr(nullptr, nullptr);
  Arr *a = newarr(nullptr);
  setarr(a, nullptr, number(1));
  EXPECT_EQ(getarr(a, nullptr), nullptr);
  EXPECT_EQ(keys_of(a), std::vector<std::string>{});
  freearr(a, nullptr);
}

TEST(keysarr, lists_in_ascending_byte_order) {
  Arr *a = newarr(nullptr);
  for (const char *key : {"b", "\xc3\xa9", "B", "ab", "a", "", "10", "9", "\x7f"})
    setarr(a, key, number(1));
  EXPECT_EQ(keys_of(a),
            (std::vector<std::string>{"", "10", "9", "B", "a", "ab", "b", "\x7f", "\xc3\xa9"}));
  freearr(a, nullptr);
}

TEST(keysarr, gives_the_arrs_own_strings) {
  Arr *a = newarr(nullptr);
  setarr(a, "key", number(1));
  Tbl *first = keysarr(a);
  Tbl *second = keysarr(a);
  EXPECT_NE(first, second);
  EXPECT_EQ(gettbl(first, 0), gettbl(second, 0));
  freetbl(first, nullptr);
  EXPECT_STREQ(static_cast<char *>(gettbl(second, 0)), "key");
  freetbl(second, nullptr);
  freearr(a, nullptr);
}

TEST(newarr, follows_the_order_it_is_given) {
  Arr *a = newarr(strcasecmp);
  setarr(a, "b", number(1));
  setarr(a, "A", number(2));
  setarr(a, "B", number(3));  // the same key: the first spelling stays
  EXPECT_EQ(keys_of(a), (std::vector<std::string>{"A", "b"}));
  EXPECT_EQ(getarr(a, "B"), number(3));
  EXPECT_EQ(getarr(a, "a"), number(2));
  freearr(a, nullptr);
}

TEST(freearr, frees_each_value_in_the_order_of_the_keys_and_no_null) {
  Arr *a = newarr(nullptr);
  setarr(a, "c", number(3));
  setarr(a, "b", nullptr);
  setarr(a, "a", number(1));
  seen.clear();
  freearr(a, see);
  EXPECT_EQ(seen, (std::vector<void *>{number(1), number(3)}));
}

TEST(arr, agrees_with_a_map_over_random_keys) {
  std::mt19937 random(7);
  std::map<std::string, void *> model;
  Arr *a = newarr(nullptr);
  for (int step = 0; step < 20000; ++step) {
    std::string key;
    for (size_t length = random() % 4; key.size() < length;)
      key.push_back(static_cast<char>(1 + random() % 255));
    if (random() % 2 == 0) {
      void *value = number(static_cast<intptr_t>(random()));
      setarr(a, key.c_str(), value);
      model[key] = value;
    } else {
      const auto found = model.find(key);
      ASSERT_EQ(getarr(a, key.c_str()), found != model.end() ? found->second : nullptr);
    }
  }
  std::vector<std::string> keys;
  for (const auto &[key, value] : model) {
    keys.push_back(key);  // std::string orders by unsigned bytes
    ASSERT_EQ(getarr(a, key.c_str()), value);
  }
  EXPECT_EQ(keys_of(a), keys);
  freearr(a, nullptr);
}

TEST(setarr, ends_the_process_when_there_is_no_room) {
  char name[] = "tool";
  program_invocation_short_name = name;
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.fail("realloc", ENOMEM);
    Arr *a = newarr(nullptr);
    for (const char *key : {"1", "2", "3", "4", "5", "6", "7", "8"}) setarr(a, key, nullptr);
    fputs("eight fit\n", stdout);
    fflush(stdout);
    setarr(a, "9", nullptr);
  });
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.out, "eight fit\n");
  EXPECT_EQ(outcome.err, "tool: fatal: Out of memory: no room for 16 times 16 bytes\n");
}
