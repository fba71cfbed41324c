/* KSEventView: checks the tables for changes, when asked to or at an interval. */
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <memory>

#include "events/database/internal/sleep.h"
#include "events/database/internal/table_change.h"
#include "events/view/internal/view_state.h"
#include "platform/elog/failure.h"
#include "platform/stock/memory.h"

namespace ksutil::events {
namespace {

struct FreeChanges {
  void operator()(rbtree *changes) const { freearr(changes, std::free); }
};
using Changes = std::unique_ptr<rbtree, FreeChanges>;

void check_and_call(KSEventView &view, const MonitorSettings &settings) {
  rbtree *changes = nullptr;
  view.checkChanges(&changes);
  const Changes owner(changes);
  settings.callback(0, settings.arg, changes);
}

/* Checks a table and enters a change under its name.  When that fails the table is
 * remembered as it was, so that the change shows again. */
bool note_change(EVTable &table, rbtree *changes) {
  constexpr const char *kWho = "KSEventView::checkChanges";
  KSEV_Table seen{table.db, table.count, table.filetime};
  char *text = nullptr;
  if (eventview_check_table(&seen, &text) < 0) {
    return fail(kWho, "eventview_check_table() error");
  }
  MallocPtr<char> owner(text);
  if (text != nullptr) {
    setarr(changes, table.name.c_str(), text);
    if (containsarr(changes, table.name.c_str()) == 0) return fail_memory(kWho);
    owner.release();
  }
  table.count = seen.count;
  table.filetime = seen.filetime;
  return true;
}

}  // namespace
}  // namespace ksutil::events

using namespace ksutil::events;
using ksutil::fail;

int eventview_check_table(KSEV_Table *table, char **text) {
  constexpr const char *kTexts[] = {nullptr, "modified", "added", "removed"};
  *text = nullptr;
  TableMemory seen{table->count, table->filetime};
  const int code = table_change(table->table, seen);
  if (code < 0) return fail("eventview_check_table", "table_stamp() error");
  if (kTexts[code] != nullptr) {
    *text = ks_strdup(kTexts[code]);
    if (*text == nullptr) return ksutil::fail_memory("eventview_check_table");
  }
  table->count = seen.count;
  table->filetime = seen.filetime;
  return code;
}

int KSEventView::checkChanges(rbtree **changes) {
  constexpr const char *kWho = "KSEventView::checkChanges";
  if (changes == nullptr) return fail(kWho, "no place for the changes is given");
  freearr(*changes, std::free);
  *changes = newarr(nullptr);
  if (*changes == nullptr) return fail(kWho, "newarr() error");
  const WatchedDatabase::Hold hold = state_->database.hold();
  if (!state_->database.require_open(kWho)) return -1;
  int result = 0;
  for (const char *name : kKSEVTableNames) {
    if (!note_change(*state_->database.table(name), *changes)) result = -1;
  }
  return result;
}

int KSEventView::monitorChangesThread(double period, KSEV_ChangesCallback callback,
                                      void *arg) {
  if (period > 0.0) return state_->monitor.start(*this, {period, callback, arg});
  state_->monitor.stop();
  return 0;
}

void *eventview_run_monitor_thread(void *view_pointer) {
  constexpr const char *kWho = "KSEventView::monitorChangesThread";
  KSEventView &view = *static_cast<KSEventView *>(view_pointer);
  ViewMonitor &monitor = ViewAccess::state(view).monitor;
  MonitorSettings settings;
  while (monitor.go_on(settings)) {
    try {
      if (settings.callback != nullptr) check_and_call(view, settings);
    } catch (const std::exception &error) {
      fail(kWho, "%s", error.what());
    } catch (...) {
      fail(kWho, "unknown exception");
    }
    sleep_while([&monitor] { return monitor.undisturbed(); }, settings.period);
  }
  return nullptr;
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
