#include "tools/ksdb/stage_clock.h"

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <utility>

namespace ksutil::tools {

StageClock::StageClock(std::string what, bool quiet) {
  if (quiet || !isatty(STDERR_FILENO)) return;
  thread_ = std::jthread(
      [what = std::move(what)](const std::stop_token &stop) { draw(stop, what); });
}

StageClock::~StageClock() {
  if (!thread_.joinable()) return;
  thread_.request_stop();
  thread_.join();
  std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
}

void StageClock::draw(const std::stop_token &stop, const std::string &what) {
  std::mutex mutex;
  std::condition_variable_any wake;
  std::unique_lock lock(mutex);
  for (int seconds = 0; !stop.stop_requested(); seconds++) {
    std::fprintf(stderr, "\r%s: %d s", what.c_str(), seconds);
    std::fflush(stderr);
    wake.wait_for(lock, stop, std::chrono::seconds(1), [] { return false; });
  }
}

}  // namespace ksutil::tools
