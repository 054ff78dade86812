#include <fnmatch.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "include/plintor.h"
#include "tests/fakes/child.h"
#include "tests/fakes/log.h"

namespace {

// What `body` writes to standard error.
std::string errors_of(const std::function<void()> &body) {
  const int kept = dup(STDERR_FILENO);
  const int file = memfd_create("stderr", 0);
  dup2(file, STDERR_FILENO);
  body();
  dup2(kept, STDERR_FILENO);
  close(kept);
  char text[4096];
  const ssize_t length = pread(file, text, sizeof text, 0);
  close(file);
  return {text, static_cast<size_t>(length)};
}

constexpr pid_t kPid = 4711;
constexpr uid_t kUser = 1001;

std::string fault(int number, int code, uint64_t address = 0x1234) {
  siginfo_t info = {};
  info.si_signo = number;
  info.si_code = code;
  if (code < 0) {
    info.si_pid = kPid;
    info.si_uid = kUser;
  } else {
    info.si_addr = reinterpret_cast<void *>(address);
  }
  return errors_of([&] { show_fault(number, &info, nullptr); });
}

const std::string kSent = "  signal sent by pid 4711, user 1001\n";
const std::string kAddress = "  Attempt to reference address: 0x1234\n";

// The text for every code from 0 to 20, by signal.
// clang-format off
const std::map<int, std::map<int, std::string>> kKernel = {
    {SIGILL, {
        {0, "  Reason:unrecognized SIGILL si_code=0\n"},
        {1, "  Reason:illegal opcode si_code=1\n"},
        {2, "  Reason:illegal operand si_code=2\n"},
        {3, "  Reason:illegal addressing mode si_code=3\n"},
        {4, "  Reason:unrecognized SIGILL si_code=4\n"},
        {5, "  Reason:priviledged opcom si_code=5\n"},
        {6, "  Reason:priviledged register si_code=6\n"},
        {7, "  Reason:co-processor error si_code=7\n"},
        {8, "  Reason:internal stack error si_code=8\n"},
        {9, "  Reason:unrecognized SIGILL si_code=9\n"},
        {10, "  Reason:unrecognized SIGILL si_code=10\n"},
        {11, "  Reason:unrecognized SIGILL si_code=11\n"},
        {12, "  Reason:unrecognized SIGILL si_code=12\n"},
        {13, "  Reason:unrecognized SIGILL si_code=13\n"},
        {14, "  Reason:unrecognized SIGILL si_code=14\n"},
        {15, "  Reason:unrecognized SIGILL si_code=15\n"},
        {16, "  Reason:unrecognized SIGILL si_code=16\n"},
        {17, "  Reason:unrecognized SIGILL si_code=17\n"},
        {18, "  Reason:unrecognized SIGILL si_code=18\n"},
        {19, "  Reason:unrecognized SIGILL si_code=19\n"},
        {20, "  Reason:unrecognized SIGILL si_code=20\n"}}},
    {SIGFPE, {
        {0, "  unrecognized SIGFPE si_code=0\n"},
        {1, "  integer divide by zero si_code=1\n"},
        {2, "  integer overflow si_code=2\n"},
        {3, "  floating point divide by zero si_code=3\n"},
        {4, "  floating point overflow si_code=4\n"},
        {5, "  floating point underflow si_code=5\n"},
        {6, "  floating point inexact result si_code=6\n"},
        {7, "  floating point invalid operation si_code=7\n"},
        {8, "  subscript out of range si_code=8\n"},
        {9, "  unrecognized SIGFPE si_code=9\n"},
        {10, "  unrecognized SIGFPE si_code=10\n"},
        {11, "  unrecognized SIGFPE si_code=11\n"},
        {12, "  unrecognized SIGFPE si_code=12\n"},
        {13, "  unrecognized SIGFPE si_code=13\n"},
        {14, "  unrecognized SIGFPE si_code=14\n"},
        {15, "  unrecognized SIGFPE si_code=15\n"},
        {16, "  unrecognized SIGFPE si_code=16\n"},
        {17, "  unrecognized SIGFPE si_code=17\n"},
        {18, "  unrecognized SIGFPE si_code=18\n"},
        {19, "  unrecognized SIGFPE si_code=19\n"},
        {20, "  unrecognized SIGFPE si_code=20\n"}}},
    {SIGSEGV, {
        {0, "  unrecognized SIGSEGV si->si_code = 0\n" + kAddress},
        {1, "  address not mapped to object\n" + kAddress},
        {2, "  invalid permissions for mapped object\n" + kAddress},
        {3, "  unrecognized SIGSEGV si->si_code = 3\n" + kAddress},
        {4, "  unrecognized SIGSEGV si->si_code = 4\n" + kAddress},
        {5, "  unrecognized SIGSEGV si->si_code = 5\n" + kAddress},
        {6, "  unrecognized SIGSEGV si->si_code = 6\n" + kAddress},
        {7, "  unrecognized SIGSEGV si->si_code = 7\n" + kAddress},
        {8, "  unrecognized SIGSEGV si->si_code = 8\n" + kAddress},
        {9, "  unrecognized SIGSEGV si->si_code = 9\n" + kAddress},
        {10, "  unrecognized SIGSEGV si->si_code = 10\n" + kAddress},
        {11, "  unrecognized SIGSEGV si->si_code = 11\n" + kAddress},
        {12, "  unrecognized SIGSEGV si->si_code = 12\n" + kAddress},
        {13, "  unrecognized SIGSEGV si->si_code = 13\n" + kAddress},
        {14, "  unrecognized SIGSEGV si->si_code = 14\n" + kAddress},
        {15, "  unrecognized SIGSEGV si->si_code = 15\n" + kAddress},
        {16, "  unrecognized SIGSEGV si->si_code = 16\n" + kAddress},
        {17, "  unrecognized SIGSEGV si->si_code = 17\n" + kAddress},
        {18, "  unrecognized SIGSEGV si->si_code = 18\n" + kAddress},
        {19, "  unrecognized SIGSEGV si->si_code = 19\n" + kAddress},
        {20, "  unrecognized SIGSEGV si->si_code = 20\n" + kAddress}}},
    {SIGBUS, {
        {0, ""},
        {1, "  invalid address alignment\n"},
        {2, "  non-existent physical address\n" + kAddress},
        {3, "  object specific hardware error\n" + kAddress},
        {4, ""}, {5, ""}, {6, ""}, {7, ""}, {8, ""}, {9, ""}, {10, ""}, {11, ""}, {12, ""},
        {13, ""}, {14, ""}, {15, ""}, {16, ""}, {17, ""}, {18, ""}, {19, ""}, {20, ""}}},
};

// The same for -10 to -1, whatever the signal.
const std::map<int, std::string> kSender = {
    {-10, "  Type: unrecognized si->si_code = -10\n"},
    {-9, "  Type: unrecognized si->si_code = -9\n"},
    {-8, "  Type: unrecognized si->si_code = -8\n"},
    {-7, "  Type: unrecognized si->si_code = -7\n"},
    {-6, "  Type: unrecognized si->si_code = -6\n"},
    {-5, "  Type: unrecognized si->si_code = -5\n"},
    {-4, "  Type: SI_ASYNCIO si->si_code = -4\n"},
    {-3, "  Type: SI_MESGQ si->si_code = -3\n"},
    {-2, "  Type: SI_TIMER si->si_code = -2\n"},
    {-1, "  Type: SI_QUEUE si->si_code = -1\n"},
};
// clang-format on

const std::string kNothingKnown = "  no additional information available about signal\n";

}  // namespace

