/* read: ksvector read. */
#include <climits>
#include <string>

#include "tools/common/options.h"
#include "tools/ksvector/commands.h"
#include "tools/ksvector/source.h"

namespace ksutil::tools {
namespace {

struct ReadOptions {
  std::string file;
  SourceOptions source;
  long limit = LONG_MAX;
  Form form = Form::kText;
};

int read(const ReadOptions &options) {
  Vector vector;
  if (!vector.read(options.file, options.source)) return kFailure;
  print_points(*ksvector_get_vector(vector.tag()), options.form, options.limit);
  return kOk;
}

void describe_read(CLI::App &command, ReadOptions &options) {
  command.add_option("file", options.file, "Response file or text table")->required();
  add_source_options(command, options.source);
  add_limit(command, options.limit, "points");
  add_form_options(command, options.form);
}

}  // namespace

Command read_command() {
  return make_command<ReadOptions>(
      "read", "Prints the points of a file",
      {"ksvector read --x 0 --y 2 data/points.txt",
       "ksvector read --json --limit 10 data/response/CTA_BHZ.fap"},
      describe_read, read);
}

}  // namespace ksutil::tools
