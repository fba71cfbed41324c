#include "events/server/internal/published.h"

#include <algorithm>
#include <utility>
#include <vector>

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

void purge_expanded(int max, Array<long, EVEvent> &cache) {
  if (max < 1 || cache.size() <= max) return;
  std::vector<std::pair<double, long>> uses;
  for (const long evid : cache.keys()) {
    uses.emplace_back(-cache.find(evid)->access_time, evid);
  }
  std::sort(uses.begin(), uses.end());
  for (std::size_t i = static_cast<std::size_t>(max); i < uses.size(); i++) {
    cache.del(uses[i].second);
  }
}

}  // namespace ksutil::events
