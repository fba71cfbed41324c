#include "events/database/internal/sleep.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace ksutil::events {

void sleep_while(const std::function<bool()> &go_on, double seconds) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  while (go_on()) {
    const std::chrono::duration<double> slept = Clock::now() - start;
    const double left = seconds - slept.count();
    if (!(left > 0.0)) return;
    std::this_thread::sleep_for(
        std::chrono::duration<double>(std::min(left, kSleepSlice)));
  }
}

}  // namespace ksutil::events
