/* The fifo and its peers behind one face: push and pop of pointers, both waiting. */
#ifndef KSUTIL_BENCH_QUEUES_H
#define KSUTIL_BENCH_QUEUES_H

#include <oneapi/tbb/concurrent_queue.h>

#include <boost/lockfree/queue.hpp>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <limits>
#include <mutex>
#include <thread>

#include "pipeline/pmtfifo.h"

/* `capacity` 0 is not a limit in all of them. */

class FifoQueue {
 public:
  explicit FifoQueue(int capacity) : fifo_(pmtfifo_create(capacity, 1, 0)) {}
  ~FifoQueue() { pmtfifo_destroy(fifo_, nullptr); }
  FifoQueue(const FifoQueue &) = delete;
  FifoQueue &operator=(const FifoQueue &) = delete;

  void push(void *item) { pmtfifo_push(fifo_, item); }
  void *pop() {
    void *item = nullptr;
    pmtfifo_pop(fifo_, &item);
    return item;
  }

 private:
  pmtfifo *fifo_;
};

class TbbQueue {
 public:
  explicit TbbQueue(int capacity) {
    if (capacity > 0) queue_.set_capacity(capacity);
  }
  void push(void *item) { queue_.push(item); }
  void *pop() {
    void *item = nullptr;
    queue_.pop(item);
    return item;
  }

 private:
  tbb::concurrent_bounded_queue<void *> queue_;
};

/* Many-to-many and lock-free; it cannot sleep, so both sides yield. */
class LockfreeQueue {
 public:
  explicit LockfreeQueue(int capacity)
      : bounded_(capacity > 0),
        queue_(bounded_ ? static_cast<std::size_t>(capacity) : 4096) {}
  void push(void *item) {
    while (!(bounded_ ? queue_.bounded_push(item) : queue_.push(item))) {
      std::this_thread::yield();
    }
  }
  void *pop() {
    void *item = nullptr;
    while (!queue_.pop(item)) std::this_thread::yield();
    return item;
  }

 private:
  bool bounded_;
  boost::lockfree::queue<void *> queue_;
};

/* What one would write by hand. */
class MutexQueue {
 public:
  explicit MutexQueue(int capacity)
      : capacity_(capacity > 0 ? static_cast<std::size_t>(capacity)
                               : std::numeric_limits<std::size_t>::max()) {}
  void push(void *item) {
    std::unique_lock lock(mutex_);
    space_.wait(lock, [this] { return items_.size() < capacity_; });
    items_.push_back(item);
    data_.notify_one();
  }
  void *pop() {
    std::unique_lock lock(mutex_);
    data_.wait(lock, [this] { return !items_.empty(); });
    void *const item = items_.front();
    items_.pop_front();
    space_.notify_one();
    return item;
  }

 private:
  std::size_t capacity_;
  std::mutex mutex_;
  std::condition_variable space_, data_;
  std::deque<void *> items_;
};

#endif
