/* ListFollower: remembers which rows the published list was made from, so that the next
 * refresh reads only events whose rows have changed. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_LIST_FOLLOWER_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_LIST_FOLLOWER_H

#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_set>
#include <vector>

#include "core/Table.h"
#include "events/reading/internal/tree_reader.h"
#include "events/records.h"
#include "platform/db/snapshot.h"

namespace ksutil::events {

/* The rows of the event table that the list shows. */
struct RowWindow {
  long first = 0, count = 0;  // rows first .. count - 1
};

/* Facts about a list as a whole. */
struct ListSummary {
  double latest_time = 0.0;  // greatest time of a preferred origin
  int64_t lastmodified_evid = -1, mostrecent_evid = -1;
};

/* The events to read again in order to bring a list up to date. */
struct AffectedEvents {
  std::vector<long> rows;  // rows of table event, of events in the list, ascending
  std::unordered_set<int64_t> evids;  // in the list or not
};

/* Guarded by the lock of the server's database. */
class ListFollower {
 public:
  /* Makes the next reading of the list a full one. */
  void forget();
  /* Changes with each forget(). */
  long epoch() const { return epoch_; }

  /* Whether `list` is the list that finish() noted last. */
  bool follows(const std::shared_ptr<const Table<EVEvent>> &list) const {
    return known_ && list_.lock() == list;
  }
  /* The events of the followed list whose rows differ in the reader's snapshots,
   * without new rows at the end of the table.  Nothing if that cannot be known or the
   * window shows other rows now: then the list must be read in full. */
  std::optional<AffectedEvents> affected(const TreeReader &reader,
                                         RowWindow window) const;

  /* The index in the list of the event of a row; -1: not in the list. */
  long place(long row) const;
  /* Whether an event of the list has the evid; looks at all of them. */
  bool lists(int64_t evid) const;
  int64_t evid_at(long place) const { return entry(place).evid; }
  long event_rows() const { return window_.count; }
  long next_order() const { return next_order_; }

  /* Notes a list that was read in full, or changes of the followed list. */
  void start(const Table<EVEvent> &events, long next_order);
  void replace(long place, const EVEvent &event);
  void append(const EVEvent &event);
  void set_next_order(long next_order) { next_order_ = next_order; }
  ListSummary summary() const;
  /* Ends the notes: the reading, which began in `epoch`, has been published as `list`.
   * No effect if forget() was called since. */
  void finish(const ListSnapshots &snapshots, RowWindow window, long epoch,
              const std::shared_ptr<const Table<EVEvent>> &list);

 private:
  struct Entry {
    long row;
    int64_t evid;
    double modified, time;
    bool located;  // has a preferred origin
  };
  static Entry entry_of(const EVEvent &event);
  const Entry &entry(long place) const {
    return entries_[static_cast<std::size_t>(place)];
  }

  bool known_ = false;
  long epoch_ = 0;
  std::weak_ptr<const Table<EVEvent>> list_;
  ListSnapshots snapshots_;
  RowWindow window_;
  long next_order_ = 0;
  std::vector<Entry> entries_;  // one for each event of the list, ascending by row
};

}  // namespace ksutil::events
#endif
