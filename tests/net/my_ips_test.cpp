#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"
#include "tests/fakes/memory.h"
#include "tests/net/live.h"
#include "tests/net/resolver.h"

using fakes::Lines;

namespace {

// The list as a buffer of `size` bytes at a guard page holds it.
std::string listed(int size, int expected_result) {
  fakes::Guarded page(1);
  std::memset(page.all().data(), '#', page.all().size());
  char *list = reinterpret_cast<char *>(page.last(static_cast<size_t>(size)));
  EXPECT_EQ(my_ips(list, size), expected_result);
  EXPECT_EQ(list[-1], '#');
  EXPECT_EQ(resolver::lists, 0);
  EXPECT_LT(strnlen(list, static_cast<size_t>(size)), static_cast<size_t>(size));
  return std::string(list, strnlen(list, static_cast<size_t>(size)));
}

}  // namespace

TEST(my_ips, lists_every_answer_in_order_with_a_blank_between) {
  resolver::host = resolver::Host{.node = "alpha.example"};
  resolver::answer_with(
      {{.address = "192.0.2.7"}, {.address = "2001:db8::1"}, {.address = "10.0.0.1"}});
  EXPECT_EQ(listed(100, 0), "192.0.2.7 2001:db8::1 10.0.0.1");
  EXPECT_EQ(resolver::calls,
            (Lines{"uname", "getaddrinfo alpha.example (none) 0 1 0", "freeaddrinfo"}));
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(my_ips, skips_127_0_0_1_but_lists_colon_colon_1) {
  resolver::host.emplace();
  resolver::answer_with({{.address = "127.0.0.1"}, {.address = "::1"}, {.address = "127.0.1.1"}});
  EXPECT_EQ(listed(100, 0), "::1 127.0.1.1");
}

// As an inet_ntop may write ::1.
TEST(my_ips, skips_an_address_written_0_colon_colon_1) {
  resolver::host.emplace();
  resolver::answer_with({{.address = "::1"}});
  resolver::ntop_text = "0::1";
  EXPECT_EQ(listed(100, -1), "");
}

TEST(my_ips, lists_nothing_when_every_answer_is_127_0_0_1) {
  resolver::host.emplace();
  resolver::answer_with({{.address = "127.0.0.1"}, {.address = "127.0.0.1"}});
  EXPECT_EQ(listed(100, -1), "");
}

TEST(my_ips, takes_any_other_family_for_ipv6) {
  resolver::host.emplace();
  resolver::answer_with({{.address = "2001:db8::1", .family = AF_UNIX}});
  EXPECT_EQ(listed(100, 0), "2001:db8::1");
}

// "192.0.2.7 10.0.0.1" and a blank while it grows.
TEST(my_ips, cuts_the_list_to_the_buffer_and_removes_a_blank_only_at_its_end) {
  resolver::host.emplace();
  resolver::answer_with({{.address = "192.0.2.7"}, {.address = "10.0.0.1"}});
  const struct {
    int size;
    const char *expected;
  } cases[] = {{100, "192.0.2.7 10.0.0.1"},
               {20, "192.0.2.7 10.0.0.1"},
               {19, "192.0.2.7 10.0.0.1"},
               {18, "192.0.2.7 10.0.0."},
               {12, "192.0.2.7 1"},
               {11, "192.0.2.7"},
               {10, "192.0.2.7"},
               {9, "192.0.2."},
               {2, "1"},
               {1, ""}};
  for (const auto &[size, expected] : cases) EXPECT_EQ(listed(size, 0), expected) << size;
}

TEST(my_ips, writes_nothing_into_a_buffer_of_0_bytes_or_less) {
  resolver::host.emplace();
  resolver::answer_with({{.address = "192.0.2.7"}});
  for (const int size : {0, -1, -2147483647 - 1}) {
    char list[4] = "## ";  // with a blank at its end
    EXPECT_EQ(my_ips(list, size), 0);
    EXPECT_STREQ(list, "## ");
    resolver::lookup_error = EAI_NONAME;
    EXPECT_EQ(my_ips(list, size), -1);
    EXPECT_STREQ(list, "## ");
    resolver::lookup_error = 0;
  }
}

TEST(my_ips, gives_the_resolvers_message_when_it_fails) {
  const auto outcome = fakes::in_child([] {
    resolver::host.emplace();
    resolver::answers.emplace();
    resolver::lookup_error = EAI_NONAME;
    EXPECT_EQ(listed(100, -1), "Name or service not known");
    EXPECT_EQ(listed(8, -1), "Name or");
    EXPECT_EQ(listed(6, -1), "Name ");  // a message, not a list: its blank stays
    EXPECT_EQ(listed(1, -1), "");
    resolver::lookup_error = EAI_AGAIN;
    EXPECT_EQ(listed(100, -1), "Temporary failure in name resolution");
    EXPECT_EQ(std::count(resolver::calls.begin(), resolver::calls.end(), "freeaddrinfo"), 0);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.log, Lines{});
}

TEST(my_ips, is_empty_in_silence_when_uname_fails) {
  const auto outcome = fakes::in_child([] {
    resolver::host = resolver::Host{.result = -1, .error = EFAULT};
    resolver::answers.emplace();
    EXPECT_EQ(listed(100, -1), "");
    EXPECT_EQ(resolver::calls, Lines{"uname"});
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.log, Lines{});
}

TEST(my_ips, writes_to_standard_error_when_an_address_has_no_text_and_goes_on) {
  const auto outcome = fakes::in_child([] {
    resolver::host.emplace();
    resolver::answer_with(
        {{.address = "192.0.2.7"}, {.address = "2001:db8::1"}, {.address = "10.0.0.1"}});
    resolver::failing_ntop = 2;
    EXPECT_EQ(listed(100, 0), "192.0.2.7 10.0.0.1");
    resolver::failing_ntop = 1;
    EXPECT_EQ(listed(100, 0), "2001:db8::1 10.0.0.1");
    resolver::failing_ntop = -1;
    resolver::ntop_error = EAFNOSUPPORT;
    EXPECT_EQ(listed(100, -1), "");
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  const std::string other =
      "inet_ntop fails in my_ips : Address family not supported by protocol\n";
  const std::string space = "inet_ntop fails in my_ips : No space left on device\n";
  EXPECT_EQ(outcome.err, space + space + other + other + other);
  EXPECT_EQ(outcome.log, Lines{});
}

TEST(my_ips, lists_on_the_live_machine_what_getent_answers) {
  live::with("192.0.2.7 alpha\n192.0.2.8 alpha\n127.0.0.1 alpha\n2001:db8::1 alpha\n", "alpha", [] {
    char list[200];
    EXPECT_EQ(my_ips(list, sizeof list), 0);
    const std::string answered = live::output(
        "getent -A ahosts alpha | awk '$2 == \"STREAM\" && $1 != \"127.0.0.1\" {print $1}' | "
        "tr '\\n' ' ' | sed 's/ $//'");
    // Its addresses are those; their order is the host's choice of the moment.
    const auto sorted = [](std::string text) {
      return live::output("echo '" + text + "' | tr ' ' '\\n' | sort");
    };
    EXPECT_EQ(sorted(list), sorted(answered));
    EXPECT_EQ(sorted(list), "192.0.2.7\n192.0.2.8\n2001:db8::1");
  });
}
