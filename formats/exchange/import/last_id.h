/* last_id: finds the last id that a counter of a database has given out. */
#ifndef KSUTIL_FORMATS_EXCHANGE_IMPORT_LAST_ID_H
#define KSUTIL_FORMATS_EXCHANGE_IMPORT_LAST_ID_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/db/store.h"

namespace ksutil::exchange {

struct LastId {
  std::int64_t value = 0;  // the greatest of the counter's rows and of the ids in use
  long record = -1;        // the row of lastid with the greatest value; -1: it has none
};

/* Finds the last id of a counter, such as "orid".  `open_table` gives the rows of tables
 * that the caller has, and null for others.  False, with a message, when rows cannot be
 * had. */
using OpenTable =
    std::function<std::shared_ptr<const db::Snapshot>(const std::string &table)>;
bool find_last_id(db::DatabaseStore &store, const db::Snapshot &lastid,
                  const std::string &counter, const OpenTable &open_table,
                  LastId &last);

}  // namespace ksutil::exchange
#endif
