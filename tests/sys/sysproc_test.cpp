#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "frame/vestan.h"
#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"
#include "tests/fakes/process.h"
#include "tests/sys/lists.h"

using fakes::Lines;
using namespace std::string_literals;

static_assert(offsetof(Pidstat, pid) == 0);
static_assert(offsetof(Pidstat, ppid) == 4);
static_assert(offsetof(Pidstat, uid) == 8);
static_assert(offsetof(Pidstat, vsz) == 16);
static_assert(offsetof(Pidstat, rss) == 24);
static_assert(offsetof(Pidstat, state) == 32);
static_assert(offsetof(Pidstat, started) == 48);
static_assert(offsetof(Pidstat, pcpu) == 56);
static_assert(offsetof(Pidstat, pmem) == 64);
static_assert(offsetof(Pidstat, sampled) == 72);
static_assert(offsetof(Pidstat, cputime) == 88);
static_assert(offsetof(Pidstat, spare) == 96);
static_assert(offsetof(Pidstat, user) == 104);
static_assert(offsetof(Pidstat, command) == 136);
static_assert(sizeof(Pidstat) == 1160);
static_assert(sizeof Pidstat::state == 16 && sizeof Pidstat::spare == 8);
static_assert(sizeof Pidstat::user == 32 && sizeof Pidstat::command == 1024);

namespace {

// While there is one, it keeps the texts that were read as dates, and each counts as a time that
// only this text has.
struct Dates;
Dates *recorder = nullptr;
struct Dates {
  Lines texts;
  Dates() { recorder = this; }
  ~Dates() { recorder = nullptr; }
};
double time_of(const std::string &date) {
  return static_cast<double>(std::hash<std::string>{}(date) >> 12);
}

constexpr char kHeader[] =
    "    PID    PPID   UID    VSZ   RSS S %CPU %MEM     TIME                  STARTED USER     "
    "COMMAND\n";
constexpr char kInit[] =
    "1 0 0 1000 200 Ss 0.0 0.1 00:01 Sun Nov 15 08:53:44 2026 root /sbin/init splash";
constexpr char kFull[] =
    "7 6 5 4000 300 R 2.5 1.5 12:34 Mon Nov 16 10:00:00 2026 joe /bin/first one";

// A /bin/ps that prints this.
void fake_ps(fakes::Host &host, const std::string &output) {
  host.file("/bin/ps", "#!/bin/sh\nexec /usr/bin/tail -n +3 \"$0\"\n" + output, 0755);
}

std::vector<Pidstat> records(Tbl *procs) {
  std::vector<Pidstat> all;
  for (long k = 0; k < lentbl(procs); ++k) all.push_back(*static_cast<Pidstat *>(gettbl(procs, k)));
  return all;
}

struct Snapshot {
  int result;
  std::vector<Pidstat> all;
};

// What sysproc makes of this output of ps.
Snapshot snapshot_of(const std::string &output) {
  fakes::clear_log();
  fakes::Host host;
  fake_ps(host, output);
  Tbl *procs = nullptr;
  const int result = sysproc(&procs);
  return {result, records(procs)};
}

std::string complaint(const std::string &line) {
  return "elog_complain(0): failed reading line '" + line + "'";
}

// What sysproc makes of this machine. Of a command line that is longer than its buffer, whoever
// runs one, it may complain; of nothing else.
std::vector<Pidstat> live_snapshot() {
  fakes::clear_log();
  Tbl *procs = nullptr;
  const int result = sysproc(&procs);
  const auto all = records(procs);
  const bool cut = std::any_of(all.begin(), all.end(), [](const Pidstat &p) {
    return strlen(p.command) == sizeof p.command - 1;
  });
  const std::string start = complaint("").substr(0, complaint("").size() - 1);
  for (const std::string &entry : fakes::log())
    EXPECT_TRUE(cut && entry.starts_with(start)) << entry;
  EXPECT_EQ(result, fakes::log().empty() ? 0 : -1);
  fakes::clear_log();
  return all;
}

const Pidstat *find(const std::vector<Pidstat> &all, int pid) {
  for (const Pidstat &p : all)
    if (p.pid == pid) return &p;
  return nullptr;
}

}  // namespace

extern "C" double str2epoch(const char *text) {
  if (recorder != nullptr) {
    recorder->texts.push_back(text);
    return time_of(text);
  }
  static const auto real =
      reinterpret_cast<double (*)(const char *)>(dlsym(RTLD_NEXT, "str2epoch"));
  return real(text);
}

