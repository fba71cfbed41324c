/* format: kspf format. */

#include "tools/kspf/commands.h"

namespace ksutil::tools {
namespace {

struct FormatOptions {
  std::string file;
  bool in_place = false, check = false;
};

int format(const FormatOptions &options) {
  KSPf pf;
  std::string before, after;
  if (!read_input(options.file, false, pf) || pf.text(before) != 0 ||
      pf.format() != 0 || pf.text(after) != 0) {
    return kFailure;
  }
  if (options.check) {
    if (after == before) return kOk;
    complain(options.file + " is laid out otherwise");
    return kFailure;
  }
  if (options.in_place && after == before) return kOk;
  return write_output(pf, options.in_place ? options.file : "");
}

void describe_format(CLI::App &command, FormatOptions &options) {
  command.add_option("file", options.file, "Parameter file, - for standard input")
      ->required();
  CLI::Option *in_place = command.add_flag("-i,--in-place", options.in_place,
                                           "Replace the file instead of printing");
  command
      .add_flag("--check", options.check,
                "Print nothing; fail when the layout is another")
      ->excludes(in_place);
}

}  // namespace

Command format_command() {
  return make_command<FormatOptions>(
      "format", "Prints a file in the usual layout, with its comments",
      {"kspf format data/settings/server.pf",
       "kspf format --in-place data/settings/server.pf"},
      describe_format, format);
}

}  // namespace ksutil::tools
