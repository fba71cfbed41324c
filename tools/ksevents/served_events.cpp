#include "tools/ksevents/served_events.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "platform/db/access.h"
#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "tools/common/messages.h"
#include "tools/common/open_database.h"

namespace ksutil::tools {
namespace {

/* The fields without which the server cannot use a row. */
struct NeededFields {
  const char *table;
  std::vector<const char *> fields;
};

const std::vector<NeededFields> &needed_fields() {
  static const std::vector<NeededFields> needed = {
      {"event", {"evid", "prefor", "lddate"}},
      {"origin",
       {"time", "orid", "evid", "mb", "mbid", "ms", "msid", "ml", "mlid", "lddate"}},
      {"origerr", {"orid"}},
      {"netmag", {"magid", "orid", "magtype", "magnitude", "lddate"}},
      {"mt", {"orid", "lddate"}}};
  return needed;
}

bool is_usable(const db::Relation &layout, const std::vector<const db::Field *> &fields,
               std::string_view row) {
  return !row.empty() &&
         std::all_of(fields.begin(), fields.end(), [&](const db::Field *field) {
           return db::is_readable(layout, *field, row);
         });
}

long count_unreadable(const OpenDatabase &database, const NeededFields &needed) {
  const ElogScope quiet;
  const auto rows = db::table_snapshot(database.table(needed.table));
  if (rows == nullptr) return 0;  // the schema has no such table
  std::vector<const db::Field *> fields;
  for (const char *name : needed.fields) {
    if (const db::Field *const field = rows->layout().find(name)) {
      fields.push_back(field);
    }
  }
  long count = 0;
  for (long i = 0; i < rows->count(); i++) {
    if (!is_usable(rows->layout(), fields, rows->row(i))) count++;
  }
  return count;
}

}  // namespace

long unreadable_records(const std::string &database) {
  const OpenDatabase opened(database, "r");
  long count = 0;
  if (!opened) return count;
  for (const NeededFields &needed : needed_fields()) {
    count += count_unreadable(opened, needed);
  }
  return count;
}

ServedEvents::ServedEvents(const std::string &database, int max_events) {
  /* Try to open it here first: a server that cannot open its database prints messages
   * of its own. */
  if (!OpenDatabase(database, "r")) return;
  /* Opening may have finished an interrupted import, which is news and not a
   * failure. */
  if (anything_registered()) print_register();
  server_ = std::make_unique<EVServer>(database, 0, max_events, -1);
  unreadable_ = unreadable_records(database);
  if (unreadable_ > 0) elog_clear_register(0);  // each such record has left a message
  good_ = !anything_registered();
}

Table<EVEvent> ServedEvents::events() {
  server_->grabEventsLock();
  Table<EVEvent> events = server_->getEvents();
  server_->releaseEventsLock();
  return events;
}

}  // namespace ksutil::tools