TEST(sysproc, reads_every_column) {
  setenv("TZ", "UTC", 1);
  const auto [result, all] = snapshot_of(kHeader + std::string(kInit) + "\n");
  EXPECT_EQ(result, 0);
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0].pid, 1);
  EXPECT_EQ(all[0].ppid, 0);
  EXPECT_EQ(all[0].uid, 0);
  EXPECT_EQ(all[0].vsz, 1000);
  EXPECT_EQ(all[0].rss, 200);
  EXPECT_STREQ(all[0].state, "Ss");
  EXPECT_EQ(all[0].pcpu, 0.0);
  EXPECT_EQ(all[0].pmem, 0.1);
  EXPECT_EQ(all[0].cputime, 1.0);
  EXPECT_EQ(all[0].started, 1794732824.0);  // date -u -d '2026-11-15 08:53:44' +%s
  EXPECT_STREQ(all[0].user, "root");
  EXPECT_STREQ(all[0].command, "/sbin/init splash");
  EXPECT_EQ(all[0].spare, 0);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(sysproc, reads_its_numbers_in_the_locale_of_the_program) {
  const auto outcome = fakes::in_child([] {
    if (!fakes::set_decimal_comma()) _exit(2);
    const auto [result, all] = snapshot_of(kHeader + std::string(kFull) + "\n");
    EXPECT_EQ(result, 0);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].pcpu, 2.0);  // 2.5
    EXPECT_EQ(all[0].pmem, 1.0);  // 1.5
    EXPECT_EQ(all[0].cputime, 754.0);
    EXPECT_NE(all[0].started, 0.0);
  });
  if (outcome.exit_code == 2) GTEST_SKIP() << "no localedef here";
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(sysproc, reads_a_last_line_without_a_newline) {
  const auto [result, all] = snapshot_of(kHeader + std::string(kInit));
  EXPECT_EQ(result, 0);
  ASSERT_EQ(all.size(), 1u);
  EXPECT_STREQ(all[0].command, "/sbin/init splash");
}

TEST(sysproc, keeps_the_order_of_ps) {
  const auto [result, all] = snapshot_of(kHeader + std::string(kFull) + "\n" + kInit + "\n");
  EXPECT_EQ(result, 0);
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0].pid, 7);
  EXPECT_EQ(all[1].pid, 1);
}

TEST(sysproc, reads_numbers_of_64_and_32_bits) {
  const auto [result, all] = snapshot_of(
      "header\n2147483647 -2147483648 4294967294 9223372036854775807 -5 S 1e2 .5 0:00 "
      "Sun Nov 15 08:53:44 2026 root x\n");
  EXPECT_EQ(result, 0);
  EXPECT_EQ(all.at(0).pid, INT32_MAX);
  EXPECT_EQ(all.at(0).ppid, INT32_MIN);
  EXPECT_EQ(all.at(0).uid, -2);
  EXPECT_EQ(all.at(0).vsz, INT64_MAX);
  EXPECT_EQ(all.at(0).rss, -5);
  EXPECT_EQ(all.at(0).pcpu, 100.0);
  EXPECT_EQ(all.at(0).pmem, 0.5);
}

TEST(sysproc, reads_the_time_as_minutes_and_seconds) {
  const std::pair<const char *, double> times[] = {
      {"00:01", 1},          {"12:34", 754}, {"5", 300},     {"01:02:03", 62},
      {"2-03:04:05", 124},   {":30", 30},    {"5:", 300},    {":", 0},
      {"1.5:0.25", 90.25},   {"abc", 0},     {"-1:30", -30}, {"00:00:59", 0},
      {"99999:59", 5999999},
  };
  for (const auto &[text, seconds] : times) {
    const auto [result, all] = snapshot_of("header\n1 0 0 1000 200 Ss 0.0 0.1 "s + text +
                                           " Sun Nov 15 08:53:44 2026 root /sbin/init\n");
    EXPECT_EQ(result, 0) << text;
    EXPECT_EQ(all.at(0).cputime, seconds) << text;
  }
}

TEST(sysproc, keeps_fourteen_letters_of_the_state) {
  const auto [result, all] = snapshot_of(
      "header\n1 0 0 1000 200 ABCDEFGHIJKLMNOPQRST 0.0 0.1 0:01 Sun Nov 15 08:53:44 2026 root x\n");
  EXPECT_EQ(result, 0);
  EXPECT_STREQ(all.at(0).state, "ABCDEFGHIJKLMN");
}

TEST(sysproc, cuts_the_user_to_31_and_the_command_to_1023_characters) {
  const std::string start = "header\n1 0 0 1000 200 S 0.0 0.1 0:01 Sun Nov 15 08:53:44 2026 ";
  for (const size_t extra : {0u, 1u, 500u}) {
    const auto [result, all] = snapshot_of(start + std::string(31 + extra, 'u') + " " +
                                           std::string(1023 + extra, 'c') + "\n");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(all.at(0).user, std::string(31, 'u')) << extra;
    EXPECT_EQ(all.at(0).command, std::string(1023, 'c')) << extra;
  }
}

TEST(sysproc, keeps_blanks_and_tabs_inside_the_command) {
  const std::string start = "header\n1 0 0 1000 200 S 0.0 0.1 0:01 Sun Nov 15 08:53:44 2026 root";
  EXPECT_EQ(snapshot_of(start + "     a  b\tc \n").all.at(0).command, "a  b\tc "s);
  // Blanks alone are skipped before it.
  EXPECT_EQ(snapshot_of(start + "  \t a\n").all.at(0).command, "\t a"s);
}

TEST(sysproc, takes_a_line_without_a_command_as_whole) {
  const std::string start = "header\n1 0 0 1000 200 S 0.0 0.1 0:01 Sun Nov 15 08:53:44 2026 root";
  for (const char *end : {"", "\n", " \n", "    \n"}) {
    const auto [result, all] = snapshot_of(start + end);
    EXPECT_EQ(result, 0);
    EXPECT_STREQ(all.at(0).user, "root");
    EXPECT_STREQ(all.at(0).command, "");
  }
}

