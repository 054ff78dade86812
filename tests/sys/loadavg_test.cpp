#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"

using fakes::Lines;

namespace {

constexpr int kNotAllowed = 77;

struct Load {
  double avg[3] = {-1, -1, -1};
  int nprocs = -1;
};

Load load() {
  Load got;
  sysloadavg(got.avg, &got.nprocs);
  return got;
}

Load load_in(const std::string &text) {
  fakes::Host host;
  host.file("/proc/loadavg", text);
  return load();
}

// Three averages and two counts in a row; behind the first count one character is left out.
void expect_model(const std::string &file) {
  const std::string text = file.substr(0, 1023);
  size_t at = 0;
  const auto rest = [&] { return std::string(text.substr(std::min(at, text.size())).c_str()); };
  Load expected;
  for (double &average : expected.avg) {
    const std::string here = rest();
    char *end;
    average = strtod(here.c_str(), &end);
    at += static_cast<size_t>(end - here.c_str());
  }
  const std::string running = rest();
  char *end;
  static_cast<void>(strtol(running.c_str(), &end, 0));
  at += static_cast<size_t>(end - running.c_str());
  if (*end != '\0') ++at;
  expected.nprocs = static_cast<int>(strtol(rest().c_str(), nullptr, 0));

  const Load got = load_in(file);
  for (int k = 0; k < 3; ++k)
    ASSERT_TRUE(got.avg[k] == expected.avg[k] ||
                (std::isnan(got.avg[k]) && std::isnan(expected.avg[k])))
        << file;
  ASSERT_EQ(got.nprocs, expected.nprocs) << file;
}

}  // namespace

TEST(sysloadavg, reads_three_averages_and_the_total_count) {
  fakes::Host host;
  host.file("/proc/loadavg", "0.50 0.25 0.10 3/412 9999\n");
  double avg[3];
  int nprocs = 0;
  sysloadavg(avg, &nprocs);
  EXPECT_EQ(avg[0], 0.50);
  EXPECT_EQ(avg[1], 0.25);
  EXPECT_EQ(avg[2], 0.10);
  EXPECT_EQ(nprocs, 412);
  EXPECT_EQ(host.calls(), (Lines{"open /proc/loadavg", "read", "close"}));
}

TEST(sysloadavg, ends_the_process_when_the_file_cannot_be_opened) {
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.missing("/proc/loadavg", EACCES);
    double avg[3];
    int nprocs = 0;
    sysloadavg(avg, &nprocs);
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Can't read /proc/loadavg"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{EACCES});
}

TEST(sysloadavg, ends_the_process_when_the_file_cannot_be_read) {
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.file("/proc/loadavg", "0.50 0.25 0.10 3/412 9999\n");
    host.fail("read", EIO);
    host.fail("close", EBADF);  // must not cover the cause
    load();
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Can't read /proc/loadavg"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{EIO});
}

TEST(sysloadavg, ends_the_process_after_9_bytes_and_goes_on_after_10) {
  const auto outcome = fakes::in_child([] { load_in("1 2 3 4/5"); });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Can't read /proc/loadavg"});
  const Load got = load_in("1 2 3 4/56");
  EXPECT_EQ(got.avg[2], 3.0);
  EXPECT_EQ(got.nprocs, 56);
}

TEST(sysloadavg, steps_over_one_character_whatever_it_is) {
  EXPECT_EQ(load_in("0.50 0.25 0.10 3|412 9999\n").nprocs, 412);
  EXPECT_EQ(load_in("0.50 0.25 0.10 3 /412 9999\n").nprocs, 0);
}

TEST(sysloadavg, reads_octal_and_hexadecimal_counts) {
  EXPECT_EQ(load_in("0.50 0.25 0.10 0x3/0x20 9999\n").nprocs, 32);
  EXPECT_EQ(load_in("0.50 0.25 0.10 3/020 9999\n").nprocs, 16);
}

TEST(sysloadavg, looks_at_1023_bytes_only) {
  for (const size_t size : {1022u, 1023u, 1024u, 1025u}) {
    const std::string head = "0.50 0.25 0.10", tail = "3/412";
    const std::string text = head + std::string(size - head.size() - tail.size(), ' ') + tail;
    EXPECT_EQ(load_in(text).nprocs, size <= 1023 ? 412 : size == 1024 ? 41 : 4) << size;
  }
}

TEST(sysloadavg, reads_a_text_cut_at_every_byte_as_the_model_does) {
  const std::string text = "0.50 0.25 0.10 3/412 9999\n";
  for (size_t cut = 10; cut <= text.size(); ++cut) expect_model(text.substr(0, cut));
}

TEST(sysloadavg, reads_random_and_mutated_text_as_the_model_does) {
  std::mt19937 random(13);
  const char spoilers[] = " ./0x-+einfna9\n\0\xff";
  for (int k = 0; k < 3000; ++k) {
    std::string text = "0.50 0.25 0.10 3/412 9999\n";
    for (size_t n = random() % 8; n > 0; --n)
      text[random() % text.size()] = spoilers[random() % (sizeof spoilers - 1)];
    if (k % 3 == 0) text.erase(random() % 15, random() % 10);
    if (k % 5 == 0) text.insert(random() % text.size(), std::string(random() % 1100, '0'));
    expect_model(text);
    if (HasFatalFailure()) return;
  }
}

TEST(sysloadavg, reads_the_real_path_of_the_host) {
  const auto outcome = fakes::in_child([] {
    if (!fakes::mount_over("/proc/loadavg", "1.50 2.25 3.75 8/77 1\n")) _exit(kNotAllowed);
    const Load got = load();
    EXPECT_EQ(got.avg[0], 1.50);
    EXPECT_EQ(got.avg[1], 2.25);
    EXPECT_EQ(got.avg[2], 3.75);
    EXPECT_EQ(got.nprocs, 77);
  });
  if (outcome.exit_code == kNotAllowed) GTEST_SKIP() << "no mount namespaces here";
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(sysloadavg, agrees_with_uptime_on_the_live_host) {
  FILE *output = popen("LANG=C uptime | sed 's/.*load average: //'", "r");
  ASSERT_NE(output, nullptr);
  double avg[3];
  const int got = fscanf(output, "%lf, %lf, %lf", &avg[0], &avg[1], &avg[2]);
  pclose(output);
  if (got != 3) GTEST_SKIP() << "no uptime(1) here";
  const Load now = load();
  for (int k = 0; k < 3; ++k) EXPECT_NEAR(now.avg[k], avg[k], 0.5 + 0.1 * avg[k]);
  EXPECT_GT(now.nprocs, 0);
}

TEST(sysloadavg, keeps_nothing_over_10000_calls) {
  const int descriptors = fakes::open_descriptors(), mappings = fakes::mappings();
  const size_t heap = fakes::heap_bytes();
  for (int k = 0; k < 10000; ++k) load();
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_LE(fakes::mappings(), mappings + 64);  // a sanitizer maps its own
  EXPECT_LE(fakes::heap_bytes(), heap + 4096);
}
