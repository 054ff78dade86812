#include "tests/fakes/child.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

extern "C" size_t __sanitizer_get_current_allocated_bytes() __attribute__((weak));

namespace fakes {
namespace detail {
extern int log_pipe __attribute__((weak));  // in the programs that record the log
std::string folder = "/tmp";
}  // namespace detail

namespace {

// A descriptor far from those that a test closes or counts.
int out_of_the_way(int fd) {
  const int moved = fcntl(fd, F_DUPFD_CLOEXEC, 200);
  close(fd);
  return moved;
}

void split_log(const std::string &sent, Outcome &outcome) {
  for (size_t start = 0; start < sent.size();) {
    const std::string entry = sent.c_str() + start;
    start += entry.size() + 1;
    const size_t blank = entry.find(' ');
    outcome.log_errors.push_back(std::stoi(entry.substr(0, blank)));
    outcome.log.push_back(entry.substr(blank + 1));
  }
}

}  // namespace

Outcome in_child(const std::function<void()> &body) {
  int pipes[3][2];
  for (auto &ends : pipes) {
    if (pipe(ends) != 0) abort();
    ends[0] = out_of_the_way(ends[0]);
    ends[1] = out_of_the_way(ends[1]);
  }
  std::string folder = detail::folder + "/plintor-child-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr || chmod(folder.c_str(), 0777) != 0) abort();
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid < 0) abort();
  if (pid == 0) {
    for (auto &ends : pipes) close(ends[0]);
    dup2(pipes[0][1], STDOUT_FILENO);
    dup2(pipes[1][1], STDERR_FILENO);
    close(pipes[0][1]);
    close(pipes[1][1]);
    if (&detail::log_pipe != nullptr) detail::log_pipe = pipes[2][1];
    detail::folder = folder;
    body();
    if (::testing::Test::HasFailure()) {
      const auto *result = ::testing::UnitTest::GetInstance()->current_test_info()->result();
      for (int k = 0; k < result->total_part_count(); ++k) {
        const auto &part = result->GetTestPartResult(k);
        if (part.failed())
          fprintf(stderr, "%s:%d: %s\n", part.file_name(), part.line_number(), part.message());
      }
      fflush(nullptr);
      _exit(1);
    }
    fflush(nullptr);
    _exit(0);
  }
  for (auto &ends : pipes) close(ends[1]);

  Outcome outcome;
  std::string sent;
  std::string *texts[3] = {&outcome.out, &outcome.err, &sent};
  pollfd polled[3];
  for (int k = 0; k < 3; ++k) polled[k] = {pipes[k][0], POLLIN, 0};
  // Until the child has ended: a grandchild that lives on must not keep us waiting.
  int status = 0;
  bool ended = false;
  for (int open_pipes = 3; open_pipes > 0;) {
    if (!ended) ended = waitpid(pid, &status, WNOHANG) == pid;
    if (poll(polled, 3, 20) == 0 && ended) break;
    for (int k = 0; k < 3; ++k) {
      if ((polled[k].revents & (POLLIN | POLLHUP)) == 0) continue;
      char piece[4096];
      const ssize_t length = ::read(polled[k].fd, piece, sizeof piece);
      if (length > 0) {
        texts[k]->append(piece, static_cast<size_t>(length));
      } else {
        polled[k].fd = -1;
        polled[k].revents = 0;
        --open_pipes;
      }
    }
  }
  if (!ended)
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
  for (auto &ends : pipes) close(ends[0]);
  std::filesystem::remove_all(folder);
  if (WIFEXITED(status)) outcome.exit_code = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) outcome.signal = WTERMSIG(status);
  split_log(sent, outcome);
  return outcome;
}

int open_descriptors() {
  int count = 0;
  DIR *folder = opendir("/proc/self/fd");
  while (const dirent *entry = readdir(folder)) count += entry->d_name[0] != '.';
  closedir(folder);
  return count - 1;  // less the folder's own
}

int children() {
  std::ifstream list("/proc/thread-self/children");
  int count = 0;
  for (int pid; list >> pid;) ++count;
  return count;
}

int mappings() {
  std::ifstream list("/proc/self/maps");
  int count = 0;
  for (std::string line; std::getline(list, line);) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    // The sanitizers map memory of their own as they go.
    if (line.find('/') == std::string::npos) continue;
#endif
    ++count;
  }
  return count;
}

size_t heap_bytes() {
  if (&__sanitizer_get_current_allocated_bytes != nullptr)
    return __sanitizer_get_current_allocated_bytes();
  const auto info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

bool mount_over(const std::string &path, const std::string &text, int mode) {
  static const bool allowed = [] {
    if (unshare(CLONE_NEWNS) != 0) {
      const uid_t uid = getuid();
      if (unshare(CLONE_NEWNS | CLONE_NEWUSER) != 0) return false;
      std::ofstream("/proc/self/uid_map") << uid << " " << uid << " 1";
    }
    return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  }();
  if (!allowed) return false;
  std::string name = detail::folder + "/plintor-mount-XXXXXX";
  const int fd = mkstemp(name.data());
  if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
      fchmod(fd, static_cast<mode_t>(mode)) != 0)
    abort();
  close(fd);
  const bool covered = mount(name.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0;
  if (covered) umount2(name.c_str(), MNT_DETACH);
  unlink(name.c_str());
  return covered;
}

bool set_decimal_comma() {
  const std::string source = detail::folder + "/comma", locale = detail::folder + "/xx_XX";
  std::ofstream(source) << "comment_char %\nescape_char /\nLC_NUMERIC\ndecimal_point \",\"\n"
                           "thousands_sep \".\"\ngrouping 3;3\nEND LC_NUMERIC\n";
  // It warns of the categories that are not there.
  if (system(("localedef -c -i " + source + " " + locale + " >/dev/null 2>&1").c_str()) < 0)
    return false;
  setenv("LOCPATH", detail::folder.c_str(), 1);
  return setlocale(LC_NUMERIC, "xx_XX") != nullptr;
}

}  // namespace fakes
