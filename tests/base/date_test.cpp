#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <random>
#include <string>

#include "frame/vestan.h"
#include "tests/fakes/child.h"

namespace {

struct Case {
  const char *text;
  double seconds;
};

void expect(const char *zone, std::initializer_list<Case> cases) {
  setenv("TZ", zone, 1);
  for (const Case &c : cases) EXPECT_EQ(str2epoch(c.text), c.seconds) << zone << ": " << c.text;
}

constexpr const char *kBerlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char *kNewYork = "EST5EDT,M3.2.0,M11.1.0";

}  // namespace

TEST(str2epoch, reads_a_start_time_as_ps_prints_it) {
  expect("UTC", {
                    {"Nov 15 08:53:44 2026", 1794732824},
                    {"Nov 15 08:53:44 2026\n", 1794732824},
                    {"Sun Nov 15 08:53:44 2026", 1794732824},
                    {"Sun Nov  1 08:53:44 2026", 1793523224},
                    {"Nov  1 08:53:44 2026", 1793523224},
                    {"Feb 29 00:00:00 2000", 951782400},
                    {"Jan  1 00:00:01 1970", 1},
                });
}

TEST(str2epoch, reads_the_header_of_ps_as_nothing) {
  expect("UTC", {{"STARTED\n", 0}, {"                 STARTED", 0}, {"TED", 0}});
}

TEST(str2epoch, reads_iso_8601) {
  expect("UTC", {
                    {"2026-11-15", 1794700800},
                    {"2026-11-15T08:53:44", 1794732824},
                    {"2026-11-15t08:53:44z", 1794732824},
                    {"2026-11-15 08:53:44", 1794732824},
                    {"2026-11-15   08:53:44", 1794732824},
                    {"2026-11-15T08:53", 1794732780},
                    {"2026-11-15 8:53", 1794732780},
                    {"2026-11-15T08:53:44.5", 1794732824.5},
                    {"2026-11-15T08:53:44,25", 1794732824.25},
                    {"2026-11-15 08:53:44.123456", 1794732824.123456},
                    {"2026-11-15 08:53:44.123456789 +0000", 1794732824.123456789},
                    {"2026-11-15T00:00:00.0", 1794700800},
                    {"Sun 2026-11-15 08:53:44 UTC", 1794732824},
                });
}

TEST(str2epoch, reads_dates_with_names) {
  expect("UTC", {
                    {"Sun, 15 Nov 2026 08:53:44 +0100", 1794729224},
                    {"15 Nov 2026 08:53:44", 1794732824},
                    {"15 November 2026", 1794700800},
                    {"November 15, 2026", 1794700800},
                    {"Nov 15, 2026 08:53:44", 1794732824},
                    {"Nov 15 2026", 1794700800},
                    {"Nov 15 2026 08:53", 1794732780},
                    {"Sunday November 15 08:53:44 2026", 1794732824},
                    {"SUN NOV 15 08:53:44 2026", 1794732824},
                    {"sun nov 15 08:53:44 2026", 1794732824},
                    {"Nov 15 08:53:44.75 2026", 1794732824.75},
                    {"Sun Nov 15 08:53:44 UTC 2026", 1794732824},
                    {"Sun Nov 15 08:53:44 +0100 2026", 1794729224},
                    {"Sun Nov 15 08:53:44 2026 +0100", 1794729224},
                    {"May 1 2026", 1777593600},
                });
}

