/* Reading a field from the text of a row, whose table is not at hand.
 *
 * The rows of one table need not have one layout: databases mix the strict and the wide
 * one, some programs write another width of load date, and a record may be older than the
 * file that is there now.  The length of a row tells which layout it has. */
#ifndef KSUTIL_EVENTS_CLIENT_INTERNAL_ROW_FIELD_H
#define KSUTIL_EVENTS_CLIENT_INTERNAL_ROW_FIELD_H

#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/db/columns.h"
#include "platform/db/schema.h"
#include "platform/expr/expr.h"

namespace ksutil::events {

/* The layouts that rows of a table may have, the likeliest first. */
using Layouts = std::vector<std::shared_ptr<const db::Relation>>;

/* A field of a table, bound to each of its layouts. */
class RowField {
 public:
  /* Invalid when the layouts have no such field, or none with a value. */
  RowField(const Layouts &layouts, std::string_view field);
  bool valid() const { return !readers_.empty(); }
  expr::Type type() const { return type_; }

  /* The value in a row, whose text it may point into; null in an empty row and in a layout
   * that lacks the field.  False, with a message, when it cannot be read. */
  bool read(std::string_view row, expr::Value &value) const;

 private:
  using Column = std::variant<db::IntegerColumn, db::RealColumn, db::TextColumn>;
  struct Reader {
    std::size_t width;  // of a row without its newline
    std::shared_ptr<const db::Relation> layout;
    Column column;
  };

  Column column(const db::Relation &layout) const;
  bool read_stretched(std::string_view row, expr::Value &value) const;
  bool unreadable(std::string_view row) const;

  std::string table_, field_;
  expr::Type type_ = expr::Type::kInteger;
  std::vector<Reader> readers_;
};

}  // namespace ksutil::events
#endif