TEST(sysproc, takes_tabs_between_columns_and_one_character_after_the_date) {
  const auto [result, all] = snapshot_of(
      "header\n\t1\t 0 0\t1000  200 S 0.0\t0.1\t0:01\tSun Nov 15 08:53:44 2026\troot\tx y\n");
  EXPECT_EQ(result, 0);
  EXPECT_NE(all.at(0).started, 0.0);
  EXPECT_STREQ(all.at(0).user, "root");
  EXPECT_STREQ(all.at(0).command, "x y");
}

TEST(sysproc, reads_the_date_by_its_place) {
  const Dates dates;
  const auto [result, all] = snapshot_of(
      "header\n1 0 0 1000 200 S 0.0 0.1 0:01 Sun Nov 15 08:53:44 2026root x\n"
      "1 0 0 1000 200 S 0.0 0.1 0:01  Sun Nov  5 08:53:44 2026 root x\n");
  EXPECT_EQ(result, 0);
  EXPECT_EQ(dates.texts, (Lines{"Nov 15 08:53:44 2026", " Nov  5 08:53:44 202"}));
  EXPECT_STREQ(all.at(0).user, "oot");  // the r stands where a blank is passed over
  EXPECT_STREQ(all.at(1).user, "root");
}

TEST(sysproc, keeps_the_values_of_the_line_before_behind_the_end_of_a_short_line) {
  const auto [result, all] =
      snapshot_of("header\n"s + kFull + "\n9 8 4 1000 200 D 0.5 0.25\n" + kInit + "\n");
  EXPECT_EQ(result, -1);
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[1].pid, 9);
  EXPECT_STREQ(all[1].state, "D");
  EXPECT_EQ(all[1].pmem, 0.25);
  EXPECT_EQ(all[1].cputime, 754.0);
  EXPECT_EQ(all[1].started, all[0].started);
  EXPECT_NE(all[1].started, 0.0);
  EXPECT_STREQ(all[1].user, "joe");
  EXPECT_STREQ(all[1].command, "/bin/first one");
  EXPECT_STREQ(all[2].user, "root");
  EXPECT_EQ(fakes::log(), Lines{complaint("9 8 4 1000 200 D 0.5 0.25")});
}

TEST(sysproc, starts_each_snapshot_with_an_empty_record) {
  EXPECT_EQ(snapshot_of("header\n"s + kFull + "\n").result, 0);
  const auto [result, all] = snapshot_of("header\n9\n");
  EXPECT_EQ(result, -1);
  Pidstat rest = all.at(0);
  EXPECT_EQ(rest.pid, 9);
  EXPECT_NE(rest.sampled.tv_sec, 0);
  rest.pid = 0;
  rest.sampled = {};
  for (size_t k = 0; k < sizeof rest; ++k)
    EXPECT_EQ(reinterpret_cast<const char *>(&rest)[k], 0) << k;
}

TEST(sysproc, reads_the_columns_that_a_cut_line_has) {
  const std::string columns[] = {"9", "8", "4", "1000", "200", "D", "0.5", "0.25", "1:00"};
  std::string line;
  for (int present = 0; present <= 9; ++present) {
    if (present > 0) line += (present == 1 ? "" : " ") + columns[present - 1];
    const auto [result, all] = snapshot_of("header\n"s + kFull + "\n" + line + "\n");
    EXPECT_EQ(result, -1);
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[1].pid, present >= 1 ? 9 : 7) << line;
    EXPECT_EQ(all[1].ppid, present >= 2 ? 8 : 6) << line;
    EXPECT_EQ(all[1].uid, present >= 3 ? 4 : 5) << line;
    EXPECT_EQ(all[1].vsz, present >= 4 ? 1000 : 4000) << line;
    EXPECT_EQ(all[1].rss, present >= 5 ? 200 : 300) << line;
    EXPECT_STREQ(all[1].state, present >= 6 ? "D" : "R") << line;
    EXPECT_EQ(all[1].pcpu, present >= 7 ? 0.5 : 2.5) << line;
    EXPECT_EQ(all[1].pmem, present >= 8 ? 0.25 : 1.5) << line;
    EXPECT_EQ(all[1].cputime, present >= 9 ? 60.0 : 754.0) << line;
    EXPECT_STREQ(all[1].user, "joe") << line;
    EXPECT_EQ(fakes::log(), Lines{complaint(line)});
  }
}

TEST(sysproc, reads_what_is_left_of_a_cut_date) {
  const std::string start = "1 0 0 1000 200 S 0.0 0.1 0:01";
  const std::string date = " Sun Nov 15 08:53:44 2026 ";
  for (size_t length = 0; length <= date.size(); ++length) {
    const Dates dates;
    const std::string line = start + date.substr(0, length);
    const auto [result, all] = snapshot_of("header\n" + line + "\n");
    EXPECT_EQ(result, -1) << line;
    const std::string left = length <= 5 ? "" : date.substr(5, std::min<size_t>(length - 5, 20));
    EXPECT_EQ(dates.texts, Lines{left}) << line;
    EXPECT_EQ(all.at(0).started, time_of(left)) << line;
    EXPECT_STREQ(all.at(0).user, "");
  }
}

