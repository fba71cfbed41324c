/* RowFilter: evaluates a condition on the rows of one table, for C++ code that reads many
 * rows. */
#ifndef KSUTIL_PLATFORM_DB_ROW_FILTER_H
#define KSUTIL_PLATFORM_DB_ROW_FILTER_H

#include <memory>
#include <string_view>

#include "platform/db/schema.h"
#include "platform/expr/expr.h"
#include "platform/stock/export.h"

namespace ksutil::db {

/* An expression bound to a layout.  One thread at a time. */
class KSUTIL_API RowFilter {
 public:
  RowFilter(const Relation &layout, std::string_view expression);
  ~RowFilter();
  RowFilter(const RowFilter &) = delete;
  RowFilter &operator=(const RowFilter &) = delete;

  /* False when the expression does not compile; error() then says why. */
  bool good() const;
  const expr::Error &error() const;

  /* Whether the expression is true for a row: 1; 0 also for a null; -1, with a message,
   * when it has no value there or its value is not true or false. */
  int accepts(std::string_view row) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace ksutil::db
#endif
