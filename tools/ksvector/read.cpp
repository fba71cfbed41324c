#include <memory>
#include <string>

#include "tools/ksvector/commands.h"
#include "tools/ksvector/source.h"

namespace ksutil::tools {
namespace {

struct ReadOptions {
  std::string file;
  SourceOptions source;
  Form form = Form::kText;
};

int read(const ReadOptions &options) {
  Vector vector;
  if (!vector.read(options.file, options.source)) return kFailure;
  print_points(*ksvector_get_vector(vector.tag()), options.form);
  return kOk;
}

}  // namespace

void add_read(CLI::App &app, Action &action) {
  auto options = std::make_shared<ReadOptions>();
  CLI::App *command = app.add_subcommand("read", "Prints the points of a file");
  command->add_option("file", options->file)->required();
  add_source_options(*command, options->source);
  add_form_options(*command, options->form);
  command->callback(
      [options, &action] { action = [options] { return read(*options); }; });
}

}  // namespace ksutil::tools
