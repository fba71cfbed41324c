/* show: ksevents show, and its older name view. */
#include <string>

#include "events/evclient.h"
#include "platform/elog/elog.h"
#include "tools/common/open_database.h"
#include "tools/common/options.h"
#include "tools/common/table_rows.h"
#include "tools/ksevents/commands.h"
#include "tools/ksevents/event_sheets.h"
#include "tools/ksevents/event_tree.h"
#include "tools/ksevents/served_events.h"

namespace ksutil::tools {
namespace {

struct ShowOptions {
  std::string database;
  long evid = -1;
  bool best = false, tree = false, json = false, raw = false;
};

/* How many rows of the event table have the evid; -1, with messages, when the table cannot
 * be read. */
long count_events(const OpenDatabase &database, long evid) {
  ElogScope messages;
  const TableRows all(database.table("event"));
  const Dbptr rows =
      all.good() ? dbsubset(all.table(), ("evid == " + std::to_string(evid)).c_str())
                 : dbinvalid();
  long count = 0;
  if (rows.table < 0 || dbquery(rows, dbq_record_count, &count) != 0) {
    return messages.note(-1L);
  }
  return count > 0 || all.complete() ? count : messages.note(-1L);
}

int complain_of_event(const OpenDatabase &database, const ShowOptions &options) {
  const std::string event = std::to_string(options.evid);
  const long count = count_events(database, options.evid);
  if (count < 0) return kFailure;
  if (count > 0) {
    elog_clear_register(0);
    complain("event " + event + " of " + options.database +
             " cannot be read; see 'ksdb verify " + options.database + "'");
  } else {
    complain("there is no event with evid " + event + " in " + options.database);
  }
  return kFailure;
}

int show_tree(const OpenDatabase &database, const ShowOptions &options) {
  ServedEvents served(options.database, 1);
  if (!served) return kFailure;
  EVClient client(&served.server());
  EVEvent event;
  client.grabEventsLock();
  const int found = client.getExpandedEvent(options.evid, event);
  client.releaseEventsLock();
  served.server().deregisterClient(&client);
  if (found != 0) return complain_of_event(database, options);
  print_tree(served.server(), event);
  return report_unreadable({served.unreadable(), 0}, "records", options.database);
}

int show(const ShowOptions &options) {
  const OpenDatabase database(options.database, "r");
  if (!database) return kFailure;
  if (options.tree) return show_tree(database, options);
  OriginReader origins;
  if (!origins.open(options.database)) return kFailure;
  EventSheets sheets(options.raw);
  if (!sheets.read(options.database, options.evid, options.best)) {
    return complain_of_event(database, options);
  }
  if (options.json) {
    sheets.print_object();
  } else {
    sheets.print_tables();
  }
  Unreadable unreadable = sheets.unreadable(origins);
  /* A row that cannot be read does not say which event it belongs to. */
  if (!sheets.complete()) unreadable.rows = unreadable_records(options.database);
  /* Messages tell why stations could not be read, unless broken records do. */
  if (sheets.without_stations() && !unreadable.any()) return kFailure;
  elog_clear_register(0);
  return report_unreadable(unreadable, "records", options.database);
}

void describe_show(CLI::App &command, ShowOptions &options) {
  add_database(command, options.database);
  add_evid(command, options.evid);
  command.add_flag("--best", options.best,
                   "Of each station only the detection that fits best");
  CLI::Option *json =
      command.add_flag("--json", options.json, "Print an object instead of tables");
  add_raw(command, options.raw);
  command
      .add_flag("--tree", options.tree,
                "Print every record of the event field by field")
      ->excludes(json);
}

}  // namespace

Command show_command() {
  return make_command<ShowOptions>(
      "show",
      "Shows an event: its origins and magnitudes, and the residuals, distances and\n"
      "azimuths of its associations and detections",
      {"ksevents show data/aug2015 17", "ksevents show --json data/aug2015 17",
       "ksevents show --tree data/aug2015 17",
       "ksevents show --best data/ueb/ueb_test 48836019"},
      describe_show, show);
}

Command view_command() {
  Command view = show_command();
  view.name = "view";
  view.hidden = true;
  return view;
}

}  // namespace ksutil::tools
