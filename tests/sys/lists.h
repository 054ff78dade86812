// How a service makes and empties its list: inittbl, and clrtbl of what that made, recorded and
// passed on.

#ifndef TESTS_SYS_LISTS_H
#define TESTS_SYS_LISTS_H

#include <dlfcn.h>

#include <cstdio>

#include "frame/vestan.h"
#include "tests/fakes/log.h"

namespace {

fakes::Lines list_calls;
Tbl *the_list;

}  // namespace

extern "C" Tbl *inittbl(Tbl *initial, long count, int kind, void *values, int element_size) {
  char text[100];
  snprintf(text, sizeof text, "inittbl %p %ld %d %p %d", static_cast<void *>(initial), count, kind,
           values, element_size);
  list_calls.push_back(text);
  const auto next = reinterpret_cast<decltype(&inittbl)>(dlsym(RTLD_NEXT, "inittbl"));
  return the_list = next(initial, count, kind, values, element_size);
}

extern "C" void clrtbl(Tbl *t, void (*free_each)(void *)) {
  if (t == the_list) list_calls.push_back(free_each == nullptr ? "clrtbl" : "clrtbl, freeing");
  reinterpret_cast<decltype(&clrtbl)>(dlsym(RTLD_NEXT, "clrtbl"))(t, free_each);
}

#endif
