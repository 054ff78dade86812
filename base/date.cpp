// str2epoch: a date as people and programs write it, in seconds since 1970-01-01 00:00:00 UTC.

#include <string.h>
#include <time.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <string_view>

#include "base/locale.h"
#include "frame/errno_guard.h"
#include "frame/vestan.h"

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// The text that is being read. Each reader takes what it is looking for and says so, or leaves
// everything where it was.
class Reader {
 public:
  explicit Reader(const char *text) : at_(text) {}

  const char *at() const { return at_; }
  bool at_end() const { return *at_ == '\0'; }

  bool blanks() {
    const char *start = at_;
    while (is_blank(*at_)) ++at_;
    return at_ != start;
  }

  bool one_of(std::string_view characters) {
    if (at_end() || characters.find(*at_) == characters.npos) return false;
    ++at_;
    return true;
  }

  // So many digits, and no more behind them.
  bool number(int least, int most, int &value) {
    int digits = 0;
    int read = 0;
    while (digits <= most && is_digit(at_[digits])) read = read * 10 + (at_[digits++] - '0');
    if (digits < least || digits > most) return false;
    value = read;
    at_ += digits;
    return true;
  }

  // The digits behind a decimal point. A double holds 17; what follows them changes nothing.
  bool fraction(double &value) {
    if (!is_digit(*at_)) return false;
    double digits = 0;
    double unit = 1;
    for (int d = 0; is_digit(*at_); ++d, ++at_) {
      if (d >= 17) continue;
      digits = digits * 10 + (*at_ - '0');
      unit *= 10;
    }
    value = digits / unit;
    return true;
  }

  // One of the names in full, or its first three letters; in any case of letters.
  template <size_t count>
  bool name(const char *const (&names)[count], int &index) {
    size_t length = 0;
    while (is_letter(at_[length])) ++length;
    if (length == 0) return false;
    for (size_t k = 0; k < count; ++k) {
      if (strncasecmp_l(at_, names[k], length, c_locale()) != 0) continue;
      if (length != 3 && names[k][length] != '\0') continue;
      index = static_cast<int>(k);
      at_ += length;
      return true;
    }
    return false;
  }

 private:
  const char *at_;
};

const char *const kWeekdays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                 "Thursday", "Friday", "Saturday"};
const char *const kMonths[] = {"January",   "February", "March",    "April",
                               "May",       "June",     "July",     "August",
                               "September", "October",  "November", "December"};
const char *const kZones[] = {"UTC", "GMT", "UT", "Z"};

struct Moment {
  int year = 0, month = 0, day = 0;  // month and day from 1
  int second = 0;                    // of the day
  double fraction = 0;               // of that second
  bool has_zone = false;
  int offset = 0;  // seconds east of UTC
};

// "8:53", "08:53:44", "08:53:44.25", "08:53:44,25"
bool read_time(Reader &text, Moment &moment) {
  Reader ahead = text;
  int hour = 0;
  int minute = 0;
  int second = 0;
  double fraction = 0;
  if (!ahead.number(1, 2, hour) || !ahead.one_of(":")) return false;
  if (!ahead.number(2, 2, minute)) return false;
  if (ahead.one_of(":")) {
    if (!ahead.number(2, 2, second)) return false;
    if (ahead.one_of(".,") && !ahead.fraction(fraction)) return false;
  }
  if (hour > 23 || minute > 59 || second > 60) return false;  // 60: a leap second
  moment.second = hour * 3600 + minute * 60 + second;
  moment.fraction = fraction;
  text = ahead;
  return true;
}

// "Z", "UTC", "+01", "-0330", "+01:00", after blanks or directly behind the time.
bool read_zone(Reader &text, Moment &moment) {
  Reader ahead = text;
  ahead.blanks();
  int which = 0;
  if (ahead.name(kZones, which)) {
    moment.has_zone = true;
    text = ahead;
    return true;
  }
  const char sign = *ahead.at();
  if (!ahead.one_of("+-")) return false;
  int hours = 0;
  int minutes = 0;
  int both = 0;
  if (ahead.number(4, 4, both)) {
    hours = both / 100;
    minutes = both % 100;
  } else {
    if (!ahead.number(2, 2, hours)) return false;
    if (ahead.one_of(":") && !ahead.number(2, 2, minutes)) return false;
  }
  if (hours > 23 || minutes > 59) return false;
  moment.has_zone = true;
  moment.offset = (hours * 60 + minutes) * (sign == '-' ? -60 : 60);
  text = ahead;
  return true;
}

