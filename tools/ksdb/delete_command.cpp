/* delete_command: ksdb delete. */
#include <algorithm>
#include <cstdio>
#include <memory>

#include "platform/db/row_removal.h"
#include "tools/common/messages.h"
#include "tools/common/unreadable.h"
#include "tools/ksdb/commands.h"
#include "tools/ksdb/edit_tables.h"

namespace ksutil::tools {
namespace {

struct DeleteOptions {
  EditOptions edit;
  RowChoice choice;
};

/* Whether no row of another table refers to values that only the chosen rows have. */
bool keeps_references(LockedTables &locked, const db::Snapshot &rows,
                      const std::vector<Referrer> &referrers,
                      const std::vector<long> &records, bool force) {
  const auto is_chosen = [&](long record) {
    return std::binary_search(records.begin(), records.end(), record);
  };
  ValuesOfFields gone = values_in(rows, referrers, is_chosen);
  take_away(gone, values_in(rows, referrers,
                            [&](long record) { return !is_chosen(record); }));
  const std::vector<std::string> lines = told_references(
      referrers,
      [&](const std::string &table, std::shared_ptr<const db::Snapshot> &referring) {
        const auto found = locked.find(table);
        if (found == locked.end()) return true;
        referring = found->second->snapshot();
        return referring != nullptr;
      },
      gone);
  if (lines.empty()) return true;
  complain_of_references(lines, force);
  return force;
}

int delete_rows(const DeleteOptions &options) {
  if (!is_one_choice(options.choice)) return kUsage;
  const std::string &name = options.edit.table;
  const auto store = open_for_edit(options.edit.database, name);
  if (store == nullptr) return kFailure;
  if (!condition_compiles(options.choice, store->table(name)->layout())) return kUsage;
  std::vector<Referrer> referrers = referrers_of(*store->schema(), name);
  std::erase_if(referrers, [&](const Referrer &other) { return other.table == name; });
  std::vector<long> records;
  long unreadable = 0;
  const bool done = with_locked(*store, name, referrers, [&](LockedTables &locked) {
    db::TableStore::Exclusive &table = *locked.at(name);
    const auto rows = table.snapshot();
    return rows != nullptr && choose_rows(options.choice, *rows, records, unreadable) &&
           keeps_references(locked, *rows, referrers, records, options.edit.force) &&
           (options.edit.dry_run || db::remove_rows(table, records));
  });
  if (!done) return kFailure;
  if (!options.edit.quiet) {
    std::printf("%s%s of %s deleted\n", options.edit.dry_run ? "would be: " : "",
                counted_rows(records.size()).c_str(), name.c_str());
  }
  return report_unreadable({unreadable, 0}, "records", options.edit.database);
}

void describe_delete(CLI::App &command, DeleteOptions &options) {
  add_edit_options(command, options.edit,
                   "Delete rows that rows of other tables refer to, too");
  add_row_choice(command, options.choice);
}

}  // namespace

Command delete_command() {
  return make_command<DeleteOptions>(
      "delete", "Removes rows from a table; all that are chosen, or none",
      {"ksdb delete --dry-run --where 'sdobs > 1.5' mydb origerr"}, describe_delete,
      delete_rows);
}

}  // namespace ksutil::tools
