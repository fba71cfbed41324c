/* published: holds the published lists and the cache of expanded events, under the
 * events lock. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_PUBLISHED_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_PUBLISHED_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

#include "core/Array.h"
#include "core/Table.h"
#include "events/reading/internal/tree_reader.h"
#include "events/records.h"

namespace ksutil::events {

/* A mutex that knows its owner, so that a wait that could never end can be refused.
 * The owner may lock it again, and unlocks it as often; an unlock by another thread is
 * refused with a message. */
class EventsLock {
 public:
  void lock();
  bool try_lock();
  void unlock();
  /* Unlocks as often as the calling thread holds it. */
  void unlock_fully();
  bool owned_by_this_thread() const;

 private:
  std::mutex mutex_;
  std::atomic<std::thread::id> owner_{};
  int depth_ = 0;  // how often the owner holds it; used by the owner only
};

/* ExpandedReads: remembers which events are expanded, or being expanded, and how recent
 * the reading of each is.  A refresh learns from it which events to read again, without
 * the events lock.  Its own lock is a leaf. */
class ExpandedReads {
 public:
  /* A reading with a greater number has begun later.  Numbers begin with 1.  `keys` are
   * those that the event was read by, or null: then the next refresh reads it again. */
  void set(int64_t evid, int64_t reading,
           std::shared_ptr<const ExpansionKeys> keys = nullptr);
  /* The keys of an event, null when they are not known or it comes from another reading
   * than `reading`. */
  std::shared_ptr<const ExpansionKeys> keys(int64_t evid, int64_t reading) const;
  /* Notes that the events which come from the reading `from` were found unchanged by the
   * reading `to`, but for those in `doubtful`. */
  void confirm(int64_t from, int64_t to, const std::vector<int64_t> &doubtful);
  void erase(int64_t evid);
  void clear();
  long size() const;
  std::vector<int64_t> evids() const;  // ascending
  /* Whether the event in the cache comes from a later reading than `reading`. */
  bool later_than(int64_t evid, int64_t reading) const;

 private:
  mutable std::mutex mutex_;
  struct Entry {
    int64_t reading;
    std::shared_ptr<const ExpansionKeys> keys;
  };
  std::unordered_map<int64_t, Entry> entries_;
};

/* Guarded by `lock`, all but `reads`.  The lists are replaced as wholes, except that
 * the refresh may change one in place while it holds the lock and no reader holds the
 * list. */
class Published {
 public:
  EventsLock lock;
  std::shared_ptr<Table<EVEvent>> events = std::make_shared<Table<EVEvent>>();
  std::shared_ptr<Table<EVDetection>> detections =
      std::make_shared<Table<EVDetection>>();
  Array<long, EVEvent> expanded;  // by evid, with everything read
  double latest_time = 0.0;       // greatest preferred-origin time of the list
  int64_t lastmodified_evid = -1;
  int64_t mostrecent_evid = -1;

  ExpandedReads reads;  // of the events in `expanded`, and of one that is being read

  /* Replace the list of events and its latest time; the caller holds the lock. */
  void set_events(std::shared_ptr<Table<EVEvent>> list);
  void set_latest_time(double time);

  /* What the refresh starts from.  It needs no lock, so that a reader that holds the
   * events lock does not hold up the refresh.  For the refresh only: it lets the list
   * go before it publishes, so that the list may be changed in place. */
  struct Start {
    std::shared_ptr<const Table<EVEvent>> events;
    double latest_time;
  };
  Start start() const;

  /* Removes expanded events as purge_expanded does; the caller holds the lock. */
  void purge(int max);
  /* The same, unless another thread holds the lock: then the next refresh does it. */
  void purge_if_free(int max);

 private:
  mutable std::mutex start_mutex_;  // also guards the replacement of what start() gives
};

/* Keeps the `max` events that were used last; less than 1: all. */
void purge_expanded(int max, Array<long, EVEvent> &cache);

/* Holds the events lock for one scope, unless the thread has it already. */
class EventsLockHold {
 public:
  explicit EventsLockHold(Published &published) {
    if (!published.lock.owned_by_this_thread()) {
      hold_ = std::unique_lock(published.lock);
    }
  }

 private:
  std::unique_lock<EventsLock> hold_;
};

/* While the pointer is held, the list does not change. */
inline std::shared_ptr<const Table<EVEvent>> current_events(Published &published) {
  const EventsLockHold hold(published);
  return published.events;
}
inline std::shared_ptr<const Table<EVDetection>> current_detections(
    Published &published) {
  const EventsLockHold hold(published);
  return published.detections;
}

}  // namespace ksutil::events
#endif
