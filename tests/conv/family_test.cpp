// The whole family by its grammar: which names exist, which are one function, and what every
// member makes of every kind of value, held against the model.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
#include <numeric>
#include <set>
#include <string>
#include <vector>

#include "tests/conv/members.h"
#include "tests/conv/model.h"

using members::Function;
using model::Member;

namespace {

// Converts all values in one call and element for element compares bytes; then the result of
// each: all exact ones together give 0, each other one alone gives -1.
void expect_model(const Function &function, const std::vector<uint64_t> &values) {
  const Member &member = function.member;
  const size_t in = model::width(member.from()), out = model::width(member.to());
  const std::vector<uint8_t> from = members::source_bytes(member, values);
  std::vector<uint8_t> to(values.size() * out, 0xA5);
  std::ptrdiff_t moved = -1;
  const int result = function(from.data(), to.data(), static_cast<int>(values.size()), &moved);
  ASSERT_EQ(moved, static_cast<std::ptrdiff_t>(values.size() * (member.reads ? in : out)))
      << member.name;

  std::vector<uint64_t> exact;
  int expected = 0;
  for (size_t k = 0; k < values.size(); ++k) {
    ASSERT_TRUE(members::agrees(member, &from[k * in], &to[k * out]))
        << members::difference(member, &from[k * in], &to[k * out]) << " (element " << k << ")";
    if (model::convert(member, values[k]).exact) {
      exact.push_back(values[k]);
      continue;
    }
    expected = -1;
    uint8_t one[8];
    alignas(8) uint8_t alone[8];
    std::memcpy(alone, &from[k * in], in);
    ASSERT_EQ(function(alone, one, 1), -1)
        << "no failure reported: " << members::difference(member, alone, one);
  }
  ASSERT_EQ(result, expected) << member.name;

  const std::vector<uint8_t> good = members::source_bytes(member, exact);
  if (function(good.data(), to.data(), static_cast<int>(exact.size())) == 0) return;
  for (size_t k = 0; k < exact.size(); ++k) {
    alignas(8) uint8_t alone[8], one[8];
    std::memcpy(alone, &good[k * in], in);
    ASSERT_EQ(function(alone, one, 1), 0)
        << "a failure reported: " << members::difference(member, alone, one);
  }
  FAIL() << member.name << " fails over elements that are each exact";
}

// 100,000 uniform bit patterns and as many that are biased to where rules change, for every
// member that reads or writes, from integers or from floating values.
void expect_random(bool reads, bool from_floating, uint64_t seed) {
  members::Random random(seed);
  for (const Function &function : members::all()) {
    const Member &member = function.member;
    if (member.reads != reads || model::is_floating(member.from()) != from_floating) continue;
    ASSERT_NO_FATAL_FAILURE(
        expect_model(function, members::random_values(member, 200'003, random)));
  }
}

std::vector<std::string> words(const std::string &text) {
  std::vector<std::string> found;
  size_t start = 0;
  while ((start = text.find_first_not_of(' ', start)) != std::string::npos) {
    const size_t end = std::min(text.find(' ', start), text.size());
    found.push_back(text.substr(start, end - start));
    start = end;
  }
  return found;
}

}  // namespace

TEST(family, exports_408_members_and_six_of_three_bytes) {
  std::set<std::string> listed;
  std::ifstream file(SOURCE_DIR "/abi/exports.txt");
  for (std::string name; file >> name;)
    if (model::parse(name)) listed.insert(name);
  std::set<std::string> grammar;
  for (const Member &member : model::all_members()) grammar.insert(member.name);
  EXPECT_EQ(listed, grammar);
  EXPECT_EQ(grammar.size(), 414u);
  EXPECT_EQ(std::count_if(grammar.begin(), grammar.end(),
                          [](const std::string &name) { return name.find('t') == name.npos; }),
            408);
  for (const std::string &name : grammar)
    EXPECT_NE(members::exported(name.c_str()), nullptr) << name;
}

TEST(family, names_of_one_function_have_one_address_and_no_others_do) {
  std::map<std::string, std::string> parent;
  for (const Member &member : model::all_members()) parent[member.name] = member.name;
  const auto root = [&](std::string name) {
    while (parent.at(name) != name) name = parent.at(name);
    return name;
  };
  const auto join = [&](const std::string &a, const std::string &b) { parent[root(a)] = root(b); };

  const char *const groups[] = {
      "ab2hb uab2hb mb2hb umb2hb vb2hb uvb2hb",
      "hb2ab uhb2ab hb2mb uhb2mb hb2vb uhb2vb",
      "as2hs uas2hs vs2hs uvs2hs",
      "hs2as uhs2as hs2vs uhs2vs",
      "ai2hi uai2hi vi2hi uvi2hi af2hf vf2hf",
      "hi2ai uhi2ai hi2vi uhi2vi hf2af hf2vf",
      "al2hl ual2hl vl2hl uvl2hl vd2hd",
      "hl2al uhl2al hl2vl uhl2vl hd2vd",
      "mi2hi umi2hi",
      "hi2mi uhi2mi",
      "ml2hl uml2hl",
      "hl2ml uhl2ml",
  };
  for (const char *group : groups)
    for (const std::string &name : words(group)) join(name, words(group)[0]);
  // v is a but for external doubles, and m is a for single bytes.
  for (const Member &member : model::all_members()) {
    const bool as_a = (member.layout == 'v' && member.external != 'd' && member.external != 't') ||
                      (member.layout == 'm' && member.external == 'b');
    if (!as_a) continue;
    std::string twin = member.name;
    const size_t place = member.reads ? member.is_unsigned : member.name.size() - 2;
    ASSERT_EQ(twin[place], member.layout);
    twin[place] = 'a';
    join(member.name, twin);
  }

  std::map<void *, std::set<std::string>> by_address;
  std::map<std::string, std::set<std::string>> by_rule;
  for (const Function &function : members::all()) {
    by_address[function.address].insert(function.member.name);
    by_rule[root(function.member.name)].insert(function.member.name);
  }
  std::set<std::set<std::string>> found, expected;
  for (const auto &[address, names] : by_address) found.insert(names);
  for (const auto &[name, names] : by_rule) expected.insert(names);
  for (const auto &names : expected)
    EXPECT_TRUE(found.count(names)) << "not one function: " << testing::PrintToString(names);
  for (const auto &names : found)
    EXPECT_TRUE(expected.count(names)) << "one function: " << testing::PrintToString(names);
  EXPECT_EQ(expected.size(), 252u + 6u);
}

TEST(family, converts_all_inputs_of_one_and_two_bytes) {
  for (const Function &function : members::all()) {
    const size_t width = model::width(function.member.from());
    if (width > 2) continue;
    std::vector<uint64_t> values(size_t{1} << (8 * width));
    std::iota(values.begin(), values.end(), uint64_t{0});
    ASSERT_NO_FATAL_FAILURE(expect_model(function, values));
  }
}

TEST(family, converts_the_values_at_and_around_every_bound) {
  for (const Function &function : members::all())
    ASSERT_NO_FATAL_FAILURE(expect_model(function, members::boundaries(function.member)));
}

TEST(family, converts_random_values_of_external_integers) { expect_random(true, false, 1); }

TEST(family, converts_random_values_of_external_floats_and_doubles) {
  expect_random(true, true, 2);
}

TEST(family, converts_random_values_of_host_integers) { expect_random(false, false, 3); }

TEST(family, converts_random_values_of_host_floats_and_doubles) { expect_random(false, true, 4); }

TEST(family, same_type_members_keep_every_signalling_nan) {
  for (const Function &function : members::all()) {
    const Member &member = function.member;
    if (member.external != member.host || !model::is_floating(member.host)) continue;
    const bool is_float = member.host == 'f';
    for (const uint64_t bits :
         is_float
             ? std::vector<uint64_t>{0x7F800001, 0xFFBFFFFF, 0x7FA00000}
             : std::vector<uint64_t>{0x7FF0000000000001, 0xFFF7FFFFFFFFFFFF, 0x7FF0000080000000}) {
      const std::vector<uint8_t> from = members::source_bytes(member, {bits});
      alignas(8) uint8_t to[8];
      EXPECT_EQ(function(from.data(), to, 1), member.plain_copy ? 0 : -1) << member.name;
      EXPECT_EQ(model::load(member.reads ? 'h' : member.layout, member.host, to), bits)
          << member.name;
    }
  }
}
