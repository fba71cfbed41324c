#include <memory>

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

}  // namespace

void add_format(CLI::App &app, Action &action) {
  const auto options = std::make_shared<FormatOptions>();
  CLI::App *command = app.add_subcommand(
      "format", "Print a file in the usual layout, with its comments");
  command->add_option("file", options->file, "Parameter file, - for standard input")
      ->required();
  CLI::Option *in_place = command->add_flag("-i,--in-place", options->in_place,
                                            "Replace the file instead of printing");
  command
      ->add_flag("--check", options->check,
                 "Print nothing; fail when the layout is another")
      ->excludes(in_place);
  command->callback(
      [options, &action] { action = [options] { return format(*options); }; });
}

}  // namespace ksutil::tools
