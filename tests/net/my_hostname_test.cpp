#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"
#include "tests/fakes/memory.h"
#include "tests/net/live.h"
#include "tests/net/resolver.h"

using fakes::Lines;

TEST(my_hostname, is_the_node_name_up_to_its_first_dot) {
  const struct {
    const char *node, *expected;
  } cases[] = {{"alpha", "alpha"},
               {"alpha.example.org", "alpha"},
               {"alpha.", "alpha"},
               {".example.org", ""},
               {"", ""},
               {"a..b", "a"},
               {"al pha-1_x", "al pha-1_x"}};
  for (const auto &[node, expected] : cases) {
    resolver::host = resolver::Host{.node = node};
    char name[65];
    std::memset(name, '#', sizeof name);
    EXPECT_EQ(my_hostname(name), 0);
    EXPECT_STREQ(name, expected);
    EXPECT_EQ(name[std::strlen(expected) + 1], '#');
  }
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(my_hostname, needs_65_bytes_for_the_longest_name) {
  fakes::Guarded page(1);
  char *name = reinterpret_cast<char *>(page.last(65));
  resolver::host = resolver::Host{.node = std::string(64, 'n')};
  EXPECT_EQ(my_hostname(name), 0);
  EXPECT_EQ(name, std::string(64, 'n'));
}

TEST(my_hostname, gives_unames_negative_result_and_an_empty_name) {
  const auto outcome = fakes::in_child([] {
    for (const int result : {-1, -7}) {
      resolver::host = resolver::Host{.result = result, .error = EFAULT};
      char name[4] = {'#', '#', '#', '#'};
      EXPECT_EQ(my_hostname(name), result);
      EXPECT_EQ(std::memcmp(name, "\0###", 4), 0);
    }
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.log, Lines{});
}

TEST(my_hostname, is_the_live_machines_name_up_to_its_first_dot) {
  live::with("", "alpha.example.org", [] {
    char name[65];
    EXPECT_EQ(my_hostname(name), 0);
    EXPECT_STREQ(name, "alpha");
    EXPECT_EQ(live::output("uname -n"), "alpha.example.org");
  });
}
