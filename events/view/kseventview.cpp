/* A view and its database. */
#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "core/register.h"
#include "events/view/internal/view_reading.h"
#include "platform/stock/memory.h"

namespace ksutil::events {
namespace {

std::size_t table_index(std::string_view name) {
  return static_cast<std::size_t>(
      std::find(std::begin(kKSEVTableNames), std::end(kKSEVTableNames), name) -
      std::begin(kKSEVTableNames));
}

/* A database with its tables, before it becomes the view's. */
class OpenedView {
 public:
  OpenedView() = default;
  OpenedView(const OpenedView &) = delete;
  OpenedView &operator=(const OpenedView &) = delete;
  ~OpenedView() {
    if (db_.database != dbINVALID) dbclose(db_);
  }

  /* False with the messages of `who`.  The handle is the view's own: one of dbopen might
   * be shared with the program, which does not know when the monitor uses it. */
  bool open(const std::string &name, const char *who) {
    if (dbopen_noshare(name.c_str(), "r", &db_) < 0) {
      db_ = dbinvalid();
      ks_register_error(0, "%s: dbopen(%s) error\n", who, name.c_str());
      return false;
    }
    for (std::size_t i = 0; i < tables_.size(); i++) {
      if (eventview_open_table(db_, kKSEVTableNames[i], &tables_[i]) < 0) {
        ks_register_error(0, "%s: %s: eventview_open_table() error.\n", who,
                          kKSEVTableNames[i]);
        return false;
      }
    }
    return true;
  }

  /* Hands the database to the view; the caller holds its database_lock. */
  void install(ViewState &state, const std::string &name) {
    state.close();
    state.dbname = name;
    state.db = std::exchange(db_, dbinvalid());
    state.tables = tables_;
    for (std::size_t i = 0; i < tables_.size(); i++) {
      state.vars.tables.find(kKSEVTableNames[i])->db = tables_[i].table;
    }
  }

 private:
  Dbptr db_ = dbinvalid();
  ViewTables tables_;
};

}  // namespace
}  // namespace ksutil::events

using namespace ksutil::events;

KSEventView::KSEventView(Pf *pf) : state_(std::make_unique<ViewState>()) {
  init();
  setConfigureSpecs(state_->specs, reinterpret_cast<char *>(state_.get()),
                    "KSEventView", this, 0);
  if (pf != nullptr) configure(pf);
}

void KSEventView::init() {
  const std::lock_guard lock(state_->database_lock);
  state_->close();
}

int KSEventView::reset() {
  try {
    const std::lock_guard lock(state_->database_lock);
    if (state_->dbname.empty()) {
      return view_failure("reset", "No database currently open");
    }
    const std::string name = state_->dbname;
    OpenedView opened;
    if (!opened.open(name, "KSEventView::reset")) return -1;
    opened.install(*state_, name);
    return 0;
  } catch (const std::bad_alloc &) {
    return view_failure("reset", "malloc() error");
  }
}

KSEV_Table KSEventView::getTable(std::string table) {
  const std::lock_guard lock(state_->database_lock);
  const std::size_t i = table_index(table);
  return i < state_->tables.size() ? state_->tables[i] : KSEV_Table();
}

int eventview_parse_dbname(KS_ConfigureSpec *spec, void *, char *value, char *, int,
                           void *client_data) {
  if (value == nullptr || *value == '\0') {
    ks_register_error(0, "eventview_parse_dbname: no database name.\n");
    return -1;
  }
  ViewState &state = ViewAccess::state(*static_cast<KSEventView *>(client_data));
  try {
    const std::lock_guard lock(state.database_lock);
    if (!state.dbname.empty()) {
      if (state.dbname == value) return 0;
      ks_register_error(
          0,
          "eventview_parse_dbname: database %s already open and cannot be reset to "
          "%s\n",
          state.dbname.c_str(), value);
      return -1;
    }
    OpenedView opened;
    if (!opened.open(value, "eventview_parse_dbname")) return -1;
    opened.install(state, value);
  } catch (const std::bad_alloc &) {
    ks_register_error(0, "eventview_parse_dbname: malloc() error.\n");
    return -1;
  }
  spec->flags |= KS_CONFIGURE_CHANGED;
  return 0;
}

char *eventview_print_dbname(KS_ConfigureSpec *, void *, char *, int,
                             void *client_data) {
  ViewState &state = ViewAccess::state(*static_cast<KSEventView *>(client_data));
  const std::lock_guard lock(state.database_lock);
  char *const text = ks_strdup(state.dbname.c_str());
  if (text == nullptr) {
    ks_register_error(0, "eventview_print_dbname: malloc() error.\n");
  }
  return text;
}

int eventview_open_table(Dbptr db, const char *name, KSEV_Table *table) {
  const Dbptr found = dblookup(db, nullptr, name, nullptr, nullptr);
  if (found.table == dbINVALID) {
    ks_register_error(0, "eventview_open_table: no %s table in the schema.\n", name);
    return -1;
  }
  *table = KSEV_Table();
  table->table = found;
  return 0;
}

void eventview_free_hooks(KSEventView *view) {
  ViewState &state = ViewAccess::state(*view);
  const std::lock_guard lock(state.database_lock);
  state.free_hooks();
}
