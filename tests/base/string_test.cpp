#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "frame/vestan.h"
#include "tests/fakes/child.h"
#include "tests/fakes/host.h"
#include "tests/fakes/memory.h"

namespace {

using Strings = std::vector<std::string>;

// The fields, freed; and each really lies inside the text that was cut.
Strings fields_of(const std::string &text, int separator) {
  std::vector<char> copy(text.c_str(), text.c_str() + text.size() + 1);
  Tbl *fields = split(copy.data(), separator);
  Strings texts;
  for (long k = 0; k < lentbl(fields); ++k) {
    const char *field = static_cast<char *>(gettbl(fields, k));
    EXPECT_GE(field, copy.data());
    EXPECT_LT(field, copy.data() + copy.size());
    texts.emplace_back(field);
  }
  freetbl(fields, nullptr);
  return texts;
}

FILE *stream_of(const std::string &text) {
  FILE *stream = tmpfile();
  fwrite(text.data(), 1, text.size(), stream);
  rewind(stream);
  return stream;
}

Strings lines_of(const std::string &text, long size) {
  FILE *stream = stream_of(text);
  fakes::Guarded memory(static_cast<size_t>(size));
  char *buffer = reinterpret_cast<char *>(memory.last(static_cast<size_t>(size)));
  Strings lines;
  while (const char *line = getaline(stream, buffer, size)) {
    EXPECT_EQ(line, buffer);
    lines.emplace_back(line);
  }
  fclose(stream);
  return lines;
}

}  // namespace

// ---- pushstr, popstr

TEST(popstr, gives_back_what_was_appended) {
  void *handle = nullptr;
  pushstr(&handle, "one");
  pushstr(&handle, "");
  pushstr(&handle, " and two");
  EXPECT_NE(handle, nullptr);
  char *text = popstr(&handle, 1);
  EXPECT_STREQ(text, "one and two");
  EXPECT_EQ(handle, nullptr);
  free(text);
}

TEST(popstr, of_nothing_is_an_empty_text_to_free) {
  void *handle = nullptr;
  for (const int finish : {1, 0}) {
    char *text = popstr(&handle, finish);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(handle, nullptr);
    free(text);
  }
  char *text = popstr(nullptr, 1);
  EXPECT_STREQ(text, "");
  free(text);
  pushstr(&handle, "");
  text = popstr(&handle, 1);
  EXPECT_STREQ(text, "");
  free(text);
}

TEST(popstr, lets_the_string_grow_on_when_it_is_not_the_last) {
  void *handle = nullptr;
  pushstr(&handle, "a");
  char *first = popstr(&handle, 0);
  pushstr(&handle, "b");
  char *second = popstr(&handle, 1);
  EXPECT_STREQ(first, "a");
  EXPECT_STREQ(second, "ab");
  free(first);
  free(second);
}

TEST(pushstr, appends_nothing_for_null) {
  void *handle = nullptr;
  pushstr(&handle, nullptr);
  EXPECT_EQ(handle, nullptr);
  pushstr(&handle, "x");
  pushstr(&handle, nullptr);
  char *text = popstr(&handle, 1);
  EXPECT_STREQ(text, "x");
  free(text);
  pushstr(nullptr, "x");
}

TEST(pushstr, grows_as_a_string_does) {
  std::mt19937 random(1);
  std::string model;
  void *handle = nullptr;
  for (int k = 0; k < 2000; ++k) {
    const std::string piece(random() % 50, static_cast<char>('a' + k % 26));
    pushstr(&handle, piece.c_str());
    model += piece;
  }
  char *text = popstr(&handle, 1);
  EXPECT_EQ(text, model);
  free(text);
}

TEST(pushstr, ends_the_process_when_there_is_no_room) {
  char name[] = "tool";
  program_invocation_short_name = name;
  const auto outcome = fakes::in_child([] {
    fakes::Host host;
    host.fail("realloc", ENOMEM);
    void *handle = nullptr;
    pushstr(&handle, "1234567");
    pushstr(&handle, "8");
  });
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err, "tool: fatal: Out of memory: no room for 17 times 1 bytes\n");
}

