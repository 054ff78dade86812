// The report of examples/host_report against what other programs say about the same host.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/fakes/process.h"

namespace {

const std::string kProgram = BINARY_DIR "/examples/host_report";

std::string output_of(const std::string &command, int *status = nullptr) {
  FILE *output = popen(command.c_str(), "r");
  std::string text;
  for (int c; (c = fgetc(output)) != EOF;) text.push_back(static_cast<char>(c));
  const int ended = pclose(output);
  if (status != nullptr) *status = ended;
  return text;
}

using Lines = std::vector<std::string>;

Lines lines_of(const std::string &text) {
  Lines lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

Lines new_report() { return lines_of(output_of("TZ=UTC LANG=C " + kProgram + " 2>&1")); }

const Lines &report() {
  static const Lines lines = new_report();
  return lines;
}

// What follows a label; "" when no line has it.
std::string value(const std::string &label) {
  for (const std::string &line : report())
    if (const size_t at = line.find(label); at != line.npos) {
      const size_t start = line.find_first_not_of(' ', at + label.size());
      return start == line.npos ? "" : line.substr(start);
    }
  return "";
}

// The lines below the title that begins so, up to the next empty line.
Lines section(const std::string &title, const Lines &of = report()) {
  Lines lines;
  bool inside = false;
  for (const std::string &line : of) {
    if (inside && line.empty()) break;
    if (inside) lines.push_back(line);
    inside = inside || line.starts_with(title);
  }
  return lines;
}

// "23.5 GB ..." in bytes.
double bytes(const std::string &text) {
  double number = 0;
  char unit[3] = "";
  sscanf(text.c_str(), "%lf %2s", &number, unit);
  for (const char *const larger : {"B", "kB", "MB", "GB", "TB", "PB"}) {
    if (strcmp(unit, larger) == 0) return number;
    number *= 1024;
  }
  return -1;
}

long number_in(const std::string &command) { return atol(output_of(command).c_str()); }

}  // namespace

TEST(host_report, ends_well_and_writes_no_error) {
  if (access("/etc/mtab", R_OK) != 0) GTEST_SKIP() << "this machine has no mount table";
  int status = -1;
  // Anybody may run a command line too long for one line. Of its rest there may be a complaint, but
  // of nothing that begins with a process's columns.
  for (const std::string &line : lines_of(output_of(kProgram + " 2>&1 >/dev/null", &status))) {
    const size_t quoted = line.find("failed reading line '");
    ASSERT_NE(quoted, line.npos) << line;
    int column[5];
    EXPECT_LT(sscanf(line.c_str() + quoted, "failed reading line '%d %d %d %d %d", &column[0],
                     &column[1], &column[2], &column[3], &column[4]),
              5)
        << line;
  }
  EXPECT_EQ(status, 0);
}

TEST(host_report, names_its_own_path) {
  char path[4096];
  ASSERT_NE(realpath(kProgram.c_str(), path), nullptr);
  EXPECT_EQ(value("  program "), path);
}

TEST(host_report, tells_the_boot_time_of_proc_stat_as_a_date) {
  const std::string btime = output_of("awk '/^btime / {print $2}' /proc/stat | tr -d '\\n'");
  const std::string date =
      output_of("TZ=UTC LANG=C date -d @" + btime + " '+%a %d %b %Y %H:%M:%S %Z'");
  EXPECT_TRUE(value("  booted ").starts_with(date.substr(0, date.size() - 1) + ", up "))
      << value("  booted ") << " is not " << date;
}

TEST(host_report, tells_the_uptime_of_proc_uptime) {
  const std::string booted = value("  booted ");
  long days, hours, minutes;
  ASSERT_EQ(sscanf(booted.c_str() + booted.find(", up "), ", up %ld d %ld h %ld min", &days, &hours,
                   &minutes),
            3);
  EXPECT_NEAR(static_cast<double>((days * 24 + hours) * 60 + minutes),
              static_cast<double>(number_in("cut -d. -f1 /proc/uptime") / 60), 2);
}

TEST(host_report, tells_the_node_name_system_and_machine_that_uname_tells) {
  const std::string name = output_of("uname -n | cut -d. -f1 | tr -d '\\n'");
  const std::string rest = output_of("uname -sm | sed 's/ / on /' | tr -d '\\n'");
  EXPECT_EQ(value("  host "), name + ", " + rest);
}

TEST(host_report, tells_the_zone_of_the_environment) {
  EXPECT_TRUE(value("  user ").ends_with(", in the time zone UTC")) << value("  user ");
}

TEST(host_report, tells_the_load_that_uptime_tells) {
  double got[3], expected[3];
  ASSERT_EQ(sscanf(value("  load ").c_str(), "%lf %lf %lf over", &got[0], &got[1], &got[2]), 3);
  const std::string uptime = output_of("LANG=C uptime");
  const char *average = strstr(uptime.c_str(), "load average: ");
  ASSERT_NE(average, nullptr);
  ASSERT_EQ(
      sscanf(average, "load average: %lf, %lf, %lf", &expected[0], &expected[1], &expected[2]), 3);
  for (int k = 0; k < 3; ++k) EXPECT_NEAR(got[k], expected[k], 1 + 0.2 * expected[k]);
}

TEST(host_report, has_a_bar_for_each_processor) {
  const long processors = number_in("getconf _NPROCESSORS_ONLN");
  EXPECT_EQ(atol(value("PROCESSORS:").c_str()), processors);
  const Lines lines = section("PROCESSORS:");
  long bars = 0;
  for (const std::string &line : lines) {
    int processor;
    double percent, user, system, idle;
    char bar[21];
    if (sscanf(line.c_str(), " %d [%20[#.]] %lf %% user %lf %% system %lf %% idle %lf %%",
               &processor, bar, &percent, &user, &system, &idle) != 6)
      continue;
    EXPECT_EQ(processor, bars);
    EXPECT_EQ(strlen(bar), 20u);
    EXPECT_NEAR(percent, user + system, 2);  // each is rounded
    if (processor == 0) {
      EXPECT_NEAR(user + system + idle, 100, 2);
    }
    ++bars;
  }
  EXPECT_EQ(bars, processors);
}

TEST(host_report, tells_the_memory_that_free_tells) {
  long memory = 0, swap = 0;
  const std::string table = output_of("LANG=C free -b");
  sscanf(strstr(table.c_str(), "Mem:"), "Mem: %ld", &memory);
  sscanf(strstr(table.c_str(), "Swap:"), "Swap: %ld", &swap);
  ASSERT_GT(memory, 0);
  EXPECT_NEAR(bytes(value("  physical ")), static_cast<double>(memory),
              0.006 * static_cast<double>(memory));
  EXPECT_NEAR(bytes(value("  with swap ")), static_cast<double>(memory + swap),
              0.006 * static_cast<double>(memory + swap));
}

TEST(host_report, lists_the_mounts_with_blocks_in_the_order_of_the_table) {
  if (access("/etc/mtab", R_OK) != 0) GTEST_SKIP() << "this machine has no mount table";
  Lines expected, got;
  std::ifstream table("/etc/mtab");
  for (std::string line; std::getline(table, line);) {
    std::string device, target, type;
    std::istringstream(line) >> device >> target >> type;
    struct statvfs st;
    if (line.size() > 255 || target.find('\\') != target.npos) continue;
    if (statvfs(target.c_str(), &st) == 0 && st.f_blocks > 0)
      expected.push_back(target + " (" + type + ")");
  }
  for (const std::string &line : section("MOUNTS")) {
    char size[2][32], target[4096], rest[64];
    if (sscanf(line.c_str(), " [%*[#.]] %*d %% %31[0-9.] %*s of %31[0-9.] %*s %4095s %63[^\n]",
               size[0], size[1], target, rest) == 4 &&
        strchr(target, ' ') == nullptr)
      got.push_back(std::string(target) + " " + (rest[0] == '(' ? rest : strchr(rest, '(')));
  }
  EXPECT_FALSE(expected.empty());
  EXPECT_EQ(got, expected);
}

TEST(host_report, tells_the_used_space_that_df_tells) {
  if (access("/etc/mtab", R_OK) != 0) GTEST_SKIP() << "this machine has no mount table";
  const long size = number_in("df -B1 --output=size / | tail -n 1");
  const long used = number_in("df -B1 --output=used / | tail -n 1");
  const long percent = number_in("df --output=pcent / | tail -n 1");
  int found = 0;
  for (const std::string &line : section("MOUNTS")) {
    if (line.find("  / (") == line.npos) continue;
    const size_t behind_bar = line.find(']') + 1;
    EXPECT_NEAR(atof(line.c_str() + behind_bar), static_cast<double>(percent), 2);
    const size_t behind_percent = line.find('%') + 1, of = line.find(" of ") + 4;
    EXPECT_NEAR(bytes(line.substr(behind_percent)), static_cast<double>(used),
                0.05 * static_cast<double>(used));
    EXPECT_NEAR(bytes(line.substr(of)), static_cast<double>(size),
                0.006 * static_cast<double>(size));
    ++found;
  }
  EXPECT_GE(found, 1);
}

TEST(host_report, lists_the_ten_busiest_processes_busiest_first) {
  const Lines lines = section("PROCESSES:");
  const long processes = atol(value("PROCESSES:").c_str());
  ASSERT_EQ(static_cast<long>(lines.size()), 1 + std::min(10L, processes));
  double last = 1e9;
  for (size_t k = 1; k < lines.size(); ++k) {
    int pid;
    char user[16];
    double cpu, memory;
    ASSERT_EQ(sscanf(lines[k].c_str(), " %d %15s %lf %% %lf %%", &pid, user, &cpu, &memory), 4);
    EXPECT_GT(pid, 0) << lines[k];
    EXPECT_LE(cpu, last) << lines[k];
    EXPECT_GE(memory, 0);
    EXPECT_LE(memory, 100);
    last = cpu;
  }
  const long listed = number_in("ps -A --no-headers | wc -l");
  EXPECT_NEAR(static_cast<double>(processes), static_cast<double>(listed),
              30 + 0.3 * static_cast<double>(listed));
}

TEST(host_report, takes_the_rest_of_a_very_long_command_line_for_no_process) {
  const fakes::Process busy("/bin/sh",
                            {"sh", "-c", "while :; do :; done", std::string(30000, 'x')});
  usleep(500000);
  int own = 0;
  for (const std::string &line : section("PROCESSES:", new_report())) {
    int pid;
    if (sscanf(line.c_str(), " %d", &pid) != 1) continue;  // the heading
    EXPECT_GT(pid, 0) << line;
    own += pid == busy.pid();
  }
  EXPECT_LE(own, 1);  // the ten busiest may be others
}
