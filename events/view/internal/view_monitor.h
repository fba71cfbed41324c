/* ViewMonitor: the thread of a view that checks for changes at an interval, and its
 * settings. */
#ifndef KSUTIL_EVENTS_VIEW_INTERNAL_VIEW_MONITOR_H
#define KSUTIL_EVENTS_VIEW_INTERNAL_VIEW_MONITOR_H

#include <pthread.h>

#include <atomic>
#include <mutex>

#include "events/kseventview.h"

namespace ksutil::events {

struct MonitorSettings {
  double period = 0.0;  // s
  KSEV_ChangesCallback callback = nullptr;
  void *arg = nullptr;
};

class ViewMonitor {
 public:
  ViewMonitor() = default;
  ViewMonitor(const ViewMonitor &) = delete;
  ViewMonitor &operator=(const ViewMonitor &) = delete;

  /* Gives the settings to the running thread, or to a new one, which runs
   * eventview_run_monitor_thread(view).  0, or -1 with a message in the name of
   * KSEventView::monitorChangesThread when end() has been called or no thread can be
   * made. */
  int start(KSEventView &view, const MonitorSettings &settings);
  /* Tells the thread, if any, to leave; does not wait for it. */
  void stop();
  /* Stops the thread, waits until it has left, and refuses any other. */
  void end();

  /* --- for the thread ------------------------------------------------------------- */

  /* Copies new settings, if any.  Returns false when the thread must stop; `runs_` is
   * cleared under the same lock, so a concurrent start sees it either running or
   * gone. */
  bool go_on(MonitorSettings &settings);
  /* Whether neither new settings nor a stop wait for go_on(). */
  bool undisturbed() const { return control_ == kRuns; }

 private:
  enum Control { kRuns = 0, kHasNewSettings = 1, kStops = 2 };

  void join();

  std::mutex lock_;  // guards the members below; control_ is read without it
  MonitorSettings settings_;
  std::atomic<int> control_{kStops};
  pthread_t thread_{};
  bool made_ = false;   // there is a thread to be joined
  bool runs_ = false;   // it has not decided to leave; it decides with the lock held
  bool ended_ = false;  // the view is being destroyed
};

}  // namespace ksutil::events
#endif
