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

TEST(my_hardware, is_the_machine_that_uname_tells) {
  resolver::host = resolver::Host{.machine = "Odd.Name 1"};
  char text[65];
  std::memset(text, '#', sizeof text);
  EXPECT_EQ(my_hardware(text), 0);
  EXPECT_STREQ(text, "Odd.Name 1");
  EXPECT_EQ(text[11], '#');
  EXPECT_EQ(resolver::calls, Lines{"uname"});
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(my_hardware, needs_65_bytes_for_the_longest_text) {
  fakes::Guarded page(1);
  char *text = reinterpret_cast<char *>(page.last(65));
  resolver::host = resolver::Host{.machine = std::string(64, 'n')};
  EXPECT_EQ(my_hardware(text), 0);
  EXPECT_EQ(text, std::string(64, 'n'));
}

TEST(my_hardware, gives_unames_negative_result_and_an_empty_text) {
  const auto outcome = fakes::in_child([] {
    for (const int result : {-1, -7}) {
      resolver::host = resolver::Host{.result = result, .error = EFAULT};
      char text[4] = {'#', '#', '#', '#'};
      EXPECT_EQ(my_hardware(text), result);
      EXPECT_EQ(std::memcmp(text, "\0###", 4), 0);
    }
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.log, Lines{});
}

TEST(my_hardware, is_x86_64_on_this_platform_as_the_command_says) {
  char text[65];
  EXPECT_EQ(my_hardware(text), 0);
  EXPECT_STREQ(text, "x86_64");
  EXPECT_EQ(text, live::output("uname -m"));
}
