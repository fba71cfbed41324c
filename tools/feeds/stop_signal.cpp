#include "tools/feeds/stop_signal.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>

namespace ksutil::tools {

StopSignal::StopSignal() {
  sigset_t ending;
  sigemptyset(&ending);
  sigaddset(&ending, SIGINT);
  sigaddset(&ending, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ending, nullptr);
  signals_ = FileHandle(::signalfd(-1, &ending, SFD_CLOEXEC | SFD_NONBLOCK));
  /* Without it the signals end the program as they end others. */
  if (!signals_) pthread_sigmask(SIG_UNBLOCK, &ending, nullptr);
}

bool StopSignal::wait(double seconds) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                      std::chrono::duration<double>(seconds));
  while (!came_) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    pollfd news{signals_.get(), POLLIN, 0};
    const int found =
        ::poll(&news, 1, static_cast<int>(std::clamp<long>(left, 0, INT_MAX)));
    if (found > 0 && (news.revents & POLLIN) != 0) {
      signalfd_siginfo taken;
      came_ = ::read(signals_.get(), &taken, sizeof taken) == sizeof taken;
    } else if (found == 0 || errno != EINTR) {
      if (Clock::now() >= end) break;
    }
  }
  return came_;
}

}  // namespace ksutil::tools
