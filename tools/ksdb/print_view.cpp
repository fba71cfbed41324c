#include "tools/ksdb/print_view.h"

#include "tools/common/options.h"
#include "tools/common/unreadable.h"
#include "tools/ksdb/view_cells.h"

namespace ksutil::tools {

void add_print_options(CLI::App &command, PrintOptions &options) {
  add_database(command, options.database);
  add_list(command, "--fields", options.fields,
           "Names of fields, or expressions over them, to show instead of all fields");
  add_where(command, options.where);
  add_limit(command, options.limit, "rows");
  add_raw(command, options.raw);
  add_form_options(command, options.form);
}

int print_view(Dbptr view, const PrintOptions &options) {
  long count = 0;
  ViewCells record;
  if (view.table < 0 || dbquery(view, dbq_record_count, &count) < 0 ||
      !record.choose(view, options.fields, options.raw)) {
    return kFailure;
  }
  Rows output(record.columns(), options.form);
  std::vector<std::string> cells;
  for (long i = 0; i < count && i < options.limit; i++) {
    if (record.read(i, cells)) output.add(cells);
  }
  output.print();
  return report_unreadable(
      {record.unreadable_records() + left_out_of(view), record.unreadable_values()},
      "records", options.database);
}

}  // namespace ksutil::tools