TEST(str2epoch, knows_every_month_and_weekday) {
  expect("UTC", {
                    {"Jan 1 2026", 1767225600},           {"Feb 1 2026", 1769904000},
                    {"Mar 1 2026", 1772323200},           {"Apr 1 2026", 1775001600},
                    {"May 1 2026", 1777593600},           {"Jun 1 2026", 1780272000},
                    {"Jul 1 2026", 1782864000},           {"Aug 1 2026", 1785542400},
                    {"Sep 1 2026", 1788220800},           {"Oct 1 2026", 1790812800},
                    {"Nov 1 2026", 1793491200},           {"Dec 1 2026", 1796083200},
                    {"January 1 2026", 1767225600},       {"February 1 2026", 1769904000},
                    {"March 1 2026", 1772323200},         {"April 1 2026", 1775001600},
                    {"June 1 2026", 1780272000},          {"July 1 2026", 1782864000},
                    {"August 1 2026", 1785542400},        {"September 1 2026", 1788220800},
                    {"October 1 2026", 1790812800},       {"December 1 2026", 1796083200},
                    {"Mon Nov 1 2026", 1793491200},       {"Tue Nov 1 2026", 1793491200},
                    {"Wed Nov 1 2026", 1793491200},       {"Thu Nov 1 2026", 1793491200},
                    {"Fri Nov 1 2026", 1793491200},       {"Sat Nov 1 2026", 1793491200},
                    {"Wednesday Nov 1 2026", 1793491200},
                });
}

TEST(str2epoch, reads_a_plain_number_of_seconds) {
  expect(kNewYork, {
                       {"0", 0},
                       {"1", 1},
                       {"1762000000", 1762000000},
                       {"1762000000.5", 1762000000.5},
                       {" 1762000000 \n", 1762000000},
                       {"-1.25", -1.25},
                       {"+7", 7},
                       {"2026", 2026},
                       {"20261115", 20261115},
                       {"253402300799", 253402300799},
                   });
}

TEST(str2epoch, honours_a_zone_in_the_text) {
  for (const char *process : {"UTC", kBerlin, kNewYork})
    expect(process, {
                        {"2026-11-15T08:53:44Z", 1794732824},
                        {"2026-11-15 08:53:44 Z", 1794732824},
                        {"2026-11-15 08:53:44 UTC", 1794732824},
                        {"2026-11-15 08:53:44UTC", 1794732824},
                        {"2026-11-15 08:53:44 gmt", 1794732824},
                        {"2026-11-15 08:53:44 UT", 1794732824},
                        {"2026-11-15T08:53:44+00:00", 1794732824},
                        {"2026-11-15T08:53:44-00:00", 1794732824},
                        {"2026-11-15T08:53:44+01:00", 1794729224},
                        {"2026-11-15T08:53:44+0100", 1794729224},
                        {"2026-11-15T08:53:44+01", 1794729224},
                        {"2026-11-15T08:53:44 -03:30", 1794745424},
                        {"2026-11-15T08:53:44+14:00", 1794682424},
                        {"2026-11-15T08:53:44.5+05:30", 1794713024.5},
                        {"2026-11-15 UTC", 1794700800},
                        {"2026-11-15+01:00", 1794697200},
                        {"Nov 15 2026 UTC", 1794700800},
                    });
}

TEST(str2epoch, reads_a_text_without_zone_in_the_process_own) {
  expect(kBerlin, {
                      {"Nov 15 08:53:44 2026", 1794729224},
                      {"2026-07-01 12:00", 1782900000},
                      {"2000-02-29", 951778800},
                      {"1969-12-31 23:59:59", -3601},
                      {"2038-01-19 03:14:08", 2147480048},
                  });
  expect("IST-5:30", {{"Nov 15 08:53:44 2026", 1794713024}});
  expect(kNewYork, {{"Nov 15 08:53:44 2026", 1794750824}, {"2026-07-01 12:00", 1782921600}});
  expect("<-03>3", {{"2026-11-15", 1794711600}});
}

TEST(str2epoch, follows_a_change_of_the_process_own_zone) {
  expect("UTC", {{"2026-11-15", 1794700800}});
  expect(kBerlin, {{"2026-11-15", 1794697200}});
  expect("UTC", {{"2026-11-15", 1794700800}});
}

TEST(str2epoch, takes_the_hosts_zone_without_TZ) {
  unsetenv("TZ");
  tm shown{};
  shown.tm_year = 126;
  shown.tm_mon = 10;
  shown.tm_mday = 15;
  shown.tm_isdst = -1;
  EXPECT_EQ(str2epoch("2026-11-15"), static_cast<double>(mktime(&shown)));
}

