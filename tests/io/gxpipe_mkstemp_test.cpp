// The output file of a command where a test must know more of it than that it exists.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/log.h"
#include "tests/io/scratch.h"

namespace {

bool close_0_first;  // as another thread might, between the pipe and the file
bool print_name;

}  // namespace

extern "C" int mkstemp(char *name) {
  if (close_0_first) close(0);
  const int fd = reinterpret_cast<decltype(&mkstemp)>(dlsym(RTLD_NEXT, "mkstemp"))(name);
  if (print_name) printf("%s", name);
  fflush(stdout);
  return fd;
}

TEST(gxpipe, works_when_the_output_file_is_descriptor_0) {
  const Scratch script("#!/bin/sh\ncat; echo out; echo err >&2; ls /proc/self/fd\n", 0755);
  const auto outcome = fakes::in_child([&script] {
    close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
    int fd = -1;
    close_0_first = true;
    const int handle = gxpipe(script.path(), nullptr, &fd);
    EXPECT_EQ(lines_of(handle), (fakes::Lines{"out", "err", "0", "1", "2", "3"}));
    gxclose(handle);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST(gxpipe, ends_the_process_without_memory_for_its_record_and_leaves_its_file) {
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.fail("calloc", ENOMEM);
    print_name = true;
    int fd;
    gxpipe("/bin/echo x", nullptr, &fd);
  });
  EXPECT_EQ(outcome.exit_code, fakes::kDied);
  EXPECT_EQ(outcome.log, fakes::Lines{"elog_die(1): Out of memory in gnew at line 30 of "
                                      "'gxline.cpp'\n\tCan't malloc 1 bytes for mapped\n"});
  EXPECT_EQ(outcome.log_errors, std::vector<int>{ENOMEM});
  EXPECT_TRUE(outcome.out.starts_with("/tmp/gxpipe")) << outcome.out;
  EXPECT_EQ(unlink(outcome.out.c_str()), 0);
}
