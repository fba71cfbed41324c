#include <memory>
#include <string>
#include <vector>

#include "tools/ksvector/commands.h"
#include "tools/ksvector/source.h"

namespace ksutil::tools {
namespace {

struct InfoOptions {
  std::vector<std::string> files;
  SourceOptions source;
  Form form = Form::kText;
};

/* Adds the facts of one file; false when it cannot be read. */
bool add_facts(const std::string &file, const SourceOptions &source, Rows &output) {
  Vector vector;
  if (!vector.read(file, source)) return false;
  std::vector<std::string> cells{file, vector.is_response() ? "fap" : "table",
                                 std::to_string(vector->npts),
                                 std::to_string(vector->ny)};
  double range[4];
  if (vector->npts > 0) {
    ksvector_maxmin(vector.tag(), -1, range, range + 1, range + 2, range + 3);
    for (const double value : range) cells.push_back(number_text(value));
  } else {
    cells.resize(cells.size() + std::size(range));
  }
  output.add(std::move(cells));
  return true;
}

int info(const InfoOptions &options) {
  Rows output({{"file"},
               {"kind"},
               {"points", true, true},
               {"ny", true, true},
               {"xmin", true, true},
               {"xmax", true, true},
               {"ymin", true, true},
               {"ymax", true, true}},
              options.form);
  bool good = true;
  for (const std::string &file : options.files) {
    good = add_facts(file, options.source, output) && good;
  }
  output.print();
  return good ? kOk : kFailure;
}

}  // namespace

void add_info(CLI::App &app, Action &action) {
  auto options = std::make_shared<InfoOptions>();
  CLI::App *command =
      app.add_subcommand("info", "Prints how many points files have, and their ranges");
  command->add_option("files", options->files)->required();
  add_source_options(*command, options->source);
  add_form_options(*command, options->form);
  command->callback(
      [options, &action] { action = [options] { return info(*options); }; });
}

}  // namespace ksutil::tools
