#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"
#include "tests/fakes/process.h"

using fakes::Lines;
using namespace std::string_literals;

static_assert(offsetof(RtSystem, host) == 0);
static_assert(offsetof(RtSystem, user) == 64);
static_assert(offsetof(RtSystem, pwd) == 1088);
static_assert(offsetof(RtSystem, version) == 5184);
static_assert(offsetof(RtSystem, running) == 6208);
static_assert(offsetof(RtSystem, pid) == 6212);
static_assert(sizeof(RtSystem) == 6216);

namespace {

constexpr char kList[] = "LANG=C /bin/ps -e -o pid";

// The user that getpwuid finds, when a test scripts it; -1 leaves it to the host.
int known_uid = -1;
char *known_name = nullptr;
// How many records may not be had: the calloc of so many RtSystems fails.
size_t refused_records = 0;

}  // namespace

extern "C" passwd *getpwuid(uid_t uid) {
  static passwd entry;
  if (known_uid < 0) {
    static const auto real = reinterpret_cast<passwd *(*)(uid_t)>(dlsym(RTLD_NEXT, "getpwuid"));
    return real(uid);
  }
  if (uid != static_cast<uid_t>(known_uid)) return nullptr;
  entry.pw_name = known_name;
  return &entry;
}

extern "C" void *calloc(size_t count, size_t size) noexcept {
  if (size == sizeof(RtSystem) && count == refused_records) {
    errno = ENOMEM;
    return nullptr;
  }
  static void *(*real)(size_t, size_t) = nullptr;
  if (real == nullptr)
    real = reinterpret_cast<void *(*)(size_t, size_t)>(dlsym(RTLD_NEXT, "calloc"));
  return real(count, size);
}

namespace {

// A host whose processes are scripted: pid 77 and so on, each with a command line.
class Processes {
 public:
  fakes::Host host;

  Processes() {
    fakes::clear_log();
    working_directory("/home/x");
  }
  void add(int pid, const std::string &command_line, int uid = 0) {
    std::string text = command_line;
    for (char &letter : text)
      if (letter == ' ') letter = '\0';
    host.file("/proc/" + std::to_string(pid) + "/cmdline", text + "\0"s);
    list_ += "  " + std::to_string(pid) + "\n";
    host.command(kList, list_);
    host.command(figures(pid), "header\n1 " + std::to_string(uid) +
                                   " 1000 200 S 0.0 0.1 00:01 Sun Nov 15 08:53:44 2026\n");
  }
  void add_line(const std::string &line) {
    list_ += line;
    host.command(kList, list_);
  }
  void working_directory(const std::string &directory) {
    host.file("/bin/ps", "#!/bin/sh\necho COMMAND\necho 'korvex PWD=" + directory + "'\n", 0755);
  }
  static std::string figures(int pid) {
    return "LANG=C /bin/ps -ww -o ppid,uid,vsz,rss,state,pcpu,pmem,time,lstart -p " +
           std::to_string(pid);
  }

 private:
  std::string list_ = "    PID\n";
};

std::vector<RtSystem> systems_now(int expected_count) {
  RtSystem *systems = nullptr;
  const int count = pidrtsys(&systems);
  EXPECT_EQ(count, expected_count);
  const std::vector<RtSystem> all(systems, systems + count);
  free(systems);
  return all;
}

// The version that is read from the command line of pid 77; "(none)" when it is not listed.
std::string version_of(const std::string &command_line) {
  Processes processes;
  processes.add(77, command_line);
  RtSystem *systems = nullptr;
  const int count = pidrtsys(&systems);
  const std::string version = count == 1 ? systems[0].version : "(none)";
  free(systems);
  return version;
}

// What the host reports about this live process.
struct Found {
  bool listed = false;
  RtSystem system{};
};
Found find_live(int pid) {
  Found found;
  RtSystem *systems = nullptr;
  const int count = pidrtsys(&systems);
  for (int k = 0; k < count; ++k) {
    if (systems[k].pid != pid) continue;
    found.listed = true;
    found.system = systems[k];
  }
  free(systems);
  return found;
}

constexpr char kExecutive[] = "/opt/vestan/5.4/bin/korvex";

}  // namespace