// ---- okstr

TEST(okstr, is_the_string_or_a_text_for_null) {
  const char *string = "name";
  EXPECT_EQ(okstr(string), string);
  const char *empty = "";
  EXPECT_EQ(okstr(empty), empty);
  EXPECT_STREQ(okstr(nullptr), "(null)");
}

// ---- split

TEST(split, cuts_at_every_separator) {
  EXPECT_EQ(fields_of("a b c", ' '), (Strings{"a", "b", "c"}));
  EXPECT_EQ(fields_of("/bin:/usr/bin", ':'), (Strings{"/bin", "/usr/bin"}));
  EXPECT_EQ(fields_of("a  b", ' '), (Strings{"a", "", "b"}));
  EXPECT_EQ(fields_of(" a ", ' '), (Strings{"", "a", ""}));
  EXPECT_EQ(fields_of(":", ':'), (Strings{"", ""}));
  EXPECT_EQ(fields_of("a\tb c", ' '), (Strings{"a\tb", "c"}));
  EXPECT_EQ(fields_of("a\xff"
                      "b",
                      '\xff'),
            (Strings{"a", "b"}));
  EXPECT_EQ(fields_of("a\xff"
                      "b",
                      0xff),
            (Strings{"a", "b"}));
}

TEST(split, of_an_empty_string_is_one_empty_field) { EXPECT_EQ(fields_of("", ' '), Strings{""}); }

TEST(split, without_a_separator_in_it_is_the_whole_string) {
  EXPECT_EQ(fields_of("abc", ' '), Strings{"abc"});
  EXPECT_EQ(fields_of("abc", '\0'), Strings{"abc"});
}

TEST(split, of_null_has_no_fields) {
  Tbl *fields = split(nullptr, ' ');
  EXPECT_EQ(lentbl(fields), 0);
  freetbl(fields, nullptr);
}

TEST(split, agrees_with_cutting_by_hand_over_random_text) {
  std::mt19937 random(2);
  for (int round = 0; round < 5000; ++round) {
    std::string text;
    for (size_t length = random() % 12; text.size() < length;) text.push_back("ab :"[random() % 4]);
    Strings model{""};
    for (const char c : text) {
      if (c == ' ')
        model.emplace_back();
      else
        model.back().push_back(c);
    }
    ASSERT_EQ(fields_of(text, ' '), model) << '"' << text << '"';
  }
}

// ---- getaline

TEST(getaline, drops_the_newline_and_nothing_else) {
  EXPECT_EQ(lines_of("one\ntwo \n\n\tthree\r\n", 1024), (Strings{"one", "two ", "", "\tthree\r"}));
}

TEST(getaline, takes_a_last_line_without_newline) {
  EXPECT_EQ(lines_of("one\ntwo", 1024), (Strings{"one", "two"}));
}

TEST(getaline, of_an_empty_stream_is_null) { EXPECT_EQ(lines_of("", 1024), Strings{}); }

TEST(getaline, hands_out_a_long_line_in_pieces) {
  EXPECT_EQ(lines_of("abcdefgh\nx\n", 4), (Strings{"abc", "def", "gh", "x"}));
  EXPECT_EQ(lines_of("abcdef\nx\n", 4), (Strings{"abc", "def", "x"}));  // no empty piece behind it
  EXPECT_EQ(lines_of("abcdef", 4), (Strings{"abc", "def"}));
  EXPECT_EQ(lines_of("ab\n\n", 2), (Strings{"a", "b", ""}));
}

TEST(getaline, takes_no_room_and_no_stream_as_the_end) {
  FILE *stream = stream_of("abc\n");
  char buffer[8] = "keep";
  for (const long size : {1L, 0L, -1L}) EXPECT_EQ(getaline(stream, buffer, size), nullptr);
  EXPECT_EQ(getaline(stream, nullptr, 8), nullptr);
  EXPECT_EQ(getaline(nullptr, buffer, 8), nullptr);
  EXPECT_STREQ(buffer, "keep");
  EXPECT_STREQ(getaline(stream, buffer, 8), "abc");  // nothing was read
  EXPECT_EQ(getaline(stream, buffer, 8), nullptr);
  EXPECT_EQ(getaline(stream, buffer, 8), nullptr);
  fclose(stream);
}

