#include "events/server/internal/published.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "platform/elog/failure.h"

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

bool EventsLock::try_lock() {
  if (owned_by_this_thread()) {
    depth_++;
    return true;
  }
  if (!mutex_.try_lock()) return false;
  owner_ = std::this_thread::get_id();
  depth_ = 1;
  return true;
}

void EventsLock::unlock() {
  if (!owned_by_this_thread()) {
    fail("EVServer::releaseEventsLock", "this thread does not hold the events lock");
    return;
  }
  if (--depth_ > 0) return;
  owner_ = std::thread::id();
  mutex_.unlock();
}

void EventsLock::unlock_fully() {
  while (owned_by_this_thread()) unlock();
}

bool EventsLock::owned_by_this_thread() const {
  /* Only this thread stores its own id, so the answer stays right. */
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

void ExpandedReads::set(int64_t evid, int64_t reading,
                        std::shared_ptr<const ExpansionKeys> keys) {
  const std::lock_guard lock(mutex_);
  entries_.insert_or_assign(evid, Entry{reading, std::move(keys)});
}

std::shared_ptr<const ExpansionKeys> ExpandedReads::keys(int64_t evid,
                                                         int64_t reading) const {
  const std::lock_guard lock(mutex_);
  const auto found = entries_.find(evid);
  if (found == entries_.end() || found->second.reading != reading) return nullptr;
  return found->second.keys;
}

void ExpandedReads::confirm(int64_t from, int64_t to,
                            const std::vector<int64_t> &doubtful) {
  const std::lock_guard lock(mutex_);
  for (auto &[evid, entry] : entries_) {
    if (entry.reading == from &&
        std::find(doubtful.begin(), doubtful.end(), evid) == doubtful.end()) {
      entry.reading = to;
    }
  }
}

void ExpandedReads::erase(int64_t evid) {
  const std::lock_guard lock(mutex_);
  entries_.erase(evid);
}

void ExpandedReads::clear() {
  const std::lock_guard lock(mutex_);
  entries_.clear();
}

long ExpandedReads::size() const {
  const std::lock_guard lock(mutex_);
  return static_cast<long>(entries_.size());
}

std::vector<int64_t> ExpandedReads::evids() const {
  std::vector<int64_t> evids;
  {
    const std::lock_guard lock(mutex_);
    for (const auto &[evid, entry] : entries_) evids.push_back(evid);
  }
  std::sort(evids.begin(), evids.end());
  return evids;
}

bool ExpandedReads::later_than(int64_t evid, int64_t reading) const {
  const std::lock_guard lock(mutex_);
  const auto found = entries_.find(evid);
  return found != entries_.end() && found->second.reading > reading;
}

void Published::set_events(std::shared_ptr<Table<EVEvent>> list) {
  const std::lock_guard hold(start_mutex_);
  events.swap(list);
}

void Published::set_latest_time(double time) {
  const std::lock_guard hold(start_mutex_);
  latest_time = time;
}

Published::Start Published::start() const {
  const std::lock_guard hold(start_mutex_);
  return {events, latest_time};
}

void Published::purge(int max) {
  if (max < 1 || expanded.size() <= max) return;
  purge_expanded(max, expanded);
  for (const int64_t evid : reads.evids()) {
    if (!expanded.contains(static_cast<long>(evid))) reads.erase(evid);
  }
}

void Published::purge_if_free(int max) {
  if (max < 1 || reads.size() <= max || !lock.try_lock()) return;
  const std::lock_guard hold(lock, std::adopt_lock);
  purge(max);
}

}  // namespace ksutil::events
