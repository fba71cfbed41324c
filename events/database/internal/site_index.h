/* SiteIndex: finds the row of a station that was valid at a time. */
#ifndef KSUTIL_EVENTS_DATABASE_INTERNAL_SITE_INDEX_H
#define KSUTIL_EVENTS_DATABASE_INTERNAL_SITE_INDEX_H

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/db/snapshot.h"

namespace ksutil::events {

/* The rows of a site table by station and by the days (YYYYDDD) of their epochs, ends
 * included; a null end is open.  Rows that cannot be read are left out. */
class SiteIndex {
 public:
  /* Builds the index of a snapshot, unless it is that already; null empties it.  False
   * with a message, and an empty index, when rows of the snapshot could not be read for
   * now. */
  bool follow(const std::shared_ptr<const db::Snapshot> &sites);

  /* The row of a station that was valid at an epoch time; of several rows the one whose
   * epoch began last, and of those the first in the table.  -1: no such row, or a null
   * time. */
  long find(std::string_view sta, double time) const;

 private:
  struct Epoch {
    int64_t ondate, offdate;
    long record;
  };
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const {
      return std::hash<std::string_view>()(text);
    }
  };

  std::shared_ptr<const db::Snapshot> sites_;
  std::unordered_map<std::string, std::vector<Epoch>, Hash, std::equal_to<>> epochs_;
};

}  // namespace ksutil::events
#endif
