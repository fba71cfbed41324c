#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>

#include "platform/clock/clock.h"
#include "platform/stock/text.h"

namespace {

constexpr std::int64_t kDay = 86400;

/* The calendar repeats every 400 years: dates are taken within one such cycle, so that
 * the years of std::chrono do not bound ours. */
constexpr std::int64_t kCycleYears = 400;
constexpr std::int64_t kCycleDays = 146097;

/* Quotient and remainder of a positive divisor, the remainder never negative. */
constexpr std::int64_t floor_div(std::int64_t a, std::int64_t b) {
  return a / b - (a % b < 0 ? 1 : 0);
}
constexpr std::int64_t floor_mod(std::int64_t a, std::int64_t b) {
  return a - floor_div(a, b) * b;
}

/* Days from 1970-01-01 to the date; any month and day, as carries. */
constexpr std::int64_t days_from_date(std::int64_t year, std::int64_t month,
                                      std::int64_t day) {
  year += floor_div(month - 1, 12);
  const std::chrono::sys_days first =
      std::chrono::year(static_cast<int>(floor_mod(year, kCycleYears))) /
      std::chrono::month(static_cast<unsigned>(floor_mod(month - 1, 12)) + 1) / 1;
  return floor_div(year, kCycleYears) * kCycleDays + first.time_since_epoch().count() +
         day - 1;
}

constexpr std::int64_t kFirstDay = days_from_date(-9999, 1, 1);
constexpr std::int64_t kEndDay = days_from_date(10000, 1, 1);

struct Date {
  std::int64_t year;
  int month, day;
};

/* The date of a day counted from 1970-01-01. */
Date date_of(std::int64_t days) {
  const std::chrono::year_month_day date{std::chrono::sys_days(
      std::chrono::days(static_cast<int>(floor_mod(days, kCycleDays))))};
  return {int{date.year()} + floor_div(days, kCycleDays) * kCycleYears,
          static_cast<int>(unsigned{date.month()}),
          static_cast<int>(unsigned{date.day()})};
}

/* An epoch time as whole seconds and the rest, 0 <= rest < 1. */
struct SplitTime {
  std::int64_t seconds;
  double rest;
};

SplitTime split(double epoch) {
  constexpr auto kFirst = static_cast<double>(kFirstDay * kDay);
  constexpr auto kLast = static_cast<double>(kEndDay * kDay - 1);
  if (std::isnan(epoch)) epoch = kFirst;
  epoch = std::clamp(epoch, kFirst, kLast);
  const double whole = std::floor(epoch);
  return {static_cast<std::int64_t>(whole), epoch - whole};
}

struct Calendar {
  std::int64_t year, doy, hour, minute, second;
};

Calendar calendar(std::int64_t seconds) {
  const std::int64_t days = floor_div(seconds, kDay);
  const std::int64_t of_day = floor_mod(seconds, kDay);
  const std::int64_t year = date_of(days).year;
  return {year, days - days_from_date(year, 1, 1) + 1, of_day / 3600, of_day / 60 % 60,
          of_day % 60};
}

void put(int *to, std::int64_t value) {
  if (to != nullptr) *to = static_cast<int>(value);
}

}  // namespace

void e2h(double epoch, int *year, int *doy, int *hour, int *minute, double *second) {
  SplitTime time = split(epoch);
  /* For a time just below a full minute the sum of the parts may round to 60.0 s: the
   * time is then the next minute, never second 60. */
  const auto of_minute = static_cast<double>(floor_mod(time.seconds, 60));
  if (of_minute + time.rest >= 60.0 || time.rest >= 1.0) {
    ++time.seconds;
    time.rest = 0.0;
  }
  const Calendar parts = calendar(time.seconds);
  put(year, parts.year);
  put(doy, parts.doy);
  put(hour, parts.hour);
  put(minute, parts.minute);
  if (second != nullptr) *second = static_cast<double>(parts.second) + time.rest;
}

double h2e(int year, int doy, int hour, int minute, double second) {
  const std::int64_t days = days_from_date(year, 1, 1) + doy - 1;
  const std::int64_t whole =
      days * kDay + std::int64_t{hour} * 3600 + std::int64_t{minute} * 60;
  return static_cast<double>(whole) + second;
}

int yearday(double epoch) {
  int year = 0, doy = 0;
  e2h(epoch, &year, &doy, nullptr, nullptr, nullptr);
  return year * 1000 + doy;
}

namespace ksutil {

double yearday_epoch(int day) {
  const auto year = static_cast<int>(floor_div(day, 1000));
  return h2e(year, static_cast<int>(floor_mod(day, 1000)), 0, 0, 0.0);
}

void month_day(int year, int doy, int &month, int &day) {
  const Date date = date_of(days_from_date(year, 1, 1) + doy - 1);
  month = date.month;
  day = date.day;
}

int day_of_year(int year, int month, int day) {
  return static_cast<int>(days_from_date(year, month, day) -
                          days_from_date(year, 1, 1) + 1);
}

std::string time_text(double epoch, int decimals) {
  decimals = std::clamp(decimals, 0, 6);
  std::int64_t scale = 1;
  for (int i = 0; i < decimals; ++i) scale *= 10;
  SplitTime time = split(epoch);
  std::int64_t rest = std::llround(time.rest * static_cast<double>(scale));
  if (rest >= scale) {
    ++time.seconds;
    rest -= scale;
  }
  const Calendar parts = calendar(time.seconds);
  int month = 0, day = 0;
  month_day(static_cast<int>(parts.year), static_cast<int>(parts.doy), month, day);
  std::string text =
      format_text("%04d-%02d-%02dT%02d:%02d:%02d", static_cast<int>(parts.year), month,
                  day, static_cast<int>(parts.hour), static_cast<int>(parts.minute),
                  static_cast<int>(parts.second));
  if (decimals > 0) {
    text += format_text(".%0*lld", decimals, static_cast<long long>(rest));
  }
  return text;
}

}  // namespace ksutil
