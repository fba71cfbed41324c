/* clock: the current time, and the calendar.
 *
 * Epoch seconds are seconds since 1970-01-01T00:00:00 UTC without leap seconds, in the
 * proleptic Gregorian calendar.  All functions are exact to the microsecond from 1900
 * to 2100, log nothing and are safe from any thread. */
#ifndef KSUTIL_PLATFORM_CLOCK_CLOCK_H
#define KSUTIL_PLATFORM_CLOCK_CLOCK_H

#include <string>
#include <string_view>

#include "platform/stock/export.h"

extern "C" {

/* The current time in epoch seconds: the system's real-time clock, unless set_clock has
 * replaced it. */
KSUTIL_API double std_now(void);

/* Replaces the clock of std_now; null restores the system's.  For tests. */
KSUTIL_API void set_clock(double (*clock)(void));

/* Convert epoch seconds to year, day of year (from 1), hour, minute and second
 * (0 <= second < 60), and back.
 *
 * e2h   any output may be null.  A time outside the years -9999 to 9999 is clamped to
 *       them; NaN counts as their beginning.
 * h2e   takes any values: doy 366 of a common year is 1 January of the next one, minute
 *       -1 is the last minute of the hour before */
KSUTIL_API void e2h(double epoch, int *year, int *doy, int *hour, int *minute,
                    double *second);
KSUTIL_API double h2e(int year, int doy, int hour, int minute, double second);

/* The day of an epoch time as YYYYDDD, the year and day of e2h. */
KSUTIL_API int yearday(double epoch);

}  // extern "C"

namespace ksutil {

/* The time that means "no time" in records and tables. */
inline constexpr double kNullTime = -9999999999.999;

/* The epoch time at which the day YYYYDDD begins. */
KSUTIL_API double yearday_epoch(int day);

/* Convert a day of year to month (1 to 12) and day of month, and back. */
KSUTIL_API void month_day(int year, int doy, int &month, int &day);
KSUTIL_API int day_of_year(int year, int month, int day);

/* "YYYY-MM-DDThh:mm:ss.mmm", rounded to `decimals` (0 to 6) digits of the second. */
KSUTIL_API std::string time_text(double epoch, int decimals = 3);

/* Reads a date with an optional time of day; false, with the result untouched, when the
 * text is neither.  Forms:
 *   YYYY-MM-DD or YYYY/MM/DD, YYYYMMDD (1900 to 2099), YYYY-DDD (day of year),
 *   yy/mm/dd or yy-mm-dd (70 to 99 are 19yy, else 20yy), dd-MON-yy and dd-MON-yyyy,
 *   MM/DD/YYYY;
 * then nothing (midnight), or T or blanks and hh:mm, hh:mm:ss, hhmmss or hhmm, with
 * decimals of the second, an optional Z.  nn/nn/nn is always yy/mm/dd.  A day that its
 * month does not have is refused; second 60 (a leap second) is the next minute's
 * first. */
KSUTIL_API bool parse_date_text(std::string_view text, double &epoch);

}  // namespace ksutil
#endif
