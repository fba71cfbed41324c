#include <array>
#include <cmath>
#include <cstdint>

#include "platform/clock/clock.h"
#include "platform/stock/text.h"
#include "tools/plot/ticks.h"

namespace ksutil::plot {
namespace {

constexpr std::int64_t kSecond = 1000000;  // microseconds
constexpr std::int64_t kMinute = 60 * kSecond, kHour = 60 * kMinute, kDay = 24 * kHour;

/* Steps that count microseconds from midnight, which every one of them meets. */
constexpr std::array<std::int64_t, 35> kClockSteps = {
    1,       2,           5,           10,           20,           50,
    100,     200,         500,         1000,         2000,         5000,
    10000,   20000,       50000,       100000,       200000,       500000,
    kSecond, 2 * kSecond, 5 * kSecond, 10 * kSecond, 15 * kSecond, 30 * kSecond,
    kMinute, 2 * kMinute, 5 * kMinute, 10 * kMinute, 15 * kMinute, 30 * kMinute,
    kHour,   2 * kHour,   3 * kHour,   6 * kHour,    12 * kHour};

constexpr std::array<int, 5> kDaySteps = {1, 2, 5, 10, 15};
constexpr std::array<int, 4> kMonthSteps = {1, 2, 3, 6};
constexpr const char *kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr double kMonthSeconds = 30.44 * 86400.0, kYearSeconds = 365.25 * 86400.0;

struct Date {
  int year, month, day;
};

Date date_of(double epoch) {
  int year = 0, doy = 0;
  Date date{};
  e2h(epoch, &year, &doy, nullptr, nullptr, nullptr);
  date.year = year;
  month_day(year, doy, date.month, date.day);
  return date;
}

double epoch_of(int year, int month, int day) {
  return h2e(year, day_of_year(year, month, day), 0, 0, 0.0);
}

/* Adds a tick when it is in the range; the context only where it is a new one. */
class Collector {
 public:
  Collector(double low, double high) : low_(low), high_(high) {}

  void add(double value, std::string label, std::string context) {
    if (value < low_ || value > high_) return;
    const bool changed = context != context_;
    if (changed) context_ = context;
    result_.ticks.push_back(
        {value, std::move(label), changed ? std::move(context) : std::string()});
  }
  Ticks take() { return std::move(result_); }

 private:
  double low_, high_;
  std::string context_;
  Ticks result_;
};

Ticks clock_ticks(double low, double high, std::int64_t step) {
  Collector collector(low, high);
  /* Whole microseconds from the midnight before: exact, however small the step. */
  const double midnight = std::floor(low / 86400.0) * 86400.0;
  const double microsecond = static_cast<double>(kSecond);
  auto at = static_cast<std::int64_t>((low - midnight) * microsecond) / step * step;
  int decimals = 0;
  for (std::int64_t unit = kSecond; unit > step && decimals < 6; unit /= 10) decimals++;
  for (int i = 0; i < 200; i++, at += step) {
    const double value = midnight + static_cast<double>(at) / microsecond;
    if (value > high) break;
    const std::int64_t in_day = at % kDay;
    const Date date = date_of(midnight + static_cast<double>(at / kDay) * 86400.0);
    const auto hour = static_cast<int>(in_day / kHour);
    const auto minute = static_cast<int>(in_day % kHour / kMinute);
    const double second = static_cast<double>(in_day % kMinute) / microsecond;
    std::string context =
        format_text("%04d-%02d-%02d", date.year, date.month, date.day);
    std::string label;
    if (step >= kMinute) {
      label = format_text("%02d:%02d", hour, minute);
    } else if (step >= kSecond) {
      label = format_text("%02d:%02d:%02.0f", hour, minute, second);
    } else {
      label = format_text("%0*.*f", 3 + decimals, decimals, second);
      context += format_text(" %02d:%02d", hour, minute);
    }
    collector.add(value, std::move(label), std::move(context));
  }
  return collector.take();
}

Ticks day_ticks(double low, double high, int step) {
  Collector collector(low, high);
  for (double day = std::floor(low / 86400.0) * 86400.0; day <= high; day += 86400.0) {
    const Date date = date_of(day);
    const bool last_days = step > 1 && date.day > 31 - (step + 1) / 2;
    if ((date.day - 1) % step != 0 || last_days) continue;
    collector.add(day, format_text("%d %s", date.day, kMonths[date.month - 1]),
                  std::to_string(date.year));
  }
  return collector.take();
}

Ticks month_ticks(double low, double high, int step) {
  Collector collector(low, high);
  for (int year = date_of(low).year; year <= date_of(high).year; year++) {
    for (int month = 1; month <= 12; month += step) {
      collector.add(epoch_of(year, month, 1), kMonths[month - 1], std::to_string(year));
    }
  }
  return collector.take();
}

Ticks year_ticks(double low, double high, int count) {
  int step = 1;
  for (const int factor : {2, 5, 10, 20, 50, 100, 200, 500, 1000, 2000, 5000}) {
    if ((high - low) / kYearSeconds / step <= count) break;
    step = factor;
  }
  Collector collector(low, high);
  const int first = date_of(low).year, last = date_of(high).year;
  for (int year = first - (first % step + step) % step; year <= last; year += step) {
    collector.add(epoch_of(year, 1, 1), std::to_string(year), "");
  }
  return collector.take();
}

}  // namespace

Ticks time_ticks(double low, double high, int count) {
  /* Beyond the years that the calendar knows, they are just numbers. */
  if (date_of(low).year < -9990 || date_of(high).year > 9990) {
    return linear_ticks(low, high, count);
  }
  const double rough = (high - low) / std::max(count, 1);
  for (const std::int64_t step : kClockSteps) {
    if (static_cast<double>(step) / static_cast<double>(kSecond) >= rough) {
      return clock_ticks(low, high, step);
    }
  }
  for (const int step : kDaySteps) {
    if (step * 86400.0 >= rough) return day_ticks(low, high, step);
  }
  for (const int step : kMonthSteps) {
    if (step * kMonthSeconds >= rough) return month_ticks(low, high, step);
  }
  return year_ticks(low, high, count);
}

}  // namespace ksutil::plot
