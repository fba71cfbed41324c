#include "platform/stock/shared_work.h"

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <system_error>
#include <thread>

namespace ksutil {
namespace {

constexpr WorkSettings kUsualSettings;
std::atomic<const WorkSettings *> current_settings{&kUsualSettings};

const WorkSettings &settings() {
  return *current_settings.load(std::memory_order_acquire);
}

/* Blocks the signals of this thread for one scope, but for those that a fault of a thread
 * raises in itself; threads begun meanwhile inherit it. */
class BlockedSignals {
 public:
  BlockedSignals() {
    sigset_t all;
    ::sigfillset(&all);
    for (const int fault :
         {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS}) {
      ::sigdelset(&all, fault);
    }
    blocked_ = ::pthread_sigmask(SIG_SETMASK, &all, &before_) == 0;
  }
  ~BlockedSignals() {
    if (blocked_) ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  BlockedSignals(const BlockedSignals &) = delete;
  BlockedSignals &operator=(const BlockedSignals &) = delete;

 private:
  sigset_t before_;
  bool blocked_;
};

/* An empty thread when the system gives none. */
template <class Run>
std::jthread second_thread(const Run &run) noexcept {
  if (settings().no_thread) return {};
  try {
    const BlockedSignals blocked;
    return std::jthread(run);
  } catch (const std::exception &) {
    return {};
  }
}

}  // namespace

ScopedWorkSettings::ScopedWorkSettings(const WorkSettings &settings)
    : settings_(settings) {
  current_settings.store(&settings_, std::memory_order_release);
}

ScopedWorkSettings::~ScopedWorkSettings() {
  current_settings.store(&kUsualSettings, std::memory_order_release);
}

bool worth_sharing(std::size_t bytes) {
  return bytes >= settings().least_bytes &&
         (settings().always || std::thread::hardware_concurrency() > 1);
}

void share_pieces(std::size_t pieces,
                  void (*run)(const void *work, std::size_t piece,
                              unsigned sharer) noexcept,
                  const void *work) noexcept {
  std::atomic<std::size_t> next{0};
  const auto share = [&](unsigned sharer) {
    for (std::size_t piece; (piece = next.fetch_add(1)) < pieces;) {
      run(work, piece, sharer);
    }
  };
  const std::jthread second =
      pieces > 1 ? second_thread([&share] { share(1); }) : std::jthread();
  share(0);
}

}  // namespace ksutil
