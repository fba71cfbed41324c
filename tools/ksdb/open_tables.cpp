#include "tools/ksdb/open_tables.h"

#include <algorithm>

#include "platform/db/access.h"
#include "platform/elog/elog.h"
#include "tools/common/unreadable.h"

namespace ksutil::tools {

void add_tables(CLI::App &command, std::string &tables) {
  command
      .add_option("tables", tables, "A table, or several to be joined: origin+netmag")
      ->required();
}

void add_where(CLI::App &command, std::string &where) {
  command
      .add_option("--where", where,
                  "Only the records for which this expression is true")
      ->type_name("EXPRESSION");
}

Dbptr open_tables(const OpenDatabase &database, const std::string &tables) {
  Dbptr view = dbinvalid();
  for (std::size_t start = 0; start <= tables.size();) {
    const std::size_t end = std::min(tables.find('+', start), tables.size());
    const Dbptr table = database.table(tables.substr(start, end - start));
    if (table.table < 0) return dbinvalid();
    view = start == 0 ? table : dbjoin(view, table, nullptr, nullptr);
    if (view.table < 0) return view;
    start = end + 1;
  }
  return view;
}

long left_out_of(Dbptr view) {
  take_left_out();
  const ElogScope quiet;
  if (db::table_store(view) != nullptr) return 0;
  long count = 0;
  return dbquery(view, dbq_unreadable_count, &count) == 0 ? count : 0;
}

}  // namespace ksutil::tools