TEST(show_fault, tells_every_signal_and_code) {
  for (int number = -1; number <= 65; ++number) {
    for (int code = -10; code < 0; ++code)
      EXPECT_EQ(fault(number, code), kSent + kSender.at(code)) << number << " " << code;
    for (int code = 0; code <= 20; ++code) {
      const auto special = kKernel.find(number);
      EXPECT_EQ(fault(number, code),
                special == kKernel.end() ? kNothingKnown : special->second.at(code))
          << number << " " << code;
    }
  }
  EXPECT_EQ(fakes::log(), fakes::Lines{});
}

TEST(show_fault, tells_the_limits_of_the_code) {
  EXPECT_EQ(fault(SIGSEGV, INT_MIN), kSent + "  Type: unrecognized si->si_code = -2147483648\n");
  EXPECT_EQ(fault(SIGSEGV, INT_MAX),
            "  unrecognized SIGSEGV si->si_code = 2147483647\n" + kAddress);
  EXPECT_EQ(fault(SIGILL, SI_KERNEL), "  Reason:unrecognized SIGILL si_code=128\n");
  EXPECT_EQ(fault(SIGBUS, SI_KERNEL), "");
}

TEST(show_fault, shows_a_null_address) {
  EXPECT_EQ(fault(SIGSEGV, SEGV_MAPERR, 0),
            "  address not mapped to object\n  Attempt to reference address: (nil)\n");
}

