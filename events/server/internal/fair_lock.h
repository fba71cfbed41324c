/* A mutex that serves its callers in the order in which they came. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_FAIR_LOCK_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_FAIR_LOCK_H

#include <condition_variable>
#include <mutex>

namespace ksutil::events {

/* Who lets it go for a moment and comes back lets all others in that wait by then; of a
 * std::mutex the same thread mostly gets hold again before they are awake. */
class FairLock {
 public:
  void lock() {
    std::unique_lock hold(mutex_);
    const unsigned long turn = next_++;
    changed_.wait(hold, [&] { return turn == serving_; });
  }
  void unlock() {
    const std::lock_guard hold(mutex_);
    serving_++;
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  unsigned long next_ = 0, serving_ = 0;
};

}  // namespace ksutil::events
#endif