// "2026-11-15", "2026-11-15T08:53:44.5Z", "2026-11-15 08:53 +0100"
bool read_iso(Reader &text, Moment &moment) {
  if (!text.number(4, 4, moment.year) || !text.one_of("-")) return false;
  if (!text.number(2, 2, moment.month) || !text.one_of("-")) return false;
  if (!text.number(2, 2, moment.day)) return false;
  Reader ahead = text;
  if (ahead.one_of("Tt")) {
    text = ahead;
    if (!read_time(text, moment)) return false;
  } else if (ahead.blanks() && read_time(ahead, moment)) {
    text = ahead;
  }
  read_zone(text, moment);
  return true;
}

// "Nov 15 08:53:44 2026", "Nov 15 08:53:44 UTC 2026", "Nov 15, 2026", "Nov 15 2026 08:53",
// "15 Nov 2026 08:53:44 +0100"
bool read_words(Reader &text, Moment &moment) {
  const bool day_first = text.number(1, 2, moment.day);
  text.blanks();
  if (!text.name(kMonths, moment.month)) return false;
  ++moment.month;
  text.blanks();
  bool has_time = false;
  if (!day_first) {
    if (!text.number(1, 2, moment.day)) return false;
    text.one_of(",");
    text.blanks();
    has_time = read_time(text, moment);
    if (has_time) {
      read_zone(text, moment);
      text.blanks();
    }
  }
  if (!text.number(4, 4, moment.year)) return false;
  Reader ahead = text;
  if (!has_time && ahead.blanks() && read_time(ahead, moment)) text = ahead;
  if (!moment.has_zone) read_zone(text, moment);
  return true;
}

bool read_moment(const char *start, Moment &moment) {
  Reader text(start);
  text.blanks();
  int weekday = 0;  // not needed and not compared with the date
  if (text.name(kWeekdays, weekday)) {
    text.one_of(",");
    text.blanks();
  }
  Reader iso = text;
  if (read_iso(iso, moment)) {
    text = iso;
  } else {
    moment = Moment{};
    if (!read_words(text, moment)) return false;
  }
  text.blanks();
  return text.at_end();
}

// "1762000000", "-1.5"
bool read_seconds(const char *start, double &seconds) {
  Reader text(start);
  text.blanks();
  const char *number = text.at();
  text.one_of("+-");
  if (!is_digit(*text.at())) return false;
  while (text.one_of("0123456789")) {
  }
  if (text.one_of("."))
    while (text.one_of("0123456789")) {
    }
  text.blanks();
  if (!text.at_end()) return false;
  seconds = strtod_l(number, nullptr, c_locale());
  return std::isfinite(seconds);
}

// Seconds east of UTC in the process's own zone.
time_t offset_at(time_t when) {
  tm local;
  return localtime_r(&when, &local) != nullptr ? local.tm_gmtoff : 0;
}

// The time at which the process's own zone shows `shown` seconds since 1970-01-01 00:00:00 on its
// clocks. Of a repeated hour the first pass counts; in a skipped hour the offset before it goes on.
time_t from_local(time_t shown) {
  tzset();
  const time_t before = offset_at(shown - 86400);
  const time_t after = offset_at(shown + 86400);
  if (offset_at(shown - before) == before) return shown - before;
  if (offset_at(shown - after) == after) return shown - after;
  return shown - before;
}

}  // namespace

extern "C" double str2epoch(const char *text) {
  if (text == nullptr) return 0;
  const ErrnoGuard guard;
  double seconds = 0;
  if (read_seconds(text, seconds)) return seconds;
  Moment moment;
  if (!read_moment(text, moment)) return 0;
  const std::chrono::year_month_day date{std::chrono::year(moment.year),
                                         std::chrono::month(static_cast<unsigned>(moment.month)),
                                         std::chrono::day(static_cast<unsigned>(moment.day))};
  if (!date.ok()) return 0;
  const time_t shown =
      std::chrono::sys_days(date).time_since_epoch().count() * time_t{86400} + moment.second;
  const time_t whole = moment.has_zone ? shown - moment.offset : from_local(shown);
  return static_cast<double>(whole) + moment.fraction;
}