TEST(getaline, of_a_stream_that_cannot_be_read_is_null) {
  FILE *stream = fopen("/dev/null", "w");
  char buffer[8];
  EXPECT_EQ(getaline(stream, buffer, 8), nullptr);
  fclose(stream);
}

TEST(getaline, goes_on_after_a_signal) {
  static int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "one ", 4), 4);
  struct sigaction action {};  // no flags: what it interrupts is not restarted
  action.sa_handler = [](int) {
    if (write(ends[1], "line\n", 5) != 5) _exit(1);
    close(ends[1]);
  };
  sigaction(SIGALRM, &action, nullptr);
  ualarm(50000, 0);
  FILE *stream = fdopen(ends[0], "r");
  char buffer[16];
  EXPECT_STREQ(getaline(stream, buffer, sizeof buffer), "one line");
  EXPECT_EQ(getaline(stream, buffer, sizeof buffer), nullptr);
  fclose(stream);
}

TEST(getaline, agrees_with_cutting_by_hand_over_random_text) {
  std::mt19937 random(3);
  for (int round = 0; round < 1000; ++round) {
    std::string text;
    for (size_t length = random() % 40; text.size() < length;)
      text.push_back("abcd\r\n"[random() % 6]);
    const long size = 2 + static_cast<long>(random() % 6);
    Strings model;
    for (size_t at = 0; at < text.size();) {
      std::string piece;
      while (at < text.size() && text[at] != '\n' && piece.size() + 1 < static_cast<size_t>(size))
        piece.push_back(text[at++]);
      if (at < text.size() && text[at] == '\n') ++at;
      model.push_back(piece);
    }
    ASSERT_EQ(lines_of(text, size), model) << testing::PrintToString(text) << " " << size;
  }
}

// ---- fix_strtod

TEST(fix_strtod, reads_a_double_and_says_where_it_ends) {
  struct {
    const char *text;
    double value;
    long length;
  } const cases[] = {
      {"0.50 0.25", 0.50, 4},
      {"  1.5x", 1.5, 5},
      {"-2e3,", -2000, 4},
      {"0x10", 16, 4},
      {"inf", INFINITY, 3},
      {"1e999", HUGE_VAL, 5},
      {"3/412", 3, 1},
      {".5.", 0.5, 2},
      {"none", 0, 0},
      {"", 0, 0},
      {"+", 0, 0},
      {"1,5", 1, 1},
  };
  for (const auto &c : cases) {
    char *end = nullptr;
    EXPECT_EQ(fix_strtod(c.text, &end), c.value) << c.text;
    EXPECT_EQ(end - c.text, c.length) << c.text;
    EXPECT_EQ(fix_strtod(c.text, nullptr), c.value) << c.text;
  }
}

TEST(fix_strtod, of_null_is_no_number) {
  char text[] = "x";
  char *end = text;
  EXPECT_EQ(fix_strtod(nullptr, &end), 0);
  EXPECT_EQ(end, nullptr);
  EXPECT_EQ(fix_strtod(nullptr, nullptr), 0);
}

TEST(fix_strtod, reads_a_decimal_point_in_every_locale) {
  const auto outcome = fakes::in_child([] {
    if (!fakes::set_decimal_comma()) _exit(2);
    if (strtod("2.5", nullptr) != 2) _exit(3);  // what a program with that locale sees
    char *end = nullptr;
    EXPECT_EQ(fix_strtod("2.5 7", &end), 2.5);
    EXPECT_STREQ(end, " 7");
    EXPECT_EQ(str2epoch("2.5"), 2.5);
  });
  if (outcome.exit_code == 2) GTEST_SKIP() << "no localedef here";
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}
