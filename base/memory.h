// Memory that libvestan cannot do without: an exhausted allocation ends the process.

#ifndef BASE_MEMORY_H
#define BASE_MEMORY_H

#include <cstddef>
#include <cstdlib>

#include "frame/vestan.h"

// Room for count * size bytes, holding what `block` held (null: nothing yet).
inline void *reallocate(void *block, size_t count, size_t size) {
  size_t bytes = 0;
  const bool fits = !__builtin_mul_overflow(count, size, &bytes);
  void *room = !fits ? nullptr : block == nullptr ? malloc(bytes) : realloc(block, bytes);
  if (room == nullptr) elog_die(0, "Out of memory: no room for %zu times %zu bytes", count, size);
  return room;
}

inline void *allocate(size_t bytes) { return reallocate(nullptr, 1, bytes); }

template <typename Record>
Record *allocate() {
  return static_cast<Record *>(allocate(sizeof(Record)));
}

#endif
