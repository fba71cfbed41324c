#include <array>

#include "platform/clock/clock.h"
#include "platform/stock/text.h"

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

/* A run of digits and its value. */
struct Digits {
  std::size_t count = 0;
  int value = 0;
};

struct WrittenDate {
  int year = 0, month = 1, day = 1;
  bool by_day_of_year = false;  // `day` counts from 1 January
};

struct TimeOfDay {
  int hour = 0, minute = 0;
  double second = 0.0;
};

/* Reads a date from left to right; a step that fails ends the reading. */
class DateReader {
 public:
  explicit DateReader(std::string_view text) : rest_(text) {}

  bool read(double &epoch) {
    WrittenDate date;
    TimeOfDay time;
    if (!read_date(date) || !valid(date)) return false;
    if (!rest_.empty() && !read_time_part(time)) return false;
    const int doy = date.by_day_of_year
                        ? date.day
                        : ksutil::day_of_year(date.year, date.month, date.day);
    epoch = h2e(date.year, doy, time.hour, time.minute, time.second);
    return true;
  }

 private:
  char next() const { return rest_.empty() ? '\0' : rest_.front(); }

  bool take(char c) {
    if (next() != c) return false;
    rest_.remove_prefix(1);
    return true;
  }

  Digits take_digits(std::size_t most) {
    Digits digits;
    while (digits.count < most && is_digit(next())) {
      digits.value = digits.value * 10 + (next() - '0');
      ++digits.count;
      rest_.remove_prefix(1);
    }
    return digits;
  }

  /* Reads the first three letters of an English month name, in any case; 0 for any
   * other text. */
  int take_month_name() {
    static constexpr std::array<std::string_view, 12> kNames = {
        "jan", "feb", "mar", "apr", "may", "jun",
        "jul", "aug", "sep", "oct", "nov", "dec"};
    const std::string name = ksutil::lowered(rest_.substr(0, 3));
    for (std::size_t i = 0; i < kNames.size(); ++i) {
      if (name != kNames[i]) continue;
      rest_.remove_prefix(3);
      return static_cast<int>(i) + 1;
    }
    return 0;
  }

  static int full_year(Digits year) {
    if (year.count == 4) return year.value;
    return year.value + (year.value >= 70 ? 1900 : 2000);
  }

  bool read_date(WrittenDate &date) {
    const Digits first = take_digits(8);
    if (first.count == 8) {
      date = {first.value / 10000, first.value / 100 % 100, first.value % 100};
      return date.year >= 1900 && date.year <= 2099;
    }
    const char separator = next();
    if (first.count == 0 || first.count == 3 || first.count > 4) return false;
    if (separator != '-' && separator != '/') return false;
    take(separator);
    if (!is_digit(next())) return separator == '-' && read_month_name(first, date);

    const Digits second = take_digits(3);
    if (first.count == 4 && second.count == 3) {
      date = {first.value, 1, second.value, true};
      return separator == '-';
    }
    if (second.count > 2 || !take(separator)) return false;
    const Digits third = take_digits(4);
    if (first.count == 4 && (third.count == 1 || third.count == 2)) {
      date = {first.value, second.value, third.value};
    } else if (first.count == 2 && third.count == 2) {
      date = {full_year(first), second.value, third.value};
    } else if (first.count <= 2 && third.count == 4 && separator == '/') {
      date = {third.value, first.value, second.value};
    } else {
      return false;
    }
    return true;
  }

  /* The rest of dd-MON-yy or dd-MON-yyyy. */
  bool read_month_name(Digits day, WrittenDate &date) {
    const int month = take_month_name();
    if (day.count > 2 || month == 0 || !take('-')) return false;
    const Digits year = take_digits(4);
    if (year.count != 2 && year.count != 4) return false;
    date = {full_year(year), month, day.value};
    return true;
  }

  static bool valid(const WrittenDate &date) {
    const bool leap = ksutil::day_of_year(date.year, 3, 1) == 61;
    if (date.by_day_of_year) return date.day >= 1 && date.day <= (leap ? 366 : 365);
    if (date.month < 1 || date.month > 12 || date.day < 1) return false;
    const int days = ksutil::day_of_year(date.year, date.month + 1, 1) -
                     ksutil::day_of_year(date.year, date.month, 1);
    return date.day <= days;
  }

  bool read_time_part(TimeOfDay &time) {
    if (!take('T') && !take('t')) {
      if (next() != ' ' && next() != '\t') return false;
      while (take(' ') || take('\t')) {
      }
    }
    if (!read_time(time)) return false;
    if (!take('Z')) take('z');
    /* A leap second is the first of the next minute. */
    return rest_.empty() && time.hour <= 23 && time.minute <= 59 && time.second < 61.0;
  }

  bool read_time(TimeOfDay &time) {
    const Digits hour = take_digits(2);
    time.hour = hour.value;
    if (take(':')) {
      const Digits minute = take_digits(2);
      time.minute = minute.value;
      if (hour.count == 0 || minute.count != 2) return false;
      return !take(':') || read_second(time);
    }
    const Digits minute = take_digits(2);
    time.minute = minute.value;
    if (hour.count != 2 || minute.count != 2) return false;
    return !is_digit(next()) || read_second(time);
  }

  /* Two digits with a fraction, converted together for the nearest value. */
  bool read_second(TimeOfDay &time) {
    const std::string_view text = rest_;
    if (take_digits(2).count != 2) return false;
    if (take('.')) {
      while (is_digit(next())) rest_.remove_prefix(1);
    }
    return ksutil::parse_real(text.substr(0, text.size() - rest_.size()), time.second);
  }

  std::string_view rest_;
};

}  // namespace

bool ksutil::parse_date_text(std::string_view text, double &epoch) {
  return DateReader(trimmed(text)).read(epoch);
}