TEST(show_fault, shows_the_highest_address) {
  EXPECT_EQ(fault(SIGBUS, BUS_ADRERR, UINT64_MAX),
            "  non-existent physical address\n"
            "  Attempt to reference address: 0xffffffffffffffff\n");
}

TEST(show_fault, prints_the_user_as_a_signed_number) {
  siginfo_t info = {};
  info.si_code = SI_QUEUE;
  info.si_pid = 1;
  info.si_uid = 4294967295u;
  EXPECT_EQ(errors_of([&] { show_fault(SIGTERM, &info, nullptr); }),
            "  signal sent by pid 1, user -1\n  Type: SI_QUEUE si->si_code = -1\n");
}

TEST(show_fault, never_prints_SI_USER) {
  for (int number = 0; number <= 64; ++number)
    for (int code = -10; code <= 20; ++code)
      EXPECT_EQ(fault(number, code).find("SI_USER"), std::string::npos) << number << " " << code;
}

TEST(show_fault, spells_priviledged_and_opcom) {
  EXPECT_EQ(fault(SIGILL, 5), "  Reason:priviledged opcom si_code=5\n");
  EXPECT_EQ(fault(SIGILL, 6), "  Reason:priviledged register si_code=6\n");
}

TEST(show_fault, does_not_recognize_an_illegal_trap) {
  EXPECT_EQ(fault(SIGILL, ILL_ILLTRP), "  Reason:unrecognized SIGILL si_code=4\n");
}

TEST(show_fault, shows_no_address_for_a_misaligned_one) {
  EXPECT_EQ(fault(SIGBUS, BUS_ADRALN), "  invalid address alignment\n");
}

TEST(show_fault, prints_nothing_for_an_unknown_bus_error) {
  for (const int code : {0, 4, 5, 20, 128, INT_MAX}) EXPECT_EQ(fault(SIGBUS, code), "") << code;
}

TEST(show_fault, does_not_read_the_context) {
  siginfo_t info = {};
  info.si_code = 1;
  EXPECT_EQ(errors_of([&] { show_fault(SIGFPE, &info, reinterpret_cast<void *>(8)); }),
            "  integer divide by zero si_code=1\n");
}

TEST(show_fault, leaves_its_record_as_it_is) {
  siginfo_t info;
  for (const int number : {SIGILL, SIGFPE, SIGSEGV, SIGBUS, SIGTERM}) {
    for (int code = -6; code <= 9; ++code) {
      memset(&info, 0x11, sizeof info);
      info.si_code = code;
      siginfo_t before;
      memcpy(&before, &info, sizeof info);
      errors_of([&] { show_fault(number, &info, nullptr); });
      EXPECT_EQ(memcmp(&before, &info, sizeof info), 0);
    }
  }
}

// ---- Real signals, told by a handler -----------------------------------------------------------

