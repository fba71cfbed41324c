/* new_ids: takes new ids from the counters of lastid within a transaction. */
#ifndef KSUTIL_TOOLS_KSDB_NEW_IDS_H
#define KSUTIL_TOOLS_KSDB_NEW_IDS_H

#include <cstdint>
#include <string>

#include "platform/db/store.h"

namespace ksutil::tools {

/* Takes `count` ids of a counter, which follow each other from `first` on: above the value
 * of the counter and above all ids in use.  `raised` is an id that rows of the same step
 * use, 0 for none.  With a count of 0 an existing counter is only raised to that id.
 * `lastid` is the place of that table in the transaction.  False with a message. */
bool take_new_ids(db::DatabaseStore &store, db::Transaction &step, std::size_t lastid,
                  const std::string &counter, std::int64_t count, std::int64_t raised,
                  std::int64_t &first);

}  // namespace ksutil::tools
#endif
