#include <gtest/gtest.h>
#include <limits.h>

#include <cstdlib>
#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "frame/vestan.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"

namespace {

void *number(intptr_t value) { return reinterpret_cast<void *>(value); }

struct Record {
  int id;
  char name[16];
};

std::vector<void *> seen;
void see(void *value) { seen.push_back(value); }

}  // namespace

TEST(newtbl, is_empty) {
  for (const long count : {0L, 1L, 100L, -1L, LONG_MIN}) {
    Tbl *t = newtbl(count);
    EXPECT_EQ(lentbl(t), 0);
    EXPECT_EQ(gettbl(t, 0), nullptr);
    EXPECT_EQ(addrtbl(t, 0), nullptr);
    freetbl(t, nullptr);
  }
}

TEST(lentbl, is_a_signed_count_of_64_bits) {
  static_assert(sizeof(lentbl(nullptr)) == 8 && static_cast<decltype(lentbl(nullptr))>(-1) < 0);
  EXPECT_EQ(lentbl(nullptr), 0);
}

TEST(pushtbl, appends_null_as_well) {
  Tbl *t = newtbl(0);
  pushtbl(t, number(1));
  pushtbl(t, nullptr);
  pushtbl(t, number(-3));
  EXPECT_EQ(lentbl(t), 3);
  EXPECT_EQ(gettbl(t, 0), number(1));
  EXPECT_EQ(gettbl(t, 1), nullptr);
  EXPECT_EQ(gettbl(t, 2), number(-3));
  freetbl(t, nullptr);
}

TEST(gettbl, is_null_outside) {
  Tbl *t = newtbl(16);
  pushtbl(t, number(1));
  for (const long index : {-1L, 1L, 2L, 15L, LONG_MIN, LONG_MAX}) {
    EXPECT_EQ(gettbl(t, index), nullptr) << index;
    EXPECT_EQ(addrtbl(t, index), nullptr) << index;
  }
  freetbl(t, nullptr);
  EXPECT_EQ(gettbl(nullptr, 0), nullptr);
  EXPECT_EQ(addrtbl(nullptr, 0), nullptr);
}

TEST(settbl, replaces_appends_and_refuses_the_rest) {
  Tbl *t = newtbl(0);
  EXPECT_EQ(settbl(t, 0, number(10)), 0);
  EXPECT_EQ(settbl(t, 1, number(11)), 0);
  EXPECT_EQ(settbl(t, 0, number(20)), 0);
  for (const long index : {3L, -1L, LONG_MAX, LONG_MIN}) EXPECT_EQ(settbl(t, index, number(9)), -1);
  EXPECT_EQ(lentbl(t), 2);
  EXPECT_EQ(gettbl(t, 0), number(20));
  EXPECT_EQ(gettbl(t, 1), number(11));
  freetbl(t, nullptr);
  EXPECT_EQ(settbl(nullptr, 0, number(1)), -1);
}

TEST(settbl, empties_a_slot_that_a_search_for_null_finds_again) {
  Tbl *t = newtbl(0);
  for (intptr_t k = 1; k <= 5; ++k) pushtbl(t, number(k));
  EXPECT_EQ(settbl(t, 2, nullptr), 0);
  EXPECT_EQ(lentbl(t), 5);
  EXPECT_EQ(gettbl(t, 3), number(4));
  long free_slot = 0;
  while (gettbl(t, free_slot) != nullptr) ++free_slot;
  EXPECT_EQ(free_slot, 2);
  EXPECT_EQ(settbl(t, free_slot, number(33)), 0);
  while (gettbl(t, free_slot) != nullptr) ++free_slot;
  EXPECT_EQ(free_slot, 5);  // the count: one past the end is empty too
  EXPECT_EQ(settbl(t, free_slot, number(6)), 0);
  EXPECT_EQ(lentbl(t), 6);
  freetbl(t, nullptr);
}

TEST(settbl, emptying_the_last_slot_keeps_the_count) {
  Tbl *t = newtbl(0);
  pushtbl(t, number(1));
  EXPECT_EQ(settbl(t, 0, nullptr), 0);
  EXPECT_EQ(lentbl(t), 1);
  freetbl(t, nullptr);
}

