#include <memory>
#include <string>
#include <vector>

#include "tools/ksvector/commands.h"
#include "tools/ksvector/source.h"

namespace ksutil::tools {
namespace {

constexpr long kMaxCount = 100'000'000;

struct EvalOptions {
  std::string file;
  std::vector<double> at;
  double from = 0.0, to = 0.0;
  long count = 0;  // of x values from `from` to `to`; 0: those of `at`
  SourceOptions source;
  Form form = Form::kText;
};

bool evaluate(Vector &vector, double x, std::vector<double> &y, Rows &output) {
  if (ksvector_eval(vector.tag(), y.data(), x) != 0) return false;
  std::vector<std::string> cells{number_text(x)};
  for (const double value : y) cells.push_back(number_text(value));
  output.add(std::move(cells));
  return true;
}

int eval(const EvalOptions &options) {
  Vector vector;
  if (!vector.read(options.file, options.source)) return kFailure;
  Rows output(point_columns(vector->ny, false), options.form);
  std::vector<double> y(static_cast<std::size_t>(vector->ny));
  for (const double x : options.at) {
    if (!evaluate(vector, x, y, output)) return kFailure;
  }
  for (long i = 0; i < options.count; i++) {
    const double part = options.count > 1 ? static_cast<double>(i) /
                                                static_cast<double>(options.count - 1)
                                          : 0.0;
    const double x = options.from * (1.0 - part) + options.to * part;
    if (!evaluate(vector, x, y, output)) return kFailure;
  }
  output.print();
  return kOk;
}

}  // namespace

void add_eval(CLI::App &app, Action &action) {
  auto options = std::make_shared<EvalOptions>();
  CLI::App *command =
      app.add_subcommand("eval", "Interpolates between the points of a file");
  command->add_option("file", options->file)->required();
  CLI::Option *at = command->add_option("--at", options->at, "Values of x");
  CLI::Option *from = command->add_option("--from", options->from, "First of many x");
  CLI::Option *to = command->add_option("--to", options->to, "Last of them");
  CLI::Option *count = command->add_option("--count", options->count, "How many")
                           ->check(CLI::Range(1L, kMaxCount));
  from->needs(to)->needs(count)->excludes(at);
  to->needs(from);
  count->needs(from);
  add_source_options(*command, options->source);
  add_form_options(*command, options->form);
  command->callback([options, &action] {
    if (options->at.empty() && options->count == 0) {
      throw CLI::ValidationError("eval", "needs --at, or --from, --to and --count");
    }
    action = [options] { return eval(*options); };
  });
}

}  // namespace ksutil::tools
