// strcontains: does a text hold what a regular expression describes?

#include <regex.h>

#include <atomic>

#include "base/locale.h"
#include "base/memory.h"
#include "frame/errno_guard.h"
#include "frame/vestan.h"

namespace {

void release(regex_t *compiled) {
  regfree(compiled);
  free(compiled);
}

// Null, and a complaint, when the pattern is not one.
regex_t *compile(const char *pattern) {
  auto *compiled = allocate<regex_t>();
  const int error = regcomp(compiled, pattern, REG_EXTENDED);
  if (error == 0) return compiled;
  char cause[128];
  regerror(error, compiled, cause, sizeof cause);
  free(compiled);
  elog_complain(0, "can't compile pattern '%s': %s", pattern, cause);
  return nullptr;
}

// The pattern behind the hook, compiled when it is first asked for. Of two threads that are first
// at the same time, one discards its own.
regex_t *cached(const char *pattern, void **hook) {
  std::atomic_ref<void *> shared(*hook);
  void *known = shared.load(std::memory_order_acquire);
  if (known != nullptr) return static_cast<regex_t *>(known);
  regex_t *compiled = compile(pattern);
  if (compiled == nullptr || shared.compare_exchange_strong(known, compiled)) return compiled;
  release(compiled);
  return static_cast<regex_t *>(known);
}

}  // namespace

extern "C" int strcontains(const char *string, const char *pattern, void **hook, long *start,
                           long *end) {
  if (string == nullptr || pattern == nullptr) return 0;
  const ErrnoGuard guard;
  const CLocale bytewise;
  regex_t *compiled = hook != nullptr ? cached(pattern, hook) : compile(pattern);
  if (compiled == nullptr) return 0;
  regmatch_t match;
  const bool found = regexec(compiled, string, 1, &match, 0) == 0;
  if (hook == nullptr) release(compiled);
  if (!found) return 0;
  if (start != nullptr) *start = match.rm_so;
  if (end != nullptr) *end = match.rm_eo;
  return 1;
}
