/* Stations by code and day. */
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
  /* Describes the snapshot from now on; false, with a message and describing none, when
   * rows of it could not be had. */
  bool follow(const std::shared_ptr<const db::Snapshot> &sites);

  /* The row of a station that was valid at an epoch time; of several the one that began
   * last, the first of those in the table.  -1: none, or the time is null. */
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
