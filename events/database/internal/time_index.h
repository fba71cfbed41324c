/* Rows by time. */
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
  /* Describes the snapshot from now on; new rows are added to what is there.  False, with
   * a message and describing none, when rows of it could not be had. */
  bool follow(const std::shared_ptr<const db::Snapshot> &rows);

  /* The rows with tstart <= time <= tend, in the order of the table. */
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
