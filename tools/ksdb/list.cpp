/* list: implements ksdb list. */
#include <cstdio>
#include <memory>

#include "platform/db/access.h"
#include "platform/elog/elog.h"
#include "tools/common/messages.h"
#include "tools/common/unreadable.h"
#include "tools/ksdb/commands.h"
#include "tools/ksdb/print_view.h"

namespace ksutil::tools {
namespace {

struct ListOptions {
  PrintOptions print;
  std::string tables;
};

/* The rows of a table byte for byte. */
int print_rows(Dbptr table, const PrintOptions &options) {
  const std::shared_ptr<const db::Snapshot> rows = db::table_snapshot(table);
  if (rows == nullptr) return kFailure;
  Unreadable unreadable;
  const ElogScope quiet;
  for (long i = 0; i < rows->count() && i < options.limit; i++) {
    const std::string_view row = rows->row(i);
    if (row.empty()) {
      unreadable.rows++;
    } else {
      std::fwrite(row.data(), 1, row.size(), stdout);
    }
  }
  return report_unreadable(unreadable, "records", options.database);
}

int list(const ListOptions &options) {
  const OpenDatabase database(options.print.database, "r");
  if (!database) return kFailure;
  if (anything_registered()) print_register();  // news of an interrupted change
  const Dbptr view = open_tables(database, options.tables);
  if (view.table < 0) return kFailure;
  const bool whole = options.print.raw && options.print.fields.empty() &&
                     options.print.where.empty() && options.print.form == Form::kText &&
                     options.tables.find('+') == std::string::npos;
  return whole ? print_rows(view, options.print)
               : print_view(view, {options.print.where}, options.print);
}

void describe_list(CLI::App &command, ListOptions &options) {
  add_print_options(command, options.print);
  add_tables(command, options.tables);
}

}  // namespace

Command list_command() {
  return make_command<ListOptions>(
      "list", "Prints the records of a table, or of tables that are joined",
      {"ksdb list --fields time,lat,lon,depth,mb --limit 5 data/aug2015 origin",
       "ksdb list --fields 'evid,evname,strdate(lddate)' data/aug2015 event",
       "ksdb list --where 'magnitude >= 6.5' --json data/aug2015 netmag",
       "ksdb list --raw data/aug2015 origerr"},
      describe_list, list);
}

}  // namespace ksutil::tools
