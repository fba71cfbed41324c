/* FeedPause: how long to wait before a feed is asked again. */
#ifndef KSUTIL_TOOLS_FEEDS_FEED_PAUSE_H
#define KSUTIL_TOOLS_FEEDS_FEED_PAUSE_H

#include <functional>

namespace ksutil::tools {

class FeedPause {
 public:
  static constexpr double kLongest = 3600.0;  // s, after failures

  /* `interval` in s; `random` gives numbers from 0 to 1, by which pauses after failures
   * differ, so that not all programs ask a service again at the same moment. */
  FeedPause(double interval, std::function<double()> random);

  double after_success();

  /* The interval, doubled with each failure in a row up to kLongest or the interval, give
   * or take a quarter; not less than `retry_after`, the wish of the service in s (below 0:
   * none). */
  double after_failure(double retry_after);

 private:
  const double interval_;
  const std::function<double()> random_;
  double next_;
};

}  // namespace ksutil::tools
#endif
