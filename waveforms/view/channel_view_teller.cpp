#include "waveforms/view/internal/channel_view.h"

#include <exception>
#include <new>

#include "platform/elog/failure.h"

namespace ksutil::scv {
namespace {

/* Chunks come by the hundred: a display needs no call for each. */
constexpr std::chrono::milliseconds kBetweenCalls{10};

/* Nothing that a callback throws may end the thread. */
void call(ksscv_callback callback, ksscv *view, const std::vector<int> &channels,
          void *context) {
  static constexpr char kSelf[] = "ksscv_callback";
  try {
    callback(view, channels.data(), static_cast<int>(channels.size()), context);
  } catch (const std::exception &error) {
    fail(kSelf, "%s", error.what());
  } catch (...) {
    fail(kSelf, "An exception was thrown");
  }
}

}  // namespace

void ChannelView::mark_dirty(std::size_t channel) {
  dirty_[channel] = 1;
  if (!any_dirty_) teller_work_.notify_one();
  any_dirty_ = true;
}

void ChannelView::mark_dirty(const CachedSegment &segment) {
  const auto found = by_key_.find(channel_key(segment.row.sta, segment.row.chan));
  if (found == by_key_.end()) return;
  for (const std::size_t channel : found->second) mark_dirty(channel);
}

void ChannelView::mark_all_dirty() {
  for (std::size_t i = 0; i < channels_.size(); i++) mark_dirty(i);
}

void ChannelView::tell_once() {
  Lock lock(mutex_);
  if (stop_) return;
  if (!any_dirty_) {
    teller_work_.wait(lock);
    return;
  }
  std::vector<int> channels;
  for (std::size_t i = 0; i < dirty_.size(); i++) {
    if (dirty_[i] != 0) channels.push_back(static_cast<int>(i));
  }
  dirty_.assign(dirty_.size(), 0);
  any_dirty_ = false;
  if (callback_ == nullptr || channels.empty()) return;
  const ksscv_callback callback = callback_;
  void *const context = context_;
  lock.unlock();
  call(callback, handle_, channels, context);
  lock.lock();
  counts_.callbacks++;
  const auto next = Clock::now() + kBetweenCalls;
  teller_work_.wait_until(lock, next, [this] { return stop_.load(); });
}

void ChannelView::tell() {
  while (!stop_) {
    try {
      tell_once();
    } catch (const std::bad_alloc &) {
      Lock lock(mutex_);
      if (!stop_) teller_work_.wait_for(lock, kMemoryPause);
    }
  }
  {
    const Lock lock(mutex_);
    if (!deleted_by_teller_) return;
  }
  table_thread_.join();
  for (std::thread &reader : readers_) reader.join();
  readers_.clear();
  teller_.detach();
  destroy_(handle_);
}

void ChannelView::set_callback(ksscv_callback callback, void *context) {
  const Lock lock(mutex_);
  callback_ = callback;
  context_ = context;
}

}  // namespace ksutil::scv
