#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "frame/vestan.h"
#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"
#include "tests/fakes/memory.h"
#include "tests/net/live.h"
#include "tests/net/resolver.h"

using fakes::Lines;
using resolver::quad;

namespace {

// What becomes of the cache: "newarr", "getarr KEY", "setarr KEY VALUE".
bool recording = false;
Lines cache_calls;
bool copies_fail = false;

}  // namespace

extern "C" Arr *newarr(int (*compare)(const char *, const char *)) {
  if (recording) cache_calls.push_back(compare == nullptr ? "newarr" : "newarr with an order");
  return resolver::next<decltype(newarr)>("newarr")(compare);
}

extern "C" void *getarr(const Arr *a, const char *key) {
  if (recording) cache_calls.push_back("getarr " + std::string(key));
  return resolver::next<decltype(getarr)>("getarr")(a, key);
}

extern "C" void setarr(Arr *a, const char *key, void *value) {
  if (recording)
    cache_calls.push_back("setarr " + std::string(key) + " " +
                          (value == nullptr ? "(null)" : static_cast<char *>(value)));
  resolver::next<decltype(setarr)>("setarr")(a, key, value);
}

extern "C" char *strdup(const char *text) noexcept {
  if (copies_fail) return nullptr;
  return resolver::next<char *(const char *)>("strdup")(text);
}

namespace {

int lookups = 0;

void nobody_is_known() {
  resolver::by_address = [](const void *, socklen_t, int) -> hostent * {
    ++lookups;
    return nullptr;
  };
}

}  // namespace

