/* stats: ksvector stats. */
#include <memory>
#include <string>
#include <vector>

#include "platform/stock/owners.h"
#include "tools/ksvector/commands.h"
#include "tools/ksvector/source.h"

namespace ksutil::tools {
namespace {

struct StatsOptions {
  std::vector<std::string> files;
  std::string type;
  SourceOptions source;
  Form form = Form::kText;
};

/* Whether the points of a file will be combined with those of the first. */
bool goes_with(const Vector &first, const Vector &other) {
  if (first->npts != other->npts || first->ny != other->ny) return false;
  for (int i = 0; i < first->npts; i++) {
    if (first->points[i].x != other->points[i].x) return false;
  }
  return true;
}

int stats(const StatsOptions &options) {
  std::vector<std::unique_ptr<Vector>> vectors;
  const TblPtr tags(newtbl(0));
  for (const std::string &file : options.files) {
    vectors.push_back(std::make_unique<Vector>());
    Vector &vector = *vectors.back();
    if (!vector.read(file, options.source)) return kFailure;
    if (!goes_with(*vectors.front(), vector)) {
      complain(file + " is left out: its x values differ from those of " +
               options.files.front());
    }
    pushtbl(tags.get(), vector.tag());
  }
  Vector result;
  const KSVector *const points =
      ksvector_stats(tags.get(), options.type.c_str(), nullptr, result.tag());
  if (points == nullptr) return kFailure;
  print_points(*points, options.form);
  return kOk;
}

void describe_stats(CLI::App &command, StatsOptions &options) {
  command.add_option("files", options.files, "Response files or text tables")
      ->required();
  command
      .add_option("--type", options.type,
                  "max, min, median, or amax and amin of absolute values")
      ->required()
      ->check(CLI::IsMember({"max", "min", "amax", "amin", "median"}));
  add_source_options(command, options.source);
  add_form_options(command, options.form);
}

}  // namespace

Command stats_command() {
  return make_command<StatsOptions>(
      "stats", "Combines files with the same x values, point by point",
      {"ksvector stats --type median --x 0 --y 2 data/points.txt data/points.txt"},
      describe_stats, stats);
}

}  // namespace ksutil::tools
