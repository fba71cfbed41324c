/* add_command: ksdb add. */
#include <algorithm>
#include <cstdio>

#include "platform/db/columns.h"
#include "tools/common/messages.h"
#include "tools/common/rows.h"
#include "tools/ksdb/commands.h"
#include "tools/ksdb/edit_tables.h"
#include "tools/ksdb/key_reader.h"
#include "tools/ksdb/new_ids.h"
#include "tools/ksdb/row_source.h"
#include "tools/ksdb/verify_counters.h"

namespace ksutil::tools {
namespace {

constexpr long kMostRefusals = 20;

struct AddOptions {
  EditOptions edit;
  std::vector<std::string> values;
  std::string csv, jsonl;
  bool json = false;
};

/* The rows to be added, as they will be written, except for ids still to be
 * assigned. */
class NewRows {
 public:
  explicit NewRows(const db::Relation &layout)
      : layout_(layout), null_row_(db::null_record(layout)) {}

  void take(const std::string &place, const std::vector<FieldText> &values,
            std::string problem) {
    std::string row = null_row_;
    if (problem.empty()) write_values(layout_, values, row, problem);
    if (!problem.empty()) {
      if (refused_++ < kMostRefusals) {
        complain(place.empty() ? problem : place + ": " + problem);
      }
      return;
    }
    if (!is_named(values, "lddate")) stamp_row(layout_, row);
    const std::string &id = layout_.id_field;
    bool given = id.empty();
    for (const FieldText &value : values) {
      given = given || (value.field == id && !value.text.empty());
    }
    if (!given) without_id_.push_back(rows_.size());
    rows_.push_back(std::move(row));
  }

  long refused() const { return refused_; }
  const db::Relation &layout() const { return layout_; }
  std::vector<std::string> &rows() { return rows_; }
  const std::vector<std::size_t> &without_id() const { return without_id_; }

