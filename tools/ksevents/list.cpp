/* list: ksevents list. */
#include <algorithm>
#include <climits>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "events/evclient.h"
#include "platform/elog/elog.h"
#include "tools/common/options.h"
#include "tools/common/rows.h"
#include "tools/ksevents/commands.h"
#include "tools/ksevents/event_line.h"
#include "tools/ksevents/event_query.h"
#include "tools/ksevents/served_events.h"

namespace ksutil::tools {
namespace {

struct ListOptions {
  std::string database, where, sort;
  std::vector<std::string> fields;
  bool reverse = false, raw = false;
  long limit = LONG_MAX, latest = LONG_MAX;
  Form form = Form::kText;
};

/* The time that decides which events are the latest: the origin time; events without
 * origins count as the earliest. */
double time_of(const EVEvent &event) {
  const EVOrigin *const origin = shown_origin(event);
  return origin == nullptr ? -std::numeric_limits<double>::infinity() : origin->time;
}

class Lister {
 public:
  Lister(const ListOptions &options, ServedEvents &served, const OriginReader &origins)
      : options_(options),
        server_(served.server()),
        client_(&server_),
        events_(served.events()),
        lines_(origins, options.raw) {
    unreadable_.rows = served.unreadable();
  }
  ~Lister() { server_.deregisterClient(&client_); }
  Lister(const Lister &) = delete;
  Lister &operator=(const Lister &) = delete;

  int run() {
    if (!parse()) return kUsage;
    Rows rows(columns(), options_.form);
    long left = options_.limit;
    for (const int index : chosen()) {
      if (left-- <= 0) break;
      rows.add(cells(*events_.ptr(index)));
    }
    rows.print();
    return report_unreadable(unreadable_, "records", options_.database);
  }

 private:
  bool parse() {
    if (!options_.where.empty()) {
      where_.emplace();
      if (!where_->parse(client_, options_.where)) return false;
      if (where_->is_text()) {
        complain("--where: '" + options_.where + "' is a text, not a condition");
        return false;
      }
    }
    if (!options_.sort.empty()) {
      sort_.emplace();
      if (!sort_->parse(client_, options_.sort)) return false;
    }
    for (const std::string &text : options_.fields) {
      fields_.emplace_back();
      if (!fields_.back().parse(client_, text, options_.raw)) return false;
    }
    return true;
  }

  /* The indexes of the events to show, in the order to show them. */
  std::vector<int> chosen() {
    std::vector<int> order;
    if (sort_) {
      const Table<int> sorted =
          client_.sort(&events_, options_.sort, options_.reverse ? 1 : 0, nullptr);
      for (int i = 0; i < sorted.size(); i++) order.push_back(sorted.get(i));
    } else {
      for (int i = 0; i < events_.size(); i++) order.push_back(i);
      if (options_.reverse) std::reverse(order.begin(), order.end());
    }
    std::erase_if(order, [this](int index) { return !is_shown(*events_.ptr(index)); });
    keep_latest(order);
    return order;
  }

  /* Keeps the latest of the events, in the order they have. */
  void keep_latest(std::vector<int> &order) const {
    const auto most = static_cast<std::size_t>(options_.latest);
    if (order.size() <= most) return;
    std::vector<int> late = order;
    std::stable_sort(late.begin(), late.end(), [this](int a, int b) {
      return time_of(*events_.ptr(a)) > time_of(*events_.ptr(b));
    });
    late.resize(most);
    std::sort(late.begin(), late.end());
    std::erase_if(order, [&late](int index) {
      return !std::binary_search(late.begin(), late.end(), index);
    });
  }

  std::vector<Column> columns() const {
    if (fields_.empty()) return lines_.columns();
    std::vector<Column> found;
    for (const EventQuery &query : fields_) found.push_back(query.column());
    return found;
  }

  bool is_shown(EVEvent &event) {
    bool shown = true;
    const ElogScope quiet;
    if (where_ && !where_->holds(client_, event, shown)) unreadable_.values++;
    return shown;
  }

  std::vector<std::string> cells(EVEvent &event) {
    if (fields_.empty()) return lines_.cells(event, unreadable_);
    const ElogScope quiet;
    std::vector<std::string> found(fields_.size());
    for (std::size_t i = 0; i < fields_.size(); i++) {
      if (!fields_[i].cell(client_, event, found[i])) unreadable_.values++;
    }
    return found;
  }

  const ListOptions &options_;
  EVServer &server_;
  EVClient client_;
  Table<EVEvent> events_;
  EventLines lines_;
  std::optional<EventQuery> where_, sort_;
  std::vector<EventQuery> fields_;
  Unreadable unreadable_;
};

int list(const ListOptions &options) {
  OriginReader origins;
  if (!origins.open(options.database)) return kFailure;
  ServedEvents served(options.database);
  return served ? Lister(options, served, origins).run() : kFailure;
}

void describe_list(CLI::App &command, ListOptions &options) {
  add_database(command, options.database);
  add_list(command, "--fields,--columns", options.fields,
           "Queries to show instead of the usual columns");
  command
      .add_option("--where", options.where, "Only events for which this query is true")
      ->type_name("QUERY");
  command
      .add_option("--latest,--max-events", options.latest,
                  "Of these only the N with the latest origin times")
      ->type_name("N")
      ->check(whole_number(0));
  command
      .add_option("--sort", options.sort,
                  "Order by this query, events without a value first")
      ->type_name("QUERY");
  command.add_flag("--reverse", options.reverse, "Turn the order round");
  add_limit(command, options.limit, "events, the first ones of the order");
  add_raw(command, options.raw);
  add_form_options(command, options.form);
}

}  // namespace

Command list_command() {
  return make_command<ListOptions>(
      "list", "Lists the events with their preferred origins and magnitudes",
      {"ksevents list --latest 10 data/aug2015",
       "ksevents list --where 'magnitude >= 6' --sort depth --reverse data/aug2015",
       "ksevents list --fields 'evid,time,origin.nass' --csv --limit 5 data/aug2015",
       "ksevents list --where 'time >= \"2015-08-25\"' --json data/aug2015"},
      describe_list, list);
}

}  // namespace ksutil::tools
