#include <climits>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "platform/db/access.h"
#include "platform/stock/text.h"
#include "tools/common/rows.h"
#include "tools/ksdb/commands.h"

namespace ksutil::tools {
namespace {

struct ListOptions {
  std::string database, table;
  std::vector<std::string> fields;
  long limit = LONG_MAX;
  bool raw = false;
  Form form = Form::kText;
};

/* The fields to show, by name or all of them; empty, with a message, for a wrong name. */
std::vector<const db::Field *> chosen(const db::Relation &layout,
                                      const std::vector<std::string> &names) {
  std::vector<const db::Field *> fields;
  for (const std::string &name : names) {
    fields.push_back(layout.find(name));
    if (fields.back() == nullptr) {
      complain("table " + layout.name + " has no field " + name);
      return {};
    }
  }
  if (names.empty()) {
    for (const db::Field &field : layout.fields) fields.push_back(&field);
  }
  return fields;
}

bool is_text(const db::Field &field) {
  return field.type == db::FieldType::kText || field.type == db::FieldType::kDate;
}

int list(const ListOptions &options) {
  const OpenDatabase database(options.database, "r");
  if (!database) return kFailure;
  const Dbptr table = database.table(options.table);
  if (table.table == dbINVALID) return kFailure;
  const std::shared_ptr<const db::Snapshot> rows = db::table_snapshot(table);
  if (rows == nullptr) return kFailure;
  const std::vector<const db::Field *> fields = chosen(rows->layout(), options.fields);
  if (fields.empty()) return kFailure;

  std::vector<Column> columns;
  for (const db::Field *field : fields) {
    columns.push_back({field->name, !is_text(*field), !is_text(*field)});
  }
  Rows output(std::move(columns), options.form);
  bool good = true;
  for (long i = 0; i < rows->count() && i < options.limit; i++) {
    const std::string_view row = rows->row(i);
    if (row.empty()) {
      good = false;
      continue;
    }
    if (options.raw) {
      std::fwrite(row.data(), 1, row.size(), stdout);
      continue;
    }
    std::vector<std::string> cells;
    for (const db::Field *field : fields) {
      const auto at = static_cast<std::size_t>(field->offset);
      const auto width = static_cast<std::size_t>(field->width);
      cells.emplace_back(at < row.size() ? trimmed(row.substr(at, width))
                                         : std::string_view());
    }
    output.add(std::move(cells));
  }
  if (!options.raw) output.print();
  return good ? kOk : kFailure;
}

}  // namespace

void add_list(CLI::App &app, Action &action) {
  auto options = std::make_shared<ListOptions>();
  CLI::App *command = app.add_subcommand("list", "Prints the rows of a table");
  command->add_option("database", options->database, "path/name")->required();
  command->add_option("table", options->table)->required();
  command->add_option("--fields", options->fields, "Names of fields, by commas")
      ->delimiter(',');
  command->add_option("--limit", options->limit, "At most so many rows")
      ->check(CLI::NonNegativeNumber);
  command->add_flag("--raw", options->raw, "The rows exactly as they are stored");
  add_form_options(*command, options->form);
  command->callback(
      [options, &action] { action = [options] { return list(*options); }; });
}

}  // namespace ksutil::tools
