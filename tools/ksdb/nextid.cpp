#include <cstdio>
#include <memory>
#include <string>

#include "tools/ksdb/commands.h"

namespace ksutil::tools {
namespace {

struct NextidOptions {
  std::string database, counter;
};

int next_id(const NextidOptions &options) {
  const OpenDatabase database(options.database, "r+");
  if (!database) return kFailure;
  const long id = dbnextid(database.get(), options.counter.c_str());
  if (id < 0) return kFailure;
  std::printf("%ld\n", id);
  return kOk;
}

}  // namespace

void add_nextid(CLI::App &app, Action &action) {
  auto options = std::make_shared<NextidOptions>();
  CLI::App *command =
      app.add_subcommand("nextid", "Allocates the next id of a counter and prints it");
  command->add_option("database", options->database, "path/name")->required();
  command->add_option("counter", options->counter, "evid, orid, arid, magid, ...")
      ->required();
  command->callback(
      [options, &action] { action = [options] { return next_id(*options); }; });
}

}  // namespace ksutil::tools
