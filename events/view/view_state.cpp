#include "events/view/internal/view_state.h"

#include "events/reading/internal/magnitude_rules.h"

namespace ksutil::events {
namespace {

bool open_table(Dbptr db, const char *name, EVTable &table) {
  KSEV_Table opened;
  if (eventview_open_table(db, name, &opened) < 0) return false;
  table.db = opened.table;
  return true;
}

}  // namespace

ViewState::ViewState()
    : database({"KSEventView", kKSEVTableNames, "r", "dbopen", "eventview_open_table",
                open_table}),
      dbname_option{eventview_parse_dbname, eventview_print_dbname, nullptr},
      specs{{"custom", "dbname", nullptr, 0, KS_CONFIGURE_NODEFAULT, &dbname_option},
            {"end", nullptr, nullptr, 0, 0, nullptr}} {
  read_default_magnitude_rules(database.vars().rules);
}

}  // namespace ksutil::events
