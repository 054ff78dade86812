#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "frame/vestan.h"
#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"
#include "tests/fakes/process.h"

using fakes::Lines;
using namespace std::string_literals;

namespace {

// The answer as a string, freed.
std::string pwd(int pid) {
  char *text = pidpwd(pid);
  if (text == nullptr) return "(null)";
  const std::string copy = text;
  free(text);
  return copy;
}

// What pidpwd makes of this output of ps.
std::string pwd_of(const std::string &output) {
  fakes::clear_log();
  fakes::Host host;
  host.file("/bin/ps", "#!/bin/sh\nexec /usr/bin/tail -n +3 \"$0\"\n" + output, 0755);
  return pwd(77);
}

// The list that a program's own split gives for the line "foreign": its inside is its own.
Tbl foreign;
char foreign_words[][16] = {"sleep", "A=b", "PWD=/foreign"};
long foreign_freed = 0;

template <typename Function>
Function *next(const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" Tbl *split(char *string, int separator) {
  if (strcmp(string, "foreign") == 0) return &foreign;
  return next<decltype(split)>("split")(string, separator);
}

extern "C" void *gettbl(const Tbl *t, long index) {
  if (t != &foreign) return next<decltype(gettbl)>("gettbl")(t, index);
  return index >= 0 && index < 3 ? foreign_words[index] : nullptr;
}

extern "C" void freetbl(Tbl *t, void (*free_each)(void *)) {
  if (t != &foreign) return next<decltype(freetbl)>("freetbl")(t, free_each);
  EXPECT_EQ(free_each, nullptr);
  ++foreign_freed;
}

TEST(pidpwd, asks_for_the_words_and_does_not_look_inside_the_list) {
  EXPECT_EQ(pwd_of("COMMAND\nforeign\n"), "/foreign");
  strcpy(foreign_words[2], "OLDPWD=/");
  EXPECT_EQ(pwd_of("COMMAND\nforeign\n"), "(null)");
  EXPECT_EQ(foreign_freed, 2);
}

TEST(pidpwd, is_the_pwd_of_the_environment) {
  EXPECT_EQ(pwd_of("COMMAND\nsleep 100 A=b PWD=/home/x HOME=/root\n"), "/home/x");
  EXPECT_EQ(pwd_of("COMMAND\nsleep 100 PWD=/home/x\n"), "/home/x");
  EXPECT_EQ(fakes::log(), Lines{});
}

TEST(pidpwd, is_null_without_a_pwd) {
  EXPECT_EQ(pwd_of("COMMAND\nsleep 100 A=b HOME=/root\n"), "(null)");
  EXPECT_EQ(pwd_of("COMMAND\nsleep\n"), "(null)");
}

TEST(pidpwd, takes_only_words_that_begin_with_pwd) {
  EXPECT_EQ(pwd_of("COMMAND\nsleep OLDPWD=/a XPWD=/b pwd=/c PWD /d PWD:=/e\n"), "(null)");
}

TEST(pidpwd, takes_the_first_of_several) {
  EXPECT_EQ(pwd_of("COMMAND\nsleep PWD=/one PWD=/two\n"), "/one");
}

TEST(pidpwd, takes_an_argument_that_begins_with_pwd) {
  EXPECT_EQ(pwd_of("COMMAND\nenv PWD=/argument sleep 100 PWD=/home/x\n"), "/argument");
}

TEST(pidpwd, never_looks_at_the_first_word) {
  EXPECT_EQ(pwd_of("COMMAND\nPWD=/first 100\n"), "(null)");
  EXPECT_EQ(pwd_of("COMMAND\nPWD=/first PWD=/home/x\n"), "/home/x");
  // A leading blank makes an empty first word.
  EXPECT_EQ(pwd_of("COMMAND\n PWD=/home/x\n"), "/home/x");
}

TEST(pidpwd, cuts_a_directory_at_its_blank) {
  EXPECT_EQ(pwd_of("COMMAND\nsleep 100 PWD=/home/my files HOME=/root\n"), "/home/my");
}

TEST(pidpwd, separates_words_at_blanks_alone) {
  EXPECT_EQ(pwd_of("COMMAND\nsleep\tPWD=/a b  PWD=/x\ty z\n"), "/x\ty");
}

TEST(pidpwd, is_empty_for_an_empty_pwd) {
  EXPECT_EQ(pwd_of("COMMAND\nsleep 100 PWD= HOME=/root\n"), "");
  EXPECT_EQ(pwd_of("COMMAND\nsleep 100 PWD=\n"), "");
}

TEST(pidpwd, does_not_look_at_the_header) {
  EXPECT_EQ(pwd_of("COMMAND PWD=/header\nsleep 100\n"), "(null)");
  EXPECT_EQ(pwd_of("COMMAND PWD=/header\n"), "(null)");
  EXPECT_EQ(pwd_of("COMMAND PWD=/header"), "(null)");
}

TEST(pidpwd, does_not_look_behind_the_second_line) {
  EXPECT_EQ(pwd_of("COMMAND\nsleep 100\nx PWD=/third\n"), "(null)");
}

TEST(pidpwd, looks_at_the_first_4095_characters) {
  const std::string start = "sleep PWD=/home/x";  // with the padding, 4095 characters
  const std::string padding(4095 - start.size(), 'a');
  EXPECT_EQ(pwd_of("COMMAND\nsleep" + padding + " PWD=/home/x\n"), "/home/x");
  EXPECT_EQ(pwd_of("COMMAND\nsleep" + padding + "a PWD=/home/x\n"), "/home/");
  EXPECT_EQ(pwd_of("COMMAND\nsleep" + padding + "123456789 PWD=/home/x\n"), "(null)");
}

TEST(pidpwd, takes_the_rest_of_an_over_long_header_as_the_line) {
  EXPECT_EQ(pwd_of(std::string(4095, 'h') + "sleep PWD=/home/x\nsleep PWD=/y\n"), "/home/x");
}

TEST(pidpwd, is_null_when_ps_prints_nothing) {
  EXPECT_EQ(pwd_of(""), "(null)");
  EXPECT_EQ(fakes::log(), (Lines{"elog_log(1): output is empty", "elog_log(0): no pid"}));
}

TEST(pidpwd, runs_nothing_for_no_pid) {
  fakes::Host host;
  for (const int pid : {0, -1, INT_MIN}) EXPECT_EQ(pidpwd(pid), nullptr);
  EXPECT_EQ(host.calls(), Lines{});
}

TEST(pidpwd, gives_ps_its_arguments_and_an_environment_of_lang_alone) {
  fakes::Host host;
  host.file("/bin/ps",
            "#!/bin/sh\necho header\necho \"x PWD=$(echo \"$#:$*\" | /usr/bin/tr ' ' '_')"
            "/$(/usr/bin/tr '\\0' '|' </proc/$$/environ)\"\n",
            0755);
  EXPECT_EQ(pwd(INT_MAX), "6:-ww_-o_command_e_-p_2147483647/LANG=C|");
}

TEST(pidpwd, starts_the_command_waits_and_closes) {
  fakes::Host host;
  host.file("/bin/ps", "#!/bin/sh\necho header\necho x PWD=/x\n", 0755);
  EXPECT_EQ(pwd(77), "/x");
  Lines order;
  for (const std::string &call : host.calls())
    for (const char *name : {"pipe", "mkstemp", "fork", "waitpid", "mmap", "munmap"})
      if (call == name) order.push_back(call);
  EXPECT_EQ(order, (Lines{"pipe", "mkstemp", "fork", "waitpid", "mmap", "munmap"}));
}

TEST(pidpwd, is_null_without_a_message_of_its_own_when_ps_cannot_be_run) {
  const std::pair<const char *, const char *> failures[] = {
      {"pipe", "Couldn't create pipes"}, {"mkstemp", "mkstemp failed'"}, {"fork", "fork failed"}};
  for (const auto &[call, message] : failures) {
    fakes::clear_log();
    fakes::Host host;
    host.fail(call, EAGAIN);
    EXPECT_EQ(pidpwd(77), nullptr);
    EXPECT_EQ(fakes::log(), Lines{"elog_log(1): "s + message});
    EXPECT_EQ(fakes::log_errors(), std::vector<int>{EAGAIN});
    EXPECT_EQ(fakes::children(), 0);
  }
}

TEST(pidpwd, is_null_when_the_output_cannot_be_mapped) {
  const int descriptors = fakes::open_descriptors();
  {
    fakes::Host host;
    host.file("/bin/ps", "#!/bin/sh\necho header\necho x PWD=/x\n", 0755);
    host.fail("mmap", ENOMEM);
    EXPECT_EQ(pidpwd(77), nullptr);
  }
  EXPECT_EQ(fakes::open_descriptors(), descriptors);
  EXPECT_EQ(fakes::children(), 0);
}

TEST(pidpwd, finds_the_pwd_of_a_live_process) {
  const fakes::Process child("/bin/sleep", {"sleep", "100"},
                             {"A=b", "OLDPWD=/", "PWD=/home/x", "Z=z"});
  EXPECT_EQ(pwd(child.pid()), "/home/x");
}

TEST(pidpwd, is_null_for_a_live_process_without_a_pwd) {
  const fakes::Process child("/bin/sleep", {"sleep", "100"}, {"A=b", "OLDPWD=/"});
  EXPECT_EQ(pwd(child.pid()), "(null)");
  const fakes::Process bare("/bin/sleep", {"sleep", "100"});
  EXPECT_EQ(pwd(bare.pid()), "(null)");
}

TEST(pidpwd, is_null_for_a_process_that_has_ended) {
  int pid;
  {
    const fakes::Process child("/bin/sleep", {"sleep", "100"}, {"PWD=/home/x"});
    pid = child.pid();
  }
  EXPECT_EQ(pwd(pid), "(null)");
}

TEST(pidpwd, works_whichever_standard_descriptors_are_closed) {
  const fakes::Process sleeper("/bin/sleep", {"sleep", "100"}, {"PWD=/home/x"});
  for (int mask = 0; mask < 8; ++mask) {
    const auto outcome = fakes::in_child([&] {
      fakes::close_standard(mask);
      const int descriptors = fakes::open_descriptors();
      EXPECT_EQ(pwd(sleeper.pid()), "/home/x");
      EXPECT_EQ(fakes::children(), 0);
      EXPECT_EQ(fakes::open_descriptors(), descriptors);
    });
    EXPECT_EQ(outcome.exit_code, 0) << mask << outcome.err;
    EXPECT_EQ(outcome.log, Lines{}) << mask;
  }
}

TEST(pidpwd, works_while_the_program_ignores_its_children) {
  const fakes::Process sleeper("/bin/sleep", {"sleep", "100"}, {"PWD=/home/x"});
  const auto outcome = fakes::in_child([&] {
    signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(pwd(sleeper.pid()), "/home/x");
    EXPECT_EQ(fakes::children(), 0);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log, Lines{});
}

TEST(pidpwd, works_under_alarms_that_interrupt_its_waiting) {
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.file("/bin/ps", "#!/bin/sh\necho header\nsleep 0.05\necho x PWD=/x\n", 0755);
    const fakes::Alarms alarms;
    for (int k = 0; k < 3; ++k) EXPECT_EQ(pwd(77), "/x");
    EXPECT_GT(alarms.count(), 5);
    EXPECT_EQ(fakes::children(), 0);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.log, Lines{});
}

TEST(pidpwd, keeps_nothing_over_three_hundred_calls) {
  const auto outcome = fakes::in_child([] {
    if (!fakes::mount_over("/bin/ps", "#!/bin/sh\necho header\necho x PWD=/home/x\n", 0755)) {
      fputs("no mount namespaces", stdout);
      return;
    }
    for (int k = 0; k < 3; ++k) pwd(77);
    const int descriptors = fakes::open_descriptors();
    const int mappings = fakes::mappings();
    const size_t bytes = fakes::bytes_in_use();
    for (int k = 0; k < 300; ++k) EXPECT_EQ(pwd(77), "/home/x");
    EXPECT_LT(fakes::bytes_in_use(), bytes + 300 * 8);
    EXPECT_EQ(fakes::mappings(), mappings);
    EXPECT_EQ(fakes::children(), 0);
    EXPECT_EQ(fakes::open_descriptors(), descriptors);
  });
  if (outcome.out == "no mount namespaces") GTEST_SKIP() << outcome.out;
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}
