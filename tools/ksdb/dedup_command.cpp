/* dedup_command: ksdb dedup. */
#include <algorithm>
#include <cstdio>
#include <memory>

#include "platform/db/row_removal.h"
#include "platform/elog/elog.h"
#include "tools/common/messages.h"
#include "tools/common/options.h"
#include "tools/common/rows.h"
#include "tools/common/unreadable.h"
#include "tools/ksdb/commands.h"
#include "tools/ksdb/edit_tables.h"
#include "tools/ksdb/key_reader.h"
#include "tools/ksdb/repeated_rows.h"

namespace ksutil::tools {
namespace {

struct DedupOptions {
  std::string database, table;
  bool by_key = false, dry_run = false, quiet = false;
  Form form = Form::kText;
};

/* Removes from the list the rows that other tables refer to by values that no other row
 * has, and counts them in `left`.  False, with a complaint, when a table that may refer to
 * them cannot be read. */
bool leave_referred(LockedTables &locked, const db::Snapshot &rows,
                    const std::vector<Referrer> &referrers,
                    std::vector<Repetition> &repetitions, std::size_t &left) {
  const auto is_repetition = [&](long record) {
    const auto found = std::lower_bound(
        repetitions.begin(), repetitions.end(), record,
        [](const Repetition &row, long number) { return row.record < number; });
    return found != repetitions.end() && found->record == record;
  };
  ValuesOfFields gone = values_in(rows, referrers, is_repetition);
  take_away(gone, values_in(rows, referrers,
                            [&](long record) { return !is_repetition(record); }));
  ValuesOfFields referred;
  for (const Referrer &referrer : referrers) {
    const auto table = locked.find(referrer.table);
    if (table == locked.end()) continue;
    const auto other = table->second->snapshot();
    if (other != nullptr) {
      each_reference(referrer, *other, gone, [&](long, const std::string &value) {
        referred[referrer.target].insert(value);
      });
    }
    if (other == nullptr || !other->complete()) {
      complain("cannot read all rows of " + referrer.table);
      return false;
    }
  }
  left = 0;
  std::string value;
  for (const auto &[field, values] : referred) {
    const KeyReader reader(rows.layout(), {field});
    left += std::erase_if(repetitions, [&](const Repetition &row) {
      return reader.read(rows.row(row.record), value) && values.contains(value);
    });
  }
  return true;
}

void print_removed(const db::Snapshot &rows, const std::vector<Repetition> &removed,
                   Form form) {
  const db::Relation &layout = rows.layout();
  db::Key key = layout.primary;
  if (!layout.id_field.empty() &&
      std::find(key.begin(), key.end(), layout.id_field) == key.end()) {
    key.push_back(layout.id_field);
  }
  const KeyReader reader(layout, key);
  Rows output({{"record", true, true}, {"kept", true, true}, {"key"}}, form);
  for (const Repetition &row : removed) {
    output.add({std::to_string(row.record), std::to_string(row.kept),
                reader.describe(rows.row(row.record))});
  }
  output.print();
}

int dedup(const DedupOptions &options) {
  const auto store = open_for_edit(options.database, options.table);
  if (store == nullptr) return kFailure;
  const db::Relation &layout = store->table(options.table)->layout();
  if (options.by_key && layout.primary.empty()) {
    complain(options.table + " has no primary key");
    return kFailure;
  }
  std::vector<Referrer> referrers = referrers_of(*store->schema(), options.table);
  std::erase_if(referrers,
                [&](const Referrer &other) { return other.table == options.table; });
  std::shared_ptr<const db::Snapshot> rows;
  std::vector<Repetition> repetitions;
  std::size_t left = 0;
  long unreadable = 0;
  const bool done =
      with_locked(*store, options.table, referrers, [&](LockedTables &locked) {
        db::TableStore::Exclusive &table = *locked.at(options.table);
        rows = table.snapshot();
        if (rows == nullptr) return false;
        repetitions = find_repetitions(*rows, options.by_key, unreadable);
        if (!rows->complete()) {
          complain("cannot read all rows of " + options.table);
          return false;
        }
        if (!leave_referred(locked, *rows, referrers, repetitions, left)) return false;
        std::vector<long> records;
        for (const Repetition &row : repetitions) records.push_back(row.record);
        return options.dry_run || db::remove_rows(table, records);
      });
  if (!done) return kFailure;
  if (!repetitions.empty() || options.form != Form::kText) {
    if (!options.quiet || options.form != Form::kText) {
      print_removed(*rows, repetitions, options.form);
    }
  }
  if (!options.quiet && options.form == Form::kText) {
    std::printf("%s%s of %s removed\n", options.dry_run ? "would be: " : "",
                counted_rows(repetitions.size()).c_str(), options.table.c_str());
  }
  if (left > 0) {
    complain(counted_rows(left) + " of " + options.table +
             " left, because rows of other tables refer to their ids");
  }
  return report_unreadable({unreadable, 0}, "records", options.database);
}

void describe_dedup(CLI::App &command, DedupOptions &options) {
  add_database(command, options.database);
  command.add_option("table", options.table, "A table of the database")->required();
  command.add_flag("--key", options.by_key,
                   "Rows with the same primary key, not only equal rows");
  command.add_flag("-n,--dry-run", options.dry_run, "Only say what would be removed");
  add_quiet(command, options.quiet);
  add_form_options(command, options.form);
}

}  // namespace

Command dedup_command() {
  return make_command<DedupOptions>(
      "dedup",
      "Removes rows that repeat others, and keeps the one with the latest lddate",
      {"ksdb dedup --dry-run mydb netmag", "ksdb dedup --key --dry-run mydb origin"},
      describe_dedup, dedup);
}

}  // namespace ksutil::tools