TEST(str2epoch, is_exact_on_both_sides_of_a_change_of_the_clocks) {
  expect(kBerlin, {
                      {"2026-03-29 01:59:59", 1774745999},
                      {"2026-03-29 03:00:00", 1774746000},
                      {"2026-10-25 01:59:59", 1792886399},
                      {"2026-10-25 03:00:00", 1792893600},
                      {"2026-03-28 02:30:00", 1774661400},
                      {"2026-03-30 02:30:00", 1774830600},
                      {"2026-10-24 02:30:00", 1792801800},
                      {"2026-10-26 02:30:00", 1792978200},
                  });
}

TEST(str2epoch, takes_the_first_pass_of_a_repeated_hour) {
  expect(kBerlin, {
                      {"2026-10-25 02:00:00", 1792886400},
                      {"2026-10-25 02:30:00", 1792888200},
                      {"2026-10-25 02:59:59", 1792889999},
                  });
  expect(kNewYork, {{"2026-11-01 01:30:00", 1793511000}});
}

TEST(str2epoch, counts_a_skipped_time_from_the_change) {
  expect(kBerlin, {
                      {"2026-03-29 02:00:00", 1774746000},  // 03:00
                      {"2026-03-29 02:30:00", 1774747800},  // 03:30
                  });
  expect(kNewYork, {{"2026-03-08 02:30:00", 1772955000}});
}

TEST(str2epoch, knows_the_history_of_a_zone) {
  if (access("/usr/share/zoneinfo/Pacific/Apia", R_OK) != 0) GTEST_SKIP() << "no zones here";
  // Samoa left out 30 December 2011.
  expect("Pacific/Apia",
         {{"2011-12-29 23:59:59", 1325239199}, {"2011-12-31 00:00:00", 1325239200}});
  expect("Australia/Lord_Howe",
         {{"2026-01-01 00:00", 1767186000}, {"2026-07-01 00:00", 1782826200}});
  expect("Asia/Kolkata", {{"Nov 15 08:53:44 2026", 1794713024}});
}

TEST(str2epoch, knows_leap_days_and_leap_seconds) {
  expect("UTC", {
                    {"2024-02-29 23:59:59", 1709251199},
                    {"2000-02-29", 951782400},
                    {"2100-03-01", 4107542400},
                    {"2016-12-31T23:59:60Z", 1483228800},
                    {"2023-02-29", 0},
                    {"2100-02-29", 0},
                    {"1900-02-29", 0},
                });
}

TEST(str2epoch, reads_years_far_away) {
  expect("UTC", {
                    {"1969-12-31 23:59:59", -1},
                    {"1969-12-31 23:59:59.5", -0.5},
                    {"1901-12-13 20:45:52", -2147483648.0},
                    {"1582-10-14", -12219379200},
                    {"9999-12-31 23:59:59", 253402300799},
                });
}

