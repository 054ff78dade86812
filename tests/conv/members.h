// The members of the conversion family as the tests reach them: by name, from the shared object,
// so that none is forgotten; and values worth converting.

#ifndef TESTS_CONV_MEMBERS_H
#define TESTS_CONV_MEMBERS_H

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tests/conv/model.h"

namespace members {

struct Function {
  model::Member member;
  void *address;

  // Converts n elements from `from` to `to`. Afterwards *moved is how far the cursor went.
  int operator()(const void *from, void *to, int n, std::ptrdiff_t *moved = nullptr) const;
};

// What the shared object itself exports under that name, whatever a program puts in its place;
// null when nothing.
void *exported(const char *name);

// All 414, in the grammar's order.
const std::vector<Function> &all();

using Random = std::mt19937_64;

// The values at and around every bound that a rule of the member names, all powers of two and
// ties between two floating neighbours: bits of the source's type.
std::vector<uint64_t> boundaries(const model::Member &member);

// `count` bit patterns: half of them uniform, half of them biased to the exponents, lengths and
// special values at which rules change.
std::vector<uint64_t> random_values(const model::Member &member, size_t count, Random &random);

// Values that every member converts exactly: the integers 0 to 100.
std::vector<uint64_t> friendly_values(const model::Member &member, size_t count, Random &random);

// Values the member does not convert exactly, by the model; empty for those that never fail.
std::vector<uint64_t> bad_values(const model::Member &member);

// Those values as the bytes that the member reads.
std::vector<uint8_t> source_bytes(const model::Member &member, const std::vector<uint64_t> &values);

// Is this the result for that element? The model's, or for a signalling NaN between float and
// double its other form.
bool agrees(const model::Member &member, const uint8_t *from, const uint8_t *to);

// A line for a failure: the element's bytes, what came and what should have come.
std::string difference(const model::Member &member, const uint8_t *from, const uint8_t *to);

}  // namespace members

#endif
