#include <memory>
#include <string>

#include "events/evserver.h"
#include "tools/common/rows.h"
#include "tools/ksevents/commands.h"
#include "tools/ksevents/event_line.h"

namespace ksutil::tools {
namespace {

struct Options {
  std::string database;
  int max_events = 0;
  Form form = Form::kText;
};

int list(const Options &options) {
  OriginReader origins;
  if (!origins.open(options.database)) return kFailure;
  EVServer server(options.database, 0, options.max_events, -1);
  const EventLines lines(origins);
  Rows rows(EventLines::columns(), options.form);
  server.grabEventsLock();
  const std::shared_ptr<const Table<EVEvent>> events = server.eventsList();
  server.releaseEventsLock();
  for (const EVEvent &event : *events) rows.add(lines.cells(event));
  rows.print();
  return kOk;
}

}  // namespace

void add_list(CLI::App &app, Action &action) {
  auto options = std::make_shared<Options>();
  CLI::App *command = app.add_subcommand(
      "list", "Lists the events with their preferred origins and magnitudes");
  command->add_option("database", options->database, "path/name")->required();
  command->add_option("--max-events", options->max_events,
                      "Only the last so many events of the table");
  add_form_options(*command, options->form);
  command->callback(
      [options, &action] { action = [options] { return list(*options); }; });
}

}  // namespace ksutil::tools
