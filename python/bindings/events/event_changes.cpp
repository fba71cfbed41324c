#include "bindings/events/event_changes.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <unordered_map>
#include <utility>

namespace ksutil::python {
namespace {

std::atomic<long> forks{0};

/* The events of a list with some evids, copied. */
class CopiedEvents {
 public:
  CopiedEvents(const Table<EVEvent> &list, const Table<long> &evids, long from) {
    for (long i = from; i < evids.size(); i++) found_.emplace(evids.get(i), nullptr);
    std::size_t missing = found_.size();
    for (const EVEvent &event : list) {
      if (missing == 0) break;
      const auto place = found_.find(event.evid);
      if (place == found_.end() || place->second != nullptr) continue;
      place->second = std::make_shared<const EVEvent>(event);
      missing--;
    }
  }
  std::shared_ptr<const EVEvent> event(std::int64_t evid) const {
    return found_.at(evid);
  }

 private:
  std::unordered_map<std::int64_t, std::shared_ptr<const EVEvent>> found_;
};

std::vector<std::int64_t> ascending(const Table<long> &evids) {
  std::vector<std::int64_t> sorted(evids.begin(), evids.end());
  std::sort(sorted.begin(), sorted.end());
  sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
  return sorted;
}

}  // namespace

long fork_generation() {
  static const int registered =
      pthread_atfork(nullptr, nullptr, [] { forks.fetch_add(1); });
  return forks.load() + 0 * registered;
}

const char *name_of(ChangeKind kind) {
  switch (kind) {
    case ChangeKind::kNew:
      return "new";
    case ChangeKind::kChanged:
      return "changed";
    case ChangeKind::kRemoved:
      return "removed";
    case ChangeKind::kDetections:
      return "detections";
    case ChangeKind::kOverflow:
      break;
  }
  return "overflow";
}

ChangeQueue::ChangeQueue(std::size_t limit) : limit_(std::max<std::size_t>(limit, 1)) {}

void ChangeQueue::push(EventChange change) {
  const std::lock_guard lock(mutex_);
  if (closed_) return;
  if (changes_.size() >= limit_) {
    changes_.pop_front();
    lost_++;
  }
  changes_.push_back(std::move(change));
  arrived_.notify_one();
}

void ChangeQueue::add_lost(long count) {
  if (count <= 0) return;
  const std::lock_guard lock(mutex_);
  lost_ += count;
  arrived_.notify_one();
}

void ChangeQueue::close() {
  if (generation_ != fork_generation()) return;
  const std::lock_guard lock(mutex_);
  closed_ = true;
  arrived_.notify_all();
}

bool ChangeQueue::closed() const {
  if (generation_ != fork_generation()) return true;
  const std::lock_guard lock(mutex_);
  return closed_;
}

std::size_t ChangeQueue::size() const {
  if (generation_ != fork_generation()) return 0;
  const std::lock_guard lock(mutex_);
  return changes_.size() + (lost_ > 0 ? 1 : 0);
}

ChangeQueue::Outcome ChangeQueue::take(EventChange &change,
                                       std::chrono::steady_clock::time_point end) {
  if (generation_ != fork_generation()) return Outcome::kClosed;
  std::unique_lock lock(mutex_);
  arrived_.wait_until(lock, end,
                      [this] { return closed_ || lost_ > 0 || !changes_.empty(); });
  if (lost_ > 0) {
    change = EventChange();
    change.kind = ChangeKind::kOverflow;
    change.lost = std::exchange(lost_, 0);
    return Outcome::kTaken;
  }
  if (!changes_.empty()) {
    change = std::move(changes_.front());
    changes_.pop_front();
    return Outcome::kTaken;
  }
  return closed_ ? Outcome::kClosed : Outcome::kNothing;
}

EventListener::EventListener(EVServer *server_in) : EVClient(server_in) {}

std::shared_ptr<const Table<EVEvent>> EventListener::list() {
  grabEventsLock();
  auto events = eventsList();
  releaseEventsLock();
  return events;
}

std::shared_ptr<ChangeQueue> EventListener::subscribe(std::size_t limit) {
  auto queue = shared_in_process(new ChangeQueue(limit));
  const std::lock_guard lock(mutex_);
  if (living_queues().empty()) {
    known_.clear();
    const auto events = list();  // a refresh may replace the server's list meanwhile
    for (const EVEvent &event : *events) known_.push_back(event.evid);
    std::sort(known_.begin(), known_.end());
  }
  queues_.push_back(queue);
  return queue;
}

void EventListener::close_queues() {
  const std::lock_guard lock(mutex_);
  for (const auto &queue : living_queues()) queue->close();
}

void EventListener::leave() {
  /* Waits for a callback in progress, which takes the mutex. */
  server->deregisterClient(this);
  std::atomic_ref(server).store(nullptr);
  close_queues();
}

bool EventListener::compile(const std::string &query,
                            std::vector<EVQueryToken> &tokens) {
  const std::lock_guard lock(queries_);
  return parse_query(query, tokens) == 0;
}

bool EventListener::order(const Table<EVEvent> &events, const std::string &query,
                          bool reverse, Table<int> &result) {
  const std::lock_guard lock(queries_);
  int parsed = 0;
  result = sort(&events, query, reverse ? 1 : 0, &parsed);
  return parsed == 0;
}

/* The queues that still have a reader; forgets the others. */
std::vector<std::shared_ptr<ChangeQueue>> EventListener::living_queues() {
  std::vector<std::shared_ptr<ChangeQueue>> living;
  std::erase_if(queues_, [&](const std::weak_ptr<ChangeQueue> &entry) {
    auto queue = entry.lock();
    if (queue == nullptr || queue->closed()) return true;
    living.push_back(std::move(queue));
    return false;
  });
  return living;
}

bool EventListener::is_known(std::int64_t evid) const {
  return std::binary_search(known_.begin(), known_.end(), evid);
}

/* On a thread of the library, which must not wait for Python. */
void EventListener::responseCallback(EVResponse response) {
  const std::lock_guard lock(mutex_);
  const auto queues = living_queues();
  if (queues.empty()) return;
  try {
    deliver(response, queues);
  } catch (const std::bad_alloc &) {
    for (const auto &queue : queues) {
      queue->add_lost(response.changed_evids.size() + response.removed_evids.size());
    }
  }
}

void EventListener::deliver(const EVResponse &response,
                            const std::vector<std::shared_ptr<ChangeQueue>> &queues) {
  const Table<long> &changed = response.changed_evids;
  long limit = 0;
  for (const auto &queue : queues) {
    limit = std::max(limit, static_cast<long>(queue->limit()));
  }
  /* Changes that would only push each other out are not made. */
  const long first = std::max(0L, changed.size() - limit);
  for (const auto &queue : queues) queue->add_lost(first);
  const auto events = list();
  const CopiedEvents copies(*events, changed, first);
  for (long i = first; i < changed.size(); i++) {
    EventChange change;
    change.evid = changed.get(i);
    change.event = copies.event(change.evid);
    const bool listed = change.event != nullptr;
    EVEvent expanded;
    /* An event that the list does not show is one that was read in full. */
    if (!listed &&
        server->containsExpandedEvent(static_cast<long>(change.evid), expanded) == 1) {
      change.event = std::make_shared<const EVEvent>(std::move(expanded));
    }
    change.kind =
        listed && !is_known(change.evid) ? ChangeKind::kNew : ChangeKind::kChanged;
    for (const auto &queue : queues) queue->push(change);
  }
  for (const long evid : response.removed_evids) {
    EventChange change;
    change.kind = ChangeKind::kRemoved;
    change.evid = evid;
    for (const auto &queue : queues) queue->push(change);
  }
  if (response.detections_changed != 0) {
    EventChange change;
    change.kind = ChangeKind::kDetections;
    for (const auto &queue : queues) queue->push(change);
  }
  if (response.events_changed == 0) return;
  std::vector<std::int64_t> known, kept;
  const auto added = ascending(changed), removed = ascending(response.removed_evids);
  std::set_union(known_.begin(), known_.end(), added.begin(), added.end(),
                 std::back_inserter(known));
  std::set_difference(known.begin(), known.end(), removed.begin(), removed.end(),
                      std::back_inserter(kept));
  known_ = std::move(kept);
}

}  // namespace ksutil::python
