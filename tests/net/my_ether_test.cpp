#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"
#include "tests/fakes/memory.h"
#include "tests/net/live.h"

using fakes::Lines;

namespace {

// What my_ether makes of this output of the command.
std::string ether(const std::string &output) {
  fakes::Host host;
  host.command(output);
  char list[8192];
  EXPECT_EQ(my_ether(list), 0);
  EXPECT_EQ(errno, 0);
  return list;
}

// The calls that open and close streams.
Lines stream_calls(const fakes::Host &host) {
  Lines calls;
  for (const std::string &call : host.calls())
    if (call.starts_with("fopen") || call == "fclose" || call.starts_with("popen") ||
        call == "pclose")
      calls.push_back(call);
  return calls;
}

int null_devices() {
  int count = 0;
  for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    count += std::filesystem::read_symlink(entry, gone) == "/dev/null";
  }
  return count;
}

const char kTwo[] =
    "eth0      Link encap:Ethernet  HWaddr 00:16:3e:5a:1b:0c\n"
    "          inet addr:192.0.2.7  Bcast:192.0.2.255  Mask:255.255.255.0\n"
    "\n"
    "eth1      Link encap:Ethernet  HWaddr 00:16:3e:00:00:01\n"
    "lo        Link encap:Local Loopback\n";

}  // namespace

