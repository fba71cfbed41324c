/* value_text: writes numbers, times and texts as the exchange formats need them. */
#ifndef KSUTIL_FORMATS_EXCHANGE_TEXT_VALUE_TEXT_H
#define KSUTIL_FORMATS_EXCHANGE_TEXT_VALUE_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>

namespace ksutil::exchange {

/* The shortest text that reads back as the same number, with a point or an exponent as
 * strtod and XML take it. */
std::string number_text(double value);

/* A number in another unit: value * factor with at most 12 digits, so that what the
 * conversion adds behind them is not seen.  Reading it and dividing by the factor gives the
 * value again, rounded to the decimals of any field. */
std::string scaled_text(double value, double factor);

/* Whether a time lies in the years 1 to 9999, which all formats can write. */
bool is_writable_time(double epoch);
/* "2015-08-01T00:23:01.590Z": at least `decimals` digits of the second, and up to 6 where the
 * time has them.  For times that is_writable_time accepts. */
std::string utc_text(double epoch, std::size_t decimals = 3);

/* Takes the next character of UTF-8 at `at`, and moves `at` behind it.  Bytes that are not
 * UTF-8 give false, one byte at a time. */
bool next_character(std::string_view text, std::size_t &at, std::uint32_t &code);

/* Appends a text without what cannot be shown: control characters but for tab and line
 * breaks, bytes that are not UTF-8, and codes that are not characters are given as U+FFFD.
 * Returns how many were. */
std::int64_t append_clean(std::string_view text, std::string &to);

/* The same for one line: line breaks and tabs become blanks. */
std::int64_t append_clean_line(std::string_view text, std::string &to);

}  // namespace ksutil::exchange
#endif
