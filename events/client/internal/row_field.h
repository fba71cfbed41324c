/* row_field: reads a field from the text of a row whose table is not at hand.
 *
 * The rows of one table need not have one layout: databases mix the strict and the wide
 * one, some programs write another width of load date, and a record may be older than
 * the file that is there now.  The length of a row shows which layout it has. */
#ifndef KSUTIL_EVENTS_CLIENT_INTERNAL_ROW_FIELD_H
#define KSUTIL_EVENTS_CLIENT_INTERNAL_ROW_FIELD_H

#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/db/columns.h"
#include "platform/db/row_text.h"
#include "platform/db/schema.h"
#include "platform/expr/expr.h"

namespace ksutil::events {

/* The layouts that rows of a table may have, the most likely first. */
using Layouts = std::vector<std::shared_ptr<const db::Relation>>;

/* RowField: a field of a table, bound to each of the table's layouts. */
class RowField {
 public:
  /* Invalid if no layout has such a field with a value. */
  RowField(const Layouts &layouts, std::string_view field);
  bool valid() const { return !readers_.empty(); }
  expr::Type type() const { return type_; }

  /* The value in a row; a text is copied to `text`.  Null for an empty row and for a
   * layout without the field.  False, with a message, if it cannot be read. */
  bool read(const db::RowText &row, expr::Value &value, std::string &text) const;

 private:
  using Column = std::variant<db::IntegerColumn, db::RealColumn, db::TextColumn>;
  struct Reader {
    std::size_t width;  // length of a row without its newline
    std::shared_ptr<const db::Relation> layout;
    Column column;
  };

  Column column(const db::Relation &layout) const;
  bool read_row(std::string_view row, expr::Value &value) const;
  bool read_stretched(std::string_view row, expr::Value &value) const;
  bool unreadable(std::string_view row) const;

  std::string table_, field_;
  expr::Type type_ = expr::Type::kInteger;
  std::vector<Reader> readers_;
};

}  // namespace ksutil::events
#endif
