// The live machine under a name and with a hosts file of the test's own, for in_child().

#ifndef TESTS_NET_LIVE_H
#define TESTS_NET_LIVE_H

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>

#include "tests/fakes/child.h"

namespace live {

// What a shell command prints, without the last newline.
inline std::string output(const std::string &command) {
  std::string text;
  FILE *stream = popen(command.c_str(), "r");
  for (std::array<char, 4096> piece; fgets(piece.data(), piece.size(), stream) != nullptr;)
    text += piece.data();
  pclose(stream);
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

// False where the machine does not allow it. Only the hosts file answers.
inline bool hosts(const std::string &text) {
  return fakes::mount_over("/etc/hosts", text) &&
         fakes::mount_over("/etc/nsswitch.conf", "passwd: files\nhosts: files\n");
}

inline bool node(const std::string &name) {
  return unshare(CLONE_NEWUTS) == 0 && sethostname(name.data(), name.size()) == 0;
}

constexpr int kNotAllowed = 77;

// Runs `body` in a child under that hosts file and, where one is given, that node name.
inline void with(const std::string &hosts_file, const std::string &node_name,
                 const std::function<void()> &body) {
  const auto outcome = fakes::in_child([&] {
    if (!hosts(hosts_file) || (!node_name.empty() && !node(node_name))) _exit(kNotAllowed);
    body();
  });
  if (outcome.exit_code == kNotAllowed)
    GTEST_SKIP() << "no hosts file or node name of its own on this machine";
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

}  // namespace live

#endif
