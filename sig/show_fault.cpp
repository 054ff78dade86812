// show_fault: the cause of a signal, told on standard error from what the kernel gave its handler.

#include "include/plintor.h"

#include <csignal>
#include <cstdio>

namespace {

// clang-format off

const char *sender(int code) {
  switch (code) {
    case SI_ASYNCIO: return "SI_ASYNCIO";
    case SI_MESGQ:   return "SI_MESGQ";
    case SI_TIMER:   return "SI_TIMER";
    case SI_QUEUE:   return "SI_QUEUE";
    case SI_USER:    return "SI_USER";  // Kept: never asked for, as 0 is not below 0
    default:         return "unrecognized";
  }
}

const char *illegal_instruction(int code) {
  switch (code) {
    case ILL_ILLOPC: return "illegal opcode";
    case ILL_ILLOPN: return "illegal operand";
    case ILL_ILLADR: return "illegal addressing mode";
    case ILL_PRVOPC: return "priviledged opcom";     // Kept: spelled this way
    case ILL_PRVREG: return "priviledged register";  // Kept: spelled this way
    case ILL_COPROC: return "co-processor error";
    case ILL_BADSTK: return "internal stack error";
    default:         return "unrecognized SIGILL";   // Kept: ILL_ILLTRP, 4, among them
  }
}

const char *arithmetic(int code) {
  switch (code) {
    case FPE_INTDIV: return "integer divide by zero";
    case FPE_INTOVF: return "integer overflow";
    case FPE_FLTDIV: return "floating point divide by zero";
    case FPE_FLTOVF: return "floating point overflow";
    case FPE_FLTUND: return "floating point underflow";
    case FPE_FLTRES: return "floating point inexact result";
    case FPE_FLTINV: return "floating point invalid operation";
    case FPE_FLTSUB: return "subscript out of range";
    default:         return "unrecognized SIGFPE";
  }
}

// clang-format on

void show_address(const siginfo_t *si) {
  std::fprintf(stderr, "  Attempt to reference address: %p\n", si->si_addr);
}

void show_segmentation(const siginfo_t *si) {
  switch (si->si_code) {
    case SEGV_MAPERR:
      std::fprintf(stderr, "  address not mapped to object\n");
      break;
    case SEGV_ACCERR:
      std::fprintf(stderr, "  invalid permissions for mapped object\n");
      break;
    default:
      std::fprintf(stderr, "  unrecognized SIGSEGV si->si_code = %d\n", si->si_code);
  }
  show_address(si);
}

// Kept: a misaligned address is not shown, and an unknown code shows nothing at all.
void show_bus_error(const siginfo_t *si) {
  switch (si->si_code) {
    case BUS_ADRALN:
      std::fprintf(stderr, "  invalid address alignment\n");
      break;
    case BUS_ADRERR:
      std::fprintf(stderr, "  non-existent physical address\n");
      show_address(si);
      break;
    case BUS_OBJERR:
      std::fprintf(stderr, "  object specific hardware error\n");
      show_address(si);
      break;
  }
}

}  // namespace

extern "C" void show_fault(int number, siginfo_t *si, void *) {
  const int code = si->si_code;
  if (code < 0) {  // sent by a process; kill, whose code is 0, counts as the kernel's
    // Kept: %d, so the highest user ids read negative.
    std::fprintf(stderr, "  signal sent by pid %d, user %d\n", si->si_pid,
                 static_cast<int>(si->si_uid));
    std::fprintf(stderr, "  Type: %s si->si_code = %d\n", sender(code), code);
    return;
  }
  switch (number) {
    case SIGILL:
      std::fprintf(stderr, "  Reason:%s si_code=%d\n", illegal_instruction(code), code);
      break;
    case SIGFPE:
      std::fprintf(stderr, "  %s si_code=%d\n", arithmetic(code), code);
      break;
    case SIGSEGV:
      show_segmentation(si);
      break;
    case SIGBUS:
      show_bus_error(si);
      break;
    default:
      std::fprintf(stderr, "  no additional information available about signal\n");
  }
}
