// The conversion family, said a second time: from a member's name alone, what becomes of one
// element. Integers are __int128, floating values are taken apart into sign, magnitude and power
// of two; nothing here converts with the processor, so it can disagree with the library.

#ifndef TESTS_CONV_MODEL_H
#define TESTS_CONV_MODEL_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace model {

__extension__ typedef __int128 Wide;  // any integer of the family, exactly
__extension__ typedef unsigned __int128 Magnitude;

// The two sides of a member by their letters: b s i l f d, and t for three bytes.
struct Member {
  std::string name;
  char layout;       // a, m or v
  char external;     // the type outside
  char host;         // the type in the host's array
  bool is_unsigned;  // a leading u: both integer sides are unsigned
  bool reads;        // external to host
  bool plain_copy;   // one memmove: no element is looked at
  char from() const { return reads ? external : host; }
  char to() const { return reads ? host : external; }
};

// The member of that name; nothing when the grammar has no such name.
std::optional<Member> parse(std::string_view name);

// All names that the grammar allows, 408 and then the six of three bytes.
std::vector<Member> all_members();

size_t width(char type);
inline bool is_floating(char type) { return type == 'f' || type == 'd'; }

// A value's bits, right aligned, from and to its bytes in a layout ('h' is the host's own).
uint64_t load(char layout, char type, const uint8_t *bytes);
void store(char layout, char type, uint64_t bits, uint8_t *bytes);

struct Converted {
  uint64_t bits;  // of the destination's type
  bool exact;
};

// One value. Whether float to double and double to float make a signalling NaN quiet is nobody's
// business but the processor's, so both are on offer.
Converted convert(const Member &member, uint64_t bits, bool quiets = true);

// The same from bytes to bytes, layouts included.
bool convert_bytes(const Member &member, const uint8_t *from, uint8_t *to, bool quiets = true);

// n elements whose bytes may overlap: element k is read, then written, before k + 1 is read; a
// plain copy reads all before it writes any.
int run(const Member &member, const uint8_t *from, uint8_t *to, int n, bool quiets = true);

// ---- The arithmetic, for tests of its own and for the long proof --------------------------------

struct Format {
  int fraction_bits;
  int exponent_bits;
};
inline constexpr Format kFloat{23, 8};
inline constexpr Format kDouble{52, 11};
inline Format format(char type) { return type == 'f' ? kFloat : kDouble; }

// (-1)^negative * magnitude * 2^power, or one of the two others.
struct Real {
  enum Kind { kFinite, kInfinite, kNan } kind;
  bool negative;
  Magnitude magnitude;
  int power;
};

Real unpack(Format format, uint64_t bits);
// The bits of the nearest value of the format, ties to even.
uint64_t rounded(Format format, const Real &value);
Real real_of(Wide integer);
bool less(const Real &a, const Real &b);   // false when either is a NaN
bool equal(const Real &a, const Real &b);  // the same
// Rounded toward zero; nothing for NaN, infinities and magnitudes of 2^100 and more.
std::optional<Wide> truncated(const Real &value);

}  // namespace model

#endif
