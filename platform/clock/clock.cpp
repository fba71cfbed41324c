#include <ctime>

#include <atomic>

#include "platform/clock/clock.h"

namespace {

double system_clock() {
  std::timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

std::atomic<double (*)()> current_clock{system_clock};

}  // namespace

double std_now(void) { return current_clock.load(std::memory_order_acquire)(); }

void set_clock(double (*clock)(void)) {
  current_clock.store(clock != nullptr ? clock : system_clock,
                      std::memory_order_release);
}
