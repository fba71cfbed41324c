/* ksdb subset, sort, join and group. */
#include <climits>
#include <memory>
#include <string>
#include <vector>

#include "platform/stock/memory.h"
#include "tools/ksdb/open_tables.h"
#include "tools/ksdb/view_rows.h"

namespace ksutil::tools {
namespace {

struct ViewsOptions {
  std::string database, tables, expression, where;
  std::vector<std::string> joined, keys, lkeys, rkeys, fields;
  long limit = LONG_MAX;
  bool reverse = false, unique = false;
  Form form = Form::kText;
};

/* A list of texts as the library takes it; the texts stay with the vector. */
class TextList {
 public:
  explicit TextList(const std::vector<std::string> &texts)
      : list_(newtbl(static_cast<long>(texts.size()))) {
    for (const std::string &text : texts) {
      pushtbl(list_, const_cast<char *>(text.c_str()));
    }
  }
  ~TextList() { freetbl(list_, nullptr); }
  TextList(const TextList &) = delete;
  TextList &operator=(const TextList &) = delete;
  Tbl *get() const { return list_; }

 private:
  Tbl *list_;
};

int print(Dbptr view, const ViewsOptions &options) {
  long count = 0;
  ViewFields fields;
  if (view.table < 0 || dbquery(view, dbq_record_count, &count) < 0 ||
      !fields.choose(view, options.fields)) {
    return kFailure;
  }
  Rows output(fields.columns(), options.form);
  bool good = true;
  std::vector<std::string> cells;
  for (long i = 0; i < count && i < options.limit; i++) {
    if (fields.read(i, cells)) {
      output.add(cells);
    } else {
      good = false;
    }
  }
  output.print();
  return good ? kOk : kFailure;
}

int subset(const ViewsOptions &options) {
  const OpenDatabase database(options.database, "r");
  const Dbptr view = open_view(database, options.tables, options.where);
  if (view.table < 0) return kFailure;
  return print(dbsubset(view, options.expression.c_str()), options);
}

int sort(const ViewsOptions &options) {
  const OpenDatabase database(options.database, "r");
  const Dbptr view = open_view(database, options.tables, options.where);
  if (view.table < 0) return kFailure;
  const TextList keys(options.keys);
  return print(dbsort(view, keys.get(),
                      (options.reverse ? dbSORT_REVERSE : 0) |
                          (options.unique ? dbSORT_UNIQUE : 0)),
               options);
}

int join(const ViewsOptions &options) {
  if (options.joined.size() != 2 && !(options.lkeys.empty() && options.rkeys.empty())) {
    complain("keys can be given for two tables only");
    return kUsage;
  }
  const OpenDatabase database(options.database, "r");
  if (!database) return kFailure;
  Dbptr view = open_tables(database, options.joined.front());
  for (std::size_t i = 1; i < options.joined.size() && view.table >= 0; i++) {
    const Dbptr next = open_tables(database, options.joined[i]);
    if (next.table < 0) return kFailure;
    const TextList left(options.lkeys), right(options.rkeys);
    view = dbjoin(view, next, options.lkeys.empty() ? nullptr : left.get(),
                  options.rkeys.empty() ? nullptr : right.get());
  }
  if (view.table >= 0 && !options.where.empty()) {
    view = dbsubset(view, options.where.c_str());
  }
  return print(view, options);
}

int group(const ViewsOptions &options) {
  const OpenDatabase database(options.database, "r");
  const Dbptr view = open_view(database, options.tables, options.where);
  if (view.table < 0) return kFailure;
  const TextList keys(options.keys);
  const Dbptr sorted = dbsort(view, keys.get(), 0);
  if (sorted.table < 0) return kFailure;
  Dbptr groups = dbgroup(sorted, keys.get());
  long count = 0;
  if (groups.table < 0 || dbquery(groups, dbq_record_count, &count) < 0) {
    return kFailure;
  }
  std::vector<Column> columns;
  for (const std::string &key : options.keys) columns.push_back(column_of(groups, key));
  columns.push_back({"count", true, true});
  Rows output(std::move(columns), options.form);
  for (groups.record = 0; groups.record < count && groups.record < options.limit;
       groups.record++) {
    std::vector<std::string> cells;
    for (const std::string &key : options.keys) {
      char *text = nullptr;
      if (dbex_evalstr(groups, key.c_str(), dbexTEXT, &text) < 0) return kFailure;
      const MallocPtr<char> owner(text);
      cells.emplace_back(text);
    }
    long start = 0, end = 0;
    if (dbget_range(groups, &start, &end) < 0) return kFailure;
    cells.push_back(std::to_string(end - start));
    output.add(std::move(cells));
  }
  output.print();
  return kOk;
}

CLI::App *add_command(CLI::App &app, Action &action, const char *name,
                      const char *description, int (*run_command)(const ViewsOptions &),
                      std::shared_ptr<ViewsOptions> options) {
  CLI::App *command = app.add_subcommand(name, description);
  command->add_option("database", options->database, "path/name")->required();
  command->add_option("--where", options->where,
                      "Only records for which this expression is true");
  command->add_option("--limit", options->limit, "At most so many rows")
      ->check(CLI::NonNegativeNumber);
  add_form_options(*command, options->form);
  command->callback([options, run_command, &action] {
    action = [options, run_command] { return run_command(*options); };
  });
  return command;
}

void add_tables(CLI::App &command, ViewsOptions &options) {
  command.add_option("tables", options.tables, "A table, or several: origin+assoc")
      ->required();
}

void add_fields(CLI::App &command, ViewsOptions &options) {
  command.add_option("--fields", options.fields, "Names of fields, by commas")
      ->delimiter(',');
}

}  // namespace

void add_views(CLI::App &app, Action &action) {
  auto options = std::make_shared<ViewsOptions>();
  CLI::App *command = add_command(app, action, "subset",
                                  "Prints the records for which an expression is true",
                                  subset, options);
  add_tables(*command, *options);
  command->add_option("expression", options->expression)->required();
  add_fields(*command, *options);

  options = std::make_shared<ViewsOptions>();
  command = add_command(app, action, "sort", "Prints the records in the order of keys",
                        sort, options);
  add_tables(*command, *options);
  command->add_option("keys", options->keys, "Expressions")->required();
  add_fields(*command, *options);
  command->add_flag("--reverse", options->reverse, "The greatest first");
  command->add_flag("--unique", options->unique, "The first of equal ones only");

  options = std::make_shared<ViewsOptions>();
  command =
      add_command(app, action, "join",
                  "Prints the records of tables that belong together", join, options);
  command->add_option("tables", options->joined, "Two tables or more")
      ->required()
      ->expected(2, 20);
  add_fields(*command, *options);
  command
      ->add_option("--left-keys", options->lkeys,
                   "What must agree of the tables before: fields, low::high ranges, "
                   "expressions; by commas (default: the natural keys)")
      ->delimiter(',');
  command->add_option("--right-keys", options->rkeys, "The same of the table joined")
      ->delimiter(',');

  options = std::make_shared<ViewsOptions>();
  command = add_command(app, action, "group",
                        "Prints the values of keys and how many records have them",
                        group, options);
  add_tables(*command, *options);
  command->add_option("keys", options->keys, "Expressions")->required();
}

}  // namespace ksutil::tools
