#include "events/server/internal/latch.h"

namespace ksutil::events {

void RefreshLatch::lock() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return open_ || closed_; });
  open_ = false;
}

void RefreshLatch::unlock() {
  const std::lock_guard lock(mutex_);
  open_ = true;
  changed_.notify_one();
}

void RefreshLatch::close() {
  const std::lock_guard lock(mutex_);
  closed_ = true;
  changed_.notify_all();
}

}  // namespace ksutil::events