TEST(sysproc, complains_about_the_line_as_it_was) {
  const std::string line = "\t1  0\t0 some 0.0 0:01";
  EXPECT_EQ(snapshot_of("header\n" + line + "\n").result, -1);
  EXPECT_EQ(fakes::log(), Lines{complaint(line)});
}

TEST(sysproc, counts_an_empty_line_as_a_line) {
  const auto [result, all] = snapshot_of("header\n"s + kFull + "\n\n");
  EXPECT_EQ(result, -1);
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[1].pid, 7);
  EXPECT_EQ(fakes::log(), Lines{complaint("")});
}

TEST(sysproc, parses_what_ps_writes_to_its_standard_error) {
  fakes::clear_log();
  fakes::Host host;
  host.file("/bin/ps", "#!/bin/sh\necho header\necho 12 cannot read >&2\n", 0755);
  Tbl *procs = nullptr;
  EXPECT_EQ(sysproc(&procs), -1);
  ASSERT_EQ(lentbl(procs), 1);
  EXPECT_EQ(static_cast<Pidstat *>(gettbl(procs, 0))->pid, 12);
  EXPECT_EQ(fakes::log(), Lines{complaint("12 cannot read")});
}

TEST(sysproc, counts_each_piece_of_an_over_long_line_as_a_line) {
  const std::string line = kFull + std::string(10239 - sizeof kFull + 1, 'x');
  ASSERT_EQ(line.size(), 10239u);
  {
    // One short of the buffer: a whole line.
    const auto [result, all] = snapshot_of("header\n" + line.substr(1) + "\n");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(all.size(), 1u);
  }
  {
    // The line fills the buffer, and its newline makes an empty one.
    const auto [result, all] = snapshot_of("header\n" + line + "\n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(all.size(), 2u);
    EXPECT_EQ(fakes::log(), Lines{complaint("")});
  }
  {
    const auto [result, all] = snapshot_of("header\n" + line + "88 77\n");
    EXPECT_EQ(result, -1);
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].pid, 7);
    EXPECT_EQ(all[1].pid, 88);
    EXPECT_EQ(all[1].ppid, 77);
    EXPECT_STREQ(all[1].user, "joe");
    EXPECT_EQ(fakes::log(), Lines{complaint("88 77")});
  }
  {
    const auto [result, all] = snapshot_of("header\n" + std::string(30000, 'x') + "\n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(all.size(), 3u);
    EXPECT_EQ(fakes::log(),
              (Lines{complaint(std::string(10239, 'x')), complaint(std::string(10239, 'x')),
                     complaint(std::string(30000 - 2 * 10239, 'x'))}));
  }
}

TEST(sysproc, drops_only_the_first_piece_of_an_over_long_header) {
  const auto [result, all] = snapshot_of(std::string(10239, 'h') + kInit + "\n");
  EXPECT_EQ(result, 0);
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0].pid, 1);
}

TEST(sysproc, ends_at_a_nul_in_the_output) {
  const auto [result, all] =
      snapshot_of("header\n"s + kInit + "\n" + kFull + "\0 rest\n"s + kInit + "\n");
  EXPECT_EQ(result, 0);
  ASSERT_EQ(all.size(), 2u);
  EXPECT_STREQ(all[1].command, "/bin/first one");
}

TEST(sysproc, is_empty_and_succeeds_with_only_the_header) {
  const auto [result, all] = snapshot_of(kHeader);
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(all.empty());
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(sysproc, is_empty_and_succeeds_when_ps_prints_nothing) {
  const auto [result, all] = snapshot_of("");
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(all.empty());
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): output is empty"});
}

TEST(sysproc, makes_its_list_once_and_empties_it_from_then_on) {
  snapshot_of(kHeader);
  EXPECT_EQ(list_calls, Lines{"inittbl (nil) 100 1 (nil) 1160"});
  snapshot_of(kHeader);
  snapshot_of(kHeader);
  EXPECT_EQ(list_calls, (Lines{"inittbl (nil) 100 1 (nil) 1160", "clrtbl", "clrtbl"}));
}

TEST(sysproc, refills_one_list) {
  fakes::Host host;
  fake_ps(host, "header\n"s + kInit + "\n" + kFull + "\n" + kInit + "\n");
  Tbl *first = nullptr;
  EXPECT_EQ(sysproc(&first), 0);
  EXPECT_EQ(lentbl(first), 3);
  fake_ps(host, "header\n"s + kFull + "\n");
  Tbl *second = nullptr;
  EXPECT_EQ(sysproc(&second), 0);
  EXPECT_EQ(second, first);
  EXPECT_EQ(lentbl(second), 1);
  EXPECT_EQ(static_cast<Pidstat *>(gettbl(second, 0))->pid, 7);
}

