/* layout_fit: finds the layout that the records of a table file follow. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_LAYOUT_FIT_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_LAYOUT_FIT_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "platform/db/schema.h"

namespace ksutil::db {

/* The part of a file's beginning that is examined; no record is longer. */
inline constexpr std::size_t kFitBytes = std::size_t{1} << 16;

/* Whether a text holds blanks, line ends and zeros only. */
bool is_blank(std::string_view text);

struct Fit {
  Relation layout;     // width counts a carriage return before the newline, too
  std::string schema;  // the name of the schema that has it
  bool carriage_return = false;
};

/* Chooses among the layouts that `schema` and the built-in schemas have for the table,
 * each with its last field as wide as the length of the first record requires, the
 * layout for which most separators and numbers of the first records are in place.  A
 * layout whose length is not that of the records is not chosen when one of its fields
 * is out of place in most records: then an inner field has another width, and all
 * fields after it are shifted.
 *
 * head    the first kFitBytes of the file
 * whole   whether `head` is the whole file
 * Returns false, without a message, when no layout fits.  A file with less than one
 * record has the layout of the schema. */
bool fit_layout(const Schema &schema, std::string_view table, std::string_view head,
                bool whole, Fit &fit);

}  // namespace ksutil::db
#endif
