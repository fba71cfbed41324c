#include "tools/feeds/feed_pause.h"

#include <algorithm>
#include <utility>

namespace ksutil::tools {

FeedPause::FeedPause(double interval, std::function<double()> random)
    : interval_(interval), random_(std::move(random)), next_(interval) {}

double FeedPause::after_success() {
  next_ = interval_;
  return interval_;
}

double FeedPause::after_failure(double retry_after) {
  const double pause = next_ * (0.75 + 0.5 * random_());
  next_ = std::min(2.0 * next_, std::max(interval_, kLongest));
  return std::max(pause, retry_after);
}

}  // namespace ksutil::tools
