#include <memory>
#include <string>

#include "events/evserver.h"
#include "tools/ksevents/commands.h"

namespace ksutil::tools {
namespace {

struct DiffOptions {
  std::string database1, database2;
};

Table<EVEvent> events_of(EVServer &server) {
  server.grabEventsLock();
  Table<EVEvent> events = server.getEvents();
  server.releaseEventsLock();
  return events;
}

int diff(const DiffOptions &options) {
  EVServer server1(options.database1, 0, 0, -1), server2(options.database2, 0, 0, -1);
  Table<EVEvent> events1 = events_of(server1), events2 = events_of(server2);
  server1.print(&events1, &events2, "");
  return kOk;
}

}  // namespace

void add_diff(CLI::App &app, Action &action) {
  auto options = std::make_shared<DiffOptions>();
  CLI::App *command = app.add_subcommand(
      "diff", "Prints the events, and fields of events, in which two databases differ");
  command->add_option("database1", options->database1, "the older: path/name")
      ->required();
  command->add_option("database2", options->database2, "the newer: path/name")
      ->required();
  command->callback(
      [options, &action] { action = [options] { return diff(*options); }; });
}

}  // namespace ksutil::tools
