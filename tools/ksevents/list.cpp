#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "events/evclient.h"
#include "events/evserver.h"
#include "tools/common/rows.h"
#include "tools/ksevents/commands.h"
#include "tools/ksevents/event_line.h"
#include "tools/ksevents/event_query.h"

namespace ksutil::tools {
namespace {

struct ListOptions {
  std::string database, where, sort, columns;
  bool reverse = false;
  int max_events = 0;
  Form form = Form::kText;
};

class Lister {
 public:
  Lister(const ListOptions &options, EVServer &server, const OriginReader &origins)
      : options_(options), server_(server), client_(&server), lines_(origins) {}
  ~Lister() { server_.deregisterClient(&client_); }
  Lister(const Lister &) = delete;
  Lister &operator=(const Lister &) = delete;

  int run() {
    if (!parse()) return kUsage;
    client_.grabEventsLock();
    Table<EVEvent> events = client_.getEvents();
    client_.releaseEventsLock();
    EVEventsTab tab{&events, {}, {}};
    if (sort_) {
      client_.sort(&tab, options_.sort, options_.reverse ? 1 : 0);
    } else {
      client_.setEventsTabs(&tab, nullptr);
    }
    Rows rows(columns(), options_.form);
    const int count = static_cast<int>(events.size());
    for (int i = 0; i < count; i++) {
      const int row = options_.reverse && !sort_ ? count - 1 - i : i;
      EVEvent &event = *events.ptr(client_.getIndex(&tab, row));
      if (is_shown(event)) rows.add(cells(event));
    }
    rows.print();
    return good_ ? kOk : kFailure;
  }

 private:
  bool parse() {
    if (!options_.where.empty()) {
      where_.emplace();
      if (!where_->parse(client_, options_.where)) return false;
      if (where_->is_text()) {
        complain("'" + options_.where + "' is a text, not a condition");
        return false;
      }
    }
    if (!options_.sort.empty()) {
      sort_.emplace();
      if (!sort_->parse(client_, options_.sort)) return false;
    }
    if (options_.columns.empty()) return true;
    for (const std::string &text : split_queries(options_.columns)) {
      columns_.emplace_back();
      if (!columns_.back().parse(client_, text)) return false;
    }
    return true;
  }

  std::vector<Column> columns() const {
    if (columns_.empty()) return EventLines::columns();
    std::vector<Column> found;
    for (const EventQuery &query : columns_) found.push_back(query.column());
    return found;
  }

  bool is_shown(EVEvent &event) {
    bool shown = true;
    if (where_ && !where_->holds(client_, event, shown)) good_ = false;
    return shown;
  }

  std::vector<std::string> cells(EVEvent &event) {
    if (columns_.empty()) return lines_.cells(event);
    std::vector<std::string> found(columns_.size());
    for (std::size_t i = 0; i < columns_.size(); i++) {
      if (!columns_[i].cell(client_, event, found[i])) good_ = false;
    }
    return found;
  }

  const ListOptions &options_;
  EVServer &server_;
  EVClient client_;
  EventLines lines_;
  std::optional<EventQuery> where_, sort_;
  std::vector<EventQuery> columns_;
  bool good_ = true;  // whether every query could be answered
};

int list(const ListOptions &options) {
  OriginReader origins;
  if (!origins.open(options.database)) return kFailure;
  EVServer server(options.database, 0, options.max_events, -1);
  return Lister(options, server, origins).run();
}

}  // namespace

void add_list(CLI::App &app, Action &action) {
  auto options = std::make_shared<ListOptions>();
  CLI::App *command = app.add_subcommand(
      "list", "Lists the events with their preferred origins and magnitudes");
  command->add_option("database", options->database, "path/name")->required();
  command->add_option("--max-events", options->max_events,
                      "Only the last so many events of the table");
  command->add_option("--where", options->where,
                      "Only events for which this query is true");
  command->add_option("--sort", options->sort,
                      "Order by this query, events without a value first");
  command->add_flag("--reverse", options->reverse, "Turn the order round");
  command->add_option("--columns", options->columns,
                      "Queries to show instead, separated by commas");
  add_form_options(*command, options->form);
  command->callback(
      [options, &action] { action = [options] { return list(*options); }; });
}

}  // namespace ksutil::tools
