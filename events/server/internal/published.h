/* What readers see: the published lists and the cache of expanded events, under the events
 * lock. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_PUBLISHED_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_PUBLISHED_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include "core/Array.h"
#include "core/Table.h"
#include "events/records.h"

namespace ksutil::events {

/* A mutex that knows its owner, so that a wait that could never end can be refused.  The
 * owner may lock it again, and unlocks it as often; an unlock by anybody else is refused
 * with a message. */
class EventsLock {
 public:
  void lock();
  void unlock();
  bool owned_by_this_thread() const;

 private:
  std::mutex mutex_;
  std::atomic<std::thread::id> owner_{};
  int depth_ = 0;  // how often the owner holds it; the owner's
};

/* Guarded by `lock`, all of it.  The lists are replaced as wholes, except that the
 * refresh may change one in place while it holds the lock and nobody else holds the
 * list. */
struct Published {
  EventsLock lock;
  std::shared_ptr<Table<EVEvent>> events = std::make_shared<Table<EVEvent>>();
  std::shared_ptr<Table<EVDetection>> detections =
      std::make_shared<Table<EVDetection>>();
  Array<long, EVEvent> expanded;  // by evid, with everything read
  double latest_time = 0.0;       // greatest preferred-origin time of the list
  int64_t lastmodified_evid = -1;
  int64_t mostrecent_evid = -1;
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
