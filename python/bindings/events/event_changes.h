/* event_changes: carries the changes of an event server to programs, without Python. */
#ifndef KSUTIL_PYTHON_BINDINGS_EVENTS_EVENT_CHANGES_H
#define KSUTIL_PYTHON_BINDINGS_EVENTS_EVENT_CHANGES_H

#include <ksutil/events/evclient.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace ksutil::python {

/* The number of forks that led to this process.  An object with threads and locks belongs
 * to the process that made it: in a child, its locks may be held by threads that are not
 * there. */
long fork_generation();

/* An object with locks, of which a child of a fork keeps no more than the memory: its
 * locks may be held there for ever, and are not destroyed. */
template <class Object>
std::shared_ptr<Object> shared_in_process(Object *object) {
  return std::shared_ptr<Object>(object, [generation = fork_generation()](auto *held) {
    if (generation == fork_generation()) delete held;
  });
}

enum class ChangeKind { kNew, kChanged, kRemoved, kDetections, kOverflow };

/* The word for a kind, such as "new". */
const char *name_of(ChangeKind kind);

struct EventChange {
  ChangeKind kind = ChangeKind::kNew;
  std::int64_t evid = -1;                // -1 for detections and an overflow
  std::shared_ptr<const EVEvent> event;  // as it is after the change; null if removed
  long lost = 0;                         // changes that an overflow stands for
};

/* ChangeQueue: the changes that one reader has not taken yet.
 *
 * When `limit` changes wait, a new one replaces the oldest, and the reader gets a change
 * of kind kOverflow with the number of lost ones before the rest.
 * Threads: any thread may call any function. */
class ChangeQueue {
 public:
  enum class Outcome { kTaken, kNothing, kClosed };

  explicit ChangeQueue(std::size_t limit);

  std::size_t limit() const { return limit_; }
  void push(EventChange change);
  void add_lost(long count);
  /* What waits can still be taken; nothing is added any more. */
  void close();
  bool closed() const;
  /* Changes that wait. */
  std::size_t size() const;
  /* Waits until `end` for a change. */
  Outcome take(EventChange &change, std::chrono::steady_clock::time_point end);

 private:
  const std::size_t limit_;
  const long generation_ = fork_generation();
  mutable std::mutex mutex_;  // guards what follows
  std::condition_variable arrived_;
  std::deque<EventChange> changes_;
  long lost_ = 0;
  bool closed_ = false;
};

/* EventListener: the client of a server: hands its changes to queues, and evaluates
 * queries, the latter also when the server has ended.
 *
 * Threads: any thread may call any function. */
class EventListener final : public EVClient {
 public:
  explicit EventListener(EVServer *server);
  ~EventListener() = default;

  /* A queue that gets the changes from now on, as long as it lives. */
  std::shared_ptr<ChangeQueue> subscribe(std::size_t limit);
  /* Leaves the server, which must still be there, and closes the queues. */
  void leave();
  void close_queues();

  /* The list as it is now. */
  std::shared_ptr<const Table<EVEvent>> list();

  /* Compiles a query; false with a message. */
  bool compile(const std::string &query, std::vector<EVQueryToken> &tokens);
  /* The order of a list by a query; false with a message. */
  bool order(const Table<EVEvent> &events, const std::string &query, bool reverse,
             Table<int> &result);

  void responseCallback(EVResponse response) override;

 private:
  std::vector<std::shared_ptr<ChangeQueue>> living_queues();
  void deliver(const EVResponse &response,
               const std::vector<std::shared_ptr<ChangeQueue>> &queues);
  bool is_known(std::int64_t evid) const;

  std::mutex queries_;  // held while a query is compiled or sorts
  std::mutex mutex_;    // guards what follows; taken before the events lock
  std::vector<std::weak_ptr<ChangeQueue>> queues_;
  std::vector<std::int64_t> known_;  // evids of the list, ascending; for the queues
};

}  // namespace ksutil::python
#endif