namespace {

// ThreadSanitizer reports whatever allocates in a handler; ours do, and end the process.
#if defined(__SANITIZE_THREAD__)
#define SKIP_IF_HANDLERS_MAY_NOT_ALLOCATE GTEST_SKIP() << "no allocation in a handler here"
#else
#define SKIP_IF_HANDLERS_MAY_NOT_ALLOCATE (void)0
#endif

constexpr int kTold = 3;

// Passes its three arguments straight on.
void tell(int number, siginfo_t *info, void *context) {
  // A handler entered with alignment checks on would fault again.
  asm volatile("sub $128, %%rsp; pushfq; andq $~0x40000, (%%rsp); popfq; add $128, %%rsp" ::
                   : "memory", "cc");
  show_fault(number, info, context);
  show_stack_trace();
  static char text[65536];
  show_stack_trace_string(sizeof text, text);
  fputs(text, stderr);
  _exit(kTold);
}

void tell_of(int number) {
  struct sigaction action = {};
  action.sa_sigaction = tell;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  ASSERT_EQ(sigaction(number, &action, nullptr), 0);
}

std::string hexadecimal(const void *address) {
  char text[32];
  snprintf(text, sizeof text, "0x%lx", reinterpret_cast<unsigned long>(address));
  return text;
}

// Runs `body` in a child with the handler, takes the stack traces off what it wrote and checks
// them: frames of this program and the library, the same ones both times.
std::string told_by(int number, const std::function<void()> &body) {
  const auto outcome = fakes::in_child([&] {
    tell_of(number);
    body();
  });
  EXPECT_EQ(outcome.exit_code, kTold) << outcome.signal << outcome.err;
  const std::string header = "\n\nStack\n";
  const size_t second = outcome.err.find(header);
  if (second == std::string::npos) {
    ADD_FAILURE() << outcome.err;
    return outcome.err;
  }
  const std::string both = outcome.err.substr(0, second);
  const std::string text = outcome.err.substr(second + header.size());
  // The report's own lines begin with two blanks, a frame's never does.
  size_t cause_ends = 0;
  while (both.compare(cause_ends, 2, "  ") == 0) cause_ends = both.find('\n', cause_ends) + 1;
  const std::string printed = both.substr(cause_ends);

  std::vector<std::string> lines[2];
  int k = 0;
  for (const std::string &trace : {printed, text}) {
    for (size_t start = 0, end; (end = trace.find('\n', start)) != std::string::npos;
         start = end + 1) {
      lines[k].push_back(trace.substr(start, end - start));
      EXPECT_EQ(fnmatch("*(*) \\[0x*]", lines[k].back().c_str(), 0), 0) << lines[k].back();
    }
    ++k;
  }
  EXPECT_GE(lines[0].size(), 4u);
  EXPECT_EQ(lines[0].size(), lines[1].size());
  EXPECT_NE(printed.find("libplintor.so.3(show_stack_trace+0x"), std::string::npos) << printed;
  EXPECT_NE(text.find("libplintor.so.3(show_stack_trace_string+0x"), std::string::npos) << text;
  EXPECT_NE(lines[0].back().find("sig_show_fault_test("), std::string::npos) << printed;
  EXPECT_EQ(lines[0].back(), lines[1].back());
  return both.substr(0, cause_ends);
}

}  // namespace

TEST(show_fault, tells_a_real_store_to_address_0) {
  SKIP_IF_HANDLERS_MAY_NOT_ALLOCATE;
  EXPECT_EQ(told_by(SIGSEGV, [] { asm volatile("movl $0, (%0)" ::"r"(0L)
                                               : "memory"); }),
            "  address not mapped to object\n  Attempt to reference address: (nil)\n");
}

TEST(show_fault, tells_a_real_store_to_a_protected_page) {
  SKIP_IF_HANDLERS_MAY_NOT_ALLOCATE;
  void *page = mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(page, MAP_FAILED);
  EXPECT_EQ(told_by(SIGSEGV, [=] { asm volatile("movl $0, (%0)" ::"r"(page)
                                                : "memory"); }),
            "  invalid permissions for mapped object\n"
            "  Attempt to reference address: " +
                hexadecimal(page) + "\n");
  munmap(page, 4096);
}

TEST(show_fault, tells_a_real_division_by_0) {
  SKIP_IF_HANDLERS_MAY_NOT_ALLOCATE;
  EXPECT_EQ(told_by(SIGFPE,
                    [] { asm volatile("xorl %%edx, %%edx; idivl %%edx" ::"a"(1)
                                      : "edx", "cc"); }),
            "  integer divide by zero si_code=1\n");
}

