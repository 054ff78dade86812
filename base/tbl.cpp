// Tbl: an ordered list of pointers, or of records held by value, in one contiguous block.

#include <algorithm>
#include <cstring>

#include "base/memory.h"
#include "frame/vestan.h"

namespace {

char *slot(const Tbl *t, long index) { return t->slots + index * t->slot_size; }

bool inside(const Tbl *t, long index) { return t != nullptr && index >= 0 && index < t->count; }

void reserve(Tbl *t, long capacity) {
  if (capacity <= t->capacity) return;
  t->slots = static_cast<char *>(
      reallocate(t->slots, static_cast<size_t>(capacity), static_cast<size_t>(t->slot_size)));
  t->capacity = capacity;
}

Tbl *make(long count, long slot_size, bool records) {
  Tbl *t = allocate<Tbl>();
  *t = Tbl{0, nullptr, 0, slot_size, records};
  reserve(t, count);
  return t;
}

void put(Tbl *t, long index, const void *value) {
  if (!t->records)
    memcpy(slot(t, index), &value, sizeof value);
  else if (value != nullptr)
    memmove(slot(t, index), value, static_cast<size_t>(t->slot_size));
  else
    memset(slot(t, index), 0, static_cast<size_t>(t->slot_size));
}

}  // namespace

extern "C" {

Tbl *newtbl(long count) { return make(count, sizeof(void *), false); }

Tbl *inittbl(Tbl *initial, long count, int kind, void *values, int element_size) {
  if (initial != nullptr || kind != 1 || values != nullptr || element_size < 1) return nullptr;
  return make(count, element_size, true);
}

int settbl(Tbl *t, long index, void *value) {
  if (t != nullptr && index == t->count) {
    pushtbl(t, value);
    return 0;
  }
  if (!inside(t, index)) return -1;
  put(t, index, value);
  return 0;
}

void *gettbl(const Tbl *t, long index) {
  if (!inside(t, index)) return nullptr;
  if (t->records) return slot(t, index);
  void *value = nullptr;
  memcpy(&value, slot(t, index), sizeof value);
  return value;
}

void pushtbl(Tbl *t, void *value) {
  if (t == nullptr) return;
  if (t->count < t->capacity) {
    put(t, t->count++, value);
    return;
  }
  // A record that is pushed from the Tbl itself moves with the slots.
  const char *from = static_cast<const char *>(value);
  const bool own = t->records && t->count > 0 && from >= t->slots && from < slot(t, t->count);
  const long offset = own ? from - t->slots : 0;
  reserve(t, std::max(8L, 2 * t->capacity));
  put(t, t->count++, own ? t->slots + offset : value);
}

void *addrtbl(const Tbl *t, long index) { return inside(t, index) ? slot(t, index) : nullptr; }

void clrtbl(Tbl *t, void (*free_each)(void *)) {
  if (t == nullptr) return;
  if (free_each != nullptr)
    for (long k = 0; k < t->count; ++k)
      if (void *value = gettbl(t, k)) free_each(value);
  t->count = 0;
}

void freetbl(Tbl *t, void (*free_each)(void *)) {
  if (t == nullptr) return;
  clrtbl(t, free_each);
  free(t->slots);
  free(t);
}

}  // extern "C"