TEST(sysproc, holds_more_processes_than_it_first_makes_room_for) {
  std::string output = "header\n";
  for (int k = 1; k <= 1000; ++k)
    output += std::to_string(k) + " 0 0 1 1 S 0 0 0:" + std::to_string(k) +
              " Sun Nov 15 08:53:44 2026 root x\n";
  const auto [result, all] = snapshot_of(output);
  EXPECT_EQ(result, 0);
  ASSERT_EQ(all.size(), 1000u);
  for (int k = 1; k <= 1000; ++k) {
    EXPECT_EQ(all[static_cast<size_t>(k - 1)].pid, k);
    EXPECT_EQ(all[static_cast<size_t>(k - 1)].cputime, k);
  }
}

TEST(sysproc, stamps_every_record_with_the_one_time_of_the_start) {
  fakes::Host host;
  host.file("/bin/ps",
            "#!/bin/sh\necho header\nsleep 0.3\necho '"s + kInit + "'\necho '" + kFull + "'\n",
            0755);
  timeval before, after;
  gettimeofday(&before, nullptr);
  host.clear_calls();
  Tbl *procs = nullptr;
  EXPECT_EQ(sysproc(&procs), 0);
  EXPECT_EQ(host.count("gettimeofday"), 1);
  gettimeofday(&after, nullptr);
  const auto all = records(procs);
  ASSERT_EQ(all.size(), 2u);
  EXPECT_FALSE(timercmp(&all[0].sampled, &before, <));
  timeval waited;
  timersub(&after, &all[0].sampled, &waited);
  EXPECT_GE(waited.tv_sec * 1000000 + waited.tv_usec, 200000);
  EXPECT_TRUE(timercmp(&all[0].sampled, &all[1].sampled, ==));
}

TEST(sysproc, starts_the_command_takes_the_time_then_waits) {
  fakes::Host host;
  fake_ps(host, kHeader);
  Tbl *procs = nullptr;
  sysproc(&procs);
  Lines order;
  for (const std::string &call : host.calls())
    for (const char *name :
         {"pipe", "mkstemp", "fork", "gettimeofday", "waitpid", "mmap", "munmap"})
      if (call == name) order.push_back(call);
  EXPECT_EQ(order, (Lines{"pipe", "mkstemp", "fork", "gettimeofday", "waitpid", "mmap", "munmap"}));
}

TEST(sysproc, gives_ps_its_columns_and_an_environment_of_lang_alone) {
  fakes::clear_log();
  setenv("COLUMNS", "20", 1);
  fakes::Host host;
  host.file(
      "/bin/ps",
      "#!/bin/sh\necho header\n/usr/bin/tr '\\0' '|' </proc/$$/environ; echo\necho \"$#:$*\"\n"
      "read line || echo no input\n",
      0755);
  Tbl *procs = nullptr;
  EXPECT_EQ(sysproc(&procs), -1);
  EXPECT_EQ(fakes::log(),
            (Lines{complaint("LANG=C|"),
                   complaint("2:-Ao "
                             "pid,ppid,uid,vsz,rss,state,pcpu,pmem,time,lstart,user,command"),
                   complaint("no input")}));
}

namespace {

constexpr char kNotRun[] =
    "elog_complain(1): failed to run command '/bin/ps -Ao "
    "pid,ppid,uid,vsz,rss,state,pcpu,pmem,time,lstart,user,command'";

void expect_not_run(const char *call, int error, const std::string &message) {
  // An earlier snapshot is gone after a failed one.
  ASSERT_EQ(snapshot_of("header\n"s + kFull + "\n").all.size(), 1u);
  const int children = fakes::children();
  fakes::Host host;
  host.fail(call, error);
  Tbl *procs = nullptr;
  EXPECT_EQ(sysproc(&procs), -1);
  ASSERT_NE(procs, nullptr);
  EXPECT_EQ(lentbl(procs), 0);
  EXPECT_EQ(fakes::log(), (Lines{"elog_log(1): " + message, kNotRun}));
  EXPECT_EQ(fakes::log_errors(), (std::vector<int>{error, error}));
  EXPECT_EQ(fakes::children(), children);
}

}  // namespace

TEST(sysproc, complains_when_there_is_no_pipe) {
  const int descriptors = fakes::open_descriptors();
  expect_not_run("pipe", EMFILE, "Couldn't create pipes");
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
}

TEST(sysproc, complains_when_there_is_no_temporary_file) {
  expect_not_run("mkstemp", ENOSPC, "mkstemp failed'");
}

TEST(sysproc, complains_when_there_is_no_child) { expect_not_run("fork", EAGAIN, "fork failed"); }

TEST(sysproc, has_no_processes_when_the_output_cannot_be_mapped) {
  fakes::clear_log();
  const int descriptors = fakes::open_descriptors();
  fakes::Host host;
  fake_ps(host, "header\n"s + kInit + "\n");
  host.fail("mmap", ENOMEM);
  Tbl *procs = nullptr;
  EXPECT_EQ(sysproc(&procs), 0);
  EXPECT_EQ(lentbl(procs), 0);
  EXPECT_EQ(fakes::log(), Lines{});
  EXPECT_EQ(fakes::children(), 0);
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
}

