/* list: implements ksevents list. */
#include <algorithm>
#include <climits>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "events/evclient.h"
#include "events/event_rows.h"
#include "platform/elog/elog.h"
#include "tools/common/options.h"
#include "tools/common/row_printer.h"
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

/* Keeps the latest of many events, in the order in which they came. */
class LatestEvents {
 public:
  explicit LatestEvents(long most) : most_(static_cast<std::size_t>(most)) {}

  void take(const EVEvent &event) {
    kept_.push_back({time_of(event), kept_so_far_++, event});
    if (kept_.size() > 2 * most_ + kSpare) prune();
  }
  std::vector<EVEvent> events() {
    prune();
    std::sort(kept_.begin(), kept_.end(),
              [](const Kept &a, const Kept &b) { return a.place < b.place; });
    std::vector<EVEvent> events;
    for (Kept &kept : kept_) events.push_back(std::move(kept.event));
    return events;
  }

 private:
  static constexpr std::size_t kSpare = 1000;
  struct Kept {
    double time;
    long place;
    EVEvent event;
  };

  /* Of events at one time the first ones stay. */
  void prune() {
    if (kept_.size() <= most_) return;
    std::sort(kept_.begin(), kept_.end(), [](const Kept &a, const Kept &b) {
      return a.time != b.time ? a.time > b.time : a.place < b.place;
    });
    kept_.erase(kept_.begin() + static_cast<std::ptrdiff_t>(most_), kept_.end());
  }

  std::size_t most_;
  long kept_so_far_ = 0;
  std::vector<Kept> kept_;
};

class Lister {
 public:
  Lister(const ListOptions &options, ServedEvents &served, const OriginReader &origins)
      : options_(options),
        served_(served),
        server_(served.server()),
        client_(&server_),
        lines_(origins, options.raw) {}
  ~Lister() { server_.deregisterClient(&client_); }
  Lister(const Lister &) = delete;
  Lister &operator=(const Lister &) = delete;

  int run() {
    if (!parse()) return kUsage;
    output_.emplace(columns(), options_.form);
    const bool listed =
        in_table_order(options_) ? list_while_reading() : list_ordered();
    output_->finish();
    unreadable_.rows = served_.unreadable();
    const int result = report_unreadable(unreadable_, "records", options_.database);
    return listed ? result : kFailure;
  }

  /* Whether the events come in the order in which they are read. */
  static bool in_table_order(const ListOptions &options) {
    return options.sort.empty() && !options.reverse;
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

  /* False, with a message registered, when the events cannot be read to their end. */
  bool list_while_reading() {
    const bool some = options_.latest != LONG_MAX;
    LatestEvents latest(some ? options_.latest : 0);
    const auto wanted = [&](const EVEvent &outline) {
      bool holds = true;
      const ElogScope quiet;
      /* A condition without a value is counted when the whole event can be read. */
      return !where_->holds(client_, outline, holds) || holds;
    };
    const auto take = [&](EVEvent &event) {
      /* A condition is tried on all events, so that those without a value are counted. */
      if (!where_ && !some && shown_ >= options_.limit) return false;
      if (!is_shown(event)) return true;
      some ? latest.take(event) : show(event);
      return true;
    };
    const bool outline = where_ && where_->needs_outline_only();
    const int result = outline ? events::each_event(server_, wanted, take)
                               : events::each_event(server_, take);
    for (EVEvent &event : latest.events()) show(event);
    return result == 0;
  }

  bool list_ordered() {
    const Table<EVEvent> events = served_.events();
    for (const int index : chosen(events)) show(*events.ptr(index));
    return true;
  }

  /* The indexes of the events to show, in the order to show them. */
  std::vector<int> chosen(const Table<EVEvent> &events) {
    std::vector<int> order;
    if (sort_) {
      const Table<int> sorted =
          client_.sort(&events, options_.sort, options_.reverse ? 1 : 0, nullptr);
      for (int i = 0; i < sorted.size(); i++) order.push_back(sorted.get(i));
    } else {
      for (int i = static_cast<int>(events.size()); i-- > 0;) order.push_back(i);
    }
    std::erase_if(order, [&](int index) { return !is_shown(*events.ptr(index)); });
    keep_latest(events, order);
    return order;
  }

  /* Keeps the latest of the events, in the order they have. */
  void keep_latest(const Table<EVEvent> &events, std::vector<int> &order) const {
    const auto most = static_cast<std::size_t>(options_.latest);
    if (order.size() <= most) return;
    std::vector<int> late = order;
    std::stable_sort(late.begin(), late.end(), [&](int a, int b) {
      return time_of(*events.ptr(a)) > time_of(*events.ptr(b));
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

  bool is_shown(const EVEvent &event) {
    bool shown = true;
    const ElogScope quiet;
    if (where_ && !where_->holds(client_, event, shown)) unreadable_.values++;
    return shown;
  }

  /* Prints an event while there are fewer than the limit. */
  void show(const EVEvent &event) {
    if (shown_ >= options_.limit) return;
    shown_++;
    output_->add(cells(event));
  }

  std::vector<std::string> cells(const EVEvent &event) {
    if (fields_.empty()) return lines_.cells(event, unreadable_);
    const ElogScope quiet;
    std::vector<std::string> found(fields_.size());
    for (std::size_t i = 0; i < fields_.size(); i++) {
      if (!fields_[i].cell(client_, event, found[i])) unreadable_.values++;
    }
    return found;
  }

  const ListOptions &options_;
  ServedEvents &served_;
  EVServer &server_;
  EVClient client_;
  EventLines lines_;
  std::optional<EventQuery> where_, sort_;
  std::vector<EventQuery> fields_;
  std::optional<RowPrinter> output_;
  long shown_ = 0;
  Unreadable unreadable_;
};

int list(const ListOptions &options) {
  OriginReader origins;
  if (!origins.open(options.database)) return kFailure;
  /* Events that are shown while they are read need no list in the server. */
  ServedEvents served(options.database, Lister::in_table_order(options) ? 1 : 0);
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
