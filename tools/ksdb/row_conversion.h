/* RowConversion: takes rows of a table over into another layout of the table, and compares
 * rows by their values. */
#ifndef KSUTIL_TOOLS_KSDB_ROW_CONVERSION_H
#define KSUTIL_TOOLS_KSDB_ROW_CONVERSION_H

#include <string>
#include <string_view>
#include <vector>

#include "platform/db/columns.h"
#include "platform/db/schema.h"

namespace ksutil::tools {

class RowConversion {
 public:
  /* Both layouts must outlive the conversion. */
  RowConversion(const db::Relation &from, const db::Relation &to);

  /* Fields that the other layout does not have, with commas; "" when there are none. */
  const std::string &missing() const { return missing_; }

  /* Whether every field of the row can be read. */
  bool readable(std::string_view row) const;

  /* Appends the row in the other layout; false, with a message, when a value does not
   * fit. */
  bool append(std::string_view row, std::string &rows) const;

  /* The first field whose value differs between a row and its copy; null when all are
   * equal.  A store that keeps numbers has those that were written by hand with more
   * digits than their field's format rounded to it: counted in `rounded`. */
  const db::Field *difference(std::string_view row, std::string_view copy,
                              long &rounded) const;

 private:
  struct Pair {
    const db::Field *from, *to;
  };
  bool same_value(const Pair &pair, std::string_view row, std::string_view copy,
                  long &rounded) const;

  const db::Relation &from_, &to_;
  std::vector<Pair> pairs_;
  bool same_places_ = true;
  std::string missing_, null_;
};

}  // namespace ksutil::tools
#endif