TEST(str2epoch, is_0_for_what_it_cannot_read) {
  const auto outcome = fakes::in_child([] {
    for (const char *text : {"",
                             " ",
                             "\n",
                             "now",
                             "yesterday",
                             "Nov",
                             "Nov 15",
                             "Sun",
                             "Sun Nov 15",
                             "Nov 15 08:53:44",
                             "Nov 15 08:53:44 26",
                             "Nov 15 08:53:44 20266",
                             "Nov 15 08:53:44 2026 x",
                             "Nov 15 08:53:44 CET 2026",
                             "Nov 15 08:53 44 2026",
                             "Nov 15 25:00:00 2026",
                             "Nov 15 24:00:00 2026",
                             "Nov 15 23:60:00 2026",
                             "Nov 15 23:59:61 2026",
                             "Nov 15 08:5:44 2026",
                             "Nov 15 08:53:4 2026",
                             "Nov 15 08:53:44. 2026",
                             "Nov 0 08:53:44 2026",
                             "Nov 31 08:53:44 2026",
                             "Nov 32 08:53:44 2026",
                             "Nov 115 08:53:44 2026",
                             "Nove 15 08:53:44 2026",
                             "No 15 08:53:44 2026",
                             "Novembers 15 08:53:44 2026",
                             "Sunda Nov 15 08:53:44 2026",
                             "Sun Sun Nov 15 08:53:44 2026",
                             "2026-11",
                             "2026-11-",
                             "2026-1-5",
                             "2026-13-01",
                             "2026-00-01",
                             "2026-11-00",
                             "2026-11-31",
                             "02026-11-15",
                             "226-11-15",
                             "2026-11-15T",
                             "2026-11-15T08",
                             "2026-11-15T08:",
                             "2026-11-15T08:53:",
                             "2026-11-15T08:53:44.",
                             "2026-11-15T25:00",
                             "2026-11-15 25:00",
                             "2026-11-15T08:53:44+",
                             "2026-11-15T08:53:44+1",
                             "2026-11-15T08:53:44+01:",
                             "2026-11-15T08:53:44+01:0",
                             "2026-11-15T08:53:44+24:00",
                             "2026-11-15T08:53:44+01:60",
                             "2026-11-15T08:53:44ZZ",
                             "2026-11-15T08:53:44 Z Z",
                             "2026-11-15T08:53:44 CET",
                             "2026/11/15",
                             "1e9",
                             "0x10",
                             "12 34",
                             "--5",
                             "-",
                             ".5",
                             "inf",
                             "nan",
                             "1762000000x",
                             "\xff\xfe",
                             "Nov 15 08:53:44 2026\x01"})
      EXPECT_EQ(str2epoch(text), 0) << text;
    EXPECT_EQ(str2epoch(std::string(400, '9').c_str()), 0);  // beyond every double
    EXPECT_EQ(str2epoch(nullptr), 0);
  });
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");  // and nothing is logged
}

TEST(str2epoch, reads_a_fraction_of_any_length) {
  setenv("TZ", "UTC", 1);
  EXPECT_EQ(str2epoch(("1970-01-01T00:00:00." + std::string(5000, '3')).c_str()),
            0x1.5555555555555p-2);
  EXPECT_EQ(str2epoch(("1970-01-01T00:00:00." + std::string(5000, '0') + "1").c_str()), 0);
}

TEST(str2epoch, leaves_errno_alone) {
  setenv("TZ", "Nowhere/At_All", 1);  // a zone file that is looked for and not found
  errno = EBUSY;
  EXPECT_EQ(str2epoch("2026-11-15"), 1794700800);
  EXPECT_EQ(str2epoch("nothing"), 0);
  EXPECT_EQ(str2epoch("1e"), 0);
  EXPECT_EQ(errno, EBUSY);
}

TEST(str2epoch, agrees_with_the_c_library_on_random_times) {
  std::mt19937_64 random(20261115);
  for (const char *zone :
       {"UTC", kBerlin, kNewYork, "IST-5:30", "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0"}) {
    setenv("TZ", zone, 1);
    tzset();
    for (int k = 0; k < 5000; ++k) {
      const time_t when = static_cast<time_t>(random() % 8000000000u) - 2200000000;
      tm shown;
      char text[64];
      localtime_r(&when, &shown);
      strftime(text, sizeof text, "%a %b %e %H:%M:%S %Y", &shown);
      const double told = str2epoch(text);
      // The second pass of a repeated hour reads like the first.
      if (told != static_cast<double>(when)) {
        const time_t first = static_cast<time_t>(told);
        tm again;
        char same[64];
        localtime_r(&first, &again);
        strftime(same, sizeof same, "%a %b %e %H:%M:%S %Y", &again);
        ASSERT_STREQ(same, text) << zone;
        ASSERT_LT(first, when);
        ASSERT_LE(when - first, 3600);
      }
    }
  }
}
