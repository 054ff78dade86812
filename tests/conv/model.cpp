#include "tests/conv/model.h"

#include <algorithm>
#include <cstring>

namespace model {

namespace {

constexpr std::string_view kTypes = "bsilfd";
constexpr std::string_view kLayouts = "amv";

bool is_in(std::string_view letters, char letter) {
  return letters.find(letter) != std::string_view::npos;
}

bool is_plain_copy(char layout, char external, char host) {
  if (external != host) return false;
  if (external == 'b') return true;
  if (layout == 'm') return false;
  return !(layout == 'a' && external == 'd');
}

Member make(std::string_view name, bool is_unsigned, bool reads, char layout, char external,
            char host) {
  return {std::string(name),
          layout,
          external,
          host,
          is_unsigned,
          reads,
          is_plain_copy(layout, external, host)};
}

int bit_length(Magnitude value) {
  int length = 0;
  for (; value != 0; value >>= 1) ++length;
  return length;
}

int bits_of(char type) { return static_cast<int>(width(type)) * 8; }

// The integer that those bits of the type say.
Wide integer_of(char type, bool is_unsigned, uint64_t bits) {
  const int size = bits_of(type);
  Wide value = static_cast<Wide>(bits);
  if (size < 64) value = static_cast<Wide>(bits & ((uint64_t{1} << size) - 1));
  const bool top = (bits >> (size - 1)) & 1;
  if (!is_unsigned && top) value -= static_cast<Wide>(1) << size;
  return value;
}

// Two's complement, the low bytes only.
uint64_t narrowed(char type, Wide value) {
  const auto bits = static_cast<uint64_t>(static_cast<Magnitude>(value));
  return bits_of(type) == 64 ? bits : bits & ((uint64_t{1} << bits_of(type)) - 1);
}

Wide minimum(char type, bool is_unsigned) {
  return is_unsigned ? 0 : -(static_cast<Wide>(1) << (bits_of(type) - 1));
}

Wide maximum(char type, bool is_unsigned) {
  return (static_cast<Wide>(1) << (bits_of(type) - (is_unsigned ? 0 : 1))) - 1;
}

// The processor's truncations: what does not fit is the smallest signed integer.
Wide trunc_signed(const Real &value, int bits) {
  const Wide smallest = -(static_cast<Wide>(1) << (bits - 1));
  const std::optional<Wide> whole = truncated(value);
  if (!whole || *whole < smallest || *whole > -(smallest + 1)) return smallest;
  return *whole;
}

Wide utrunc64(Format format, const Real &value) {
  const Real half{Real::kFinite, false, 1, 63};
  if (less(value, half)) return trunc_signed(value, 64);
  Real rest = value;
  if (value.kind == Real::kFinite) {
    // Not below 2^63, so a whole number; beyond 2^100 taking 2^63 away leaves it out of range.
    const std::optional<Wide> whole = truncated(value);
    if (whole)
      rest = unpack(format, rounded(format, real_of(*whole - (static_cast<Wide>(1) << 63))));
  }
  const auto bits = static_cast<uint64_t>(trunc_signed(rest, 64)) ^ (uint64_t{1} << 63);
  return static_cast<Wide>(bits);
}

// The truncation that belongs to an integer type, before it is narrowed to it.
Wide truncation(Format format, const Real &value, char integer, bool is_unsigned) {
  if (integer == 'l') return is_unsigned ? utrunc64(format, value) : trunc_signed(value, 64);
  if (integer == 'i' && is_unsigned) return trunc_signed(value, 64);
  return trunc_signed(value, 32);
}

Converted same_type(const Member &member, uint64_t bits) {
  if (member.plain_copy || !is_floating(member.host)) return {bits, true};
  return {bits, unpack(format(member.host), bits).kind != Real::kNan};
}

Converted float_across(const Member &member, uint64_t bits, bool quiets) {
  const Format source = format(member.from());
  const Format target = format(member.to());
  const Real value = unpack(source, bits);
  if (value.kind == Real::kNan) {
    // Sign and the top of the payload travel; a payload cut to nothing can only be a quiet NaN.
    uint64_t fraction = bits & ((uint64_t{1} << source.fraction_bits) - 1);
    const int wider = target.fraction_bits - source.fraction_bits;
    fraction = wider > 0 ? fraction << wider : fraction >> -wider;
    const uint64_t quiet = uint64_t{1} << (target.fraction_bits - 1);
    if (quiets || fraction == 0) fraction |= quiet;
    const uint64_t sign = static_cast<uint64_t>(value.negative)
                          << (target.fraction_bits + target.exponent_bits);
    const uint64_t exponent = ((uint64_t{1} << target.exponent_bits) - 1) << target.fraction_bits;
    return {sign | exponent | fraction, false};
  }
  const uint64_t result = rounded(target, value);
  return {result, equal(unpack(target, result), value)};
}

Converted integer_to_integer(const Member &member, uint64_t bits) {
  const bool u = member.is_unsigned;
  const Wide value = integer_of(member.from(), u, bits);
  if (member.reads) {
    const uint64_t stored = narrowed(member.to(), value);
    return {stored, integer_of(member.to(), u, stored) == value};
  }
  const Wide low = minimum(member.to(), u), high = maximum(member.to(), u);
  if (value < low) return {narrowed(member.to(), low), false};
  if (value > high) return {narrowed(member.to(), high), false};
  return {narrowed(member.to(), value), true};
}

Converted integer_to_float(const Member &member, uint64_t bits) {
  const bool u = member.is_unsigned;
  const Format target = format(member.to());
  const Wide value = integer_of(member.from(), u, bits);
  const uint64_t result = rounded(target, real_of(value));
  if (!member.reads && u) return {result, true};
  const Wide back = truncation(target, unpack(target, result), member.from(), u);
  return {result, narrowed(member.from(), back) == narrowed(member.from(), value)};
}

Converted float_to_integer_read(const Member &member, uint64_t bits) {
  const bool u = member.is_unsigned;
  const Format source = format(member.from());
  const Real value = unpack(source, bits);
  const uint64_t stored = narrowed(member.to(), truncation(source, value, member.to(), u));
  const uint64_t back = rounded(source, real_of(integer_of(member.to(), u, stored)));
  return {stored, equal(unpack(source, back), value)};
}

// Where a written value is cut off, as the host's floating type holds it.
struct Bounds {
  Wide low;
  Wide high;
};

Bounds saturation(const Member &member) {
  const Wide one = 1;
  switch (member.external) {
    case 'b':
      return member.is_unsigned ? Bounds{0, 255} : Bounds{-128, 127};
    case 's':
      return member.is_unsigned ? Bounds{0, 65535} : Bounds{-32768, 32767};
    case 'i':
      if (!member.is_unsigned) return {-2147483648LL, 2147483647};
      return {0, member.host == 'f' ? one << 32 : (one << 32) - 1};
    default:
      return {0, one << 64};
  }
}

Converted float_to_integer_written(const Member &member, uint64_t bits) {
  const bool u = member.is_unsigned;
  const Format source = format(member.from());
  const Real value = unpack(source, bits);
  const bool saturates = u || width(member.external) < width(member.host);
  if (!saturates) {
    const uint64_t stored = narrowed(member.to(), truncation(source, value, member.to(), u));
    const uint64_t back = rounded(source, real_of(integer_of(member.to(), u, stored)));
    return {stored, equal(unpack(source, back), value)};
  }
  const Bounds bounds = saturation(member);
  if (less(value, real_of(bounds.low)))
    return {narrowed(member.to(), minimum(member.to(), u)), false};
  if (less(real_of(bounds.high), value))
    return {narrowed(member.to(), maximum(member.to(), u)), false};
  return {narrowed(member.to(), truncation(source, value, member.to(), u)), true};
}

}  // namespace

size_t width(char type) {
  switch (type) {
    case 'b':
      return 1;
    case 's':
      return 2;
    case 't':
      return 3;
    case 'i':
    case 'f':
      return 4;
    default:
      return 8;
  }
}

std::optional<Member> parse(std::string_view name) {
  for (const std::string_view three : {"vt2hi", "mt2hi", "vt2hf", "mt2hf"})
    if (name == three) return make(name, false, true, name[0], 't', name[4]);
  for (const std::string_view three : {"hi2vt", "hi2mt"})
    if (name == three) return make(name, false, false, name[3], 't', 'i');

  std::string_view rest = name;
  const bool is_unsigned = !rest.empty() && rest[0] == 'u';
  if (is_unsigned) rest.remove_prefix(1);
  if (rest.size() != 5 || rest[2] != '2') return {};
  const bool reads = rest[3] == 'h';
  if (reads == (rest[0] == 'h')) return {};
  const char layout = reads ? rest[0] : rest[3];
  const char external = reads ? rest[1] : rest[4];
  const char host = reads ? rest[4] : rest[1];
  if (!is_in(kLayouts, layout) || !is_in(kTypes, external) || !is_in(kTypes, host)) return {};
  if (is_unsigned && is_floating(external) && is_floating(host)) return {};
  return make(name, is_unsigned, reads, layout, external, host);
}

std::vector<Member> all_members() {
  std::vector<Member> members;
  const auto add = [&](const std::string &name) {
    if (const auto member = parse(name)) members.push_back(*member);
  };
  for (const char layout : kLayouts)
    for (const char external : kTypes)
      for (const char host : kTypes) {
        const std::string outside{layout, external}, inside{'h', host};
        add(outside + "2" + inside);
        add(inside + "2" + outside);
        add("u" + outside + "2" + inside);
        add("u" + inside + "2" + outside);
      }
  for (const char *name : {"vt2hi", "mt2hi", "vt2hf", "mt2hf", "hi2vt", "hi2mt"}) add(name);
  return members;
}

uint64_t load(char layout, char type, const uint8_t *bytes) {
  const size_t size = width(type);
  uint64_t bits = 0;
  for (size_t k = 0; k < size; ++k) {
    size_t place = k;                                 // of byte k, 0 the least significant
    if (layout == 'm') place = size - 1 - k;          // most significant first
    if (layout == 'a' && type == 'd') place = k ^ 4;  // the upper word first
    bits |= static_cast<uint64_t>(bytes[k]) << (8 * place);
  }
  return bits;
}

void store(char layout, char type, uint64_t bits, uint8_t *bytes) {
  const size_t size = width(type);
  for (size_t k = 0; k < size; ++k) {
    size_t place = k;
    if (layout == 'm') place = size - 1 - k;
    if (layout == 'a' && type == 'd') place = k ^ 4;
    bytes[k] = static_cast<uint8_t>(bits >> (8 * place));
  }
}

Converted convert(const Member &member, uint64_t bits, bool quiets) {
  const bool from_float = is_floating(member.from()), to_float = is_floating(member.to());
  if (member.from() == member.to()) return same_type(member, bits);
  if (from_float && to_float) return float_across(member, bits, quiets);
  if (!from_float && !to_float) return integer_to_integer(member, bits);
  if (to_float) return integer_to_float(member, bits);
  if (member.reads) return float_to_integer_read(member, bits);
  return float_to_integer_written(member, bits);
}

bool convert_bytes(const Member &member, const uint8_t *from, uint8_t *to, bool quiets) {
  const char source = member.reads ? member.layout : 'h';
  const char target = member.reads ? 'h' : member.layout;
  const Converted converted = convert(member, load(source, member.from(), from), quiets);
  store(target, member.to(), converted.bits, to);
  return converted.exact;
}

int run(const Member &member, const uint8_t *from, uint8_t *to, int n, bool quiets) {
  if (n <= 0) return 0;
  const size_t in = width(member.from()), out = width(member.to());
  std::vector<uint8_t> copy;
  if (member.plain_copy) {
    copy.assign(from, from + static_cast<size_t>(n) * in);
    from = copy.data();
  }
  int result = 0;
  for (size_t k = 0; k < static_cast<size_t>(n); ++k)
    if (!convert_bytes(member, from + k * in, to + k * out, quiets)) result = -1;
  return result;
}

Real unpack(Format format, uint64_t bits) {
  const uint64_t fraction = bits & ((uint64_t{1} << format.fraction_bits) - 1);
  const int all_ones = (1 << format.exponent_bits) - 1;
  const int exponent = static_cast<int>(bits >> format.fraction_bits) & all_ones;
  const bool negative = (bits >> (format.fraction_bits + format.exponent_bits)) & 1;
  const int bias = all_ones / 2;
  if (exponent == all_ones)
    return {fraction == 0 ? Real::kInfinite : Real::kNan, negative, fraction, 0};
  const int power = std::max(exponent, 1) - bias - format.fraction_bits;
  const Magnitude hidden = exponent == 0 ? 0 : Magnitude{1} << format.fraction_bits;
  return {Real::kFinite, negative, hidden | fraction, power};
}

uint64_t rounded(Format format, const Real &value) {
  const int all_ones = (1 << format.exponent_bits) - 1;
  const int bias = all_ones / 2;
  const uint64_t sign = static_cast<uint64_t>(value.negative)
                        << (format.fraction_bits + format.exponent_bits);
  const uint64_t infinity = static_cast<uint64_t>(all_ones) << format.fraction_bits;
  if (value.kind == Real::kInfinite) return sign | infinity;
  if (value.kind == Real::kNan) return sign | infinity | 1;  // callers look at NaN before
  if (value.magnitude == 0) return sign;

  // The power of the result's last bit: that of a normal value of this size, or the subnormals'.
  const int length = bit_length(value.magnitude);
  const int smallest = 1 - bias - format.fraction_bits;
  const int last = std::max(value.power + length - 1 - format.fraction_bits, smallest);
  const int dropped = last - value.power;
  Magnitude kept;
  if (dropped <= 0) {
    kept = value.magnitude << -dropped;
  } else if (dropped > length) {
    kept = 0;  // less than half of the last bit
  } else {
    const Magnitude lost = value.magnitude & ((Magnitude{1} << dropped) - 1);
    const Magnitude half = Magnitude{1} << (dropped - 1);
    kept = value.magnitude >> dropped;
    if (lost > half || (lost == half && (kept & 1))) ++kept;
  }
  // kept may have grown to the next power of two: adding the exponent field carries correctly.
  const int exponent = last - smallest;  // 0: subnormal, or carried into the first normal
  const uint64_t bits =
      (static_cast<uint64_t>(exponent) << format.fraction_bits) + static_cast<uint64_t>(kept);
  return sign | std::min(bits, infinity);
}

Real real_of(Wide integer) {
  const bool negative = integer < 0;
  const auto bits = static_cast<Magnitude>(integer);
  return {Real::kFinite, negative, negative ? ~bits + 1 : bits, 0};
}

namespace {
// -1, 0 or 1 as the magnitude of a is below, at or above that of b.
int compare_magnitudes(const Real &a, const Real &b) {
  if (a.kind == Real::kInfinite || b.kind == Real::kInfinite)
    return (a.kind == Real::kInfinite) - (b.kind == Real::kInfinite);
  if (a.magnitude == 0 || b.magnitude == 0) return (a.magnitude != 0) - (b.magnitude != 0);
  const int top_a = bit_length(a.magnitude) + a.power, top_b = bit_length(b.magnitude) + b.power;
  if (top_a != top_b) return top_a < top_b ? -1 : 1;
  // Their top bits stand at the same place; move both up to the 128th.
  const Magnitude left_a = a.magnitude << (128 - bit_length(a.magnitude));
  const Magnitude left_b = b.magnitude << (128 - bit_length(b.magnitude));
  return (left_a > left_b) - (left_a < left_b);
}

int compare(const Real &a, const Real &b) {
  const bool zero_a = a.kind == Real::kFinite && a.magnitude == 0;
  const bool zero_b = b.kind == Real::kFinite && b.magnitude == 0;
  if (zero_a && zero_b) return 0;
  const bool below_a = a.negative && !zero_a, below_b = b.negative && !zero_b;
  if (below_a != below_b) return below_a ? -1 : 1;
  return below_a ? -compare_magnitudes(a, b) : compare_magnitudes(a, b);
}
}  // namespace

bool less(const Real &a, const Real &b) {
  return a.kind != Real::kNan && b.kind != Real::kNan && compare(a, b) < 0;
}

bool equal(const Real &a, const Real &b) {
  return a.kind != Real::kNan && b.kind != Real::kNan && compare(a, b) == 0;
}

std::optional<Wide> truncated(const Real &value) {
  if (value.kind != Real::kFinite) return {};
  if (value.magnitude == 0) return 0;
  if (bit_length(value.magnitude) + value.power > 100) return {};
  Magnitude whole;
  if (value.power >= 0)
    whole = value.magnitude << value.power;
  else
    whole = value.power <= -128 ? 0 : value.magnitude >> -value.power;
  return value.negative ? -static_cast<Wide>(whole) : static_cast<Wide>(whole);
}

}  // namespace model