TEST(ip2name, gives_the_official_name) {
  std::string asked;
  resolver::by_address = [&](const void *address, socklen_t length, int family) {
    const auto *bytes = static_cast<const unsigned char *>(address);
    for (socklen_t k = 0; k < length; ++k) asked += std::to_string(bytes[k]) + ".";
    asked += family == AF_INET ? " AF_INET" : " another family";
    return resolver::entry("alpha.example.org", {"192.0.2.7"});
  };
  char name[1025];
  EXPECT_EQ(ip2name(quad("192.0.2.7"), name), 0);
  EXPECT_STREQ(name, "alpha.example.org");
  EXPECT_EQ(asked, "192.0.2.7. AF_INET");
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(ip2name, copies_a_name_of_any_length) {
  for (const size_t length : {0U, 1U, 1024U, 1025U, 5000U}) {
    std::string official(length, 'n');
    hostent host{};
    host.h_name = official.data();
    resolver::by_address = [&](const void *, socklen_t, int) { return &host; };
    fakes::Guarded page(length + 1);
    char *name = reinterpret_cast<char *>(page.last(length + 1));
    EXPECT_EQ(ip2name(quad("192.0.2.7"), name), 0);
    EXPECT_EQ(name, official);
  }
}

TEST(ip2name, is_localhost_for_the_integer_0x7F000001_without_a_lookup) {
  nobody_is_known();
  recording = true;
  char name[1025];
  EXPECT_EQ(ip2name(0x7F000001, name), 0);
  EXPECT_STREQ(name, "localhost");
  EXPECT_EQ(lookups, 0);
  EXPECT_EQ(cache_calls, Lines{});
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(ip2name, takes_no_lock_for_localhost) {
  int result = -2;
  char inner[16] = "";
  resolver::by_address = [&](const void *, socklen_t, int) {
    result = ip2name(0x7F000001, inner);  // with the lock taken, this would wait for ever
    return resolver::entry("alpha", {"192.0.2.7"});
  };
  char name[1025];
  EXPECT_EQ(ip2name(quad("192.0.2.7"), name), 0);
  EXPECT_EQ(result, 0);
  EXPECT_STREQ(inner, "localhost");
}

TEST(ip2name, looks_up_the_loopback_address_itself) {
  EXPECT_EQ(quad("1.0.0.127"), 0x7F000001U);
  nobody_is_known();
  char name[1025];
  EXPECT_EQ(ip2name(quad("127.0.0.1"), name), -1);
  EXPECT_STREQ(name, "127.0.0.1");
  EXPECT_EQ(lookups, 1);
}

TEST(ip2name, gives_the_dotted_quad_of_an_address_without_a_name_and_complains_once) {
  nobody_is_known();
  char name[1025];
  EXPECT_EQ(ip2name(quad("192.0.2.9"), name), -1);
  EXPECT_STREQ(name, "192.0.2.9");
  const Lines complaint{"elog_complain(0): Can't lookup hostname for ip address 192.0.2.9"};
  EXPECT_EQ(fakes::log(), complaint);
  std::memset(name, '#', sizeof name);
  EXPECT_EQ(ip2name(quad("192.0.2.9"), name), -1);
  EXPECT_STREQ(name, "192.0.2.9");
  EXPECT_EQ(lookups, 1);
  EXPECT_EQ(fakes::log(), complaint);
}

TEST(ip2name, answers_a_failure_for_good_even_if_the_name_is_known_later) {
  nobody_is_known();
  char name[1025];
  EXPECT_EQ(ip2name(quad("192.0.2.9"), name), -1);
  resolver::by_address = [](const void *, socklen_t, int) {
    return resolver::entry("late", {"192.0.2.9"});
  };
  EXPECT_EQ(ip2name(quad("192.0.2.9"), name), -1);
  EXPECT_STREQ(name, "192.0.2.9");
  EXPECT_EQ(ip2name(quad("192.0.2.10"), name), 0);
  EXPECT_STREQ(name, "late");
}

TEST(ip2name, asks_again_for_an_address_that_was_found) {
  const char *known = "first";
  resolver::by_address = [&](const void *, socklen_t, int) {
    ++lookups;
    return resolver::entry(known, {"192.0.2.7"});
  };
  recording = true;
  char name[1025];
  EXPECT_EQ(ip2name(quad("192.0.2.7"), name), 0);
  known = "second";
  EXPECT_EQ(ip2name(quad("192.0.2.7"), name), 0);
  EXPECT_STREQ(name, "second");
  EXPECT_EQ(lookups, 2);
  EXPECT_EQ(cache_calls, Lines{});  // nothing has failed: there is no cache
}

TEST(ip2name, keys_its_failures_by_the_address_as_a_signed_decimal) {
  nobody_is_known();
  recording = true;
  char name[1025];
  ip2name(quad("192.0.2.9"), name);
  ip2name(quad("9.2.0.192"), name);
  ip2name(0xFFFFFFFF, name);
  ip2name(0x80000000, name);
  ip2name(0, name);
  ip2name(quad("9.2.0.192"), name);
  EXPECT_EQ(cache_calls,
            (Lines{"newarr", "setarr 151126208 192.0.2.9", "getarr -1073741303",
                   "setarr -1073741303 9.2.0.192", "getarr -1", "setarr -1 255.255.255.255",
                   "getarr -2147483648", "setarr -2147483648 0.0.0.128", "getarr 0",
                   "setarr 0 0.0.0.0", "getarr -1073741303"}));
  EXPECT_STREQ(name, "9.2.0.192");
}

TEST(ip2name, remembers_a_copy_of_the_text_and_not_the_callers_buffer) {
  nobody_is_known();
  char first[1025], second[1025];
  ip2name(quad("192.0.2.9"), first);
  std::memset(first, '#', sizeof first);
  EXPECT_EQ(ip2name(quad("192.0.2.9"), second), -1);
  EXPECT_STREQ(second, "192.0.2.9");
}

TEST(ip2name, asks_again_when_there_was_no_memory_to_remember_a_failure) {
  nobody_is_known();
  char name[1025];
  copies_fail = true;
  EXPECT_EQ(ip2name(quad("192.0.2.9"), name), -1);
  copies_fail = false;
  EXPECT_STREQ(name, "192.0.2.9");
  EXPECT_EQ(ip2name(quad("192.0.2.9"), name), -1);
  EXPECT_EQ(lookups, 2);
  EXPECT_EQ(ip2name(quad("192.0.2.9"), name), -1);
  EXPECT_EQ(lookups, 2);
}

TEST(ip2name, complains_once_for_each_of_a_thousand_addresses) {
  nobody_is_known();
  char name[1025];
  for (int round = 0; round < 3; ++round)
    for (uint32_t k = 0; k < 1000; ++k) EXPECT_EQ(ip2name(quad("198.51.0.0") | k << 16, name), -1);
  EXPECT_EQ(lookups, 1000);
  EXPECT_EQ(fakes::log().size(), 1000U);
}

TEST(ip2name, serves_8_threads_one_at_a_time_and_complains_once) {
  std::atomic<int> inside{0}, collisions{0};
  int failures = 0;  // under the lock
  resolver::by_address = [&](const void *address, socklen_t, int) -> hostent * {
    if (inside.fetch_add(1) != 0) ++collisions;
    const int last = static_cast<const unsigned char *>(address)[3];
    hostent *host = nullptr;
    if (last < 8)
      host = resolver::entry(("host" + std::to_string(last)).c_str(), {"10.0.0.1"});
    else
      ++failures;
    std::this_thread::yield();
    inside.fetch_sub(1);
    return host;
  };
  std::array<int, 8> wrong{};
  std::vector<std::thread> threads;
  for (size_t k = 0; k < wrong.size(); ++k) {
    threads.emplace_back([&, k] {
      const std::string own = std::to_string(k);
      for (int round = 0; round < 2000; ++round) {
        char name[1025];
        wrong[k] += ip2name(quad(("10.0.0." + own).c_str()), name) != 0 || name != "host" + own;
        const std::string nobody = "10.0.0." + std::to_string(100 + round % 10);
        wrong[k] += ip2name(quad(nobody.c_str()), name) != -1 || name != nobody;
      }
    });
  }
  for (auto &thread : threads) thread.join();
  EXPECT_EQ(wrong, (std::array<int, 8>{}));
  EXPECT_EQ(collisions, 0);
  EXPECT_EQ(failures, 10);
  EXPECT_EQ(fakes::log().size(), 10U);
}

TEST(ip2name, knows_on_the_live_machine_what_getent_knows) {
  live::with(
      "127.0.0.1 localhost\n192.0.2.7 alpha.example.org alpha\n203.0.113.200 beta\n", "", [] {
        for (const char *address : {"127.0.0.1", "192.0.2.7", "203.0.113.200", "198.51.100.3"}) {
          char name[1025];
          const int result = ip2name(quad(address), name);
          // "192.0.2.7       alpha.example.org alpha"
          const std::string known =
              live::output("getent hosts " + std::string(address) + " | awk '{print $2}'");
          EXPECT_EQ(name, known.empty() ? address : known) << address;
          EXPECT_EQ(result, known.empty() ? -1 : 0) << address;
        }
        char name[1025];
        EXPECT_EQ(ip2name(quad("192.0.2.7"), name), 0);
        EXPECT_STREQ(name, "alpha.example.org");
      });
}
