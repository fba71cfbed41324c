/* info: ksvector info. */
#include <string>
#include <vector>

#include "tools/common/cells.h"
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
    for (const double value : range) cells.push_back(shortest_cell(value));
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

void describe_info(CLI::App &command, InfoOptions &options) {
  command.add_option("files", options.files, "Response files or text tables")
      ->required();
  add_source_options(command, options.source);
  add_form_options(command, options.form);
}

}  // namespace

Command info_command() {
  return make_command<InfoOptions>(
      "info", "Prints how many points files have, and their ranges",
      {"ksvector info data/response/CTA_BHZ.fap data/points.txt"}, describe_info, info);
}

}  // namespace ksutil::tools
