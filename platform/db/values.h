/* values: reads and writes fields of a record with the compiler's types, beside the
 * variadic dbgetv, dbputv and dbaddv.
 *
 *     using namespace ksutil::db;
 *     const long row = add_values(origin, {{"orid", 7}, {"lat", 35.5}, {"auth", "me"}});
 *     origin.record = row;
 *     long orid = 0;
 *     std::string auth;
 *     if (get_values(origin, {{"orid", orid}, {"auth", auth}}) < 0) ...
 *
 * A name stands with its value.  Integers of any size, reals and texts are taken; a bool,
 * a character or a pointer does not compile.  A value of another type than the field is an
 * error with a message that names both, except that an integer is taken for a real, time
 * or load date.  Pointer fields are left to the variadic functions.
 * Threads and errors: as db.h.  All or nothing; null texts do not exist here. */
#ifndef KSUTIL_PLATFORM_DB_VALUES_H
#define KSUTIL_PLATFORM_DB_VALUES_H

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

#include "platform/db/db.h"
#include "platform/stock/export.h"

namespace ksutil::db {

template <class T>
concept IntegerValue =
    std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char> &&
    !std::same_as<T, wchar_t> && !std::same_as<T, char8_t> &&
    !std::same_as<T, char16_t> && !std::same_as<T, char32_t>;

/* A field and the value to be written to it. */
struct FieldValue {
  template <IntegerValue T>
  FieldValue(std::string_view field, T number)
      : name(field), value(static_cast<std::int64_t>(number)) {
    /* A number beyond the signed range fits no field. */
    if (!std::in_range<std::int64_t>(number)) value = static_cast<double>(number);
  }
  template <std::floating_point T>
  FieldValue(std::string_view field, T number)
      : name(field), value(static_cast<double>(number)) {}
  template <class T>
  requires std::convertible_to<const T &, std::string_view> FieldValue(
      std::string_view field, const T &text)
      : name(field), value(std::string_view(text)) {}
  /* A null text counts as an empty one. */
  FieldValue(std::string_view field, const char *text)
      : name(field),
        value(text == nullptr ? std::string_view() : std::string_view(text)) {}
  FieldValue(std::string_view, std::nullptr_t) = delete;

  std::string_view name;
  std::variant<std::int64_t, double, std::string_view> value;
};

/* A field and the variable that receives its value: a long for integers, a double for
 * reals, times, load dates and integers, a std::string for texts. */
struct FieldResult {
  FieldResult(std::string_view field, long &to) : name(field), result(&to) {}
  FieldResult(std::string_view field, double &to) : name(field), result(&to) {}
  FieldResult(std::string_view field, std::string &to) : name(field), result(&to) {}

  std::string_view name;
  std::variant<long *, double *, std::string *> result;
};

/* dbgetv: 0, or -1 with no variable touched. */
KSUTIL_API int get_values(Dbptr record, std::initializer_list<FieldResult> results);

/* dbputv: 0, or -1 with the record as it was. */
KSUTIL_API int put_values(Dbptr record, std::initializer_list<FieldValue> values);

/* dbaddv: the number of the new record, or -1.  lddate is set to now unless it is given. */
KSUTIL_API long add_values(Dbptr table, std::initializer_list<FieldValue> values);

}  // namespace ksutil::db
#endif
