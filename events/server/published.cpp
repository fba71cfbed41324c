#include "events/server/internal/published.h"

#include "core/register.h"

namespace ksutil::events {

void EventsLock::lock() {
  if (owned_by_this_thread()) {
    depth_++;
    return;
  }
  mutex_.lock();
  owner_ = std::this_thread::get_id();
  depth_ = 1;
}

void EventsLock::unlock() {
  if (!owned_by_this_thread()) {
    ks_register_error(0,
                      "EVServer::releaseEventsLock: this thread does not hold the "
                      "events lock.\n");
    return;
  }
  if (--depth_ > 0) return;
  owner_ = std::thread::id();
  mutex_.unlock();
}

bool EventsLock::owned_by_this_thread() const {
  /* No other thread stores this thread's id, so the answer cannot go stale. */
  return owner_ == std::this_thread::get_id();
}

}  // namespace ksutil::events
