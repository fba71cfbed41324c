/* GreatestIds: follows the greatest id in use of each table and field from snapshot to
 * snapshot.  It never falls, so that an id is not given out a second time after its row
 * has been removed. */
#ifndef KSUTIL_PLATFORM_DB_INTERNAL_GREATEST_IDS_H
#define KSUTIL_PLATFORM_DB_INTERNAL_GREATEST_IDS_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "platform/db/snapshot.h"

namespace ksutil::db {

class GreatestIds {
 public:
  /* The greatest id in use; 0 when there is none.  Reads only what has changed since
   * the last call. */
  std::int64_t follow(const std::string &table, const std::string &field,
                      const std::shared_ptr<const Snapshot> &snapshot);

 private:
  struct Seen {
    std::shared_ptr<const Snapshot> snapshot;
    std::int64_t greatest = 0;
  };
  std::map<std::pair<std::string, std::string>, Seen> seen_;
};

}  // namespace ksutil::db
#endif
