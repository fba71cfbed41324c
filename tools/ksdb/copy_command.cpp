/* copy_command: ksdb copy. */
#include <algorithm>
#include <cstdio>
#include <memory>
#include <set>

#include "platform/db/row_removal.h"
#include "platform/db/store_plugin.h"
#include "platform/elog/elog.h"
#include "tools/common/options.h"
#include "tools/common/progress.h"
#include "tools/common/unreadable.h"
#include "tools/ksdb/commands.h"
#include "tools/ksdb/edit_tables.h"
#include "tools/ksdb/import_target.h"
#include "tools/ksdb/row_conversion.h"
#include "tools/ksdb/store_options.h"

namespace ksutil::tools {
namespace {

constexpr std::size_t kCopyBlockBytes = std::size_t{64} << 20;  // of tables, in memory
constexpr std::size_t kPiece = std::size_t{1} << 20;  // bytes of rows in one write

struct CopyOptions {
  std::string from, to;
  StoreOptions store;
  bool replace = false, quiet = false;
};

/* A table that has rows, as it is when the copy begins. */
struct CopiedTable {
  std::string name;
  std::shared_ptr<const db::Snapshot> rows;
  long copied = 0;
  std::vector<long> left_out;  // records that cannot be read, ascending
};

/* Which tables readers must find filled before others: an event is looked for first, then
 * its origins, then all that refers to these. */
int rank(const std::string &table) {
  return table == "event" ? 2 : table == "origin" ? 1 : 0;
}

/* The tables with rows, those that others refer to last.  False with a message. */
bool gather_tables(db::DatabaseStore &from, std::vector<CopiedTable> &tables) {
  const db::OneLook look(&from);
  for (const db::Relation &relation : from.schema()->relations()) {
    db::TableStore *const table = from.table(relation.name);
    db::Stamp stamp;
    if (table == nullptr || !table->stamp(stamp)) return false;
    if (stamp.count == 0) continue;
    const auto rows = table->snapshot();
    if (rows == nullptr) return false;
    tables.push_back({relation.name, rows, 0, {}});
  }
  std::stable_sort(tables.begin(), tables.end(),
                   [](const CopiedTable &a, const CopiedTable &b) {
                     return rank(a.name) < rank(b.name);
                   });
  return true;
}

/* The tables of the target that have rows, or a complaint of the first one.  Equal stamps
 * are the same table under two names. */
bool tables_with_rows(db::DatabaseStore &from, db::DatabaseStore &to,
                      const CopyOptions &options, std::set<std::string> &filled) {
  for (const db::Relation &relation : to.schema()->relations()) {
    db::TableStore *const table = to.table(relation.name);
    db::Stamp stamp;
    if (table == nullptr || !table->stamp(stamp)) return false;
    if (stamp.count == 0) continue;
    db::Stamp source;
    if (!from.table(relation.name)->stamp(source)) return false;
    if (source == stamp) {
      complain(options.to + " is the database " + options.from + " itself");
      return false;
    }
    if (!options.replace) {
      complain(options.to + " has " +
               counted_rows(static_cast<std::size_t>(stamp.count)) + " in " +
               relation.name + "; --replace puts the copy in their place");
      return false;
    }
    filled.insert(relation.name);
  }
  return true;
}

/* Adds the rows of one table to the step, piece by piece. */
bool copy_table(CopiedTable &table, std::size_t place, db::Transaction &step,
                Progress &progress, long before) {
  const RowConversion conversion(table.rows->layout(), step.layout(place));
  if (!conversion.missing().empty()) {
    complain("table " + table.name +
             " of the target has no field: " + conversion.missing());
    return false;
  }
  table.copied = 0;
  table.left_out.clear();
  std::string piece;
  const auto write = [&] {
    const bool written = piece.empty() || step.append(place, piece) >= 0;
    piece.clear();
    return written;
  };
  for (long record = 0; record < table.rows->count(); record++) {
    progress.reach(before + record);
    const std::string_view row = table.rows->row(record);
    if (row.empty() || !conversion.readable(row)) {
      /* Counted, and not told one by one; a disk that fails is told below. */
      if (table.rows->complete()) elog_clear_register(0);
      table.left_out.push_back(record);
      continue;
    }
    if (!conversion.append(row, piece)) {
      progress.wipe();
      complain("record " + std::to_string(record) + " of " + table.name +
               " does not fit into the target");
      return false;
    }
    table.copied++;
    if (piece.size() >= kPiece && !write()) return false;
  }
  if (table.rows->complete()) return write();
  complain("cannot read all rows of " + table.name);
  return false;
}

/* Puts the rows of the tables in the place of those that the target has, in one step. */
bool copy_all(std::vector<CopiedTable> &tables, const std::set<std::string> &filled,
              db::DatabaseStore &to, long total, bool quiet) {
  std::vector<std::string> names;
  for (const CopiedTable &table : tables) names.push_back(table.name);
  std::set<std::string> emptied = filled;
  for (const std::string &name : names) emptied.erase(name);
  names.insert(names.end(), emptied.begin(), emptied.end());
  if (names.empty()) return true;
  Progress progress("copying", total, quiet, "rows");
  return to.transaction(names, [&](db::Transaction &step) {
    long before = 0;
    for (std::size_t place = 0; place < names.size(); place++) {
      if (filled.contains(names[place]) && !db::remove_all_rows(step, place)) {
        return false;
      }
      if (place >= tables.size()) continue;
      if (!copy_table(tables[place], place, step, progress, before)) return false;
      before += tables[place].rows->count();
    }
    return true;
  });
}

/* Compares each row of a table with its copy, value by value. */
bool is_same(const CopiedTable &table, const db::Snapshot &copy, Progress &progress,
             long before, long &rounded) {
  const auto differs = [&](const std::string &text) {
    progress.wipe();
    complain("the copy of " + table.name + " differs: " + text);
    return false;
  };
  if (copy.count() != table.copied) {
    return differs(counted_rows(static_cast<std::size_t>(copy.count())) + ", not " +
                   std::to_string(table.copied));
  }
  const RowConversion conversion(table.rows->layout(), copy.layout());
  auto left_out = table.left_out.begin();
  long place = 0;
  for (long record = 0; record < table.rows->count(); record++) {
    if (left_out != table.left_out.end() && *left_out == record) {
      left_out++;
      continue;
    }
    progress.reach(before + record);
    const std::string_view row = table.rows->row(record);
    const std::string_view copied = copy.row(place);
    if (row.empty() || copied.empty()) {
      return differs("record " + std::to_string(record) + " cannot be read");
    }
    if (const db::Field *const field = conversion.difference(row, copied, rounded)) {
      return differs("record " + std::to_string(record) + ", field " + field->name);
    }
    place++;
  }
  return true;
}

/* Reads the target anew, as another program would. */
bool verify_copy(const std::vector<CopiedTable> &tables, const std::string &to,
                 long total, bool quiet, long &rounded) {
  const auto store = db::open_store(to, "r", kCopyBlockBytes);
  if (store == nullptr) return false;
  Progress progress("verifying", total, quiet, "rows");
  long before = 0;
  for (const CopiedTable &table : tables) {
    const auto copy = store->table(table.name)->snapshot();
    if (copy == nullptr || !is_same(table, *copy, progress, before, rounded)) {
      return false;
    }
    before += table.rows->count();
  }
  return true;
}

int copy(const CopyOptions &options) {
  if (!make_sense(options.store)) return kUsage;
  const auto from = db::open_store(options.from, "r", kCopyBlockBytes);
  if (from == nullptr) return kFailure;
  std::vector<CopiedTable> tables;
  if (!gather_tables(*from, tables)) return kFailure;
  long total = 0;
  for (const CopiedTable &table : tables) total += table.rows->count();

  ImportTarget target;
  if (!target.open_or_make({options.to, from->schema()->name(), options.store.store,
                            options.store.connection})) {
    return kFailure;
  }
  db::DatabaseStore &to = target.store();
  if (to.schema()->name() != from->schema()->name()) {
    complain(options.to + " has the schema " + to.schema()->name() + ", not " +
             from->schema()->name());
    return kFailure;
  }
  std::set<std::string> filled;
  if (!tables_with_rows(*from, to, options, filled) ||
      !copy_all(tables, filled, to, total, options.quiet)) {
    return kFailure;
  }
  target.keep();
  long copied = 0, unreadable = 0, rounded = 0;
  if (!verify_copy(tables, options.to, total, options.quiet, rounded)) return kFailure;
  for (const CopiedTable &table : tables) {
    copied += table.copied;
    unreadable += static_cast<long>(table.left_out.size());
  }
  if (!options.quiet) {
    std::printf("%s of %zu tables copied and verified\n",
                counted_rows(static_cast<std::size_t>(copied)).c_str(), tables.size());
    if (rounded > 0) {
      std::printf("%ld numbers rounded to the digits of their fields\n", rounded);
    }
  }
  return report_unreadable({unreadable, 0}, "records", options.from);
}

void describe_copy(CLI::App &command, CopyOptions &options) {
  command.add_option("from", options.from, "path/name of the database")->required();
  command
      .add_option("to", options.to,
                  "path/name of its copy, which is made if it is not there")
      ->required();
  add_store_options(command, options.store);
  command.add_flag("--replace", options.replace,
                   "Put the copy in the place of the rows that the target has");
  add_quiet(command, options.quiet);
}

}  // namespace

Command copy_command() {
  return make_command<CopyOptions>(
      "copy",
      "Copies a database, between files and a database server too, and verifies",
      {"ksdb copy data/aug2015 backup"}, describe_copy, copy);
}

}  // namespace ksutil::tools
