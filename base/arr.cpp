// Arr: values under string keys, kept as one list in the order of the keys.

#include <cstring>

#include "base/memory.h"
#include "frame/vestan.h"

namespace {

struct Entry {
  char *key;
  void *value;
};

}  // namespace

struct Arr {
  int (*compare)(const char *, const char *);
  Entry *entries;
  size_t count;
  size_t capacity;
};

namespace {

// Where the key is, or where it belongs.
struct Place {
  size_t index;
  bool found;
};

Place find(const Arr *a, const char *key) {
  size_t low = 0;
  size_t high = a->count;
  while (low < high) {
    const size_t middle = low + (high - low) / 2;
    const int order = a->compare(a->entries[middle].key, key);
    if (order == 0) return {middle, true};
    if (order < 0)
      low = middle + 1;
    else
      high = middle;
  }
  return {low, false};
}

}  // namespace

extern "C" {

Arr *newarr(int (*compare)(const char *, const char *)) {
  Arr *a = allocate<Arr>();
  *a = Arr{compare != nullptr ? compare : strcmp, nullptr, 0, 0};
  return a;
}

void setarr(Arr *a, const char *key, void *value) {
  if (a == nullptr || key == nullptr) return;
  const Place place = find(a, key);
  if (place.found) {
    a->entries[place.index].value = value;
    return;
  }
  if (a->count == a->capacity) {
    const size_t capacity = a->capacity == 0 ? 8 : 2 * a->capacity;
    a->entries = static_cast<Entry *>(reallocate(a->entries, capacity, sizeof(Entry)));
    a->capacity = capacity;
  }
  const size_t size = strlen(key) + 1;
  char *copy = static_cast<char *>(memcpy(allocate(size), key, size));
  Entry *entry = a->entries + place.index;
  memmove(entry + 1, entry, (a->count - place.index) * sizeof(Entry));
  *entry = {copy, value};
  ++a->count;
}

void *getarr(const Arr *a, const char *key) {
  if (a == nullptr || key == nullptr) return nullptr;
  const Place place = find(a, key);
  return place.found ? a->entries[place.index].value : nullptr;
}

Tbl *keysarr(const Arr *a) {
  Tbl *keys = newtbl(0);
  if (a != nullptr)
    for (size_t k = 0; k < a->count; ++k) pushtbl(keys, a->entries[k].key);
  return keys;
}

void freearr(Arr *a, void (*free_each)(void *)) {
  if (a == nullptr) return;
  for (size_t k = 0; k < a->count; ++k) {
    if (free_each != nullptr && a->entries[k].value != nullptr) free_each(a->entries[k].value);
    free(a->entries[k].key);
  }
  free(a->entries);
  free(a);
}

}  // extern "C"
