/* formats_command: ksdb formats. */
#include <cstdio>
#include <string>

#include "formats/exchange/format.h"
#include "formats/exchange/formats_page.h"
#include "tools/common/rows.h"
#include "tools/ksdb/commands.h"

namespace ksutil::tools {
namespace {

struct FormatsOptions {
  Form form = Form::kText;
  bool markdown = false;
};

int list_formats(const FormatsOptions &options) {
  if (options.markdown) {
    std::fputs(exchange::formats_page().c_str(), stdout);
    return kOk;
  }
  Rows rows({{"format"}, {"holds"}, {"in"}, {"out"}, {"name"}}, options.form);
  for (const exchange::Format *format : exchange::formats()) {
    const exchange::Directions directions = exchange::directions_of(*format);
    rows.add({format->word, directions.stations ? "stations" : "events",
              directions.in ? "yes" : "no", directions.out ? "yes" : "no",
              format->name});
  }
  rows.print();
  return kOk;
}

void describe_formats(CLI::App &command, FormatsOptions &options) {
  add_form_options(command, options.form);
  command.add_flag("--markdown", options.markdown,
                   "Print what goes where in each format, as docs/formats.md");
}

}  // namespace

Command formats_command() {
  return make_command<FormatsOptions>(
      "formats", "Lists the exchange formats that are read and written",
      {"ksdb formats", "ksdb formats --markdown"}, describe_formats, list_formats);
}

}  // namespace ksutil::tools
