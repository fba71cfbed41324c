/* plot: ksvector plot. */
#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/db/db.h"
#include "platform/stock/files.h"
#include "platform/trace/trace.h"
#include "tools/ksvector/commands.h"
#include "tools/ksvector/curves.h"
#include "tools/ksvector/source.h"
#include "tools/plot/picture_options.h"

namespace ksutil::tools {
namespace {

struct PlotOptions {
  std::vector<std::string> files;
  plot::PictureOptions picture;
  SourceOptions source;
  CurveOptions curves;
};

/* The traces of a blob file as vectors; all are freed at the end of the scope. */
class Traces {
 public:
  Traces() = default;
  ~Traces() {
    for (const std::string &tag : tags_) ksvector_free(tag.c_str());
    if (trace_.database >= 0) trdestroy(&trace_);
  }
  Traces(const Traces &) = delete;
  Traces &operator=(const Traces &) = delete;

  /* Adds a curve for each trace; the traces read before an error are freed as well. */
  bool read(const std::string &file, std::vector<Curve> &curves) {
    const bool good = ksvector_read_from_trblob(file.c_str(), &trace_, nullptr) == 0;
    Dbptr row = dblookup(trace_, nullptr, "trace", nullptr, nullptr);
    long count = 0;
    if (row.table < 0 || dbquery(row, dbq_record_count, &count) < 0) return false;
    for (row.record = 0; row.record < count; row.record++) {
      std::array<char, 256> net{}, sta{}, chan{}, tag{};
      if (dbgetv(row, "net", net.data(), "sta", sta.data(), "chan", chan.data(),
                 "comment", tag.data(), static_cast<char *>(nullptr)) < 0) {
        return false;
      }
      tags_.emplace_back(tag.data());
      const std::string name = std::string(sta.data()) + " " + chan.data();
      curves.push_back({ksvector_get_vector(tag.data()), name});
    }
    return good;
  }

 private:
  Dbptr trace_ = dbinvalid();
  std::vector<std::string> tags_;
};

/* Blobs begin with the length of a row, four bytes of which the first is 0; texts do not. */
bool is_blob(const std::string &file) {
  const FileHandle opened = open_file(file, 0);
  char first = 1;
  return opened && read_all(opened.get(), &first, 1) == 1 && first == '\0';
}

/* The last part of a path, or all of it when several files have the same last part. */
std::string name_of(const std::string &file, const std::vector<std::string> &files) {
  const auto last = [](const std::string &path) {
    return std::filesystem::path(path).filename();
  };
  int same = 0;
  for (const std::string &other : files) same += last(other) == last(file) ? 1 : 0;
  return same > 1 ? file : last(file).string();
}

int draw(const PlotOptions &options) {
  std::vector<std::unique_ptr<Vector>> vectors;
  std::vector<std::unique_ptr<Traces>> blobs;
  std::vector<Curve> responses, tables, series;
  for (const std::string &file : options.files) {
    if (options.source.kind == FileKind::kAny && is_blob(file)) {
      blobs.push_back(std::make_unique<Traces>());
      if (!blobs.back()->read(file, series)) return kFailure;
      continue;
    }
    vectors.push_back(std::make_unique<Vector>());
    Vector &vector = *vectors.back();
    if (!vector.read(file, options.source)) return kFailure;
    const Curve curve{ksvector_get_vector(vector.tag()), name_of(file, options.files),
                      vector.is_response() ? amplitude_unit(file) : ""};
    (vector.is_response() ? responses : tables).push_back(curve);
  }
  if (!responses.empty() + !tables.empty() + !series.empty() > 1) {
    complain("responses, tables and traces need pictures of their own");
    return kUsage;
  }
  const bool has_points =
      std::any_of(tables.begin(), tables.end(),
                  [](const Curve &curve) { return curve.vector->npts > 0; });
  if (responses.empty() && series.empty() && !has_points) {
    complain(options.files.front() +
             (options.files.size() == 1 ? "" : " and the others") +
             ": no points to draw");
    return kFailure;
  }
  plot::Figure figure;
  if (options.files.size() == 1) {
    figure.title = name_of(options.files.front(), options.files);
  }
  if (!responses.empty()) add_response_panels(responses, options.curves, figure);
  if (!tables.empty()) add_point_panel(tables, options.curves, figure);
  if (!series.empty()) add_series_panels(series, options.curves, figure);
  return plot::write_picture(std::move(figure), options.picture) == 0 ? kOk : kFailure;
}

void describe_plot(CLI::App &command, PlotOptions &options) {
  static const std::map<std::string, CurveStyle> styles{{"auto", CurveStyle::kAuto},
                                                        {"lines", CurveStyle::kLines},
                                                        {"points", CurveStyle::kPoints},
                                                        {"both", CurveStyle::kBoth}};
  static const std::map<std::string, PhaseUnit> phases{
      {"auto", PhaseUnit::kAuto},
      {"degrees", PhaseUnit::kDegrees},
      {"radians", PhaseUnit::kRadians}};
  CurveOptions &curves = options.curves;
  command.add_option("files", options.files, "Response files, text tables or blobs")
      ->required();
  plot::add_picture_options(command, options.picture);
  add_source_options(command, options.source);
  command
      .add_option("--style", curves.style,
                  "lines, points, both, or auto: points where labels tell their looks")
      ->transform(CLI::CheckedTransformer(styles));
  command.add_flag("--log-x", curves.log_x, "Logarithmic x axis of tables");
  command.add_flag("--log-y", curves.log_y, "Logarithmic y axis of tables and traces");
  command.add_flag("--time", curves.time, "x of tables is epoch seconds");
  command.add_option("--x-label", curves.x_label, "Text below the x axis");
  command.add_option("--y-label", curves.y_label, "Text beside the y axis");
  command
      .add_option("--phase", curves.phase,
                  "Unit of the phases in responses: degrees, radians, or auto: radians "
                  "where none is beyond a full turn")
      ->transform(CLI::CheckedTransformer(phases));
}

}  // namespace

Command plot_command() {
  return make_command<PlotOptions>(
      "plot", "Draws files: responses, tables, or blobs of traces, which it recognizes",
      {"ksvector plot -o responses.svg data/response/*.fap",
       "ksvector plot --style points --y 2 -o points.svg data/points.txt"},
      describe_plot, draw);
}

}  // namespace ksutil::tools
