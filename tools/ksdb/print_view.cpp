#include "tools/ksdb/print_view.h"

#include <algorithm>

#include "platform/db/view_rows.h"
#include "platform/elog/elog.h"
#include "tools/common/options.h"
#include "tools/common/row_printer.h"
#include "tools/common/unreadable.h"
#include "tools/ksdb/conditions.h"
#include "tools/ksdb/filtered_rows.h"
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

int print_view(Dbptr view, const std::vector<std::string> &conditions,
               const PrintOptions &options) {
  if (view.table < 0) return kFailure;
  ViewCells record;
  const bool filtered = std::any_of(conditions.begin(), conditions.end(),
                                    [](const auto &text) { return !text.empty(); });
  int code = Conditions().compile(view, conditions);
  if (code == kOk) code = record.choose(view, options.fields, options.raw);
  if (code != kOk) return code;
  const long left_out = left_out_of(view);
  db::ViewRows rows(view);
  if (!rows.good()) return kFailure;
  FilteredRows filter(rows);
  if (filtered) code = filter.compile(view, conditions);
  if (code != kOk) return code;
  RowPrinter output(record.columns(), options.form);
  std::vector<std::string> cells;
  long unreadable = left_out, shown = 0;
  {
    const ElogScope quiet;
    for (long i = 0; i < rows.count(); i++) {
      /* Without conditions the records behind the limit are of no interest; with them, the
       * ones that cannot be read are counted all the same. */
      const bool enough = shown >= options.limit;
      if (enough && !filtered) break;
      const std::string_view *found = nullptr;
      int accepted;
      if (filtered) {
        accepted = filter.next(found);
      } else {
        found = rows.read(i);
        accepted = found == nullptr ? -1 : 1;
      }
      if (accepted < 0) unreadable++;
      if (accepted <= 0 || enough) continue;
      record.show(found);
      record.read(cells);
      output.add(cells);
      shown++;
    }
  }
  output.finish();
  return report_unreadable({unreadable, record.unreadable_values()}, "records",
                           options.database);
}

}  // namespace ksutil::tools
