/* Everything that a KSEventView holds. */
#ifndef KSUTIL_EVENTS_VIEW_INTERNAL_VIEW_STATE_H
#define KSUTIL_EVENTS_VIEW_INTERNAL_VIEW_STATE_H

#include <pthread.h>

#include <array>
#include <atomic>
#include <iterator>
#include <mutex>
#include <string>

#include "events/database/internal/site_index.h"
#include "events/database/internal/time_index.h"
#include "events/kseventview.h"
#include "events/reading/internal/tree_reader.h"
#include "events/vars.h"
#include "events/view/internal/view_records.h"

namespace ksutil::events {

/* What the monitor's thread is to do. */
enum MonitorControl { kMonitorRuns = 0, kMonitorHasNewSettings = 1, kMonitorStops = 2 };

struct MonitorSettings {
  double period = 0.0;  // s
  KSEV_ChangesCallback callback = nullptr;
  void *arg = nullptr;
};

struct ViewMonitor {
  std::mutex lock;  // guards the settings, the thread and changes of the control word
  MonitorSettings settings;
  /* Atomic: the sleeping thread looks at it without the lock. */
  std::atomic<int> control{kMonitorStops};
  pthread_t thread{};
  bool made = false;  // there is a thread to be joined
  bool runs = false;  // it has not decided to leave; it decides with the lock held
  bool ends = false;  // the view is being destroyed
};

using ViewTables = std::array<KSEV_Table, std::size(kKSEVTableNames)>;

struct ViewState {
  ViewState();
  ~ViewState();  // the monitor has ended
  ViewState(const ViewState &) = delete;
  ViewState &operator=(const ViewState &) = delete;

  /* For a reader; the caller holds database_lock. */
  ReadingSource reading_source();
  /* Let go of the database, or of the indexes; the caller holds database_lock. */
  void close();
  void free_hooks();

  /* Owner and monitor take turns at the database; never held during a callback. */
  std::mutex database_lock;  // guards all of the following
  std::string dbname;        // empty: no database
  Dbptr db = dbinvalid();
  ViewTables tables;
  EVVars vars;
  SiteIndex sites;
  TimeIndex detection_times;

  ViewRecords records;
  ViewMonitor monitor;

  KS_ConfigureCustom dbname_option;
  KS_ConfigureSpec specs[2];  // of this view alone: flags are marked in them
};

/* From a view to its state. */
struct ViewAccess {
  static ViewState &state(KSEventView &view) { return *view.state_; }
};

}  // namespace ksutil::events
#endif