TEST(pidrtsys, describes_an_executive) {
  Processes processes;
  processes.add(77, "/opt/vestan/5.4/bin/korvex -n 3 plant");
  const auto all = systems_now(1);
  ASSERT_EQ(all.size(), 1u);
  EXPECT_STREQ(all[0].host, "localhost");
  EXPECT_STREQ(all[0].user, "root");
  EXPECT_STREQ(all[0].pwd, "/home/x");
  EXPECT_STREQ(all[0].version, "5.4");
  EXPECT_EQ(all[0].running, 1);
  EXPECT_EQ(all[0].pid, 77);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(pidrtsys, zeroes_what_its_texts_do_not_fill) {
  Processes processes;
  processes.add(77, kExecutive);
  const auto all = systems_now(1);
  ASSERT_EQ(all.size(), 1u);
  for (size_t k = 9; k < sizeof all[0].host; ++k) EXPECT_EQ(all[0].host[k], 0);
  for (size_t k = 4; k < sizeof all[0].user; ++k) EXPECT_EQ(all[0].user[k], 0);
  for (size_t k = 7; k < sizeof all[0].pwd; ++k) EXPECT_EQ(all[0].pwd[k], 0);
  for (size_t k = 3; k < sizeof all[0].version; ++k) EXPECT_EQ(all[0].version[k], 0);
}

TEST(pidrtsys, lists_executives_in_the_order_of_ps) {
  Processes processes;
  processes.add(99, "/opt/vestan/5.4/bin/korvex");
  processes.add(5, "/sbin/init");
  processes.add(12, "/opt/vestan/6/bin/korvex");
  processes.add(88, "/opt/vestan/beta/bin/korvex -n 3");
  const auto all = systems_now(3);
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0].pid, 99);
  EXPECT_STREQ(all[0].version, "5.4");
  EXPECT_EQ(all[1].pid, 12);
  EXPECT_STREQ(all[1].version, "6");
  EXPECT_EQ(all[2].pid, 88);
  EXPECT_STREQ(all[2].version, "beta");
}