 private:
  const db::Relation layout_;
  const std::string null_row_;
  std::vector<std::string> rows_;
  std::vector<std::size_t> without_id_;  // of rows_
  long refused_ = 0;
};

bool same_fields(const db::Relation &a, const db::Relation &b) {
  return a.width == b.width &&
         std::equal(a.fields.begin(), a.fields.end(), b.fields.begin(), b.fields.end(),
                    [](const db::Field &x, const db::Field &y) {
                      return x.name == y.name && x.offset == y.offset &&
                             x.width == y.width && x.type == y.type;
                    });
}

bool read_rows(const AddOptions &options, NewRows &rows) {
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

/* The counters that fields of a table draw on, with the fields. */
std::vector<std::pair<std::string, std::string>> counters_in(const db::Schema &schema,
                                                             const std::string &table) {
  std::vector<std::pair<std::string, std::string>> found;
  for (const std::string &counter : counters_of(schema)) {
    for (const db::Schema::CounterUse &use : schema.counter_uses(counter)) {
      if (use.table == table) found.emplace_back(counter, use.field);
    }
  }
  return found;
}

/* Raises existing counters to the ids that the rows use, such as the commid of a remark:
 * an id that is handed out later must not be one of them. */
bool raise_counters(db::DatabaseStore &store, db::Transaction &step, NewRows &added) {
  const db::Relation &layout = added.layout();
  for (const auto &[counter, field] : counters_in(*store.schema(), layout.name)) {
    const db::IntegerColumn column(layout, field);
    std::int64_t greatest = 0, id = 0, unused = 0;
    for (const std::string &row : added.rows()) {
      if (column.valid() && column.read(row, id)) greatest = std::max(greatest, id);
    }
    if (!take_new_ids(store, step, 0, counter, 0, greatest, unused)) return false;
  }
  return true;
}

/* Assigns ids to the rows without one, and raises the counter to the ids that were
 * given. */
bool give_ids(db::DatabaseStore &store, db::Transaction &step, NewRows &added) {
  const db::Relation &layout = added.layout();
  const db::IntegerColumn column(layout, layout.id_field);
  std::int64_t raised = 0, id = 0;
  for (const std::string &row : added.rows()) {
    if (column.read(row, id)) raised = std::max(raised, id);
  }
  const std::vector<std::size_t> &without = added.without_id();
  if (!take_new_ids(store, step, 0, layout.id_field,
                    static_cast<std::int64_t>(without.size()), raised, id)) {
    return false;
  }
  for (const std::size_t index : without) {
    std::string problem;
    if (!write_values(layout, {{layout.id_field, std::to_string(id++)}},
                      added.rows()[index], problem)) {
      complain(problem);
      return false;
    }
  }
  return true;
}

/* Whether each row can be identified by its keys and no other row has these;
 * complains. */
bool is_sound(const db::Snapshot &rows, const NewRows &added,
              const std::vector<std::string> &texts) {
  const db::Relation &layout = added.layout();
  const KeyReader primary(layout, layout.primary);
  std::vector<ChangedRow> changed;
  std::string key;
  for (const std::string &text : texts) {
    if (primary.valid() && !primary.read(text, key)) {
      complain("a row without " + (layout.primary.empty() ? "" : layout.primary[0]) +
               ", which is the key of " + layout.name + "; --force adds it");
      return false;
    }
    changed.push_back({rows.count() + static_cast<long>(changed.size()), text});
  }
  const std::string repeated = repeated_key(rows, layout, changed);
  if (repeated.empty()) return true;
  complain(layout.name + ": " + repeated + "; nothing is added (--force adds it)");
  return false;
}

void tell_of_added(const AddOptions &options, NewRows &added, long first) {
  const db::Relation &layout = added.layout();
  const db::IntegerColumn column(layout, layout.id_field);
  std::vector<std::int64_t> ids;
  std::int64_t id = 0;
  for (const std::string &row : added.rows()) {
    if (column.valid() && column.read(row, id)) ids.push_back(id);
  }
  if (options.json) {
    nlohmann::ordered_json object = {{"table", layout.name},
                                     {"added", added.rows().size()},
                                     {"first_record", first}};
    if (!layout.id_field.empty()) object[layout.id_field] = ids;
    if (options.edit.dry_run) object["dry_run"] = true;
    return print_json(object);
  }
  if (options.edit.quiet) return;
  std::string text = (options.edit.dry_run ? "would be: " : "") +
                     counted_rows(added.rows().size()) + " added to " + layout.name;
  if (added.rows().size() == 1) {
    text += ": record " + std::to_string(first);
    if (!ids.empty()) text += ", " + layout.id_field + " " + std::to_string(ids[0]);
  } else if (!added.rows().empty()) {
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
  NewRows added(store->table(name)->layout());
  if (!read_rows(options, added)) return kFailure;

  const bool counted = name != "lastid" && store->schema()->find("lastid") != nullptr &&
                       !counters_in(*store->schema(), name).empty();
  std::vector<std::string> tables{name};
  if (counted) tables.insert(tables.begin(), "lastid");
  const std::size_t place = tables.size() - 1;
  long first = -1;
  bool ready = false;
  const bool done = store->transaction(tables, [&](db::Transaction &step) {
    const auto rows = step.snapshot(place);
    if (rows == nullptr) return false;
    if (!same_fields(step.layout(place), added.layout())) {
      complain("the layout of " + name + " has changed meanwhile; nothing is added");
      return false;
    }
    if (counted && !added.layout().id_field.empty() && !give_ids(*store, step, added))
      return false;
    if (counted && !raise_counters(*store, step, added)) return false;
    if (!options.edit.force && !is_sound(*rows, added, added.rows())) return false;
    std::string text;
    for (const std::string &row : added.rows()) text += row;
    first = text.empty() ? rows->count() : step.append(place, text);
    ready = first >= 0;
    return ready && !options.edit.dry_run;
  });
  if (!done && !(ready && options.edit.dry_run)) return kFailure;
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
