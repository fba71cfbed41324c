#include "tools/ksdb/edit_tables.h"

#include <algorithm>
#include <set>
#include <unordered_map>

#include "platform/db/row_filter.h"
#include "platform/elog/elog.h"
#include "tools/common/messages.h"
#include "tools/common/options.h"
#include "tools/ksdb/key_reader.h"

namespace ksutil::tools {
namespace {

constexpr std::size_t kEditBlockBytes = std::size_t{64} << 20;  // of rows, in memory

/* The keys that identify rows: the primary key, and the id when that is another. */
std::vector<KeyReader> keys_of(const db::Relation &layout) {
  std::vector<KeyReader> keys;
  if (!layout.primary.empty()) keys.emplace_back(layout, layout.primary);
  if (!layout.id_field.empty() && layout.primary != db::Key{layout.id_field}) {
    keys.emplace_back(layout, db::Key{layout.id_field});
  }
  std::erase_if(keys, [](const KeyReader &key) { return !key.valid(); });
  return keys;
}

/* Locks the tables from `next` on, one within the other. */
bool lock_next(std::vector<db::TableStore *>::const_iterator next,
               std::vector<db::TableStore *>::const_iterator end, LockedTables &locked,
               const std::function<bool(LockedTables &)> &work) {
  if (next == end) return work(locked);
  return (*next)->exclusively([&](db::TableStore::Exclusive &rows) {
    locked[(*next)->layout().name] = &rows;
    return lock_next(next + 1, end, locked, work);
  });
}

}  // namespace

void add_edit_options(CLI::App &command, EditOptions &options,
                      const std::string &forced) {
  add_database(command, options.database);
  command.add_option("table", options.table, "A table of the database")->required();
  command.add_flag("-n,--dry-run", options.dry_run, "Only say what would be done");
  command.add_flag("--force", options.force, forced);
  add_quiet(command, options.quiet);
}

std::unique_ptr<db::DatabaseStore> open_for_edit(const std::string &database,
                                                 const std::string &table) {
  auto store = db::open_store(database, "r+", kEditBlockBytes);
  if (store == nullptr || store->table(table) == nullptr) return nullptr;
  return store;
}

void add_row_choice(CLI::App &command, RowChoice &choice) {
  command
      .add_option("--where", choice.where, "The rows for which this expression is true")
      ->type_name("EXPRESSION");
  command.add_option("--record", choice.record, "The row of this number, from 0")
      ->type_name("N")
      ->check(whole_number(0));
  command.add_flag("--all", choice.all, "All rows of the table");
}

bool is_one_choice(const RowChoice &choice) {
  const int given = (choice.where.empty() ? 0 : 1) + (choice.record < 0 ? 0 : 1) +
                    (choice.all ? 1 : 0);
  if (given == 1) return true;
  complain(given == 0 ? "which rows? give --where EXPRESSION, --record N or --all"
                      : "only one of --where, --record and --all can be given");
  return false;
}

namespace {

bool is_good(const db::RowFilter &filter, const RowChoice &choice) {
  if (filter.good()) return true;
  complain("Can't compile '" + choice.where + "': " + filter.error().message +
           " at position " + std::to_string(filter.error().position));
  return false;
}

}  // namespace

bool condition_compiles(const RowChoice &choice, const db::Relation &layout) {
  return choice.where.empty() || is_good(db::RowFilter(layout, choice.where), choice);
}

bool choose_rows(const RowChoice &choice, const db::Snapshot &rows,
                 std::vector<long> &records, long &unreadable) {
  records.clear();
  unreadable = 0;
  if (choice.record >= 0) {
    if (choice.record >= rows.count()) {
      complain(rows.layout().name + " has no record " + std::to_string(choice.record) +
               "; it has " + counted_rows(static_cast<std::size_t>(rows.count())));
      return false;
    }
    if (rows.row(choice.record).empty()) return false;
    records.push_back(choice.record);
    return true;
  }
  const db::RowFilter filter(rows.layout(), choice.all ? "1 == 1" : choice.where);
  if (!is_good(filter, choice)) return false;
  for (long i = 0; i < rows.count(); i++) {
    std::string_view row;
    {
      const ElogScope quiet;
      row = rows.row(i);
    }
    if (row.empty()) {
      unreadable++;
      continue;
    }
    const int accepted = choice.all ? 1 : filter.accepts(row);
    if (accepted < 0) {
      complain("'" + choice.where + "' has no value for record " + std::to_string(i) +
               " of " + rows.layout().name);
      return false;
    }
    if (accepted > 0) records.push_back(i);
  }
  if (rows.complete()) return true;
  complain("cannot read all rows of " + rows.layout().name);
  return false;
}

std::vector<std::string> referring_tables(db::DatabaseStore &store,
                                          const std::string &table,
                                          const std::vector<Referrer> &referrers) {
  std::set<std::string> names;
  for (const Referrer &referrer : referrers) {
    db::Stamp stamp;
    if (referrer.table == table) continue;
    db::TableStore *const other = store.table(referrer.table);
    /* A table that cannot be looked at may have rows: its reader tells. */
    if (other == nullptr || !other->stamp(stamp) || stamp.count > 0) {
      names.insert(referrer.table);
    }
  }
  return {names.begin(), names.end()};
}

/* Locks the tables in the order of their names, as transactions do, so that no programs
 * wait for each other in a ring. */
bool with_locked(db::DatabaseStore &store, const std::string &table,
                 const std::vector<Referrer> &referrers,
                 const std::function<bool(LockedTables &)> &work) {
  std::vector<std::string> names = referring_tables(store, table, referrers);
  names.insert(std::upper_bound(names.begin(), names.end(), table), table);
  std::vector<db::TableStore *> tables;
  for (const std::string &name : names) {
    tables.push_back(store.table(name));
    if (tables.back() == nullptr) return false;
  }
  LockedTables locked;
  return lock_next(tables.begin(), tables.end(), locked, work);
}

std::string repeated_key(const db::Snapshot &rows, const db::Relation &layout,
                         const std::vector<ChangedRow> &changed) {
  const ElogScope quiet;
  for (const KeyReader &key : keys_of(layout)) {
    std::unordered_map<std::string, long> taken;
    std::set<long> moved;  // rows whose key changes
    std::string value, before;
    for (const ChangedRow &row : changed) {
      if (!key.read(row.text, value)) continue;
      if (row.record < rows.count() && key.read(rows.row(row.record), before) &&
          before == value) {
        continue;
      }
      moved.insert(row.record);
      const auto [known, fresh] = taken.try_emplace(value, row.record);
      if (!fresh) return key.describe(row.text) + " stands twice in what is written";
    }
    for (long i = 0; !taken.empty() && i < rows.count(); i++) {
      const std::string_view row = rows.row(i);
      if (row.empty() || moved.contains(i) || !key.read(row, value)) continue;
      if (taken.contains(value)) {
        return key.describe(row) + " is that of record " + std::to_string(i);
      }
    }
  }
  if (!rows.complete()) return "rows that cannot be read may have the same key";
  return "";
}

std::vector<std::string> lost_references(const db::Snapshot &rows,
                                         const std::vector<ChangedRow> &changed,
                                         const std::vector<Referrer> &referrers,
                                         const SnapshotOf &snapshot) {
  if (referrers.empty() || changed.empty()) return {};
  std::set<long> records;
  for (const ChangedRow &row : changed) records.insert(row.record);
  const auto is_changed = [&](long record) { return records.contains(record); };
  ValuesOfFields gone = values_in(rows, referrers, is_changed);
  take_away(gone, values_in(rows, referrers,
                            [&](long record) { return !is_changed(record); }));
  ValuesOfFields after;
  std::string value;
  for (const Referrer &referrer : referrers) {
    const KeyReader reader(rows.layout(), {referrer.target});
    for (const ChangedRow &row : changed) {
      if (reader.valid() && reader.read(row.text, value)) {
        after[referrer.target].insert(value);
      }
    }
  }
  take_away(gone, after);
  return told_references(referrers, snapshot, gone);
}

std::string counted_rows(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " row" : " rows");
}

void complain_of_references(const std::vector<std::string> &lines, bool forced) {
  for (const std::string &line : lines) complain(line);
  if (!forced) complain("nothing is changed; --force leaves these without their rows");
}

}  // namespace ksutil::tools
