/* assignments: writes values into the fields of a row, for the variadic and the typed
 * functions alike. */
#ifndef KSUTIL_PLATFORM_DB_INTERNAL_ASSIGNMENTS_H
#define KSUTIL_PLATFORM_DB_INTERNAL_ASSIGNMENTS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/db/internal/table_source.h"

namespace ksutil::db {

struct Assignment {
  int field;
  /* A text with a null address is refused. */
  std::variant<std::int64_t, double, std::string_view, void *> value;
};

/* Writes all values into the row; false, with a message in the name of `who`, at the
 * first value that cannot be written. */
bool assign(const char *who, const Relation &layout,
            const std::vector<Assignment> &assignments, std::string &row);

/* Appends the null record with these values, and with lddate set to now unless it is
 * among them: the number of the record, or -1 with a message. */
long append_assigned(const char *who, TableSource &table,
                     std::vector<Assignment> assignments);

}  // namespace ksutil::db
#endif
