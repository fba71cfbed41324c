#include <cstdio>
#include <memory>
#include <string>

#include "events/evclient.h"
#include "events/evserver.h"
#include "tools/ksevents/commands.h"

namespace ksutil::tools {
namespace {

struct ShowOptions {
  std::string database;
  long evid = -1;
};

constexpr const char *kStep = "    ";

/* Prints a list of records under a heading of its own depth, when there are any. */
template <class Record>
void print_list(EVServer &server, Table<Record> &records, const std::string &prefix) {
  if (records.size() > 0) server.print(&records, prefix);
}

void print_tree(EVServer &server, EVEvent &event) {
  server.print(&event, "");
  for (long i = 0; i < event.origins.size(); i++) {
    EVOrigin &origin = *event.origins.ptr(i);
    const std::string prefix = kStep, inner = prefix + kStep;
    std::printf("%sOrigin %ld:\n", kStep, i);
    server.print(&origin, inner);
    for (long m = 0; m < origin.magnitudes.size(); m++) {
      EVMagnitude &magnitude = *origin.magnitudes.ptr(m);
      std::printf("%sMagnitude %ld:\n", inner.c_str(), m);
      server.print(&magnitude, inner + kStep);
      print_list(server, magnitude.stamags, inner + kStep);
    }
    print_list(server, origin.moments, inner);
    print_list(server, origin.associations, inner);
    print_list(server, origin.detections, inner);
  }
}

int show(const ShowOptions &options) {
  EVServer server(options.database, 0, 1, -1);
  EVClient client(&server);
  EVEvent event;
  client.grabEventsLock();
  const int found = client.getExpandedEvent(options.evid, event);
  client.releaseEventsLock();
  server.deregisterClient(&client);
  if (found != 0) {
    complain("there is no event with evid " + std::to_string(options.evid));
    return kFailure;
  }
  print_tree(server, event);
  return kOk;
}

}  // namespace

void add_show(CLI::App &app, Action &action) {
  auto options = std::make_shared<ShowOptions>();
  CLI::App *command = app.add_subcommand(
      "show",
      "Prints an event with its origins, magnitudes, moment tensors, associations and\n"
      "detections");
  command->add_option("database", options->database, "path/name")->required();
  command->add_option("evid", options->evid)->required();
  command->callback(
      [options, &action] { action = [options] { return show(*options); }; });
}

}  // namespace ksutil::tools
