/* column_values: gives the value of a column of a row, the null of the column where the row
 * has none. */
#ifndef KSUTIL_FORMATS_EXCHANGE_IMPORT_COLUMN_VALUES_H
#define KSUTIL_FORMATS_EXCHANGE_IMPORT_COLUMN_VALUES_H

#include <cstdint>
#include <string_view>

#include "platform/db/columns.h"

namespace ksutil::exchange {

inline std::int64_t integer_of(const db::IntegerColumn &column, std::string_view row) {
  std::int64_t value = column.null();
  return column.read(row, value) ? value : column.null();
}

}  // namespace ksutil::exchange
#endif
