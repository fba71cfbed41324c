/* What is kept from one reading to the next, in order to read only what has changed. */
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

/* The part of the event table that the list shows. */
struct RowWindow {
  long first = 0, count = 0;  // rows first .. count - 1
};

/* What a list says as a whole. */
struct ListSummary {
  double latest_time = 0.0;  // greatest time of a preferred origin
  int64_t lastmodified_evid = -1, mostrecent_evid = -1;
};

/* What must be read again in order to bring a list up to date. */
struct AffectedEvents {
  std::vector<long> rows;             // of those in the list: rows of event, ascending
  std::unordered_set<int64_t> evids;  // in the list or not
};

/* Remembers from what rows the published list was made.  Guarded by
 * the lock of the server's database. */
class ListFollower {
 public:
  /* The next reading of the list is a full one. */
  void forget();
  /* Another number after each forget. */
  long epoch() const { return epoch_; }

  /* Whether `list` is the one that was made last. */
  bool follows(const std::shared_ptr<const Table<EVEvent>> &list) const {
    return known_ && list_.lock() == list;
  }
  /* The events of the followed list that the reader's snapshots show changed; nothing
   * when that is not known, or the list shows other rows now, and a full reading is
   * needed.  New rows at the end of the table are not among them. */
  std::optional<AffectedEvents> affected(const TreeReader &reader,
                                         RowWindow window) const;

  /* The place in the list of a row of event; -1: not in the list. */
  long place(long row) const;
  int64_t evid_at(long place) const { return entry(place).evid; }
  long event_rows() const { return window_.count; }
  long next_order() const { return next_order_; }

  /* Takes note of a list that was read in full, or of changes to the followed one. */
  void start(const Table<EVEvent> &events, long next_order);
  void replace(long place, const EVEvent &event);
  void append(const EVEvent &event);
  void set_next_order(long next_order) { next_order_ = next_order; }
  ListSummary summary() const;
  /* The reading that the notes are about is published as `list`; it began in
   * `epoch`. */
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
  std::vector<Entry> entries_;  // of each event of the list, ascending by row
};

}  // namespace ksutil::events
#endif
