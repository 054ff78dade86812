#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "frame/vestan.h"
#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"
#include "tests/fakes/memory.h"
#include "tests/net/live.h"
#include "tests/net/resolver.h"

using fakes::Lines;

namespace {

struct Mine {
  char canonical[64];
  char text[64];
  uint32_t address = 0x23232323;
  int result;

  Mine() {
    std::memset(canonical, '#', sizeof canonical);
    std::memset(text, '#', sizeof text);
    result = my_ip(canonical, text, &address);
  }
};

// -1, two empty texts (and nothing behind their ends), 0.
void expect_none(const Mine &mine) {
  EXPECT_EQ(mine.result, -1);
  EXPECT_EQ(std::memcmp(mine.canonical, "\0##", 3), 0);
  EXPECT_EQ(std::memcmp(mine.text, "\0##", 3), 0);
  EXPECT_EQ(mine.address, 0U);
}

}  // namespace

TEST(my_ip, is_the_first_answers_name_text_and_four_bytes) {
  resolver::host = resolver::Host{.node = "alpha.example"};
  resolver::answer_with({{.address = "192.0.2.7", .canonical = "alpha.example.org"},
                         {.address = "192.0.2.8"},
                         {.address = "2001:db8::1"}});
  const Mine mine;
  EXPECT_EQ(mine.result, 0);
  EXPECT_STREQ(mine.canonical, "alpha.example.org");
  EXPECT_STREQ(mine.text, "192.0.2.7");
  EXPECT_EQ(std::memcmp(&mine.address, "\xc0\x00\x02\x07", 4), 0);
  // 0: AF_UNSPEC. 1: SOCK_STREAM. 2: AI_CANONNAME.
  EXPECT_EQ(resolver::calls,
            (Lines{"uname", "getaddrinfo alpha.example (none) 0 1 2", "freeaddrinfo"}));
  EXPECT_EQ(resolver::lists, 0);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(my_ip, is_the_last_four_bytes_of_an_ipv6_answer) {
  resolver::host.emplace();
  resolver::answer_with({{.address = "2001:db8::0102:0304", .canonical = "alpha"}});
  const Mine mine;
  EXPECT_EQ(mine.result, 0);
  EXPECT_STREQ(mine.canonical, "alpha");
  EXPECT_STREQ(mine.text, "2001:db8::102:304");
  EXPECT_EQ(std::memcmp(&mine.address, "\x01\x02\x03\x04", 4), 0);
  EXPECT_EQ(resolver::lists, 0);
}

TEST(my_ip, takes_any_other_family_for_ipv6) {
  resolver::host.emplace();
  resolver::answer_with({{.address = "2001:db8::1", .canonical = "alpha", .family = AF_UNIX}});
  const Mine mine;
  EXPECT_EQ(mine.result, 0);
  EXPECT_STREQ(mine.text, "2001:db8::1");
}

TEST(my_ip, is_none_when_the_first_answer_is_a_loopback_address_whatever_follows) {
  for (const char *loopback : {"127.0.0.1", "::1"}) {
    resolver::host.emplace();
    resolver::answer_with({{.address = loopback, .canonical = "alpha"},
                           {.address = "192.0.2.7", .canonical = "alpha"}});
    expect_none(Mine());
    EXPECT_EQ(resolver::lists, 0);
  }
}

// As an inet_ntop may write ::1.
TEST(my_ip, is_none_for_an_ipv6_address_written_0_colon_colon_1) {
  resolver::host.emplace();
  resolver::answer_with({{.address = "::1", .canonical = "alpha"}});
  resolver::ntop_text = "0::1";
  expect_none(Mine());
  EXPECT_EQ(resolver::lists, 0);
}

TEST(my_ip, counts_other_loopback_addresses) {
  resolver::host.emplace();
  resolver::answer_with({{.address = "127.0.1.1", .canonical = "alpha"}});
  const Mine mine;
  EXPECT_EQ(mine.result, 0);
  EXPECT_STREQ(mine.text, "127.0.1.1");
}

TEST(my_ip, writes_to_standard_error_without_a_newline_when_uname_fails) {
  const auto outcome = fakes::in_child([] {
    resolver::host = resolver::Host{.result = -1, .error = EFAULT};
    resolver::answers.emplace();
    expect_none(Mine());
    EXPECT_EQ(resolver::calls, Lines{"uname"});
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "uname fails : Bad address");
  EXPECT_EQ(outcome.log, Lines{});
}

TEST(my_ip, is_none_in_silence_when_the_resolver_fails) {
  const auto outcome = fakes::in_child([] {
    resolver::host.emplace();
    resolver::answers.emplace();
    resolver::lookup_error = EAI_NONAME;
    expect_none(Mine());
    EXPECT_EQ(resolver::calls, (Lines{"uname", "getaddrinfo alpha (none) 0 1 2"}));
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.log, Lines{});
}

// The answer stands, with an empty text.
TEST(my_ip, writes_to_standard_error_when_an_ipv4_address_has_no_text_and_goes_on) {
  const auto outcome = fakes::in_child([] {
    resolver::host.emplace();
    resolver::answer_with({{.address = "192.0.2.7", .canonical = "alpha"}});
    resolver::failing_ntop = 1;
    const Mine mine;
    EXPECT_EQ(mine.result, 0);
    EXPECT_STREQ(mine.canonical, "alpha");
    EXPECT_STREQ(mine.text, "");
    EXPECT_EQ(mine.address, resolver::quad("192.0.2.7"));
    EXPECT_EQ(resolver::lists, 0);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "inet_ntop fails with ipv4 : No space left on device\n");
  EXPECT_EQ(outcome.log, Lines{});
}

TEST(my_ip, writes_to_standard_error_when_an_ipv6_address_has_no_text_and_goes_on) {
  const auto outcome = fakes::in_child([] {
    resolver::host.emplace();
    resolver::answer_with({{.address = "2001:db8::1", .canonical = "alpha"}});
    resolver::failing_ntop = 1;
    resolver::ntop_error = EAFNOSUPPORT;
    const Mine mine;
    EXPECT_EQ(mine.result, 0);
    EXPECT_STREQ(mine.text, "");
    EXPECT_EQ(std::memcmp(&mine.address, "\0\0\0\x01", 4), 0);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "inet_ntop fails with ipv6 : Address family not supported by protocol\n");
  EXPECT_EQ(outcome.log, Lines{});
}

TEST(my_ip, gives_the_base_librarys_text_for_a_missing_canonical_name) {
  resolver::host.emplace();
  resolver::answer_with({{.address = "192.0.2.7"}});
  const Mine mine;
  EXPECT_EQ(mine.result, 0);
  EXPECT_STREQ(mine.canonical, okstr(nullptr));
  EXPECT_STREQ(mine.canonical, "(null)");
}

TEST(my_ip, cuts_the_canonical_name_to_63_characters) {
  fakes::Guarded names(1), texts(1);
  char *canonical = reinterpret_cast<char *>(names.last(64));
  char *text = reinterpret_cast<char *>(texts.last(64));
  const std::string long_name(200, 'n');
  resolver::host.emplace();
  resolver::answer_with(
      {{.address = "2001:db8:1111:2222:3333:4444:5555:6666", .canonical = long_name.c_str()}});
  uint32_t address;
  EXPECT_EQ(my_ip(canonical, text, &address), 0);
  EXPECT_EQ(canonical, std::string(63, 'n'));
  EXPECT_STREQ(text, "2001:db8:1111:2222:3333:4444:5555:6666");
}

TEST(my_ip, keeps_nothing) {
  resolver::host.emplace();
  const int descriptors = fakes::open_descriptors();
  for (int k = 0; k < 100; ++k) {
    resolver::answer_with({{.address = k % 2 == 0 ? "192.0.2.7" : "127.0.0.1", .canonical = "a"}});
    EXPECT_EQ(Mine().result, k % 2 == 0 ? 0 : -1);
    EXPECT_EQ(resolver::lists, 0);
  }
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
}

TEST(my_ip, is_on_the_live_machine_what_getent_answers) {
  live::with("192.0.2.7 alpha.example.org alpha\n", "alpha", [] {
    const int descriptors = fakes::open_descriptors();
    const Mine mine;
    EXPECT_EQ(mine.result, 0);
    EXPECT_STREQ(mine.canonical, "alpha.example.org");
    EXPECT_STREQ(mine.text, "192.0.2.7");
    EXPECT_EQ(live::output("getent -A ahostsv4 alpha | awk 'NR == 1 {print $1}'"), mine.text);
    EXPECT_EQ(mine.address, resolver::quad("192.0.2.7"));
    EXPECT_EQ(fakes::open_descriptors(), descriptors);
  });
}

TEST(my_ip, is_none_on_a_live_machine_that_nobody_knows) {
  live::with("127.0.0.1 localhost\n", "nobody-knows", [] { expect_none(Mine()); });
}
