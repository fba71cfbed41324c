/* natural_keys: chooses the fields by which two tables are matched when the caller
 * names no fields. */
#ifndef KSUTIL_PLATFORM_DB_MATCH_INTERNAL_NATURAL_KEYS_H
#define KSUTIL_PLATFORM_DB_MATCH_INTERNAL_NATURAL_KEYS_H

#include <string>
#include <vector>

#include "platform/db/schema.h"

namespace ksutil::db {

/* The patterns that match a row of `key` with rows of `table` by the keys of both;
 * false when they have no key in common. */
bool natural_keys(const Relation &key, const Relation &table,
                  std::vector<std::string> &kpattern,
                  std::vector<std::string> &tpattern);

}  // namespace ksutil::db
#endif
