#include "tools/ksvector/source.h"

#include <algorithm>
#include <map>
#include <span>
#include <utility>

#include "platform/elog/elog.h"
#include "tools/common/cells.h"
#include "tools/common/options.h"
#include "tools/ksvector/check_source.h"

namespace ksutil::tools {

void add_source_options(CLI::App &command, SourceOptions &options) {
  static const std::map<std::string, FileKind> kinds{
      {"any", FileKind::kAny}, {"fap", FileKind::kFap}, {"table", FileKind::kTable}};
  command
      .add_option("--kind", options.kind,
                  "Kind of file: fap, table, or any (told by its first line)")
      ->transform(CLI::CheckedTransformer(kinds));
  command.add_option("--skip", options.skip, "Lines of a table to skip")
      ->check(whole_number(0, INT_MAX));
  command.add_option("--x", options.x, "Column of x")->check(whole_number(0, INT_MAX));
  command.add_option("--y", options.y, "Columns of y, by commas")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->type_name("N,...")
      ->check(whole_number(0, INT_MAX));
  command.add_option("--label", options.label, "Column of the labels")
      ->check(whole_number(0, INT_MAX));
}

bool Vector::read_response(const std::string &file) {
  int status = 0;
  response_ = ksvector_create_response_fap(file.c_str(), file.c_str(), tag_, &status) !=
              nullptr;
  return response_ && check_response(file);
}

bool Vector::read_table(const std::string &file, const SourceOptions &options) {
  return check_table(file, options) &&
         ksvector_read(file.c_str(), file.c_str(), options.skip, options.x,
                       static_cast<int>(options.y.size()), options.y.data(),
                       options.label, tag_) != nullptr;
}

bool Vector::read(const std::string &file, const SourceOptions &options) {
  if (options.kind == FileKind::kTable) return read_table(file, options);
  if (options.kind == FileKind::kFap) return read_response(file);
  const int mark = elog_mark();
  if (read_response(file)) return true;
  if (response_) return false;
  elog_flush(0, mark);
  return read_table(file, options);
}

std::vector<Column> point_columns(int ny, bool with_labels) {
  std::vector<Column> columns{{"x", true, true}};
  for (int j = 0; j < ny; j++) {
    columns.push_back({ny == 1 ? "y" : "y" + std::to_string(j), true, true});
  }
  if (with_labels) columns.push_back({"label"});
  return columns;
}

void print_points(const KSVector &vector, Form form, long limit) {
  const std::span points(vector.points,
                         static_cast<std::size_t>(std::min<long>(vector.npts, limit)));
  const bool labels = std::any_of(points.begin(), points.end(), [](const auto &point) {
    return point.label != nullptr;
  });
  Rows output(point_columns(vector.ny, labels), form);
  for (const KSVectorPoint &point : points) {
    std::vector<std::string> cells{shortest_cell(point.x)};
    for (int j = 0; j < vector.ny; j++) cells.push_back(shortest_cell(point.y[j]));
    if (labels) cells.emplace_back(point.label == nullptr ? "" : point.label);
    output.add(std::move(cells));
  }
  output.print();
}

}  // namespace ksutil::tools
