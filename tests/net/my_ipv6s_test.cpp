#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"
#include "tests/fakes/memory.h"
#include "tests/net/live.h"
#include "tests/net/resolver.h"

using fakes::Lines;

namespace {

// Slots at a guard page, every byte '#' before the call. Their first 16 bytes in hexadecimal, or
// "untouched"; anything but 0 behind the 16 bytes is a failure.
Lines filled(int count, int expected_result) {
  const size_t slots = count > 0 ? static_cast<size_t>(count) : 0;
  fakes::Guarded pages(slots * 128 + 1);
  std::memset(pages.all().data(), '#', pages.all().size());
  const uint8_t *first = pages.last(slots * 128);
  EXPECT_EQ(my_ipv6s(reinterpret_cast<sockaddr_storage *>(pages.last(slots * 128)), count),
            expected_result);
  EXPECT_EQ(first[-1], '#');
  EXPECT_EQ(resolver::lists, 0);
  Lines lines;
  for (size_t slot = 0; slot < slots; ++slot) {
    const uint8_t *bytes = first + slot * 128;
    std::string line;
    for (int k = 0; k < 16; ++k) {
      char two[3];
      snprintf(two, sizeof two, "%02x", bytes[k]);
      line += two;
      if (k % 4 == 3 && k < 15) line += " ";
    }
    const uint8_t rest = bytes[16];
    for (int k = 16; k < 128; ++k) EXPECT_EQ(bytes[k], rest);
    if (rest == '#' && line == "23232323 23232323 23232323 23232323")
      line = "untouched";
    else
      EXPECT_EQ(rest, 0);
    lines.push_back(line);
  }
  return lines;
}

}  // namespace

TEST(my_ipv6s, copies_16_bytes_of_each_socket_address) {
  resolver::host = resolver::Host{.node = "alpha.example"};
  resolver::answer_with(
      {{.address = "192.0.2.7"}, {.address = "2001:db8:1122:3344:5566:7788:99aa:bbcc"}});
  // Family, port, address, padding; and family, port, flow, half of the address.
  EXPECT_EQ(filled(3, 2), (Lines{"02000000 c0000207 00000000 00000000",
                                 "0a000000 11223344 20010db8 11223344", "untouched"}));
  EXPECT_EQ(resolver::calls,
            (Lines{"uname", "getaddrinfo alpha.example (none) 0 1 0", "freeaddrinfo"}));
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(my_ipv6s, skips_127_0_0_1_but_takes_colon_colon_1) {
  resolver::host.emplace();
  resolver::answer_with({{.address = "127.0.0.1"}, {.address = "::1"}});
  EXPECT_EQ(filled(2, 1), (Lines{"0a000000 11223344 00000000 00000000", "untouched"}));
}

// As an inet_ntop may write ::1.
TEST(my_ipv6s, skips_an_address_written_0_colon_colon_1) {
  resolver::host.emplace();
  resolver::answer_with({{.address = "::1"}});
  resolver::ntop_text = "0::1";
  EXPECT_EQ(filled(1, -1), Lines{"untouched"});
}

TEST(my_ipv6s, skips_any_other_family) {
  resolver::host.emplace();
  resolver::answer_with({{.address = "2001:db8::1", .family = AF_UNIX}, {.address = "10.0.0.1"}});
  EXPECT_EQ(filled(2, 1), (Lines{"02000000 0a000001 00000000 00000000", "untouched"}));
}

TEST(my_ipv6s, fills_2_slots_when_there_are_three_addresses) {
  resolver::host.emplace();
  resolver::answer_with(
      {{.address = "10.0.0.1"}, {.address = "10.0.0.2"}, {.address = "10.0.0.3"}});
  EXPECT_EQ(filled(2, 2),
            (Lines{"02000000 0a000001 00000000 00000000", "02000000 0a000002 00000000 00000000"}));
}

TEST(my_ipv6s, is_minus_1_when_no_slot_is_filled) {
  resolver::host.emplace();
  resolver::answer_with({{.address = "127.0.0.1"}});
  EXPECT_EQ(filled(1, -1), Lines{"untouched"});
  resolver::answer_with({{.address = "10.0.0.1"}});
  EXPECT_EQ(filled(0, -1), Lines{});
  EXPECT_EQ(filled(-1, -1), Lines{});
  EXPECT_EQ(filled(-2147483647 - 1, -1), Lines{});
}

TEST(my_ipv6s, is_minus_1_in_silence_when_uname_or_the_resolver_fails) {
  const auto outcome = fakes::in_child([] {
    resolver::answers.emplace();
    resolver::host = resolver::Host{.result = -7, .error = EFAULT};
    EXPECT_EQ(filled(1, -1), Lines{"untouched"});
    EXPECT_EQ(resolver::calls, Lines{"uname"});
    resolver::calls.clear();
    resolver::host.emplace();
    resolver::lookup_error = EAI_NONAME;
    EXPECT_EQ(filled(1, -1), Lines{"untouched"});
    EXPECT_EQ(resolver::calls, (Lines{"uname", "getaddrinfo alpha (none) 0 1 0"}));
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.log, Lines{});
}

// Its text only serves to know the loopback addresses.
TEST(my_ipv6s, takes_an_address_that_has_no_text) {
  const auto outcome = fakes::in_child([] {
    resolver::host.emplace();
    resolver::answer_with({{.address = "10.0.0.1"}, {.address = "127.0.0.1"}});
    resolver::failing_ntop = -1;
    EXPECT_EQ(filled(2, 2), (Lines{"02000000 0a000001 00000000 00000000",
                                   "02000000 7f000001 00000000 00000000"}));
    // Nor is it taken for the one before it.
    resolver::answer_with({{.address = "127.0.0.1"}, {.address = "10.0.0.1"}});
    resolver::failing_ntop = 2;
    EXPECT_EQ(filled(2, 1), (Lines{"02000000 0a000001 00000000 00000000", "untouched"}));
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
}

TEST(my_ipv6s, tells_on_the_live_machine_what_getent_answers) {
  live::with("192.0.2.7 alpha\n127.0.0.1 alpha\n192.0.2.8 alpha\n", "alpha", [] {
    std::array<sockaddr_storage, 4> slots;
    ASSERT_EQ(my_ipv6s(slots.data(), 4), 2);
    std::string told;
    for (size_t k = 0; k < 2; ++k) {
      EXPECT_EQ(slots[k].ss_family, AF_INET);
      in_addr address;
      std::memcpy(&address, reinterpret_cast<const char *>(&slots[k]) + 4, 4);
      told += std::string(inet_ntoa(address)) + "\n";
    }
    EXPECT_EQ(
        live::output("printf '" + told + "' | sort"),
        live::output("getent -A ahostsv4 alpha | awk '$2 == \"STREAM\" && $1 != \"127.0.0.1\" "
                     "{print $1}' | sort"));
  });
}
