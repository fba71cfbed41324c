/* views: ksdb subset, sort, join and group. */
#include <string>
#include <vector>

#include "platform/stock/memory.h"
#include "tools/common/options.h"
#include "tools/common/unreadable.h"
#include "tools/ksdb/aggregate.h"
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

int subset(const ViewsOptions &options) {
  const OpenDatabase database(options.print.database, "r");
  const Dbptr view = open_view(database, options.tables, options.print.where);
  if (view.table < 0) return kFailure;
  return print_view(dbsubset(view, options.expression.c_str()), options.print);
}

int sort(const ViewsOptions &options) {
  const OpenDatabase database(options.print.database, "r");
  const Dbptr view = open_view(database, options.tables, options.print.where);
  if (view.table < 0) return kFailure;
  const TextList keys(options.keys);
  const int flags =
      (options.reverse ? dbSORT_REVERSE : 0) | (options.unique ? dbSORT_UNIQUE : 0);
  return print_view(dbsort(view, keys.get(), flags), options.print);
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
    view = dbjoin(view, next, options.left_keys.empty() ? nullptr : left.get(),
                  options.right_keys.empty() ? nullptr : right.get());
  }
  if (view.table >= 0 && !options.print.where.empty()) {
    view = dbsubset(view, options.print.where.c_str());
  }
  return print_view(view, options.print);
}

int group(const ViewsOptions &options) {
  const OpenDatabase database(options.print.database, "r");
  const Dbptr view = open_view(database, options.tables, options.print.where);
  if (view.table < 0) return kFailure;
  const TextList keys(options.keys);
  const Dbptr sorted = dbsort(view, keys.get(), 0);
  if (sorted.table < 0) return kFailure;
  Dbptr groups = dbgroup(sorted, keys.get());
  long count = 0;
  ViewCells cells_of_keys;
  if (groups.table < 0 || dbquery(groups, dbq_record_count, &count) < 0 ||
      !cells_of_keys.choose(groups, options.keys, options.print.raw)) {
    return kFailure;
  }
  Aggregates figures;
  if (!figures.choose(sorted, options.aggregates, options.print.raw,
                      options.print.form)) {
    return kUsage;
  }
  std::vector<Column> columns = cells_of_keys.columns();
  columns.push_back({"count", true, true});
  for (Column &column : figures.columns()) columns.push_back(std::move(column));
  Rows output(std::move(columns), options.print.form);
  std::vector<std::string> cells;
  for (groups.record = 0; groups.record < count && groups.record < options.print.limit;
       groups.record++) {
    long start = 0, end = 0;
    if (dbget_range(groups, &start, &end) < 0) return kFailure;
    if (!cells_of_keys.read(groups.record, cells)) continue;
    cells.push_back(std::to_string(end - start));
    figures.read(start, end, cells);
    output.add(cells);
  }
  output.print();
  return report_unreadable(
      {cells_of_keys.unreadable_records() + left_out_of(groups),
       cells_of_keys.unreadable_values() + figures.unreadable_values()},
      "records", options.print.database);
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
