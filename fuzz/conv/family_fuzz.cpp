// Any bytes through any member of the family: n elements at once are n times one element, also
// where source and destination overlap.

#include <dlfcn.h>

#include <cstring>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "include/plintor.h"

namespace {

using Read = int (*)(char **from, void *to, int n);
using Write = int (*)(const void *from, char **to, int n);

struct Member {
  std::string name;
  void *function;
  bool reads;
  bool copies;  // all at once, as memmove does: an overlap is no sequence of single elements
  size_t external, host;
};

size_t width(char type) {
  return type == 'b' ? 1 : type == 's' ? 2 : type == 'i' || type == 'f' ? 4 : 8;
}

std::vector<Member> family() {
  REQUIRE(dlsym(RTLD_DEFAULT, "ms2hi") == reinterpret_cast<void *>(ms2hi));
  std::vector<Member> members;
  for (const std::string u : {"", "u"})
    for (const char r : std::string("amv"))
      for (const char e : std::string("bsilfd"))
        for (const char h : std::string("bsilfd"))
          for (const bool reads : {true, false}) {
            const std::string name = reads ? u + r + e + "2h" + h : u + "h" + h + "2" + r + e;
            void *function = dlsym(RTLD_DEFAULT, name.c_str());
            if (function != nullptr)
              members.push_back({name, function, reads, e == h, width(e), width(h)});
          }
  REQUIRE(members.size() == 408);
  return members;
}

// Converts n elements inside `memory`; moves the cursor by what the member moved it.
int convert(const Member &member, char *from, char *to, int n) {
  char *cursor = member.reads ? from : to;
  char *const start = cursor;
  const int result = member.reads ? reinterpret_cast<Read>(member.function)(&cursor, to, n)
                                  : reinterpret_cast<Write>(member.function)(from, &cursor, n);
  const ptrdiff_t moved = n > 0 ? n * static_cast<ptrdiff_t>(member.external) : 0;
  REQUIRE(cursor - start == moved);
  REQUIRE(result == 0 || result == -1);
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t length) {
  static const std::vector<Member> members = family();
  Input input(data, length);
  const Member &member = members[input.word() % members.size()];
  const size_t shift = input.byte();  // alignment of the external side, or the overlap
  const auto bytes = input.rest();
  const size_t from_width = member.reads ? member.external : member.host;
  const size_t to_width = member.reads ? member.host : member.external;
  const int n = static_cast<int>(bytes.size() / from_width);
  const size_t from_size = static_cast<size_t>(n) * from_width;
  const size_t to_size = static_cast<size_t>(n) * to_width;

  // Apart: blocks that end where the elements do, the external one at any alignment.
  const size_t from_shift = member.reads ? shift % 16 : 0;
  const size_t to_shift = member.reads ? 0 : shift % 16;
  char *from = static_cast<char *>(malloc(from_shift + from_size));
  char *once = static_cast<char *>(malloc(to_shift + to_size));
  char *singly = static_cast<char *>(malloc(to_shift + to_size));
  if (from_size > 0) memcpy(from + from_shift, bytes.data(), from_size);
  const int result = convert(member, from + from_shift, once + to_shift, n);
  int results = 0;
  for (size_t k = 0; k < static_cast<size_t>(n); ++k)
    results |=
        convert(member, from + from_shift + k * from_width, singly + to_shift + k * to_width, 1);
  REQUIRE(result == results);
  if (to_size > 0) REQUIRE(memcmp(once + to_shift, singly + to_shift, to_size) == 0);
  REQUIRE(convert(member, from, once, 0) == 0);
  REQUIRE(convert(member, from, once, -n - 1) == 0);
  free(singly);
  free(once);
  free(from);

  // Overlapping: the destination begins up to 16 host elements before or behind the source.
  if (member.copies || n == 0) return 0;
  const size_t unit = member.host;  // so that the host side stays aligned
  const size_t source = 16 * unit, destination = shift % 33 * unit;
  const size_t size = 32 * unit + from_size + to_size;
  std::vector<char> at_once(size), one_by_one(size);
  memcpy(at_once.data() + source, bytes.data(), from_size);
  one_by_one = at_once;
  const int overlapped = convert(member, at_once.data() + source, at_once.data() + destination, n);
  int singles = 0;
  for (size_t k = 0; k < static_cast<size_t>(n); ++k)
    singles |= convert(member, one_by_one.data() + source + k * from_width,
                       one_by_one.data() + destination + k * to_width, 1);
  REQUIRE(overlapped == singles);
  REQUIRE(at_once == one_by_one);
  return 0;
}