TEST(pidrtsys, finds_none_and_stores_null) {
  Processes processes;
  processes.add(5, "/sbin/init");
  RtSystem rubbish;
  RtSystem *systems = &rubbish;
  EXPECT_EQ(pidrtsys(&systems), 0);
  EXPECT_EQ(systems, nullptr);
  // No figures and no directory were asked for.
  EXPECT_EQ(processes.host.count("popen"), 1);
  EXPECT_EQ(processes.host.count("pclose"), 1);
  EXPECT_EQ(processes.host.count("fork"), 0);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(pidrtsys, leaves_an_executive_out_for_k_anywhere) {
  EXPECT_EQ(version_of("/opt/vestan/5.4/bin/korvex -k"), "(none)");
  EXPECT_EQ(version_of("/opt/vestan/5.4/bin/korvex -n 3 -keep"), "(none)");
  EXPECT_EQ(version_of("/opt/vestan/5.4/bin/korvex --key=1"), "(none)");
  EXPECT_EQ(version_of("/opt/vestan/5.4/bin/korvex plant-k"), "(none)");
  EXPECT_EQ(version_of("/opt/vestan/5-k/bin/korvex"), "(none)");
  EXPECT_EQ(version_of("/opt/vestan/5.4/bin/korvex - k -K"), "5.4");
}

TEST(pidrtsys, reads_the_version_from_the_start_of_the_command_line) {
  EXPECT_EQ(version_of("/usr/bin/python3 /opt/vestan/5.4/bin/korvex"), "hon3 ");
  EXPECT_EQ(version_of("sh /opt/vestan/5.4/bin/korvex"), "an");
  EXPECT_EQ(version_of("/home/opt/vestan/5.4/bin/korvex"), "stan");
}

TEST(pidrtsys, leaves_an_executive_out_whose_version_would_start_with_a_slash) {
  EXPECT_EQ(version_of("/bin/env -i /opt/vestan/5.4/bin/korvex"), "(none)");
  EXPECT_EQ(version_of("/opt/vestan//bin/korvex"), "(none)");
  EXPECT_EQ(version_of("/opt/vestan//5.4/bin/korvex"), "(none)");
}

TEST(pidrtsys, matches_the_pattern_as_a_regular_expression_anywhere) {
  EXPECT_EQ(version_of("/opt/vestan/a b/bin/korvex"), "a b");
  EXPECT_EQ(version_of("/opt/vestan/5.4/lib/bin/korvexd"), "5.4");
  EXPECT_EQ(version_of("/opt/vestan/x y/z/bin/korvex"), "x y");
  EXPECT_EQ(version_of("/opt/vestan/bin/korvex"), "(none)");
  EXPECT_EQ(version_of("/opt/vestan/5.4/korvex"), "(none)");
  EXPECT_EQ(version_of("/srv/vestan/5.4/bin/korvex"), "(none)");
  EXPECT_EQ(version_of("/opt/vestan/5.4/bin/Korvex"), "(none)");
}

TEST(pidrtsys, cuts_a_version_to_1023_characters) {
  for (const size_t length : {1022u, 1023u, 1024u, 4000u}) {
    const std::string version = std::string(length - 1, 'v') + "z";
    EXPECT_EQ(version_of("/opt/vestan/" + version + "/bin/korvex"), version.substr(0, 1023));
  }
}

TEST(pidrtsys, looks_up_the_user_that_ps_shows) {
  char name[] = "operator";
  known_name = name;
  known_uid = 4711;
  Processes processes;
  processes.add(77, kExecutive, 4711);
  const auto all = systems_now(1);
  EXPECT_STREQ(all.at(0).user, "operator");
  known_uid = -1;
}

TEST(pidrtsys, has_an_empty_user_for_a_uid_without_an_entry_or_a_name) {
  known_name = nullptr;
  known_uid = 4711;
  Processes processes;
  processes.add(77, kExecutive, 4711);  // an entry without a name
  processes.add(78, kExecutive, 4712);  // no entry
  const auto all = systems_now(2);
  EXPECT_STREQ(all.at(0).user, "");
  EXPECT_STREQ(all.at(1).user, "");
  EXPECT_STREQ(all.at(1).pwd, "/home/x");
  known_uid = -1;
}

TEST(pidrtsys, cuts_a_user_to_1023_characters) {
  std::string name(2000, 'u');
  known_name = name.data();
  known_uid = 4711;
  Processes processes;
  processes.add(77, kExecutive, 4711);
  const auto all = systems_now(1);
  EXPECT_EQ(all.at(0).user, std::string(1023, 'u'));
  EXPECT_STREQ(all.at(0).pwd, "/home/x");
  known_uid = -1;
}

TEST(pidrtsys, has_the_longest_directory_that_pidpwd_gives) {
  Processes processes;
  processes.add(77, kExecutive);
  processes.working_directory(std::string(5000, 'd'));
  const auto all = systems_now(1);
  EXPECT_EQ(all.at(0).pwd, std::string(4095 - strlen("korvex PWD="), 'd'));
  EXPECT_STREQ(all.at(0).version, "5.4");
}

TEST(pidrtsys, has_an_empty_directory_when_there_is_none) {
  Processes processes;
  processes.add(77, kExecutive);
  processes.host.file("/bin/ps", "#!/bin/sh\necho COMMAND\necho korvex A=b\n", 0755);
  const auto all = systems_now(1);
  EXPECT_STREQ(all.at(0).pwd, "");
  EXPECT_STREQ(all.at(0).user, "root");
}

TEST(pidrtsys, has_an_empty_directory_when_it_cannot_be_asked_for) {
  Processes processes;
  processes.add(77, kExecutive);
  processes.host.fail("fork", EAGAIN);
  const auto all = systems_now(1);
  EXPECT_STREQ(all.at(0).pwd, "");
  EXPECT_EQ(fakes::log(), Lines{"elog_log(1): fork failed"});
}

// The figures are zero then, and with them the user id.
TEST(pidrtsys, takes_the_user_of_uid_0_when_the_figures_cannot_be_had) {
  Processes processes;
  processes.add(77, kExecutive, 4711);
  processes.host.fail("popen", EMFILE, 2);
  const auto all = systems_now(1);
  EXPECT_STREQ(all.at(0).user, "root");
  EXPECT_EQ(fakes::log(),
            Lines{"elog_complain(1): failed to run '" + Processes::figures(77) + "'"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{EMFILE});
}

TEST(pidrtsys, skips_lines_without_a_number_and_processes_without_a_command_line) {
  Processes processes;
  processes.add_line("\n");
  processes.add_line("error: something\n");
  processes.add_line("  -5\n");
  processes.add_line("0\n");
  processes.add(76, "");
  processes.add_line("  999999999\n");  // ended meanwhile
  processes.add(77, kExecutive);
  const auto all = systems_now(1);
  EXPECT_EQ(all.at(0).pid, 77);
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(pidrtsys, drops_the_first_line) {
  Processes processes;
  processes.add(77, kExecutive);
  processes.host.command(kList, "77\n");
  systems_now(0);
  processes.host.command(kList, "");
  systems_now(0);
  processes.host.command(kList, "77\n77");
  systems_now(1);
}

TEST(pidrtsys, reads_an_over_long_line_in_pieces) {
  Processes processes;
  processes.add(77, kExecutive);
  processes.host.command(kList, "PID\n" + std::string(4095, 'x') + "77\n");
  systems_now(1);
  processes.host.command(kList, std::string(4095, 'x') + "77\n");
  systems_now(1);
}

TEST(pidrtsys, complains_when_the_list_cannot_be_had) {
  const int descriptors = fakes::open_descriptors();
  fakes::clear_log();
  fakes::Host host;
  host.fail("popen", ENOMEM);
  RtSystem rubbish;
  RtSystem *systems = &rubbish;
  EXPECT_EQ(pidrtsys(&systems), 0);
  EXPECT_EQ(systems, nullptr);
  EXPECT_EQ(fakes::log(), Lines{"elog_complain(1): failed to run 'LANG=C /bin/ps -e -o pid'"});
  EXPECT_EQ(fakes::log_errors(), std::vector<int>{ENOMEM});
  EXPECT_EQ(host.count("pclose"), 0);
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
}

TEST(pidrtsys, ends_the_process_without_memory_for_one_record) {
  const auto outcome = fakes::in_child([] {
    Processes processes;
    processes.add(77, kExecutive);
    refused_records = 1;
    systems_now(1);
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Out of memory in pidrtsys at line 79 of "
                               "'pidrtsys.cpp'\n\tCan't malloc 1 bytes for asys\n"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{ENOMEM});
}

TEST(pidrtsys, ends_the_process_without_memory_for_the_array) {
  const auto outcome = fakes::in_child([] {
    Processes processes;
    for (const int pid : {75, 76, 77, 78, 79}) processes.add(pid, kExecutive);
    refused_records = 5;
    systems_now(5);
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, Lines{"elog_die(1): Out of memory in pidrtsys at line 103 of "
                               "'pidrtsys.cpp'\n\tCan't malloc 5 bytes for *systems\n"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{ENOMEM});
}

TEST(pidrtsys, finds_a_live_executive) {
  const fakes::Process executive("/bin/sleep", {kExecutive, "100"}, {"A=b", "PWD=/home/x"});
  const Found found = find_live(executive.pid());
  ASSERT_TRUE(found.listed);
  EXPECT_STREQ(found.system.host, "localhost");
  EXPECT_EQ(found.system.user, fakes::output_of("id -un"));
  EXPECT_STREQ(found.system.pwd, "/home/x");
  EXPECT_STREQ(found.system.version, "5.4");
  EXPECT_EQ(found.system.running, 1);
}

TEST(pidrtsys, does_not_find_a_live_executive_with_k) {
  const fakes::Process with_k("/bin/sh", {kExecutive, "-c", "sleep 100; :", "-k"});
  const fakes::Process keeping("/bin/sh", {kExecutive, "-c", "sleep 100; :", "-keep"});
  const fakes::Process other("/bin/sleep", {"/opt/vestan/5.4/bin/other", "100"});
  EXPECT_FALSE(find_live(with_k.pid()).listed);
  EXPECT_FALSE(find_live(keeping.pid()).listed);
  EXPECT_FALSE(find_live(other.pid()).listed);
}

TEST(pidrtsys, finds_a_live_interpreter_of_an_executive) {
  const fakes::Process shell("/bin/sh", {"/bin/longershell", "-c", "sleep 100; :", kExecutive});
  const Found found = find_live(shell.pid());
  ASSERT_TRUE(found.listed);
  EXPECT_STREQ(found.system.version, "hell -c sleep 100; : ");
}

TEST(pidrtsys, finds_a_live_executive_of_a_user_without_an_entry) {
  if (getuid() != 0) GTEST_SKIP() << "needs root to be someone else";
  const fakes::Process executive("/usr/bin/setpriv",
                                 {"setpriv", "--reuid=54321", "--clear-groups", "/bin/bash", "-c",
                                  "exec -a /opt/vestan/5.4/bin/korvex sleep 100"},
                                 {"PWD=/home/x"});
  for (int k = 0; k < 1000; ++k) {
    char *name = pidexecname(executive.pid());
    const bool there = strcmp(name, kExecutive) == 0;
    free(name);
    if (there) break;
    usleep(10000);
  }
  const Found found = find_live(executive.pid());
  ASSERT_TRUE(found.listed);
  EXPECT_STREQ(found.system.user, "");
  EXPECT_STREQ(found.system.version, "5.4");
}

TEST(pidrtsys, works_whichever_standard_descriptors_are_closed) {
  const fakes::Process executive("/bin/sleep", {kExecutive, "100"}, {"PWD=/home/x"});
  for (int mask = 0; mask < 8; ++mask) {
    const auto outcome = fakes::in_child([&] {
      fakes::close_standard(mask);
      // The lookup of a user keeps a descriptor or a mapping of its own from the first call on.
      getpwuid(0);
      const int descriptors = fakes::open_descriptors();
      const Found found = find_live(executive.pid());
      EXPECT_TRUE(found.listed);
      EXPECT_STREQ(found.system.version, "5.4");
      EXPECT_STREQ(found.system.pwd, "/home/x");
      EXPECT_EQ(fakes::children(), 0);
      EXPECT_EQ(fakes::open_descriptors(), descriptors);
    });
    EXPECT_EQ(outcome.exit_code, 0) << mask << outcome.err;
    EXPECT_EQ(outcome.log, Lines{}) << mask;
  }
}

TEST(pidrtsys, works_while_the_program_ignores_its_children) {
  const fakes::Process executive("/bin/sleep", {kExecutive, "100"}, {"PWD=/home/x"});
  const auto outcome = fakes::in_child([&] {
    signal(SIGCHLD, SIG_IGN);
    const Found found = find_live(executive.pid());
    EXPECT_TRUE(found.listed);
    EXPECT_STREQ(found.system.pwd, "/home/x");
    EXPECT_EQ(fakes::children(), 0);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log, Lines{});
}

namespace {

// A /bin/ps for the three ways in which it is asked about this process; anything else is an error.
std::string ps_that_knows(int pid, const std::string &pause) {
  const std::string number = std::to_string(pid);
  return "#!/bin/sh\n" + pause +
         "case \"$*/$LANG\" in\n"
         "'-e -o pid/C') echo PID; printf 1; " +
         pause + "echo; printf ' " + number.substr(0, 1) + "'; " + pause + "echo '" +
         number.substr(1) +
         "';;\n"
         "'-ww -o command e -p " +
         number +
         "/C') echo COMMAND; echo 'korvex PWD=/home/x';;\n"
         "'-ww -o ppid,uid,vsz,rss,state,pcpu,pmem,time,lstart -p " +
         number +
         "/C') echo header; echo '1 0 1 1 S 0 0 0:00 Sun Nov 15 08:53:44 2026';;\n"
         "*) echo \"$*\" >/dev/stderr; exit 1;;\n"
         "esac\n";
}

}  // namespace

TEST(pidrtsys, works_under_alarms_that_interrupt_its_reads) {
  const fakes::Process executive("/bin/sleep", {kExecutive, "100"});
  const auto outcome = fakes::in_child([&] {
    if (!fakes::mount_over("/bin/ps", ps_that_knows(executive.pid(), "sleep 0.02\n"), 0755)) {
      fputs("no mount namespaces", stdout);
      return;
    }
    const fakes::Alarms alarms;
    const auto all = systems_now(1);
    EXPECT_EQ(all.size(), 1u);
    EXPECT_GT(alarms.count(), 5);
    EXPECT_EQ(fakes::children(), 0);
  });
  if (outcome.out == "no mount namespaces") GTEST_SKIP() << outcome.out;
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log, Lines{});
}

TEST(pidrtsys, keeps_nothing_over_three_hundred_calls) {
  const fakes::Process executive("/bin/sleep", {kExecutive, "100"});
  const auto outcome = fakes::in_child([&] {
    if (!fakes::mount_over("/bin/ps", ps_that_knows(executive.pid(), ""), 0755)) {
      fputs("no mount namespaces", stdout);
      return;
    }
    for (int k = 0; k < 3; ++k) systems_now(1);
    const int descriptors = fakes::open_descriptors();
    const int mappings = fakes::mappings();
    const size_t bytes = fakes::bytes_in_use();
    for (int k = 0; k < 300; ++k) systems_now(1);
    EXPECT_LT(fakes::bytes_in_use(), bytes + 300 * 8);
    EXPECT_EQ(fakes::mappings(), mappings);
    EXPECT_EQ(fakes::children(), 0);
    EXPECT_EQ(fakes::open_descriptors(), descriptors);
  });
  if (outcome.out == "no mount namespaces") GTEST_SKIP() << outcome.out;
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log, Lines{});
}