TEST(show_fault, tells_a_real_illegal_instruction) {
  SKIP_IF_HANDLERS_MAY_NOT_ALLOCATE;
  EXPECT_EQ(told_by(SIGILL, [] { asm volatile("ud2"); }), "  Reason:illegal operand si_code=2\n");
}

TEST(show_fault, tells_a_real_access_behind_the_end_of_a_mapped_file) {
  SKIP_IF_HANDLERS_MAY_NOT_ALLOCATE;
  const int file = memfd_create("empty", 0);
  void *page = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, file, 0);
  close(file);
  ASSERT_NE(page, MAP_FAILED);
  EXPECT_EQ(told_by(SIGBUS, [=] { asm volatile("movl (%0), %%eax" ::"r"(page)
                                               : "eax"); }),
            "  non-existent physical address\n"
            "  Attempt to reference address: " +
                hexadecimal(page) + "\n");
  munmap(page, 4096);
}

TEST(show_fault, tells_a_real_misaligned_access) {
  SKIP_IF_HANDLERS_MAY_NOT_ALLOCATE;
  alignas(8) char bytes[16] = {};
  EXPECT_EQ(told_by(SIGBUS,
                    [&] {
                      asm volatile(
                          "sub $128, %%rsp; pushfq; orq $0x40000, (%%rsp); popfq;"
                          "add $128, %%rsp; movl 1(%0), %%eax" ::"r"(bytes)
                          : "eax", "cc", "memory");
                    }),
            "  invalid address alignment\n");
}

TEST(show_fault, tells_a_SIGSEGV_sent_with_kill_as_the_kernels_own) {
  SKIP_IF_HANDLERS_MAY_NOT_ALLOCATE;
  const std::string text = told_by(SIGSEGV, [] { kill(getpid(), SIGSEGV); });
  EXPECT_TRUE(
      text.starts_with("  unrecognized SIGSEGV si->si_code = 0\n"
                       "  Attempt to reference address: 0x"))
      << text;
  EXPECT_EQ(text.find("sent by"), std::string::npos);
}

TEST(show_fault, tells_the_sender_of_a_SIGTERM_from_sigqueue) {
  const auto outcome = fakes::in_child([] {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    sigqueue(getpid(), SIGTERM, {});
    printf("%d", static_cast<int>(getpid()));
    siginfo_t info;
    ASSERT_EQ(sigwaitinfo(&blocked, &info), SIGTERM);
    show_fault(SIGTERM, &info, nullptr);
  });
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "  signal sent by pid " + outcome.out + ", user " +
                             std::to_string(getuid()) + "\n  Type: SI_QUEUE si->si_code = -1\n");
}

namespace {

volatile bool forever = true;

// Calls itself until the stack is used up.
__attribute__((noinline)) int exhaust(int n) {
  volatile char room[512];
  room[0] = static_cast<char>(n);
  const int result = (forever ? exhaust(n + 1) : n) + room[0];
  asm volatile("" ::: "memory");
  return result;
}

}  // namespace

TEST(show_fault, and_both_traces_work_on_a_small_stack_of_their_own_after_an_overflow) {
  SKIP_IF_HANDLERS_MAY_NOT_ALLOCATE;
  const auto outcome = fakes::in_child([] {
    static char other[65536];
    const stack_t stack = {other, 0, sizeof other};
    ASSERT_EQ(sigaltstack(&stack, nullptr), 0);
    tell_of(SIGSEGV);
    exhaust(0);
  });
  EXPECT_EQ(outcome.exit_code, kTold) << outcome.signal;
  EXPECT_TRUE(outcome.err.starts_with("  address not mapped to object\n") ||
              outcome.err.starts_with("  invalid permissions for mapped object\n"))
      << outcome.err.substr(0, 200);
  const size_t second = outcome.err.find("\n\nStack\n");
  ASSERT_NE(second, std::string::npos);
  // Two lines of cause, then a line for each of 1024 frames.
  EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.begin() + static_cast<long>(second), '\n'),
            2 + 1024);
}