TEST(sysproc, has_no_processes_when_the_output_cannot_be_examined) {
  fakes::clear_log();
  const int descriptors = fakes::open_descriptors();
  fakes::Host host;
  fake_ps(host, "header\n"s + kInit + "\n");
  host.fail("fstat", EIO);
  Tbl *procs = nullptr;
  EXPECT_EQ(sysproc(&procs), 0);
  EXPECT_EQ(lentbl(procs), 0);
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): fstat failed\n"});
  EXPECT_EQ(fakes::children(), 0);
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
}

// The command's process ends with its report; all that comes out of it is a header.
TEST(sysproc, has_no_processes_where_there_is_no_ps) {
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.missing("/bin/ps", ENOENT);
    Tbl *procs = nullptr;
    EXPECT_EQ(sysproc(&procs), 0);
    EXPECT_EQ(lentbl(procs), 0);
    EXPECT_EQ(fakes::children(), 0);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Couldn't exec '/bin/ps' : '/bin/ps -Ao "
                               "pid,ppid,uid,vsz,rss,state,pcpu,pmem,time,lstart,user,command'"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{ENOENT});
}

namespace {

// The parser once more, literally: a step runs only with a token at hand and fetches the next.
class Model {
 public:
  Pidstat work{};

  bool parse(const std::string &text) {
    line_ = text;
    at_ = 0;
    std::optional<std::string> token = next();
    if (token) work.pid = number(*token), token = next();
    if (token) work.ppid = number(*token), token = next();
    if (token) work.uid = number(*token), token = next();
    if (token) work.vsz = strtol(token->c_str(), nullptr, 10), token = next();
    if (token) work.rss = strtol(token->c_str(), nullptr, 10), token = next();
    if (token) copy(work.state, *token, 15), token = next();
    if (token) work.pcpu = strtod(token->c_str(), nullptr), token = next();
    if (token) work.pmem = strtod(token->c_str(), nullptr), token = next();
    if (token) {
      const size_t colon = token->find(':');
      const std::string rest = colon == std::string::npos ? "0" : token->substr(colon + 1);
      work.cputime =
          strtod(token->substr(0, colon).c_str(), nullptr) * 60 + strtod(rest.c_str(), nullptr);
      at_ = std::min(at_ + 4, line_.size());
      work.started = time_of(line_.substr(at_, 20));
      at_ = std::min(at_ + 21, line_.size());
      token = next();
    }
    if (!token) return false;
    copy(work.user, *token, 32);
    while (at_ < line_.size() && line_[at_] == ' ') ++at_;
    copy(work.command, line_.substr(at_), 1024);
    return true;
  }

 private:
  std::string line_;
  size_t at_ = 0;

  std::optional<std::string> next() {
    const size_t start = line_.find_first_not_of(" \t", at_);
    if (start == std::string::npos) {
      at_ = line_.size();
      return std::nullopt;
    }
    const size_t end = std::min(line_.find_first_of(" \t", start), line_.size());
    at_ = std::min(end + 1, line_.size());
    return line_.substr(start, end - start);
  }
  static int number(const std::string &text) {
    return static_cast<int>(strtol(text.c_str(), nullptr, 10));
  }
  static void copy(char *field, const std::string &text, size_t size) {
    const size_t length = std::min(text.size(), size - 1);
    memcpy(field, text.data(), length);
    field[length] = '\0';
  }
};

// The output cut into what a buffer of 10240 bytes takes; the first piece is the header.
Lines pieces(const std::string &output) {
  Lines all;
  std::string piece;
  for (const char letter : output) {
    if (letter == '\n') {
      all.push_back(piece);
      piece.clear();
      continue;
    }
    piece.push_back(letter);
    if (piece.size() == 10239) {
      all.push_back(piece);
      piece.clear();
    }
  }
  if (!piece.empty()) all.push_back(piece);
  all.erase(all.begin());
  return all;
}

void expect_as_the_model_has_it(const std::string &output) {
  const Dates dates;
  const auto [result, all] = snapshot_of(output);
  Model model;
  int expected_result = 0;
  Lines expected_log;
  const Lines lines = pieces(output);
  ASSERT_EQ(all.size(), lines.size());
  for (size_t k = 0; k < lines.size(); ++k) {
    if (!model.parse(lines[k])) {
      expected_result = -1;
      expected_log.push_back(complaint(lines[k]));
    }
    const Pidstat &expected = model.work;
    SCOPED_TRACE(lines[k]);
    ASSERT_EQ(all[k].pid, expected.pid);
    ASSERT_EQ(all[k].ppid, expected.ppid);
    ASSERT_EQ(all[k].uid, expected.uid);
    ASSERT_EQ(all[k].vsz, expected.vsz);
    ASSERT_EQ(all[k].rss, expected.rss);
    ASSERT_STREQ(all[k].state, expected.state);
    ASSERT_EQ(all[k].started, expected.started);
    ASSERT_EQ(memcmp(&all[k].pcpu, &expected.pcpu, sizeof(double)), 0);
    ASSERT_EQ(memcmp(&all[k].pmem, &expected.pmem, sizeof(double)), 0);
    ASSERT_EQ(memcmp(&all[k].cputime, &expected.cputime, sizeof(double)), 0);
    ASSERT_EQ(all[k].spare, 0);
    ASSERT_STREQ(all[k].user, expected.user);
    ASSERT_STREQ(all[k].command, expected.command);
  }
  EXPECT_EQ(result, expected_result);
  EXPECT_EQ(fakes::log(), expected_log);
}

class Mutations {
 public:
  explicit Mutations(unsigned seed) : random_(seed) {}

