/* FairLock: a mutex that serves its callers in the order in which they came. */
#ifndef KSUTIL_EVENTS_DATABASE_INTERNAL_FAIR_LOCK_H
#define KSUTIL_EVENTS_DATABASE_INTERNAL_FAIR_LOCK_H

#include <condition_variable>
#include <mutex>

namespace ksutil::events {

/* A thread that unlocks and locks again queues behind all current waiters.  With
 * std::mutex it would usually win before any of them has woken up. */
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
