/* PgRows: turns the rows of a table into SQL values and back.
 *
 * A field of integers or of days is a bigint, of reals, times and load dates (epoch
 * seconds) a double precision, of texts a text.  The null of a field is NULL; a value
 * that equals the null of its field reads as the null too, and so does an empty text.
 * Numbers are shown in the format of their field, which rounds them to its decimals. */
#ifndef KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_ROWS_H
#define KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_ROWS_H

#include <charconv>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/columns.h"
#include "platform/db/schema.h"

namespace ksutil::db {

class PgRows {
 public:
  explicit PgRows(std::shared_ptr<const Relation> relation);

  const Relation &relation() const { return *relation_; }
  /* Bytes of a row with its newline. */
  std::size_t length() const { return length_; }
  /* "lat","lon",...: the columns in the order of the fields. */
  const std::string &columns() const { return columns_; }
  /* The SQL type of a field; "" for one that cannot be kept (a pointer). */
  static const char *type_of(const Field &field);

  /* Writes the row of a line of COPY TO STDOUT, which has the columns above, to
   * row[0 .. length() - 1].  False when a value does not fit its field or holds a control
   * character: the row is then blank, without its newline, and `cause` says why. */
  bool render(std::string_view line, char *row, std::string &cause) const;

  /* Appends the row as a line for COPY FROM STDIN, newline included; false with a
   * message in the name of `who` when a field cannot be read. */
  bool to_copy(const char *who, std::string_view row, std::string &line) const;

  /* Appends "(a,b,...)" with the values of a line of to_copy as literals, each with its
   * type when `typed`.  `quote` makes a literal of a text. */
  void to_values(std::string_view line, bool typed,
                 const std::function<std::string(std::string_view)> &quote,
                 std::string &values) const;

 private:
  struct Plan {
    FieldType type;
    std::size_t offset, width;
    bool left;  // printed at the left of its place
    std::chars_format style;
    int decimals;
    double null_real;
    std::int64_t null_integer;
    std::string null_text;
  };

  bool render_field(const Plan &plan, std::string_view value, char *place,
                    const char *&cause) const;
  bool blank_row(std::size_t field, std::string_view value, const char *cause,
                 char *row, std::string &told) const;
  /* The value of a field as SQL text; "" and null = true for the null. */
  bool value_of(const char *who, std::size_t field, std::string_view row, bool &null,
                std::string &value) const;

  const std::shared_ptr<const Relation> relation_;
  const std::size_t length_;
  std::string columns_;
  std::vector<Plan> plans_;
  std::vector<IntegerColumn> integers_;  // by field; not valid for other types
  std::vector<RealColumn> reals_;
  std::vector<TextColumn> texts_;
};

}  // namespace ksutil::db
#endif
