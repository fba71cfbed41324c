/* print_view: prints the records of a table or view, for the subcommands that show rows. */
#ifndef KSUTIL_TOOLS_KSDB_PRINT_VIEW_H
#define KSUTIL_TOOLS_KSDB_PRINT_VIEW_H

#include <climits>
#include <string>
#include <vector>

#include "tools/common/rows.h"
#include "tools/ksdb/open_tables.h"

namespace ksutil::tools {

struct PrintOptions {
  std::string database, where;
  std::vector<std::string> fields;
  long limit = LONG_MAX;
  bool raw = false;
  Form form = Form::kText;
};

/* Adds the operand DATABASE and all options of PrintOptions. */
void add_print_options(CLI::App &command, PrintOptions &options);

/* Prints the records for which all conditions are true, each as soon as it is read where
 * the form allows it.  The exit code: kUsage, with a message, when a condition or an item of
 * the fields does not compile; kFailure, with a message, when the view is invalid, or
 * records or values could not be read; these are left out, and counted together with those
 * that were left out of the view before. */
int print_view(Dbptr view, const std::vector<std::string> &conditions,
               const PrintOptions &options);

}  // namespace ksutil::tools
#endif