  std::string line() {
    static const std::string seeds[] = {
        kInit,
        kFull,
        "      2       0     0      0     0 S  0.0  0.0 00:00:00 Sun Nov 15 08:53:44 2026 root     "
        "[kthreadd]",
        "  14606    5300 65534 1081344 107832 R 99.9 12.5 3-04:05:06 Wed Dec  9 23:59:59 2026 "
        "very-long+ sh -c  a\tb   c",
    };
    std::string text = seeds[pick(4)];
    for (size_t times = pick(4); times > 0; --times) mutate(text);
    return text;
  }

 private:
  std::mt19937 random_;

  size_t pick(size_t count) { return random_() % count; }
  char letter() {
    static constexpr char kLikely[] = "  \t\t:0123456789.-+eRS";
    const size_t which = pick(30);
    if (which < sizeof kLikely - 1) return kLikely[which];
    const char any = static_cast<char>(pick(255) + 1);
    return any == '\n' ? 'n' : any;
  }
  void mutate(std::string &text) {
    const size_t at = pick(text.size() + 1);
    switch (pick(8)) {
      case 0:
        text.resize(at);
        break;
      case 1:
        text.insert(at, 1, letter());
        break;
      case 2:
        if (at < text.size()) text[at] = letter();
        break;
      case 3:
        text.erase(at, pick(30));
        break;
      case 4:
        text.insert(at, pick(60), letter());
        break;
      case 5:
        text.insert(at, text.substr(pick(text.size() + 1), pick(40)));
        break;
      case 6:
        std::replace(text.begin(), text.end(), ' ', '\t');
        break;
      case 7:
        if (pick(20) == 0) text.insert(at, 10100 + pick(300), letter());
        break;
    }
  }
};

}  // namespace

TEST(sysproc, reads_lines_cut_at_each_character_as_the_model_does) {
  std::string output = "header\n";
  for (const std::string whole : {kInit, kFull})
    for (size_t length = 0; length <= whole.size(); ++length)
      output += whole.substr(0, length) + "\n" + kFull + "\n";
  expect_as_the_model_has_it(output);
}

TEST(sysproc, reads_over_long_fields_as_the_model_does) {
  std::string output = "header\n";
  for (const size_t length : {13u, 14u, 15u, 16u, 31u, 32u, 33u, 1023u, 1024u, 1025u, 4096u}) {
    std::istringstream columns(kFull);
    Lines all;
    for (std::string column; columns >> column;) all.push_back(column);
    for (size_t longer = 0; longer < all.size(); ++longer) {
      for (size_t k = 0; k < all.size(); ++k)
        output += (k == longer ? std::string(length, '7') : all[k]) + " ";
      output += "\n";
    }
  }
  expect_as_the_model_has_it(output);
}

TEST(sysproc, reads_lines_around_the_buffer_as_the_model_does) {
  for (const size_t length : {10238u, 10239u, 10240u, 10241u, 20477u, 20478u, 20479u, 25000u}) {
    expect_as_the_model_has_it("header\n" + (kFull + std::string(length - strlen(kFull), 'x')) +
                               "\n" + kInit + "\n" + std::string(length, ' ') + "\n" +
                               std::string(length, '8'));
  }
}

TEST(sysproc, reads_mutated_lines_as_the_model_does) {
  for (unsigned seed = 1; seed <= 100; ++seed) {
    Mutations mutations(seed);
    std::string output = "header\n";
    for (int k = 0; k < 1000; ++k) output += mutations.line() + "\n";
    ASSERT_NO_FATAL_FAILURE(expect_as_the_model_has_it(output)) << seed;
    if (HasFailure()) FAIL() << "seed " << seed;
  }
}

TEST(sysproc, finds_this_process_and_its_child_as_ps_does) {
  const fakes::Process child("/bin/sleep", {"sleep", "100", "0.5"});
  const std::string ps = "LC_ALL=C ps -ww -p " + std::to_string(child.pid()) + " -o ";
  std::vector<Pidstat> all;
  // Until the child has found its place and sleeps.
  for (std::string before, after = "?"; before != after;) {
    before = fakes::output_of(ps + "vsz=,rss=,state=");
    all = live_snapshot();
    after = fakes::output_of(ps + "vsz=,rss=,state=");
  }
  const Pidstat *const self = find(all, getpid());
  ASSERT_NE(self, nullptr);
  EXPECT_EQ(self->ppid, getppid());
  EXPECT_EQ(self->uid, static_cast<int>(geteuid()));
  const Pidstat *const p = find(all, child.pid());
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p->ppid, getpid());
  EXPECT_EQ(p->vsz, std::stol(fakes::output_of(ps + "vsz=")));
  EXPECT_EQ(p->rss, std::stol(fakes::output_of(ps + "rss=")));
  EXPECT_EQ(p->state, fakes::output_of(ps + "state="));
  // ps counts back from now, so two runs may differ by a second.
  EXPECT_NEAR(p->started, std::stod(fakes::output_of("date -d \"$(" + ps + "lstart=)\" +%s")), 1.0);
  EXPECT_EQ(p->user, fakes::output_of(ps + "user="));
  EXPECT_STREQ(p->command, "sleep 100 0.5");
  EXPECT_EQ(p->cputime, 0.0);
}

