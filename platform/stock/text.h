/* text: converts between texts and numbers, whatever the process's locale. */
#ifndef KSUTIL_PLATFORM_STOCK_TEXT_H
#define KSUTIL_PLATFORM_STOCK_TEXT_H

#include <locale.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/stock/export.h"

extern "C" {

/* strtod as in the C locale, whatever setlocale says: leading blanks, sign, decimal and
 * hexadecimal numbers, inf, nan.  *end (may be null) is `text` when nothing was
 * parsed. */
KSUTIL_API double fix_strtod(const char *text, char **end);

}  // extern "C"

namespace ksutil {

/* Puts this thread into the C locale for one scope, around printf and scanf of
 * reals. */
class KSUTIL_API ScopedCLocale {
 public:
  ScopedCLocale();
  ~ScopedCLocale();
  ScopedCLocale(const ScopedCLocale &) = delete;
  ScopedCLocale &operator=(const ScopedCLocale &) = delete;

 private:
  locale_t previous_;
};

/* `text` without blanks (space, tab, CR, LF) at both ends, at the right end. */
KSUTIL_API std::string_view trimmed(std::string_view text);
KSUTIL_API std::string_view right_trimmed(std::string_view text);

/* A SEED location code without blanks: "" for one or two hyphens, too, which stand for a
 * blank code where blanks would not be seen. */
KSUTIL_API std::string_view location_code(std::string_view text);

/* ASCII lower case. */
KSUTIL_API std::string lowered(std::string_view text);

/* Convert a text that is one number, with blanks allowed around it.  False, with the
 * result untouched, for any other text, and from parse_integer for a number that does
 * not fit.  parse_real also accepts numbers without a digit before the point, without a
 * point, with an exponent, "NaN" and "inf". */
KSUTIL_API bool parse_integer(std::string_view text, std::int64_t &result);
KSUTIL_API bool parse_real(std::string_view text, double &result);

/* printf into a string, in the C locale. */
KSUTIL_API std::string format_text(const char *format, ...) KSUTIL_PRINTF(1, 2);

/* Whether `text` matches the shell pattern (* ? [abc] [a-z] [!x], backslash quotes);
 * linear in |text| * |pattern|, so no pattern can make it hang. */
KSUTIL_API bool glob_match(std::string_view pattern, std::string_view text);

}  // namespace ksutil
#endif
