/* Looking for changes of the tables, now and then. */
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <exception>

#include "events/database/internal/table_change.h"
#include "events/view/internal/view_reading.h"
#include "platform/stock/memory.h"

namespace ksutil::events {
namespace {

constexpr double kSleepSlice = 0.05;  // s; how long new settings go unseen

struct FreeChanges {
  void operator()(rbtree *changes) const { freearr(changes, std::free); }
};
using Changes = std::unique_ptr<rbtree, FreeChanges>;

/* Takes the settings when they are new; false, and the thread has left, when it is to
 * stop.  Who starts a monitor meanwhile finds it either running or gone. */
bool go_on(ViewMonitor &monitor, MonitorSettings &settings) {
  const std::lock_guard lock(monitor.lock);
  if (monitor.control == kMonitorStops) {
    monitor.runs = false;
    return false;
  }
  if (monitor.control == kMonitorHasNewSettings) settings = monitor.settings;
  monitor.control = kMonitorRuns;
  return true;
}

void sleep_unless_told(const ViewMonitor &monitor, double period) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  while (monitor.control == kMonitorRuns) {
    const std::chrono::duration<double> slept = Clock::now() - start;
    const double left = period - slept.count();
    if (left <= 0.0) return;
    eventview_usleep(std::min(left, kSleepSlice));
  }
}

void check_and_call(KSEventView &view, const MonitorSettings &settings) {
  rbtree *changes = nullptr;
  view.checkChanges(&changes);
  const Changes owner(changes);
  settings.callback(0, settings.arg, changes);
}

/* Waits for a thread that has been told to leave, or has left, and may not be made anew
 * meanwhile. */
void join(ViewMonitor &monitor) {
  if (monitor.made) pthread_join(monitor.thread, nullptr);
  monitor.made = false;
}

}  // namespace
}  // namespace ksutil::events

using namespace ksutil::events;

int eventview_check_table(KSEV_Table *table, char **text) {
  constexpr const char *kTexts[] = {nullptr, "modified", "added", "removed"};
  *text = nullptr;
  TableMemory seen{table->count, table->filetime};
  const int code = table_change(table->table, seen);
  if (code < 0) return -1;
  if (kTexts[code] != nullptr) {
    *text = ks_strdup(kTexts[code]);
    if (*text == nullptr) {
      ks_register_error(0, "eventview_check_table: malloc() error.\n");
      return -1;
    }
  }
  table->count = seen.count;
  table->filetime = seen.filetime;
  return code;
}

int KSEventView::checkChanges(rbtree **changes) {
  freearr(*changes, std::free);
  *changes = newarr(nullptr);
  if (*changes == nullptr) return view_failure("checkChanges", "newarr() error");
  const std::lock_guard lock(state_->database_lock);
  if (state_->db.database == dbINVALID) {
    return view_failure("checkChanges", "No database currently open");
  }
  int result = 0;
  for (std::size_t i = 0; i < state_->tables.size(); i++) {
    char *text = nullptr;
    const KSEV_Table before = state_->tables[i];
    if (eventview_check_table(&state_->tables[i], &text) < 0) {
      result = view_failure("checkChanges", "eventview_check_table() error");
    }
    if (text == nullptr) continue;
    setarr(*changes, kKSEVTableNames[i], text);
    if (containsarr(*changes, kKSEVTableNames[i]) == 0) {
      std::free(text);
      state_->tables[i] = before;  // so that the change shows again
      result = view_failure("checkChanges", "malloc() error");
    }
  }
  return result;
}

int KSEventView::monitorChangesThread(double period, KSEV_ChangesCallback callback,
                                      void *arg) {
  ViewMonitor &monitor = state_->monitor;
  const std::lock_guard lock(monitor.lock);
  if (!(period > 0.0)) {
    monitor.control = kMonitorStops;
    return 0;
  }
  if (monitor.ends) return view_failure("monitorChangesThread", "the view is ending");
  monitor.settings = {period, callback, arg};
  monitor.control = kMonitorHasNewSettings;
  if (monitor.runs) return 0;
  join(monitor);
  const int error =
      pthread_create(&monitor.thread, nullptr, eventview_run_monitor_thread, this);
  if (error != 0) {
    monitor.control = kMonitorStops;
    errno = error;
    ks_register_error(1,
                      "KSEventView::monitorChangesThread: pthread_create() error.\n");
    return -1;
  }
  monitor.made = monitor.runs = true;
  return 0;
}

void *eventview_run_monitor_thread(void *view_pointer) {
  KSEventView &view = *static_cast<KSEventView *>(view_pointer);
  ViewMonitor &monitor = ViewAccess::state(view).monitor;
  MonitorSettings settings;
  while (go_on(monitor, settings)) {
    try {
      if (settings.callback != nullptr) check_and_call(view, settings);
    } catch (const std::exception &error) {
      view_failure("monitorChangesThread", error.what());
    } catch (...) {
      view_failure("monitorChangesThread", "unknown exception");
    }
    sleep_unless_told(monitor, settings.period);
  }
  return nullptr;
}

KSEventView::~KSEventView() {
  ViewMonitor &monitor = state_->monitor;
  {
    const std::lock_guard lock(monitor.lock);
    monitor.control = kMonitorStops;
    monitor.ends = true;
  }
  join(monitor);
}

void eventview_usleep(double seconds) {
  constexpr double kLongest = 1e9;
  if (!(seconds > 0.0)) return;
  const double whole = std::floor(std::min(seconds, kLongest));
  timespec left;
  left.tv_sec = static_cast<time_t>(whole);
  left.tv_nsec = static_cast<long>((std::min(seconds, kLongest) - whole) * 1e9);
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}
