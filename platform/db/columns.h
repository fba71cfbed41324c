/* columns: reads and writes one field of a row, typed.  A reader is bound once to a layout
 * and then reads row after row without allocation.
 *
 * read() gives false only when the field cannot be read at all (text where a number is
 * meant, a row too short for the field).  "-" and blanks in a number are its null.  A
 * reader of a field that the layout lacks is not valid(), and reads as null.
 * Values are parsed leniently, as real files need it: blanks on both sides, no digit
 * before the point, no point, exponents, NaN (null). */
#ifndef KSUTIL_PLATFORM_DB_COLUMNS_H
#define KSUTIL_PLATFORM_DB_COLUMNS_H

#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/db/schema.h"
#include "platform/stock/export.h"

namespace ksutil::db {

class KSUTIL_API IntegerColumn {
 public:
  IntegerColumn() = default;
  IntegerColumn(const Relation &layout, std::string_view field);
  bool valid() const { return width_ > 0; }
  std::int64_t null() const { return null_; }
  bool read(std::string_view row, std::int64_t &value) const;

 private:
  int offset_ = 0, width_ = 0;
  std::int64_t null_ = -1;
};

/* Reals and times; also load dates, whose texts it understands. */
class KSUTIL_API RealColumn {
 public:
  RealColumn() = default;
  RealColumn(const Relation &layout, std::string_view field);
  bool valid() const { return width_ > 0; }
  double null() const { return null_; }
  bool read(std::string_view row, double &value) const;

 private:
  int offset_ = 0, width_ = 0;
  double null_ = -999.0;
  bool date_ = false;
};

/* Texts, without the blanks at their right end. */
class KSUTIL_API TextColumn {
 public:
  TextColumn() = default;
  TextColumn(const Relation &layout, std::string_view field);
  bool valid() const { return width_ > 0; }
  bool is_null(std::string_view value) const { return value.empty() || value == null_; }
  bool read(std::string_view row, std::string_view &value) const;

 private:
  int offset_ = 0, width_ = 0;
  std::string null_;
};

/* Writes a value into its place in `row`, which holds at least the field; false, with the
 * row untouched and a message that names the field, when it does not fit.
 *
 * Numbers are printed in the field's format: digits beyond its decimals are rounded, but a
 * number that needs more characters than the field has is refused, as are NaN and
 * infinities.  The null of a field is printed as its null text.  A load date is printed as
 * epoch seconds with 5 decimals, at the left of a wider field.
 * Texts go at the left; an empty one is written as the null.  Control characters are
 * refused.  A text for a numeric field is read as a number (or load date) first. */
KSUTIL_API bool write_integer(const Field &field, std::int64_t value, std::string &row);
KSUTIL_API bool write_real(const Field &field, double value, std::string &row);
KSUTIL_API bool write_text(const Field &field, std::string_view value,
                           std::string &row);

/* Whether the reader of the type can read a field in a row.  A pointer cannot be read:
 * it is valid only in its own process. */
KSUTIL_API bool is_readable(const Relation &layout, const Field &field,
                            std::string_view row);

/* The layout of a row that fits `layout` except for the width of its last field, as the
 * load dates of other programs may be written; `row` has no newline.  None if a field
 * before it is out of place. */
KSUTIL_API std::optional<Relation> stretched_layout(const Relation &layout,
                                                    std::string_view row);

/* A load date as epoch seconds: a number, or one of the date texts of clock.h.  False
 * for other texts; "-" and blanks give the null. */
KSUTIL_API bool read_load_date(std::string_view text, double null, double &epoch);

}  // namespace ksutil::db
#endif
