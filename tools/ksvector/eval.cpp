/* eval: ksvector eval. */
#include <string>
#include <vector>

#include "tools/common/cells.h"
#include "tools/common/options.h"
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
  std::vector<std::string> cells{shortest_cell(x)};
  for (const double value : y) cells.push_back(shortest_cell(value));
  output.add(std::move(cells));
  return true;
}

int eval(const EvalOptions &options) {
  if (options.at.empty() && options.count == 0) {
    complain("eval needs --at, or --from, --to and --count");
    return kUsage;
  }
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

void describe_eval(CLI::App &command, EvalOptions &options) {
  command.add_option("file", options.file, "Response file or text table")->required();
  CLI::Option *at = command.add_option("--at", options.at, "Values of x")
                        ->delimiter(',')
                        ->allow_extra_args(false)
                        ->type_name("X,...");
  CLI::Option *from = command.add_option("--from", options.from, "First of many x");
  CLI::Option *to = command.add_option("--to", options.to, "Last of them");
  CLI::Option *count = command.add_option("--count", options.count, "How many")
                           ->check(whole_number(1, kMaxCount));
  from->needs(to)->needs(count)->excludes(at);
  to->needs(from);
  count->needs(from);
  add_source_options(command, options.source);
  add_form_options(command, options.form);
}

}  // namespace

Command eval_command() {
  return make_command<EvalOptions>(
      "eval", "Interpolates between the points of a file",
      {"ksvector eval --at 0.5,1,2 data/response/CTA_BHZ.fap",
       "ksvector eval --from 0.1 --to 10 --count 100 --csv data/response/CTA_BHZ.fap"},
      describe_eval, eval);
}

}  // namespace ksutil::tools
