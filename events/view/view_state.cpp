#include "events/view/internal/view_state.h"

#include <utility>

#include "core/register.h"
#include "events/database/internal/match_hooks.h"
#include "events/reading/internal/preferred_magnitudes.h"
#include "events/view/internal/view_reading.h"

namespace ksutil::events {

ViewState::ViewState()
    : dbname_option{eventview_parse_dbname, eventview_print_dbname, nullptr},
      specs{{"custom", "dbname", nullptr, 0, KS_CONFIGURE_NODEFAULT, &dbname_option},
            {"end", nullptr, nullptr, 0, 0, nullptr}} {
  read_default_magnitude_rules(vars.rules);
}

ViewState::~ViewState() { close(); }

ReadingSource ViewState::reading_source() {
  return {"KSEventView", vars, sites, detection_times};
}

void ViewState::free_hooks() {
  free_match_hooks(vars);
  sites.follow(nullptr);
  detection_times.follow(nullptr);
}

void ViewState::close() {
  free_hooks();
  tables.fill(KSEV_Table());
  for (const char *name : kKSEVTableNames) vars.tables.find(name)->db = dbinvalid();
  dbname.clear();
  if (db.database != dbINVALID) dbclose(std::exchange(db, dbinvalid()));
}

int view_failure(const char *function, const char *text) {
  ks_register_error(0, "KSEventView::%s: %s.\n", function, text);
  return -1;
}

}  // namespace ksutil::events
