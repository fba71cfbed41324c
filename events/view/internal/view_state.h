/* ViewState: the data members of a KSEventView. */
#ifndef KSUTIL_EVENTS_VIEW_INTERNAL_VIEW_STATE_H
#define KSUTIL_EVENTS_VIEW_INTERNAL_VIEW_STATE_H

#include "events/database/internal/watched_database.h"
#include "events/kseventview.h"
#include "events/view/internal/view_monitor.h"
#include "events/view/internal/view_records.h"

namespace ksutil::events {

/* The lock of the database makes the owner's readings and the monitor's checks take
 * turns; it is never held during a callback. */
struct ViewState {
  ViewState();
  ViewState(const ViewState &) = delete;
  ViewState &operator=(const ViewState &) = delete;

  WatchedDatabase database;
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
