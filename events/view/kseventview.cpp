/* KSEventView: opens and closes the database of a view. */
#include "events/kseventview.h"

#include <algorithm>
#include <string_view>

#include "events/view/internal/view_state.h"
#include "platform/elog/failure.h"
#include "platform/stock/memory.h"

using namespace ksutil::events;
using ksutil::at_boundary;
using ksutil::fail;

KSEventView::KSEventView(Pf *pf) : state_(std::make_unique<ViewState>()) {
  init();
  setConfigureSpecs(state_->specs, reinterpret_cast<char *>(state_.get()),
                    "KSEventView", this, 0);
  if (pf != nullptr) configure(pf);
}

KSEventView::~KSEventView() { state_->monitor.end(); }

void KSEventView::init() {
  at_boundary("KSEventView::init", [&] {
    const WatchedDatabase::Hold hold = state_->database.hold();
    state_->database.unbind();
  });
}

int KSEventView::reset() {
  constexpr const char *kWho = "KSEventView::reset";
  return at_boundary(kWho, [&] {
    const WatchedDatabase::Hold hold = state_->database.hold();
    return state_->database.reopen(kWho) ? 0 : -1;
  });
}

KSEV_Table KSEventView::getTable(std::string table) {
  const WatchedDatabase::Hold hold = state_->database.hold();
  const EVTable *const watched = state_->database.table(table);
  KSEV_Table copy;
  if (watched == nullptr) return copy;
  copy.table = watched->db;
  copy.count = watched->count;
  copy.filetime = watched->filetime;
  return copy;
}

int eventview_parse_dbname(KS_ConfigureSpec *spec, void *, char *value, char *, int,
                           void *client_data) {
  constexpr const char *kWho = "eventview_parse_dbname";
  if (value == nullptr || *value == '\0') return fail(kWho, "no database name");
  return at_boundary(kWho, [&] {
    WatchedDatabase &database =
        ViewAccess::state(*static_cast<KSEventView *>(client_data)).database;
    const WatchedDatabase::Hold hold = database.hold();
    if (database.name() == value) return 0;
    if (!database.name().empty()) {
      elog_log(0, "%s: database %s already open and cannot be reset to %s\n", kWho,
               database.name().c_str(), value);
      return -1;
    }
    if (!database.open(value, kWho)) return -1;
    spec->flags |= KS_CONFIGURE_CHANGED;
    return 0;
  });
}

char *eventview_print_dbname(KS_ConfigureSpec *, void *, char *, int,
                             void *client_data) {
  WatchedDatabase &database =
      ViewAccess::state(*static_cast<KSEventView *>(client_data)).database;
  const WatchedDatabase::Hold hold = database.hold();
  char *const text = ks_strdup(database.name().c_str());
  if (text == nullptr) ksutil::fail_memory("eventview_print_dbname");
  return text;
}

int eventview_open_table(Dbptr db, const char *name, KSEV_Table *table) {
  const Dbptr found = dblookup(db, nullptr, name, nullptr, nullptr);
  if (found.table == dbINVALID) {
    return fail("eventview_open_table", "no %s table in the schema", name);
  }
  *table = KSEV_Table();
  table->table = found;
  return 0;
}

void eventview_free_hooks(KSEventView *view) {
  if (view == nullptr) return;
  WatchedDatabase &database = ViewAccess::state(*view).database;
  const WatchedDatabase::Hold hold = database.hold();
  database.free_indexes();
}
