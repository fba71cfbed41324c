#include "events/view/internal/view_monitor.h"

#include <cerrno>

#include "platform/elog/failure.h"

namespace ksutil::events {
namespace {

constexpr const char *kMonitorThread = "KSEventView::monitorChangesThread";

}  // namespace

int ViewMonitor::start(KSEventView &view, const MonitorSettings &settings) {
  const std::lock_guard lock(lock_);
  if (ended_) return fail(kMonitorThread, "the view is ending");
  settings_ = settings;
  control_ = kHasNewSettings;
  if (runs_) return 0;
  join();
  const int error =
      pthread_create(&thread_, nullptr, eventview_run_monitor_thread, &view);
  if (error != 0) {
    control_ = kStops;
    errno = error;
    return fail_errno(kMonitorThread, "pthread_create() error");
  }
  made_ = runs_ = true;
  return 0;
}

void ViewMonitor::stop() {
  const std::lock_guard lock(lock_);
  control_ = kStops;
}

void ViewMonitor::end() {
  {
    const std::lock_guard lock(lock_);
    control_ = kStops;
    ended_ = true;
  }
  /* Without the lock, which the thread wants before it leaves. */
  join();
}

bool ViewMonitor::go_on(MonitorSettings &settings) {
  const std::lock_guard lock(lock_);
  if (control_ == kStops) {
    runs_ = false;
    return false;
  }
  if (control_ == kHasNewSettings) settings = settings_;
  control_ = kRuns;
  return true;
}

/* The thread has been told to leave, or has left, and no other can be made
 * meanwhile. */
void ViewMonitor::join() {
  if (made_) pthread_join(thread_, nullptr);
  made_ = false;
}

}  // namespace ksutil::events
