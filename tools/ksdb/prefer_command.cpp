/* prefer_command: ksdb prefer. */
#include <cstdint>
#include <cstdio>

#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "tools/common/messages.h"
#include "tools/common/options.h"
#include "tools/common/rows.h"
#include "tools/ksdb/commands.h"
#include "tools/ksdb/edit_tables.h"
#include "tools/ksdb/row_values.h"

namespace ksutil::tools {
namespace {

struct PreferOptions {
  std::string database;
  long evid = -1, orid = -1;
  bool dry_run = false, quiet = false, json = false;
};

/* The record whose field has an id; -1 when there is none. */
long record_of(const db::Snapshot &rows, const char *field, std::int64_t id) {
  const ElogScope quiet;
  const db::IntegerColumn column(rows.layout(), field);
  for (long i = 0; i < rows.count(); i++) {
    std::int64_t value = -1;
    if (column.valid() && column.read(rows.row(i), value) && value == id) return i;
  }
  return -1;
}

std::int64_t integer_at(const db::Snapshot &rows, const char *field, long record) {
  std::int64_t value = -1;
  db::IntegerColumn(rows.layout(), field).read(rows.row(record), value);
  return value;
}

/* Changes prefor of the event; false with a complaint. */
bool change_preferred(db::Transaction &step, const PreferOptions &options,
                      std::int64_t &before) {
  const auto origins = step.snapshot(0), events = step.snapshot(1);
  if (origins == nullptr || events == nullptr) return false;
  const std::string evid = std::to_string(options.evid),
                    orid = std::to_string(options.orid);
  const long event = record_of(*events, "evid", options.evid);
  const long origin = record_of(*origins, "orid", options.orid);
  if ((event < 0 && !events->complete()) || (origin < 0 && !origins->complete())) {
    complain(std::string("cannot read all rows of ") +
             (origins->complete() ? "event" : "origin"));
    return false;
  }
  if (event < 0 || origin < 0) {
    complain(event < 0 ? "there is no event " + evid : "there is no origin " + orid);
    return false;
  }
  const std::int64_t owner = integer_at(*origins, "evid", origin);
  if (owner != options.evid) {
    complain("origin " + orid + " belongs to event " + std::to_string(owner) +
             ", not to event " + evid);
    return false;
  }
  before = integer_at(*events, "prefor", event);
  if (before == options.orid) return true;
  std::string row(events->row(event)), problem;
  if (!write_values(events->layout(), {{"prefor", orid}}, row, problem)) {
    complain(problem);
    return false;
  }
  stamp_row(events->layout(), row);
  return step.overwrite(1, event, row);
}

int prefer(const PreferOptions &options) {
  const auto store = open_for_edit(options.database, "event");
  if (store == nullptr) return kFailure;
  std::int64_t before = -1;
  bool ready = false;
  const bool done = store->transaction({"origin", "event"}, [&](db::Transaction &step) {
    ready = change_preferred(step, options, before);
    return ready && !options.dry_run;
  });
  if (!done && !(ready && options.dry_run)) return kFailure;
  const bool changed = before != options.orid;
  if (options.json) {
    nlohmann::ordered_json object = {
        {"evid", options.evid}, {"prefor", options.orid}, {"before", nullptr}};
    if (before != -1) object["before"] = before;
    object["changed"] = changed;
    if (options.dry_run) object["dry_run"] = true;
    print_json(object);
  } else if (!options.quiet) {
    const std::string earlier =
        before == -1 ? "none" : "origin " + std::to_string(before);
    std::printf("%sevent %ld prefers origin %ld (before: %s)\n",
                options.dry_run ? "would be: " : "", options.evid, options.orid,
                earlier.c_str());
  }
  return kOk;
}

void describe_prefer(CLI::App &command, PreferOptions &options) {
  add_database(command, options.database);
  add_evid(command, options.evid);
  command.add_option("orid", options.orid, "id of one of its origins")
      ->required()
      ->check(whole_number(0));
  command.add_flag("--json", options.json, "Print JSON");
  command.add_flag("-n,--dry-run", options.dry_run, "Only say what would be done");
  add_quiet(command, options.quiet);
}

}  // namespace

Command prefer_command() {
  return make_command<PreferOptions>(
      "prefer", "Makes an origin the preferred one of its event",
      {"ksdb prefer mydb 12 12"}, describe_prefer, prefer);
}

}  // namespace ksutil::tools
