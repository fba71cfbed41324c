/* TimeIndex: finds the rows of a table whose time is in a span. */
#ifndef KSUTIL_EVENTS_DATABASE_INTERNAL_TIME_INDEX_H
#define KSUTIL_EVENTS_DATABASE_INTERNAL_TIME_INDEX_H

#include <memory>
#include <vector>

#include "platform/db/snapshot.h"

namespace ksutil::events {

/* The rows of a table by their field "time".  Rows whose time is null or cannot be read
 * are left out. */
class TimeIndex {
 public:
  /* Builds the index of a snapshot; of one that differs from the last by rows at its
   * end it reads those only.  Null empties the index.  False with a message, and an
   * empty index, when rows of the snapshot could not be read for now. */
  bool follow(const std::shared_ptr<const db::Snapshot> &rows);

  /* The numbers of the rows with tstart <= time <= tend, in the order of the table. */
  std::vector<long> find(double tstart, double tend) const;

 private:
  struct Entry {
    double time;
    long record;
    bool operator<(const Entry &other) const {
      return time != other.time ? time < other.time : record < other.record;
    }
  };
  void add(const db::Snapshot &rows, long from);

  std::shared_ptr<const db::Snapshot> rows_;
  std::vector<Entry> entries_;  // sorted
};

}  // namespace ksutil::events
#endif
