/* set_command: ksdb set. */
#include <cstdio>

#include "platform/elog/elog.h"
#include "tools/common/messages.h"
#include "tools/common/rows.h"
#include "tools/common/unreadable.h"
#include "tools/ksdb/commands.h"
#include "tools/ksdb/edit_tables.h"
#include "tools/ksdb/row_values.h"

namespace ksutil::tools {
namespace {

struct SetOptions {
  EditOptions edit;
  RowChoice choice;
  std::vector<std::string> values;
};

/* One run of the command on locked tables. */
class RowSetter {
 public:
  RowSetter(const SetOptions &options, std::vector<FieldText> values,
            std::vector<Referrer> referrers, std::vector<std::string> tables)
      : options_(options),
        values_(std::move(values)),
        referrers_(std::move(referrers)),
        tables_(std::move(tables)) {}

  /* The table to change is the last of the list.  False with a complaint. */
  bool run(db::Transaction &step) {
    const std::size_t place = tables_.size() - 1;
    const auto rows = step.snapshot(place);
    if (rows == nullptr || !plan(*rows)) return false;
    if (!options_.edit.force) {
      const std::string repeated = repeated_key(*rows, rows->layout(), changed_);
      if (!repeated.empty()) {
        complain(rows->layout().name + ": " + repeated +
                 "; nothing is changed (--force changes it)");
        return false;
      }
    }
    if (!keeps_references(step, *rows)) return false;
    for (const ChangedRow &row : changed_) {
      if (!step.overwrite(place, row.record, row.text)) return false;
    }
    return ready_ = true;
  }

  bool ready() const { return ready_; }
  std::size_t chosen() const { return chosen_; }
  std::size_t changed() const { return changed_.size(); }
  long unreadable() const { return unreadable_; }

 private:
  bool plan(const db::Snapshot &rows) {
    const db::Relation &layout = rows.layout();
    std::vector<long> records;
    if (!choose_rows(options_.choice, rows, records, unreadable_)) return false;
    chosen_ = records.size();
    changed_.clear();
    for (const long record : records) {
      const std::string before(rows.row(record));
      std::string row = before, problem;
      if (!write_values(layout, values_, row, problem)) {
        complain(problem);
        return false;
      }
      if (row == before) continue;
      if (!is_named(values_, "lddate")) stamp_row(layout, row);
      changed_.push_back({record, std::move(row)});
    }
    return true;
  }

  /* Values of keys that no row has any longer must not be referred to. */
  bool keeps_references(db::Transaction &step, const db::Snapshot &rows) {
    const auto lines = lost_references(
        rows, changed_, referrers_,
        [&](const std::string &table, std::shared_ptr<const db::Snapshot> &referring) {
          for (std::size_t i = 0; i + 1 < tables_.size(); i++) {
            if (tables_[i] != table) continue;
            referring = step.snapshot(i);
            return referring != nullptr;
          }
          return true;
        });
    if (lines.empty()) return true;
    complain_of_references(lines, options_.edit.force);
    return options_.edit.force;
  }

  const SetOptions &options_;
  const std::vector<FieldText> values_;
  const std::vector<Referrer> referrers_;  // to fields that are set
  const std::vector<std::string> tables_;
  std::vector<ChangedRow> changed_;
  std::size_t chosen_ = 0;
  long unreadable_ = 0;
  bool ready_ = false;
};

int set_values(const SetOptions &options) {
  std::vector<FieldText> values(options.values.size());
  for (std::size_t i = 0; i < values.size(); i++) {
    if (split_assignment(options.values[i], values[i])) continue;
    complain("'" + options.values[i] + "' is not FIELD=VALUE");
    return kUsage;
  }
  if (!is_one_choice(options.choice)) return kUsage;
  const std::string &name = options.edit.table;
  const auto store = open_for_edit(options.edit.database, name);
  if (store == nullptr) return kFailure;
  if (!condition_compiles(options.choice, store->table(name)->layout())) return kUsage;
  std::string row = db::null_record(store->table(name)->layout()), problem;
  if (!write_values(store->table(name)->layout(), values, row, problem)) {
    complain(problem);
    return kFailure;
  }
  std::vector<Referrer> referrers = referrers_of(*store->schema(), name);
  std::erase_if(referrers, [&](const Referrer &referrer) {
    return referrer.table == name || !is_named(values, referrer.target);
  });
  std::vector<std::string> tables = referring_tables(*store, name, referrers);
  tables.push_back(name);
  RowSetter setter(options, std::move(values), std::move(referrers), tables);
  const bool done = store->transaction(tables, [&](db::Transaction &step) {
    return setter.run(step) && !options.edit.dry_run;
  });
  if (!done && !(setter.ready() && options.edit.dry_run)) return kFailure;
  if (!options.edit.quiet) {
    std::printf("%s%s of %s changed, %zu as before\n",
                options.edit.dry_run ? "would be: " : "",
                counted_rows(setter.changed()).c_str(), name.c_str(),
                setter.chosen() - setter.changed());
  }
  return report_unreadable({setter.unreadable(), 0}, "records", options.edit.database);
}

void describe_set(CLI::App &command, SetOptions &options) {
  add_edit_options(command, options.edit,
                   "Change keys that rows of other tables refer to, too, and into\n"
                   "those of other rows");
  command.add_option("values", options.values, "What the fields are to be")
      ->type_name("FIELD=VALUE")
      ->required();
  add_row_choice(command, options.choice);
}

}  // namespace

Command set_command() {
  return make_command<SetOptions>("set", "Changes fields of rows; all or none",
                                  {"ksdb set --where 'orid == 12' mydb origin etype=qb",
                                   "ksdb set --record 0 --dry-run mydb event auth=me"},
                                  describe_set, set_values);
}

}  // namespace ksutil::tools
