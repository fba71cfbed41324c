/* views: implements ksdb subset, sort, join and group. */
#include <string>
#include <vector>

#include "platform/db/view_rows.h"
#include "platform/elog/elog.h"
#include "platform/stock/memory.h"
#include "tools/common/options.h"
#include "tools/common/row_printer.h"
#include "tools/common/unreadable.h"
#include "tools/ksdb/aggregate.h"
#include "tools/ksdb/conditions.h"
#include "tools/ksdb/groups.h"
#include "tools/ksdb/print_view.h"
#include "tools/ksdb/view_cells.h"

namespace ksutil::tools {
namespace {

struct ViewsOptions {
  PrintOptions print;
  std::string tables, expression;
  std::vector<std::string> joined, keys, left_keys, right_keys, aggregates;
  bool reverse = false, unique = false;
};

/* A list of texts for the library; the texts stay with the vector. */
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

/* The tables of the options, joined; invalid with a message. */
Dbptr open_joined(const OpenDatabase &database, const ViewsOptions &options) {
  const Dbptr view = database ? open_tables(database, options.tables) : dbinvalid();
  /* A table that cannot be read is not a fault of the expressions. */
  long count = 0;
  if (view.table >= 0 && dbquery(view, dbq_record_count, &count) != 0) {
    return dbinvalid();
  }
  return view;
}

int subset(const ViewsOptions &options) {
  const OpenDatabase database(options.print.database, "r");
  return print_view(open_joined(database, options),
                    {options.print.where, options.expression}, options.print);
}

int sort(const ViewsOptions &options) {
  const OpenDatabase database(options.print.database, "r");
  Dbptr view = open_joined(database, options);
  if (view.table < 0) return kFailure;
  int code = Conditions().compile(view, {options.print.where});
  if (code == kOk) code = Conditions().compile(view, options.keys);
  if (code != kOk) return code;
  if (!options.print.where.empty()) {
    view = dbsubset(view, options.print.where.c_str());
  }
  if (view.table < 0) return kFailure;
  const TextList keys(options.keys);
  const int flags =
      (options.reverse ? dbSORT_REVERSE : 0) | (options.unique ? dbSORT_UNIQUE : 0);
  return print_view(dbsort(view, keys.get(), flags), {}, options.print);
}

int join(const ViewsOptions &options) {
  const bool natural = options.left_keys.empty() && options.right_keys.empty();
  if (options.joined.size() != 2 && !natural) {
    complain("--left-keys and --right-keys are for two tables");
    return kUsage;
  }
  const OpenDatabase database(options.print.database, "r");
  if (!database) return kFailure;
  Dbptr view = open_tables(database, options.joined.front());
  for (std::size_t i = 1; i < options.joined.size() && view.table >= 0; i++) {
    const Dbptr next = open_tables(database, options.joined[i]);
    if (next.table < 0) return kFailure;
    const TextList left(options.left_keys), right(options.right_keys);
    Tbl *const left_keys = options.left_keys.empty() ? nullptr : left.get();
    Tbl *const right_keys = options.right_keys.empty() ? nullptr : right.get();
    const Dbptr joined = dbjoin(view, next, left_keys, right_keys);
    if (joined.table < 0) {
      const bool of_keys =
          !natural && db::refuses_join(view, next, left_keys, right_keys);
      return of_keys ? kUsage : kFailure;
    }
    view = joined;
  }
  return print_view(view, {options.print.where}, options.print);
}

int group(const ViewsOptions &options) {
  const OpenDatabase database(options.print.database, "r");
  const Dbptr view = open_joined(database, options);
  if (view.table < 0) return kFailure;
  Conditions where;
  ViewCells keys;
  Aggregates figures;
  int code = where.compile(view, {options.print.where});
  if (code == kOk) code = keys.choose(view, options.keys, options.print.raw);
  if (code == kOk) {
    code =
        figures.choose(view, options.aggregates, options.print.raw, options.print.form);
  }
  if (code != kOk) return code;
  Unreadable unreadable{left_out_of(view), 0};
  db::ViewRows rows(view);
  if (!rows.good()) return kFailure;
  Groups groups(keys, options.keys.size(), figures);
  {
    const ElogScope quiet;
    for (long i = 0; i < rows.count(); i++) {
      const std::string_view *const found = rows.read(i);
      const int accepted = found == nullptr ? -1 : where.accepts(found);
      if (accepted < 0 || (accepted > 0 && !groups.take(found))) unreadable.rows++;
    }
  }
  std::vector<Column> columns = keys.columns();
  columns.push_back({"count", true, true});
  for (Column &column : figures.columns()) columns.push_back(std::move(column));
  RowPrinter output(std::move(columns), options.print.form);
  long left = options.print.limit;
  for (Groups::Group &group : groups.sorted()) {
    if (left-- <= 0) break;
    group.cells.push_back(std::to_string(group.count));
    figures.add_cells(group.figures, group.cells);
    unreadable.values += group.figures.unreadable_values;
    output.add(group.cells);
  }
  output.finish();
  return report_unreadable(unreadable, "records", options.print.database);
}

void describe_subset(CLI::App &command, ViewsOptions &options) {
  add_print_options(command, options.print);
  add_tables(command, options.tables);
  command.add_option("expression", options.expression, "A condition on the fields")
      ->required();
}

void describe_sort(CLI::App &command, ViewsOptions &options) {
  add_print_options(command, options.print);
  add_tables(command, options.tables);
  command
      .add_option("keys", options.keys,
                  "Fields or expressions; -- before one that begins with a minus sign")
      ->required();
  command.add_flag("--reverse", options.reverse, "The greatest first");
  command.add_flag("--unique", options.unique,
                   "Only the first of records with equal keys");
}

void describe_join(CLI::App &command, ViewsOptions &options) {
  add_print_options(command, options.print);
  command.add_option("tables", options.joined, "Two tables or more")
      ->required()
      ->expected(2, 20);
  add_list(command, "--left-keys", options.left_keys,
           "Keys of the first table: fields, low::high ranges or expressions\n"
           "(default: the natural keys of both tables)");
  add_list(command, "--right-keys", options.right_keys,
           "Keys of the second table, which must agree with those");
}

void describe_group(CLI::App &command, ViewsOptions &options) {
  add_database(command, options.print.database);
  add_tables(command, options.tables);
  command.add_option("keys", options.keys, "Fields or expressions")->required();
  add_list(command, "--aggregate", options.aggregates,
           "Figures of each group: count, nulls, min, max, mean, median and stddev\n"
           "of an expression: 'mean(depth),max(mb)'");
  add_where(command, options.print.where);
  add_limit(command, options.print.limit, "rows");
  add_raw(command, options.print.raw);
  add_form_options(command, options.print.form);
}

}  // namespace

Command subset_command() {
  return make_command<ViewsOptions>(
      "subset", "Prints the records for which an expression is true",
      {"ksdb subset --fields orid,time,depth data/aug2015 origin 'depth > 500'",
       "ksdb subset --csv data/aug2015 origin 'time >= \"2015-08-25\" && mb >= 5.5'"},
      describe_subset, subset);
}

Command sort_command() {
  return make_command<ViewsOptions>(
      "sort", "Prints the records in the order of keys",
      {"ksdb sort --reverse --limit 5 data/aug2015 netmag magnitude",
       "ksdb sort --fields orid,depth --limit 5 data/aug2015 origin -- -depth time"},
      describe_sort, sort);
}

Command join_command() {
  return make_command<ViewsOptions>(
      "join", "Prints the records of tables that belong together",
      {"ksdb join --where 'mb >= 6' --fields evid,time,mb data/aug2015 event origin",
       "ksdb join --left-keys prefor --right-keys orid --limit 5 data/aug2015 event "
       "netmag"},
      describe_join, join);
}

Command group_command() {
  return make_command<ViewsOptions>(
      "group",
      "Prints the values of keys, how many records have them, and figures of these",
      {"ksdb group data/aug2015 netmag magtype",
       "ksdb group --aggregate 'mean(depth),max(depth)' data/aug2015 origin auth",
       "ksdb group data/aug2015 origin 'strdate(time)'"},
      describe_group, group);
}

}  // namespace ksutil::tools
