// show_stack_trace, show_stack_trace_string: the call stack, innermost frame first, on standard
// error or in the caller's buffer.

#include "include/plintor.h"

#include <execinfo.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr char kHeader[] = "\n\nStack\n";
constexpr int kHeaderLength = 8;
constexpr int kPlaces = 128;     // addresses in a callstack
constexpr int kAskedFor = 1024;  // frames that backtrace may give

// Kept: backtrace may give more frames than a callstack has places. The places beyond lie right
// behind it, so that a deep stack writes over nothing else.
struct Capture {
  void *callstack[kPlaces];
  void *beyond[kAskedFor - kPlaces];
};
static_assert(sizeof(Capture) == kAskedFor * sizeof(void *));

}  // namespace

extern "C" void show_stack_trace() {
  static Capture capture;  // static, as a fault may leave little stack
  void **addresses = reinterpret_cast<void **>(&capture);
  const int frames = backtrace(addresses, kAskedFor);
  char **texts = backtrace_symbols(addresses, frames);
  if (texts == nullptr) return;

  for (int k = 0; k < frames; ++k) std::fprintf(stderr, "%s\n", texts[k]);
  std::free(texts);
}

// Kept: the texts are not freed, as the caller is about to end.
extern "C" void show_stack_trace_string(int size, char *buffer) {
  if (size <= 0) return;
  static Capture capture;
  void **addresses = reinterpret_cast<void **>(&capture);
  int frames = backtrace(addresses, kAskedFor);
  char **texts = backtrace_symbols(addresses, frames);
  if (texts == nullptr) frames = 0;

  std::memset(buffer, 0, static_cast<size_t>(size));
  if (size < kHeaderLength + 1) {
    std::memcpy(buffer, kHeader, static_cast<size_t>(size - 1));
    return;
  }
  std::memcpy(buffer, kHeader, kHeaderLength);
  char *end = buffer + kHeaderLength;
  int room = size - kHeaderLength;  // the final NUL's place included

  int k = 0;
  for (; k < frames; ++k) {
    const int length = static_cast<int>(std::strlen(texts[k]));
    if (room < length + 2) break;  // the text, its newline and the final NUL
    std::memcpy(end, texts[k], static_cast<size_t>(length));
    end[length] = '\n';
    end += length + 1;
    room -= length + 1;
  }
  if (k == frames || room < 2) return;

  // Kept: the text that did not fit is cut where it stands, so that its newline ends the buffer.
  texts[k][room - 2] = '\n';
  texts[k][room - 1] = '\0';
  std::strcpy(end, texts[k]);
}