TEST(addrtbl, of_slot_0_is_an_argument_vector) {
  char text[] = "a b c";
  Tbl *words = split(text, ' ');
  pushtbl(words, nullptr);
  EXPECT_EQ(lentbl(words), 4);
  auto **vector = static_cast<char **>(addrtbl(words, 0));
  EXPECT_STREQ(vector[0], "a");
  EXPECT_STREQ(vector[1], "b");
  EXPECT_STREQ(vector[2], "c");
  EXPECT_EQ(vector[3], nullptr);
  for (long k = 0; k < 4; ++k) EXPECT_EQ(addrtbl(words, k), vector + k);
  freetbl(words, nullptr);
}

TEST(clrtbl, empties_and_keeps_usable) {
  Tbl *t = newtbl(0);
  for (intptr_t k = 1; k <= 20; ++k) pushtbl(t, number(k));
  clrtbl(t, nullptr);
  EXPECT_EQ(lentbl(t), 0);
  EXPECT_EQ(gettbl(t, 0), nullptr);
  pushtbl(t, number(7));
  EXPECT_EQ(lentbl(t), 1);
  EXPECT_EQ(gettbl(t, 0), number(7));
  freetbl(t, nullptr);
  clrtbl(nullptr, nullptr);
}

TEST(clrtbl, frees_each_element_in_order_and_no_empty_slot) {
  Tbl *t = newtbl(0);
  pushtbl(t, number(1));
  pushtbl(t, nullptr);
  pushtbl(t, number(3));
  seen.clear();
  clrtbl(t, see);
  EXPECT_EQ(seen, (std::vector<void *>{number(1), number(3)}));
  clrtbl(t, see);
  EXPECT_EQ(seen.size(), 2u);
  freetbl(t, see);
  EXPECT_EQ(seen.size(), 2u);
}

TEST(freetbl, frees_each_element) {
  Tbl *t = newtbl(0);
  for (int k = 0; k < 100; ++k) pushtbl(t, strdup("element"));  // a leak would show under asan
  freetbl(t, free);
  freetbl(nullptr, free);
}

TEST(inittbl, copies_records_by_value) {
  Tbl *t = inittbl(nullptr, 0, 1, nullptr, sizeof(Record));
  EXPECT_EQ(lentbl(t), 0);
  Record record{1, "one"};
  pushtbl(t, &record);
  record = {2, "two"};
  pushtbl(t, &record);
  record = {3, "three"};
  EXPECT_EQ(settbl(t, 0, &record), 0);
  record = {};
  EXPECT_EQ(lentbl(t), 2);
  EXPECT_EQ(static_cast<Record *>(gettbl(t, 0))->id, 3);
  EXPECT_STREQ(static_cast<Record *>(gettbl(t, 0))->name, "three");
  EXPECT_EQ(static_cast<Record *>(gettbl(t, 1))->id, 2);
  EXPECT_STREQ(static_cast<Record *>(gettbl(t, 1))->name, "two");
  EXPECT_EQ(gettbl(t, 2), nullptr);
  EXPECT_EQ(static_cast<Record *>(addrtbl(t, 1)) - static_cast<Record *>(addrtbl(t, 0)), 1);
  freetbl(t, nullptr);
}

TEST(inittbl, holds_records_of_any_size) {
  for (const int size : {1, 7, 8, 9, 6216}) {
    Tbl *t = inittbl(nullptr, 100, 1, nullptr, size);
    std::vector<char> record(static_cast<size_t>(size));
    for (int k = 0; k < 300; ++k) {
      std::fill(record.begin(), record.end(), static_cast<char>(k));
      pushtbl(t, record.data());
    }
    for (int k = 0; k < 300; ++k) {
      std::fill(record.begin(), record.end(), static_cast<char>(k));
      ASSERT_EQ(memcmp(gettbl(t, k), record.data(), record.size()), 0) << size << " " << k;
    }
    freetbl(t, nullptr);
  }
}

TEST(inittbl, stores_zeros_for_null) {
  Tbl *t = inittbl(nullptr, 0, 1, nullptr, sizeof(Record));
  Record record{1, "one"};
  pushtbl(t, &record);
  pushtbl(t, nullptr);
  EXPECT_EQ(settbl(t, 0, nullptr), 0);
  EXPECT_EQ(lentbl(t), 2);
  const Record zeros{};
  EXPECT_EQ(memcmp(gettbl(t, 0), &zeros, sizeof zeros), 0);
  EXPECT_EQ(memcmp(gettbl(t, 1), &zeros, sizeof zeros), 0);
  freetbl(t, nullptr);
}

