#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"
#include "tests/fakes/process.h"

using fakes::Lines;

namespace {

constexpr char kHeader[] =
    "   PPID   UID    VSZ   RSS S %CPU %MEM     TIME                  STARTED\n";
constexpr char kLine[] =
    "     17  1000  54321  4321 R 12.5  0.7 00:01:23 Sun Nov 15 08:53:44 2026\n";

struct Answer {
  int result;
  Pidstat p;
};

// What pidinfo(77) makes of this output of ps. The record is full of rubbish before.
Answer answer_to(const std::string &output) {
  fakes::Host host;
  host.command(output);
  fakes::clear_log();
  Answer answer;
  memset(&answer, 0xA5, sizeof answer);
  answer.result = pidinfo(77, &answer.p);
  EXPECT_EQ(host.count("popen"), 1);
  return answer;
}

bool all_zero(const void *data, size_t size) {
  const auto *bytes = static_cast<const unsigned char *>(data);
  for (size_t k = 0; k < size; ++k)
    if (bytes[k] != 0) return false;
  return true;
}

}  // namespace

TEST(pidinfo, reads_every_column) {
  setenv("TZ", "UTC", 1);
  const auto [result, p] = answer_to(std::string(kHeader) + kLine);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(p.pid, 77);
  EXPECT_EQ(p.ppid, 17);
  EXPECT_EQ(p.uid, 1000);
  EXPECT_EQ(p.vsz, 54321);
  EXPECT_EQ(p.rss, 4321);
  EXPECT_STREQ(p.state, "R");
  EXPECT_EQ(p.pcpu, 12.5);
  EXPECT_EQ(p.pmem, 0.7);
  EXPECT_EQ(p.started, 1794732824.0);  // date -u -d '2026-11-15 08:53:44' +%s
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(pidinfo, reads_the_time_as_one_number) {
  EXPECT_EQ(answer_to(std::string(kHeader) + kLine).p.cputime, 0.0);
  const std::string start = std::string(kHeader) + "17 1000 54321 4321 R 12.5 0.7 ";
  const std::string date = " Sun Nov 15 08:53:44 2026\n";
  EXPECT_EQ(answer_to(start + "12:34" + date).p.cputime, 12.0);
  EXPECT_EQ(answer_to(start + "5" + date).p.cputime, 5.0);
  EXPECT_EQ(answer_to(start + "3-07:01:02" + date).p.cputime, 3.0);
}

TEST(pidinfo, leaves_sampled_spare_user_and_command_zero) {
  const auto [result, p] = answer_to(std::string(kHeader) + kLine);
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(all_zero(&p.sampled, sizeof p.sampled));
  EXPECT_EQ(p.spare, 0);
  EXPECT_TRUE(all_zero(p.user, sizeof p.user));
  EXPECT_TRUE(all_zero(p.command, sizeof p.command));
}

TEST(pidinfo, keeps_fifteen_letters_of_the_state) {
  const auto [result, p] = answer_to(std::string(kHeader) +
                                     "17 1000 54321 4321 ABCDEFGHIJKLMNOPQRST 12.5 0.7 00:01:23 "
                                     "Sun Nov 15 08:53:44 2026\n");
  EXPECT_EQ(result, 0);
  EXPECT_STREQ(p.state, "ABCDEFGHIJKLMNO");
}

TEST(pidinfo, takes_tabs_and_blanks_in_any_number_between_columns) {
  const auto [result, p] = answer_to(std::string(kHeader) +
                                     "\t 17\t\t1000  54321 \t4321\tR 12.5\t0.7\t00:01:23\t"
                                     "Sun Nov 15 08:53:44 2026\n");
  EXPECT_EQ(result, 0);
  EXPECT_EQ(p.ppid, 17);
  EXPECT_EQ(p.rss, 4321);
  EXPECT_EQ(p.pmem, 0.7);
  EXPECT_NE(p.started, 0.0);
}

TEST(pidinfo, runs_ps_by_the_shell_in_the_c_locale) {
  fakes::Host host;
  host.command("LANG=C /bin/ps -ww -o ppid,uid,vsz,rss,state,pcpu,pmem,time,lstart -p 2147483647",
               std::string(kHeader) + kLine);
  Pidstat p;
  EXPECT_EQ(pidinfo(INT_MAX, &p), 0);
  EXPECT_EQ(p.pid, INT_MAX);
  EXPECT_EQ(p.ppid, 17);
  EXPECT_EQ(host.calls().front(),
            "popen LANG=C /bin/ps -ww -o ppid,uid,vsz,rss,state,pcpu,pmem,time,lstart "
            "-p 2147483647");
  EXPECT_EQ(host.calls().back(), "pclose");
  EXPECT_EQ(host.count("popen"), 1);
}

TEST(pidinfo, zeroes_the_record_and_runs_nothing_for_no_pid) {
  fakes::Host host;
  for (const int pid : {0, -1, INT_MIN}) {
    Pidstat p;
    memset(&p, 0xA5, sizeof p);
    EXPECT_EQ(pidinfo(pid, &p), -1);
    EXPECT_TRUE(all_zero(&p, sizeof p));
  }
  EXPECT_EQ(host.calls(), Lines{});
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(pidinfo, complains_when_the_command_cannot_be_run) {
  const int descriptors = fakes::open_descriptors();
  fakes::Host host;
  host.fail("popen", EMFILE);
  Pidstat p;
  memset(&p, 0xA5, sizeof p);
  EXPECT_EQ(pidinfo(77, &p), -1);
  EXPECT_TRUE(all_zero(&p, sizeof p));
  EXPECT_EQ(fakes::log(), Lines{"elog_complain(1): failed to run 'LANG=C /bin/ps -ww -o "
                                "ppid,uid,vsz,rss,state,pcpu,pmem,time,lstart -p 77'"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{EMFILE});
  EXPECT_EQ(host.count("pclose"), 0);
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
}

TEST(pidinfo, parses_the_header_when_there_is_no_second_line) {
  const auto [result, p] = answer_to(kHeader);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(p.pid, 77);
  EXPECT_EQ(p.ppid, 0);
  EXPECT_EQ(p.uid, 0);
  EXPECT_EQ(p.vsz, 0);
  EXPECT_EQ(p.rss, 0);
  EXPECT_STREQ(p.state, "S");
  EXPECT_EQ(p.pcpu, 0.0);
  EXPECT_EQ(p.pmem, 0.0);
  EXPECT_EQ(p.cputime, 0.0);
}

TEST(pidinfo, parses_the_header_of_the_real_ps_for_a_process_that_does_not_exist) {
  int pid;
  {
    const fakes::Process child("/bin/sleep", {"sleep", "100"});
    pid = child.pid();
  }
  ASSERT_EQ(pid_exists(pid), 0);
  Pidstat p;
  memset(&p, 0xA5, sizeof p);
  EXPECT_EQ(pidinfo(pid, &p), 0);
  EXPECT_EQ(p.pid, pid);
  EXPECT_EQ(p.ppid, 0);
  EXPECT_EQ(p.uid, 0);
  EXPECT_EQ(p.vsz, 0);
  EXPECT_EQ(p.rss, 0);
  EXPECT_STREQ(p.state, "S");
  EXPECT_EQ(p.pcpu, 0.0);
  EXPECT_EQ(p.pmem, 0.0);
}

TEST(pidinfo, fails_with_the_pid_set_when_ps_prints_nothing) {
  const auto [result, p] = answer_to("");
  EXPECT_EQ(result, -1);
  EXPECT_EQ(p.pid, 77);
  Pidstat rest = p;
  rest.pid = 0;
  EXPECT_TRUE(all_zero(&rest, sizeof rest));
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(pidinfo, reads_a_header_that_is_longer_than_the_line_as_header_and_data) {
  // 4095 characters make the first line, the rest of the header is parsed.
  const auto [result, p] = answer_to(std::string(4095, 'x') + kLine);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(p.ppid, 17);
}

TEST(pidinfo, ends_a_longer_data_line_at_4095_characters) {
  setenv("TZ", "UTC", 1);
  const std::string start = "17 1000 54321 4321 R 12.5 0.7 00:01:23 Sun ";
  const std::string padding(4095 - start.size() - 20, ' ');
  // The date's last character is the line's last; what follows is cut off.
  const auto [result, p] =
      answer_to(std::string(kHeader) + start + padding + "Nov 15 08:53:44 2026" + "9999\n");
  EXPECT_EQ(result, 0);
  EXPECT_EQ(p.started, 1794732824.0);
}

// The columns of a line that was cut: those that are whole are read, and the others stay zero.
TEST(pidinfo, reads_the_columns_that_are_there_and_fails_before_the_date) {
  const std::string columns[] = {"17", "1000", "54321", "4321", "R", "12.5", "0.7", "9"};
  std::string line;
  for (int present = 0; present <= 8; ++present) {
    for (const char *end : {"", "\n", " \n"}) {
      const auto [result, p] = answer_to(kHeader + line + end);
      // With no columns at all, an empty end leaves the header in the buffer.
      if (present == 0 && *end == '\0') {
        EXPECT_EQ(result, 0);
        continue;
      }
      EXPECT_EQ(result, -1) << line;
      EXPECT_EQ(p.pid, 77);
      EXPECT_EQ(p.uid, present >= 2 ? 1000 : 0) << line;
      EXPECT_EQ(p.vsz, present >= 3 ? 54321 : 0) << line;
      EXPECT_EQ(p.rss, present >= 4 ? 4321 : 0) << line;
      EXPECT_EQ(p.pcpu, present >= 6 ? 12.5 : 0) << line;
      EXPECT_EQ(p.pmem, present >= 7 ? 0.7 : 0) << line;
      EXPECT_EQ(p.cputime, present >= 8 ? 9.0 : 0) << line;
      EXPECT_EQ(p.started, 0.0) << line;
    }
    if (present < 8) line += (present == 0 ? "" : " ") + columns[present];
  }
}

// Cut at each single character, with no newline behind it: nothing is read outside the line.
TEST(pidinfo, reads_a_line_cut_at_any_character) {
  const std::string whole = kLine;
  const size_t date = whole.find("Sun ");
  for (size_t length = 1; length < whole.size(); ++length) {
    const auto [result, p] = answer_to(kHeader + whole.substr(0, length));
    EXPECT_EQ(p.pid, 77);
    EXPECT_EQ(result, length >= date + 4 ? 0 : -1) << length;
  }
}

TEST(pidinfo, keeps_a_last_state_with_its_newline) {
  const auto [result, p] = answer_to(std::string(kHeader) + "17 1000 54321 4321 R\n");
  EXPECT_EQ(result, -1);
  EXPECT_STREQ(p.state, "R\n");
}

TEST(pidinfo, has_no_start_time_for_a_date_that_cannot_be_read) {
  const auto [result, p] =
      answer_to(std::string(kHeader) + "17 1000 54321 4321 R 12.5 0.7 00:01:23 no date here\n");
  EXPECT_EQ(result, 0);
  EXPECT_EQ(p.started, 0.0);
}

TEST(pidinfo, agrees_with_ps_about_a_live_process) {
  const fakes::Process child("/bin/sleep", {"sleep", "100"});
  const std::string ps = "LC_ALL=C ps -p " + std::to_string(child.pid()) + " -o ";
  Pidstat p;
  // Until the child has found its place and sleeps.
  for (std::string before, after = "?"; before != after;) {
    before = fakes::output_of(ps + "vsz=,rss=,state=");
    ASSERT_EQ(pidinfo(child.pid(), &p), 0);
    after = fakes::output_of(ps + "vsz=,rss=,state=");
  }
  EXPECT_EQ(p.ppid, getpid());
  EXPECT_EQ(p.uid, static_cast<int>(getuid()));
  EXPECT_EQ(p.vsz, std::stol(fakes::output_of(ps + "vsz=")));
  EXPECT_EQ(p.rss, std::stol(fakes::output_of(ps + "rss=")));
  EXPECT_EQ(p.state, fakes::output_of(ps + "state="));
  // ps counts back from now, so two runs may differ by a second.
  EXPECT_NEAR(p.started, std::stod(fakes::output_of("date -d \"$(" + ps + "lstart=)\" +%s")), 1.0);
}

TEST(pidinfo, reads_the_locale_c_whatever_the_environment_says) {
  setenv("LANG", "de_DE.UTF-8", 1);
  const fakes::Process child("/bin/sleep", {"sleep", "100"});
  Pidstat p;
  ASSERT_EQ(pidinfo(child.pid(), &p), 0);
  EXPECT_NE(p.started, 0.0);
}

TEST(pidinfo, reads_its_numbers_in_the_locale_of_the_program) {
  const auto outcome = fakes::in_child([] {
    if (!fakes::set_decimal_comma()) _exit(2);
    const auto [result, p] = answer_to(std::string(kHeader) + kLine);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(p.pcpu, 12.0);  // 12.5
    EXPECT_EQ(p.pmem, 0.0);   // 0.7
    EXPECT_NE(p.started, 0.0);
  });
  if (outcome.exit_code == 2) GTEST_SKIP() << "no localedef here";
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(pidinfo, works_whichever_standard_descriptors_are_closed) {
  const fakes::Process sleeper("/bin/sleep", {"sleep", "100"});
  for (int mask = 0; mask < 8; ++mask) {
    const auto outcome = fakes::in_child([&] {
      fakes::close_standard(mask);
      const int descriptors = fakes::open_descriptors();
      Pidstat p;
      EXPECT_EQ(pidinfo(sleeper.pid(), &p), 0);
      EXPECT_EQ(p.ppid, getppid());
      EXPECT_NE(p.started, 0.0);
      EXPECT_EQ(fakes::children(), 0);
      EXPECT_EQ(fakes::open_descriptors(), descriptors);
    });
    EXPECT_EQ(outcome.exit_code, 0) << mask << outcome.err;
    EXPECT_EQ(outcome.log, Lines{}) << mask;
  }
}

TEST(pidinfo, works_while_the_program_ignores_its_children) {
  const auto outcome = fakes::in_child([] {
    signal(SIGCHLD, SIG_IGN);
    Pidstat p;
    EXPECT_EQ(pidinfo(getpid(), &p), 0);
    EXPECT_EQ(p.ppid, getppid());
    EXPECT_EQ(fakes::children(), 0);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log, Lines{});
}

TEST(pidinfo, works_under_alarms_that_interrupt_its_reads) {
  const auto outcome = fakes::in_child([] {
    const fakes::Alarms alarms;
    for (int k = 0; k < 10; ++k) {
      Pidstat p;
      EXPECT_EQ(pidinfo(getpid(), &p), 0);
      EXPECT_EQ(p.ppid, getppid());
      EXPECT_NE(p.started, 0.0);
    }
    EXPECT_GT(alarms.count(), 3);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log, Lines{});
}

// An alarm between two pieces of one line must not lose the first piece.
TEST(pidinfo, puts_a_line_together_that_an_alarm_interrupts) {
  const auto outcome = fakes::in_child([] {
    EXPECT_TRUE(fakes::mount_over("/bin/ps",
                                  "#!/bin/sh\necho header\nprintf '17 1000 543'\nsleep 0.02\n"
                                  "printf '21 4321 R 12.5 '\nsleep 0.02\n"
                                  "echo '0.7 7 Sun Nov 15 08:53:44 2026'\n",
                                  0755));
    const fakes::Alarms alarms;
    Pidstat p;
    EXPECT_EQ(pidinfo(77, &p), 0);
    EXPECT_EQ(p.ppid, 17);
    EXPECT_EQ(p.uid, 1000);
    EXPECT_EQ(p.vsz, 54321);
    EXPECT_EQ(p.rss, 4321);
    EXPECT_EQ(p.cputime, 7.0);
  });
  if (outcome.err.find("mount_over") != std::string::npos) GTEST_SKIP() << "no mount namespaces";
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(pidinfo, gives_ps_the_arguments_and_the_locale) {
  const auto outcome = fakes::in_child([] {
    EXPECT_TRUE(fakes::mount_over("/bin/ps",
                                  "#!/bin/sh\necho header\n"
                                  "[ \"$*/$LANG\" = '-ww -o ppid,uid,vsz,rss,state,pcpu,pmem,time,"
                                  "lstart -p 77/C' ] && echo 1 2 3 4 asked 6 7 8 9999\n",
                                  0755));
    Pidstat p;
    EXPECT_EQ(pidinfo(77, &p), 0);
    EXPECT_STREQ(p.state, "asked");
  });
  if (outcome.err.find("mount_over") != std::string::npos) GTEST_SKIP() << "no mount namespaces";
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(pidinfo, keeps_nothing_over_three_hundred_calls) {
  fakes::Host host;
  host.command(std::string(kHeader) + kLine);
  Pidstat p;
  for (int k = 0; k < 3; ++k) pidinfo(77, &p);
  host.clear_calls();
  const int descriptors = fakes::open_descriptors();
  const int children = fakes::children();
  const int mappings = fakes::mappings();
  int popens = 0;
  int pcloses = 0;
  for (int k = 0; k < 300; ++k) {
    EXPECT_EQ(pidinfo(77, &p), 0);
    popens += host.count("popen");
    pcloses += host.count("pclose");
    host.clear_calls();  // a longer record would be mapped
  }
  EXPECT_EQ(popens, 300);
  EXPECT_EQ(pcloses, 300);
  EXPECT_EQ(fakes::mappings(), mappings);
  EXPECT_EQ(fakes::children(), children);
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
}
