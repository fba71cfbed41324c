/* add_command: ksdb add. */
#include <cstdio>

#include "platform/db/columns.h"
#include "tools/common/messages.h"
#include "tools/common/rows.h"
#include "tools/ksdb/commands.h"
#include "tools/ksdb/edit_tables.h"
#include "tools/ksdb/new_rows.h"
#include "tools/ksdb/row_source.h"

namespace ksutil::tools {
namespace {

constexpr long kMostRefusals = 20;

struct AddOptions {
  EditOptions edit;
  std::vector<std::string> values;
  std::string csv, jsonl;
  bool json = false;
};

/* Collects the rows to be added, and complains about those that cannot be. */
class RowTaker {
 public:
  explicit RowTaker(const db::Relation &layout)
      : added_{layout, {}, {}}, null_row_(db::null_record(layout)) {}

  void take(const std::string &place, const std::vector<FieldText> &values,
            std::string problem) {
    const db::Relation &layout = added_.layout;
    std::string row = null_row_;
    if (problem.empty()) write_values(layout, values, row, problem);
    if (!problem.empty()) {
      if (refused_++ < kMostRefusals) {
        complain(place.empty() ? problem : place + ": " + problem);
      }
      return;
    }
    if (!is_named(values, "lddate")) stamp_row(layout, row);
    const std::string &id = layout.id_field;
    bool given = id.empty();
    for (const FieldText &value : values) {
      given = given || (value.field == id && !value.text.empty());
    }
    if (!given) added_.without_id.push_back(added_.rows.size());
    added_.rows.push_back(std::move(row));
  }

  long refused() const { return refused_; }
  NewRows &added() { return added_; }

 private:
  NewRows added_;
  const std::string null_row_;
  long refused_ = 0;
};

bool read_rows(const AddOptions &options, RowTaker &rows) {
  const TakeRow take =
      [&](const std::string &place, const std::vector<FieldText> &values,
          const std::string &problem) { rows.take(place, values, problem); };
  if (!options.csv.empty() && !read_csv_rows(options.csv, take)) return false;
  if (!options.jsonl.empty() && !read_json_rows(options.jsonl, take)) return false;
  if (!options.values.empty()) {
    std::vector<FieldText> values(options.values.size());
    for (std::size_t i = 0; i < values.size(); i++) {
      split_assignment(options.values[i], values[i]);
    }
    rows.take("", values, "");
  }
  if (rows.refused() == 0) return true;
  complain(counted_rows(static_cast<std::size_t>(rows.refused())) +
           " refused; nothing is added");
  return false;
}

void tell_of_added(const AddOptions &options, const NewRows &added, long first) {
  const db::Relation &layout = added.layout;
  const db::IntegerColumn column(layout, layout.id_field);
  std::vector<std::int64_t> ids;
  std::int64_t id = 0;
  for (const std::string &row : added.rows) {
    if (column.valid() && column.read(row, id)) ids.push_back(id);
  }
  if (options.json) {
    nlohmann::ordered_json object = {
        {"table", layout.name}, {"added", added.rows.size()}, {"first_record", first}};
    if (!layout.id_field.empty()) object[layout.id_field] = ids;
    if (options.edit.dry_run) object["dry_run"] = true;
    return print_json(object);
  }
  if (options.edit.quiet) return;
  std::string text = (options.edit.dry_run ? "would be: " : "") +
                     counted_rows(added.rows.size()) + " added to " + layout.name;
  if (added.rows.size() == 1) {
    text += ": record " + std::to_string(first);
    if (!ids.empty()) text += ", " + layout.id_field + " " + std::to_string(ids[0]);
  } else if (!added.rows.empty()) {
    text += ", from record " + std::to_string(first) + " on";
  }
  std::printf("%s\n", text.c_str());
}

int add_rows(const AddOptions &options) {
  FieldText ignored;
  for (const std::string &value : options.values) {
    if (split_assignment(value, ignored)) continue;
    complain("'" + value + "' is not FIELD=VALUE");
    return kUsage;
  }
  const int sources = (options.values.empty() ? 0 : 1) + (options.csv.empty() ? 0 : 1) +
                      (options.jsonl.empty() ? 0 : 1);
  if (sources != 1) {
    complain("one of FIELD=VALUE..., --csv FILE and --jsonl FILE is needed");
    return kUsage;
  }
  const std::string &name = options.edit.table;
  const auto store = open_for_edit(options.edit.database, name);
  if (store == nullptr) return kFailure;
  /* Everything is read before the table is locked: a pipe may be slow. */
  RowTaker taker(store->table(name)->layout());
  if (!read_rows(options, taker)) return kFailure;
  NewRows &added = taker.added();
  long first = -1;
  Refusal refusal;
  if (!add_new_rows(*store, added, options.edit.force, options.edit.dry_run, first,
                    refusal)) {
    if (!refusal.without_key.empty()) {
      complain(refusal.without_key + "; --force adds it");
    } else if (!refusal.repeated.empty()) {
      complain(refusal.repeated + "; nothing is added (--force adds it)");
    }
    return kFailure;
  }
  tell_of_added(options, added, first);
  return kOk;
}

void describe_add(CLI::App &command, AddOptions &options) {
  add_edit_options(command, options.edit,
                   "Add rows whose key is null or that of another row, too");
  command.add_option("values", options.values, "FIELD=VALUE of one row")
      ->type_name("FIELD=VALUE");
  command
      .add_option("--csv", options.csv,
                  "The rows of a CSV file with names of fields in its first line;\n"
                  "- is standard input")
      ->type_name("FILE");
  command
      .add_option("--jsonl", options.jsonl,
                  "The rows of a file with a JSON object on each line; - likewise")
      ->type_name("FILE");
  command.add_flag("--json", options.json, "Print JSON");
}

}  // namespace

Command add_command() {
  return make_command<AddOptions>(
      "add", "Adds rows to a table, with new ids where none are given; all or none",
      {"ksdb add mydb remark commid=1 lineno=9 'remark=felt in town'"}, describe_add,
      add_rows);
}

}  // namespace ksutil::tools
