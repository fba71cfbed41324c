/* The published lists, for readers that may or may not hold the events lock. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_CURRENT_LISTS_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_CURRENT_LISTS_H

#include <memory>
#include <mutex>

#include "events/server/internal/published.h"

namespace ksutil::events {

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