TEST(inittbl, gives_free_each_the_addresses_of_its_records) {
  Tbl *t = inittbl(nullptr, 0, 1, nullptr, sizeof(Record));
  for (int k = 0; k < 3; ++k) pushtbl(t, nullptr);
  const std::vector<void *> records{gettbl(t, 0), gettbl(t, 1), gettbl(t, 2)};
  seen.clear();
  clrtbl(t, see);
  EXPECT_EQ(seen, records);
  freetbl(t, nullptr);
}

TEST(inittbl, refuses_what_it_does_not_know) {
  Tbl some{};
  int values[2] = {};
  EXPECT_EQ(inittbl(&some, 0, 1, nullptr, 8), nullptr);
  EXPECT_EQ(inittbl(nullptr, 0, 0, nullptr, 8), nullptr);
  EXPECT_EQ(inittbl(nullptr, 0, 2, nullptr, 8), nullptr);
  EXPECT_EQ(inittbl(nullptr, 2, 1, values, 4), nullptr);
  EXPECT_EQ(inittbl(nullptr, 0, 1, nullptr, 0), nullptr);
  EXPECT_EQ(inittbl(nullptr, 0, 1, nullptr, -8), nullptr);
}

TEST(pushtbl, of_a_tbls_own_record_survives_the_growth) {
  Tbl *t = inittbl(nullptr, 0, 1, nullptr, sizeof(Record));
  Record record{42, "own"};
  pushtbl(t, &record);
  for (int k = 1; k < 1000; ++k) pushtbl(t, gettbl(t, k - 1));
  EXPECT_EQ(lentbl(t), 1000);
  EXPECT_EQ(static_cast<Record *>(gettbl(t, 999))->id, 42);
  EXPECT_STREQ(static_cast<Record *>(gettbl(t, 999))->name, "own");
  freetbl(t, nullptr);
}

TEST(tbl, agrees_with_a_deque_over_random_operations) {
  std::mt19937 random(20261115);
  std::deque<void *> model;
  Tbl *t = newtbl(0);
  for (int step = 0; step < 20000; ++step) {
    void *value = number(static_cast<intptr_t>(random() % 5));  // null among them
    const long index = static_cast<long>(random() % (model.size() + 3)) - 1;
    switch (random() % 8) {
      case 0:
      case 1:
      case 2:
        pushtbl(t, value);
        model.push_back(value);
        break;
      case 3:
      case 4:
      case 5: {
        const bool inside = index >= 0 && index <= static_cast<long>(model.size());
        ASSERT_EQ(settbl(t, index, value), inside ? 0 : -1);
        if (!inside) break;
        if (index == static_cast<long>(model.size())) model.push_back(nullptr);
        model[static_cast<size_t>(index)] = value;
        break;
      }
      case 6:
        ASSERT_EQ(gettbl(t, index), index >= 0 && index < static_cast<long>(model.size())
                                        ? model[static_cast<size_t>(index)]
                                        : nullptr);
        break;
      default:
        if (random() % 500 != 0) break;
        clrtbl(t, nullptr);
        model.clear();
    }
    ASSERT_EQ(lentbl(t), static_cast<long>(model.size()));
  }
  for (size_t k = 0; k < model.size(); ++k)
    ASSERT_EQ(static_cast<void **>(addrtbl(t, 0))[k], model[k]);
  freetbl(t, nullptr);
}

TEST(tbl, ends_the_process_when_there_is_no_room) {
  char name[] = "tool";
  program_invocation_short_name = name;
  EXPECT_EQ(fakes::in_child([] { newtbl(LONG_MAX); }).err,
            "tool: fatal: Out of memory: no room for 9223372036854775807 times 8 bytes\n");
  EXPECT_EQ(fakes::in_child([] { inittbl(nullptr, LONG_MAX / 2, 1, nullptr, 6216); }).err,
            "tool: fatal: Out of memory: no room for 4611686018427387903 times 6216 bytes\n");
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.fail("realloc", ENOMEM);
    Tbl *t = newtbl(0);
    for (int k = 0; k < 8; ++k) pushtbl(t, nullptr);
    fputs("eight fit\n", stdout);
    fflush(stdout);
    pushtbl(t, nullptr);
  });
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.out, "eight fit\n");
  EXPECT_EQ(outcome.err, "tool: fatal: Out of memory: no room for 16 times 8 bytes\n");
}
