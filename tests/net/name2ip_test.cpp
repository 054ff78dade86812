#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"
#include "tests/fakes/memory.h"
#include "tests/net/live.h"
#include "tests/net/resolver.h"

using fakes::Lines;

TEST(name2ip, gives_the_first_address_in_network_order_and_its_text) {
  std::string asked;
  resolver::by_name = [&](const char *name) {
    asked = name;
    return resolver::entry("alpha.example.org", {"192.0.2.7", "192.0.2.8"});
  };
  uint32_t address = 0;
  char text[32];
  std::memset(text, '#', sizeof text);
  EXPECT_EQ(name2ip("alpha", &address, text), 0);
  EXPECT_EQ(asked, "alpha");
  EXPECT_EQ(std::memcmp(&address, "\xc0\x00\x02\x07", 4), 0);
  EXPECT_STREQ(text, "192.0.2.7");
  EXPECT_EQ(text[10], '#');
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(name2ip, stores_0xFFFFFFFF_and_an_empty_text_for_an_unknown_name_and_logs_nothing) {
  const auto outcome = fakes::in_child([] {
    resolver::by_name = [](const char *) -> hostent * { return nullptr; };
    uint32_t address = 0;
    char text[4] = {'#', '#', '#', '#'};
    EXPECT_EQ(name2ip("nowhere", &address, text), -1);
    EXPECT_EQ(address, 0xFFFFFFFF);
    EXPECT_EQ(std::memcmp(text, "\0###", 4), 0);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log, Lines{});
  EXPECT_EQ(outcome.err, "");
}

TEST(name2ip, needs_16_bytes_for_the_longest_text) {
  fakes::Guarded page(1);
  char *text = reinterpret_cast<char *>(page.last(16));
  resolver::by_name = [](const char *) { return resolver::entry("alpha", {"255.255.255.254"}); };
  uint32_t address;
  EXPECT_EQ(name2ip("alpha", &address, text), 0);
  EXPECT_STREQ(text, "255.255.255.254");
  EXPECT_EQ(address, 0xFEFFFFFF);
}

TEST(name2ip, releases_its_lock_on_every_path) {
  bool known = false;
  resolver::by_name = [&](const char *) {
    known = !known;
    return known ? resolver::entry("alpha", {"192.0.2.7"}) : nullptr;
  };
  uint32_t address;
  char text[16];
  for (int k = 0; k < 10; ++k) EXPECT_EQ(name2ip("alpha", &address, text), k % 2 == 0 ? 0 : -1);
}

// The resolver's answer lies in storage that the next question overwrites.
TEST(name2ip, serves_8_threads_one_at_a_time) {
  std::atomic<int> inside{0}, collisions{0};
  resolver::by_name = [&](const char *name) {
    if (inside.fetch_add(1) != 0) ++collisions;
    hostent *host = resolver::entry(name, {std::string("10.0.0.") + (name + 4)});
    std::this_thread::yield();
    inside.fetch_sub(1);
    return host;
  };
  std::array<int, 8> wrong{};
  std::vector<std::thread> threads;
  for (size_t k = 0; k < wrong.size(); ++k) {
    threads.emplace_back([&, k] {
      const std::string name = "host" + std::to_string(k), expected = "10.0.0." + std::to_string(k);
      for (int round = 0; round < 2000; ++round) {
        uint32_t address;
        char text[16];
        wrong[k] += name2ip(name.c_str(), &address, text) != 0 || text != expected ||
                    address != (0x0000000A | static_cast<uint32_t>(k) << 24);
      }
    });
  }
  for (auto &thread : threads) thread.join();
  EXPECT_EQ(wrong, (std::array<int, 8>{}));
  EXPECT_EQ(collisions, 0);
}

// While one waits for the resolver, so may the other.
TEST(name2ip, does_not_share_its_lock_with_ip2name) {
  std::atomic<bool> in_name{false}, in_address{false};
  const auto both = [&] {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!(in_name && in_address) && std::chrono::steady_clock::now() < deadline)
      std::this_thread::yield();
    return in_name && in_address;
  };
  bool name_met = false, address_met = false;
  resolver::by_name = [&](const char *) -> hostent * {
    in_name = true;
    name_met = both();
    return nullptr;
  };
  resolver::by_address = [&](const void *, socklen_t, int) -> hostent * {
    in_address = true;
    address_met = both();
    return nullptr;
  };
  std::thread other([] {
    char name[1025];
    ip2name(resolver::quad("192.0.2.1"), name);
  });
  uint32_t address;
  char text[16];
  name2ip("alpha", &address, text);
  other.join();
  EXPECT_TRUE(name_met);
  EXPECT_TRUE(address_met);
}

TEST(name2ip, knows_on_the_live_machine_what_getent_knows) {
  live::with(
      "127.0.0.1 localhost\n192.0.2.7 alpha.example.org alpha\n192.0.2.9 alpha\n"
      "203.0.113.200 beta\n2001:db8::1 gamma\n",
      "", [] {
        for (const char *name : {"localhost", "alpha", "alpha.example.org", "beta", "gamma",
                                 "delta", "198.51.100.3"}) {
          uint32_t address;
          char text[16];
          const int result = name2ip(name, &address, text);
          const std::string known =
              live::output("getent -A ahostsv4 " + std::string(name) + " | head -1");
          EXPECT_EQ(text, known.substr(0, known.find(' '))) << name;
          EXPECT_EQ(result, known.empty() ? -1 : 0) << name;
          EXPECT_EQ(address, known.empty() ? 0xFFFFFFFF : resolver::quad(text)) << name;
        }
        uint32_t address;
        char text[16];
        EXPECT_EQ(name2ip("alpha", &address, text), 0);
        EXPECT_STREQ(text, "192.0.2.7");
        EXPECT_EQ(name2ip("gamma", &address, text), -1);
      });
}