TEST(my_ether, lists_the_addresses_in_ascending_order_with_a_blank_between) {
  EXPECT_EQ(ether(kTwo), "00:16:3e:00:00:01 00:16:3e:5a:1b:0c");
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(my_ether, gives_the_address_of_two_interfaces_once) {
  EXPECT_EQ(ether("eth0 HWaddr 00:16:3e:5a:1b:0c\neth0:1 HWaddr 00:16:3e:5a:1b:0c\n"
                  "br0 HWaddr 00:16:3e:5a:1b:0c\n"),
            "00:16:3e:5a:1b:0c");
}

TEST(my_ether, is_four_stars_when_the_output_uses_another_mark) {
  EXPECT_EQ(ether("eth0: flags=4163<UP>  mtu 1500\n        ether 00:16:3e:5a:1b:0c\n"), "****");
  EXPECT_EQ(ether("eth0 HWaddr:00:16:3e:5a:1b:0c\neth1 hwaddr 00:16:3e:5a:1b:0c\n"), "****");
}

TEST(my_ether, is_four_stars_when_nothing_is_printed) {
  EXPECT_EQ(ether(""), "****");
  EXPECT_EQ(ether("\n\n\n"), "****");
}

TEST(my_ether, reads_a_last_line_without_a_newline) {
  EXPECT_EQ(ether("eth0 HWaddr 00:16:3e:5a:1b:0c"), "00:16:3e:5a:1b:0c");
}

TEST(my_ether, takes_the_rest_of_the_line_as_it_is) {
  EXPECT_EQ(ether("eth0 HWaddr 00:16:3e:5a:1b:0c  \n"), "00:16:3e:5a:1b:0c  ");
  EXPECT_EQ(ether("HWaddr  a\r\n"), " a\r");
  EXPECT_EQ(ether("x HWaddr a HWaddr b\n"), "a HWaddr b");
}

// An empty address is a key as well, the first in order; the blank before the second stays.
TEST(my_ether, keeps_an_empty_address) {
  EXPECT_EQ(ether("eth0 HWaddr \n"), "****");
  EXPECT_EQ(ether("eth0 HWaddr b\neth1 HWaddr \n"), " b");
}

TEST(my_ether, reads_a_line_longer_than_1023_characters_in_pieces) {
  const std::string piece(1023 - 8, 'x');
  // Wholly in the first piece: its address ends there.
  EXPECT_EQ(ether(piece + "HWaddr abc\n"), "a");
  // Wholly in the second.
  EXPECT_EQ(ether(piece + "xxxxxxxxHWaddr abc\n"), "abc");
  // Across the two: not seen.
  EXPECT_EQ(ether(piece + "xxxxHWaddr abc\n"), "****");
  EXPECT_EQ(ether(std::string(100000, 'x') + "\neth0 HWaddr abc\n"), "abc");
}

TEST(my_ether, fills_a_buffer_of_just_the_lists_length) {
  std::string output, expected;
  for (int k = 99; k >= 0; --k) {
    char address[18];
    snprintf(address, sizeof address, "00:00:00:00:%02d:%02d", k / 10, k % 10);
    output += std::string("x HWaddr ") + address + "\n";
    expected = address + (expected.empty() ? "" : " " + expected);
  }
  fakes::Guarded page(1);
  char *list = reinterpret_cast<char *>(page.last(expected.size() + 1));
  fakes::Host host;
  host.command(output);
  EXPECT_EQ(my_ether(list), 0);
  EXPECT_EQ(list, expected);
}

TEST(my_ether, clears_errno) {
  errno = EDOM;
  fakes::Host host;
  host.command(kTwo);
  char list[100];
  EXPECT_EQ(my_ether(list), 0);
  EXPECT_EQ(errno, 0);
}

TEST(my_ether, gives_back_a_reserved_stream_first_and_takes_it_again_last) {
  fakes::Host host;
  host.command(kTwo);
  char list[100];
  my_ether(list);
  EXPECT_EQ(stream_calls(host), (Lines{"popen LANG=C /sbin/ifconfig -a", "pclose",
                                       "fopen /dev/null", "fopen /dev/null"}));
  host.clear_calls();
  my_ether(list);
  EXPECT_EQ(stream_calls(host),
            (Lines{"fclose", "popen LANG=C /sbin/ifconfig -a", "pclose", "fopen /dev/null"}));
}

TEST(my_ether, is_four_stars_when_the_command_cannot_be_started) {
  fakes::Host host;
  host.fail("popen", EMFILE);
  char list[100];
  errno = EDOM;
  EXPECT_EQ(my_ether(list), 0);
  EXPECT_STREQ(list, "****");
  EXPECT_EQ(errno, 0);
  // There is no stream to close; the reserve is filled all the same.
  EXPECT_EQ(stream_calls(host),
            (Lines{"popen LANG=C /sbin/ifconfig -a", "fopen /dev/null", "fopen /dev/null"}));
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(my_ether, leaves_no_descriptor_no_child_and_no_memory_behind) {
  for (int k = 0; k < 20; ++k) ether(k % 2 == 0 ? kTwo : "");
  const int descriptors = fakes::open_descriptors();
  const size_t heap = fakes::heap_bytes();
  for (int k = 0; k < 200; ++k) ether(k % 2 == 0 ? kTwo : "");
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_EQ(fakes::children(), 0);
  EXPECT_LE(fakes::heap_bytes(), heap + 4096);
}

TEST(my_ether, serves_8_threads) {
  std::vector<std::string> lists(8);
  fakes::Threads threads(8, [&lists](size_t t) {
    for (int round = 0; round < 5; ++round) {
      char list[100];
      my_ether(list);
      lists[t] = list;
    }
  });
  fakes::Host host;
  host.command(kTwo);
  threads.run();
  EXPECT_EQ(lists, std::vector<std::string>(8, "00:16:3e:00:00:01 00:16:3e:5a:1b:0c"));
}

namespace {

// Runs `body` where /sbin/ifconfig is this text.
void with_command(const std::string &text, int mode, const std::string &expected_error,
                  const std::function<void()> &body) {
  if (access("/sbin/ifconfig", F_OK) != 0) GTEST_SKIP() << "no /sbin/ifconfig to put one over";
  const auto outcome = fakes::in_child([&] {
    if (!fakes::mount_over("/sbin/ifconfig", text, mode)) _exit(live::kNotAllowed);
    body();
  });
  if (outcome.exit_code == live::kNotAllowed) GTEST_SKIP() << "no mounts on this machine";
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_NE(outcome.err.find(expected_error), std::string::npos) << outcome.err;
}

}  // namespace

TEST(my_ether, runs_the_command_for_all_interfaces_in_the_C_locale) {
  with_command("#!/bin/sh\necho HWaddr $LANG $# $1\n", 0755, "", [] {
    setenv("LANG", "de_DE.UTF-8", 1);
    char list[100];
    EXPECT_EQ(my_ether(list), 0);
    EXPECT_STREQ(list, "C 1 -a");
  });
}

TEST(my_ether, waits_for_a_slow_command_that_prints_on) {
  with_command("#!/bin/sh\necho HWaddr a\nseq 20000\nsleep 0.2\necho HWaddr b\n", 0755, "", [] {
    char list[100];
    EXPECT_EQ(my_ether(list), 0);
    EXPECT_STREQ(list, "a b");
    EXPECT_EQ(fakes::children(), 0);
  });
}

TEST(my_ether, is_four_stars_when_the_command_is_missing) {
  with_command("", 0644, "ifconfig", [] {  // the shell says so on standard error
    char list[100];
    EXPECT_EQ(my_ether(list), 0);
    EXPECT_STREQ(list, "****");
    EXPECT_EQ(errno, 0);
  });
}

TEST(my_ether, needs_no_more_than_one_free_descriptor_beside_its_reserve) {
  with_command("#!/bin/sh\necho HWaddr a\n", 0755, "", [] {
    char list[100];
    const int before = null_devices();
    my_ether(list);
    EXPECT_EQ(null_devices(), before + 2);
    const rlimit limit{64, 64};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    int last = -1;
    for (int fd; (fd = open("/dev/zero", O_RDONLY | O_CLOEXEC)) >= 0;) last = fd;
    EXPECT_EQ(errno, EMFILE);
    // None free: a pipe takes two, and the reserve gives one.
    EXPECT_EQ(my_ether(list), 0);
    EXPECT_STREQ(list, "****");
    EXPECT_EQ(open("/dev/zero", O_RDONLY), -1);  // the reserve has it back
    close(last);
    EXPECT_EQ(my_ether(list), 0);
    EXPECT_STREQ(list, "a");
    EXPECT_EQ(open("/dev/zero", O_RDONLY), last);
    EXPECT_EQ(open("/dev/zero", O_RDONLY), -1);
  });
}

TEST(my_ether, is_on_the_live_machine_what_the_command_marks) {
  char list[8192];
  EXPECT_EQ(my_ether(list), 0);
  const std::string marked = live::output(
      "LANG=C /sbin/ifconfig -a 2>/dev/null | sed -n 's/.*HWaddr //p' | LC_ALL=C sort -u | "
      "paste -sd ' '");
  EXPECT_EQ(list, marked.empty() ? "****" : marked);
}