TEST(sysproc, lists_every_process_that_ps_lists_before_and_after) {
  const auto pids = [] {
    std::istringstream list(fakes::output_of("ps -Ao pid="));
    std::set<int> all;
    for (int pid; list >> pid;) all.insert(pid);
    return all;
  };
  const auto before = pids();
  const auto all = live_snapshot();
  const auto after = pids();
  int checked = 0;
  for (const int pid : before) {
    if (after.count(pid) == 0) continue;
    EXPECT_NE(find(all, pid), nullptr) << pid;
    ++checked;
  }
  EXPECT_GE(checked, 2);
}

TEST(sysproc, finds_a_child_whose_command_line_takes_three_pieces) {
  const fakes::Process child("/bin/sh", {"sh", "-c", "sleep 100; :", std::string(25000, 'a')});
  const auto all = live_snapshot();
  const Pidstat *const p = find(all, child.pid());
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p->command, "sh -c sleep 100; : " + std::string(1023 - 19, 'a'));
  const Pidstat *const end = all.data() + all.size();
  ASSERT_GE(end - p, 3);
  for (const Pidstat *const rest : {p + 1, p + 2}) {
    EXPECT_EQ(rest->pid, 0);
    EXPECT_EQ(rest->ppid, p->ppid);
    EXPECT_STREQ(rest->command, p->command);
  }
  EXPECT_TRUE(p + 3 == end || p[3].pid != 0);
}

TEST(sysproc, works_whichever_standard_descriptors_are_closed) {
  for (int mask = 0; mask < 8; ++mask) {
    const auto outcome = fakes::in_child([mask] {
      fakes::close_standard(mask);
      const int descriptors = fakes::open_descriptors();
      const auto all = live_snapshot();
      const Pidstat *const self = find(all, getpid());
      EXPECT_NE(self, nullptr);
      if (self != nullptr) {
        EXPECT_EQ(self->ppid, getppid());
      }
      EXPECT_EQ(fakes::children(), 0);
      EXPECT_EQ(fakes::open_descriptors(), descriptors);
    });
    EXPECT_EQ(outcome.exit_code, 0) << mask << outcome.err;
  }
}

TEST(sysproc, works_while_the_program_ignores_its_children) {
  const auto outcome = fakes::in_child([] {
    signal(SIGCHLD, SIG_IGN);
    EXPECT_NE(find(live_snapshot(), getpid()), nullptr);
    EXPECT_EQ(fakes::children(), 0);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(sysproc, works_under_alarms_that_interrupt_its_waiting) {
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.file("/bin/ps", "#!/bin/sh\necho header\nsleep 0.05\necho '"s + kInit + "'\n", 0755);
    const fakes::Alarms alarms;
    for (int k = 0; k < 3; ++k) {
      Tbl *procs = nullptr;
      EXPECT_EQ(sysproc(&procs), 0);
      EXPECT_EQ(lentbl(procs), 1);
    }
    EXPECT_GT(alarms.count(), 10);
    EXPECT_EQ(fakes::children(), 0);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log, Lines{});
}

TEST(sysproc, keeps_nothing_over_three_hundred_calls) {
  fakes::Host host;
  fake_ps(host, "header\n"s + kInit + "\n" + kFull + "\n");
  Tbl *procs = nullptr;
  for (int k = 0; k < 3; ++k) sysproc(&procs);
  host.clear_calls();
  const int descriptors = fakes::open_descriptors();
  const int mappings = fakes::mappings();
  int forks = 0;
  for (int k = 0; k < 300; ++k) {
    EXPECT_EQ(sysproc(&procs), 0);
    forks += host.count("fork");
    host.clear_calls();  // a longer record would be mapped
  }
  EXPECT_EQ(lentbl(procs), 2);
  EXPECT_EQ(forks, 300);
  EXPECT_EQ(fakes::mappings(), mappings);
  EXPECT_EQ(fakes::children(), 0);
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
}

// The snapshot's own memory: no script is at work that records calls.
TEST(sysproc, allocates_nothing_more_for_the_same_processes) {
  const auto outcome = fakes::in_child([] {
    if (!fakes::mount_over("/bin/ps", "#!/bin/sh\necho header\necho '"s + kInit + "'\n", 0755)) {
      fputs("no mount namespaces", stdout);
      return;
    }
    Tbl *procs = nullptr;
    for (int k = 0; k < 3; ++k) sysproc(&procs);
    const size_t bytes = fakes::bytes_in_use();
    for (int k = 0; k < 300; ++k) {
      list_calls.clear();
      sysproc(&procs);
    }
    EXPECT_EQ(lentbl(procs), 1);
    EXPECT_LT(fakes::bytes_in_use(), bytes + 300 * 8);
  });
  if (outcome.out == "no mount namespaces") GTEST_SKIP() << outcome.out;
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}
