/* BoundLayout: reads every field of the rows of one layout, each with its type. */
#ifndef KSUTIL_PLATFORM_DB_INTERNAL_BOUND_LAYOUT_H
#define KSUTIL_PLATFORM_DB_INTERNAL_BOUND_LAYOUT_H

#include <cstdint>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/db/columns.h"
#include "platform/db/schema.h"
#include "platform/expr/expr.h"

namespace ksutil::db {

/* The type that expressions see; a pointer field has none and gives false. */
bool expression_type(FieldType type, expr::Type &result);

class BoundLayout {
 public:
  explicit BoundLayout(const Relation &layout);

  const Relation &relation() const { return relation_; }

  /* Equal for layouts with the same table name and the same fields in the same order,
   * wherever in the row they stand. */
  std::uint64_t signature() const { return signature_; }

  /* The value of a field; the address of a pointer stands in `integer`.  False, with a
   * message that names the field, when it cannot be read.  The text lives in `row`. */
  bool value(int field, std::string_view row, expr::Value &result) const;

  /* Whether every field of the row can be read. */
  bool readable(std::string_view row) const;

 private:
  using Column = std::variant<std::monostate, IntegerColumn, RealColumn, TextColumn>;
  bool read(std::size_t field, std::string_view row, expr::Value &result) const;

  Relation relation_;
  std::vector<Column> columns_;
  std::uint64_t signature_;
};

/* One row under its layout, as expressions read it. */
class RowRecord final : public expr::Record {
 public:
  RowRecord() = default;
  RowRecord(const BoundLayout &layout, std::string_view row)
      : layout_(&layout), row_(row) {}
  bool value(int slot, expr::Value &result) const override {
    return layout_->value(slot, row_, result);
  }

 private:
  const BoundLayout *layout_ = nullptr;
  std::string_view row_;
};

}  // namespace ksutil::db
#endif
