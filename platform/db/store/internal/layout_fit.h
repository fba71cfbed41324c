/* layout_fit: finds the layout that the records of a table file really have. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_LAYOUT_FIT_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_LAYOUT_FIT_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "platform/db/schema.h"

namespace ksutil::db {

/* As much of a file's beginning as the choice looks at; no record is longer. */
inline constexpr std::size_t kFitBytes = std::size_t{1} << 16;

/* Whether a text holds blanks, line ends and zeros only. */
bool is_blank(std::string_view text);

struct Fit {
  Relation layout;     // width counts a carriage return before the newline, too
  std::string schema;  // the name of the schema that it comes from
  bool carriage_return = false;
};

/* Chooses among the layouts that `schema` and the built-in schemas have for the table,
 * each with its last field as wide as the length of the first record leaves it, the one in
 * which separators and numbers of the first records are where they belong.  A layout whose
 * length is not that of the records is not taken when one of its fields is out of place in
 * most records: an inner field has another width then, and all behind it are shifted.
 *
 * head    the first kFitBytes of the file
 * whole   whether that is all of it
 * Returns false, without a message, when none fits.  A file with less than one record has
 * the layout of the schema. */
bool fit_layout(const Schema &schema, std::string_view table, std::string_view head,
                bool whole, Fit &fit);

}  // namespace ksutil::db
#endif
