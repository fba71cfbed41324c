/* watch: ksevents watch. */
#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "events/evclient.h"
#include "platform/clock/clock.h"
#include "platform/elog/elog.h"
#include "tools/common/cells.h"
#include "tools/common/options.h"
#include "tools/ksevents/command_line.h"
#include "tools/ksevents/command_runner.h"
#include "tools/ksevents/commands.h"
#include "tools/ksevents/event_line.h"
#include "tools/ksevents/event_query.h"
#include "tools/ksevents/refresh_news.h"
#include "tools/ksevents/served_events.h"

namespace ksutil::tools {
namespace {

struct WatchOptions {
  std::string database;
  double interval = 2.0;
  int max_events = 0;
  bool json = false;
  std::string where;
  std::optional<std::string> command;
  int jobs = 4;
};

/* A number for an event's row and the rows below it that does not depend on their
 * record numbers, which change when a row before them is removed. */
std::size_t content_of(const EVEvent &event) {
  std::size_t content = 0;
  const auto mix = [&content](const db::RowText &row) {
    content = content * 1099511628211U + std::hash<db::RowText>()(row);
  };
  mix(event.record_event);
  for (const EVOrigin &origin : event.origins) {
    mix(origin.record_origin);
    mix(origin.record_origerr);
    for (const EVMagnitude &magnitude : origin.magnitudes) {
      mix(magnitude.record_netmag);
    }
    for (const EVMoment &moment : origin.moments) mix(moment.record_mt);
  }
  return content;
}

std::string now_text() { return time_text(std_now(), 0) + "Z"; }

/* Prints every change report as it comes: on the thread that refreshes, the main one. */
class Watcher : public EVClient {
 public:
  Watcher(EVServer *events, const OriginReader &origins, bool json)
      : EVClient(events), lines_(origins), json_(json) {}
  ~Watcher() { server->deregisterClient(this); }

  /* Sets the query that an event must fulfil to be reported; to be called before the
   * first change.  False with a message. */
  bool set_condition(const std::string &where) {
    where_.emplace();
    if (!where_->parse(*this, where)) return false;
    if (!where_->is_text()) return true;
    complain("--where: '" + where + "' is a text, not a condition");
    return false;
  }
  /* Sets the command to run for each reported event; to be called before the first
   * change. */
  void set_runner(CommandRunner *runner) { runner_ = runner; }

  /* Reports the events that exist before the first change. */
  void report_start() {
    grabEventsLock();
    const std::shared_ptr<const Table<EVEvent>> events = eventsList();
    releaseEventsLock();
    for (const EVEvent &event : *events) {
      known_.insert(event.evid);
      if (runner_ != nullptr) contents_[event.evid] = content_of(event);
    }
    if (json_) {
      print_json({{"report", "start"}, {"events", events->size()}}, -1);
    } else {
      std::printf("%s  watching %ld events\n", now_text().c_str(), events->size());
    }
    end_report();
  }

  void responseCallback(EVResponse response) override {
    grabEventsLock();
    const std::shared_ptr<const Table<EVEvent>> events = eventsList();
    releaseEventsLock();
    if (json_) {
      report_json(response, *events);
    } else {
      report_text(response, *events);
    }
    if (runner_ != nullptr) run_commands(response, *events);
    for (const long evid : response.changed_evids) known_.insert(evid);
    for (const long evid : response.removed_evids) known_.erase(evid);
    end_report();
  }

  /* Whether a report could not be written, so that it is lost. */
  bool has_lost_reports() const { return lost_; }

 private:
  using Json = nlohmann::ordered_json;

  /* Writes the report out.  Without commands to run the watch ends when that fails, and
   * the end of the program complains.  With them it goes on, and the complaint is made here,
   * once until reports can be written again. */
  void end_report() {
    const bool written = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    if (!written && runner_ != nullptr) {
      std::clearerr(stdout);
      if (!failing_) complain("cannot write the output");
    }
    failing_ = !written;
    lost_ = lost_ || failing_;
  }

  /* Calls show(event) for each changed event of the list that the query takes, in the
   * report's order. */
  template <class Show>
  void each_changed(const EVResponse &response, const Table<EVEvent> &events,
                    Show show) {
    std::unordered_map<long, const EVEvent *> by_evid;
    for (const EVEvent &event : events) by_evid.try_emplace(event.evid, &event);
    for (const long evid : response.changed_evids) {
      const auto found = by_evid.find(evid);
      if (found != by_evid.end() && is_taken(*found->second)) show(*found->second);
    }
  }

  void run_commands(const EVResponse &response, const Table<EVEvent> &events) {
    for (const long evid : response.removed_evids) contents_.erase(evid);
    each_changed(response, events, [this](const EVEvent &event) {
      const std::size_t content = content_of(event);
      const auto [seen, fresh] = contents_.try_emplace(event.evid, content);
      if (!fresh && seen->second == content) return;
      seen->second = content;
      runner_->run(event.evid, event_json(event).dump(-1, ' ', false,
                                                      Json::error_handler_t::replace) +
                                   "\n");
    });
  }

  /* An event for which the query has no value is not reported. */
  bool is_taken(const EVEvent &event) {
    if (!where_) return true;
    const ElogScope quiet;
    bool held = false;
    EVEvent copy = event;
    return where_->holds(*this, copy, held) && held;
  }

  bool is_new(const EVEvent &event) const { return !known_.contains(event.evid); }

  void report_text(const EVResponse &response, const Table<EVEvent> &events) {
    std::printf("%s  %ld events\n", now_text().c_str(), events.size());
    each_changed(response, events, [this](const EVEvent &event) {
      std::printf("  %s  %s\n", is_new(event) ? "new    " : "changed",
                  lines_.sentence(event).c_str());
    });
    for (const long evid : response.removed_evids) {
      std::printf("  removed  evid %ld\n", evid);
    }
    if (response.detections_changed != 0) std::puts("  detections changed");
    if (response.mostrecent_changed != 0) {
      std::printf("  most recent event: %ld\n",
                  static_cast<long>(response.mostrecent_evid));
    }
  }

  Json event_json(const EVEvent &event) const {
    const std::vector<Column> columns = lines_.columns();
    Unreadable unreadable;
    const std::vector<std::string> cells = lines_.cells(event, unreadable);
    Json line = {{"new", is_new(event)}};
    for (std::size_t i = 0; i < cells.size(); i++) {
      line[columns[i].name] =
          columns[i].number ? json_number(cells[i]) : json_text(cells[i]);
    }
    return line;
  }

  void report_json(const EVResponse &response, const Table<EVEvent> &events) {
    Json object = {{"report", "change"},
                   {"time", time_cell(std_now())},
                   {"events", events.size()},
                   {"events_changed", response.events_changed},
                   {"detections_changed", response.detections_changed},
                   {"expanded_changed", response.expanded_changed},
                   {"lastmodified_evid", response.lastmodified_evid},
                   {"mostrecent_evid", response.mostrecent_evid},
                   {"changed", Json::array()},
                   {"removed", Json::array()}};
    each_changed(response, events, [&](const EVEvent &event) {
      object["changed"].push_back(event_json(event));
    });
    for (const long evid : response.removed_evids) object["removed"].push_back(evid);
    print_json(object, -1);
  }

  EventLines lines_;
  bool json_;
  std::optional<EventQuery> where_;
  CommandRunner *runner_ = nullptr;
  std::unordered_map<long, std::size_t>
      contents_;                    // of the known events, for the runner
  std::unordered_set<long> known_;  // evids that were in the list or reported
  bool failing_ = false;            // the last report could not be written
  bool lost_ = false;
};

/* SIGINT and SIGTERM, blocked before the server starts its threads, so that only wait()
 * takes them. */
class EndingSignals {
 public:
  EndingSignals() {
    sigemptyset(&ending_);
    sigaddset(&ending_, SIGINT);
    sigaddset(&ending_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ending_, nullptr);
  }

  /* Whether one has come; waits for it for some seconds, less when the process is
   * interrupted. */
  bool wait(double seconds) const {
    const double whole = std::floor(seconds);
    const timespec time{static_cast<time_t>(whole),
                        static_cast<long>((seconds - whole) * 1e9)};
    return sigtimedwait(&ending_, nullptr, &time) > 0;
  }

 private:
  sigset_t ending_;
};

int watch(const WatchOptions &options) {
  const EndingSignals ending;
  std::vector<std::string> words;
  std::string problem;
  if (options.command && !split_command(*options.command, words, problem)) {
    complain("--exec: " + problem);
    return kUsage;
  }
  OriginReader origins;
  if (!origins.open(options.database)) return kFailure;
  /* Ends after the server, whose threads hand texts to it. */
  std::optional<CommandRunner> runner;
  if (!words.empty()) runner.emplace(words, options.jobs);
  ServedEvents served(options.database, options.max_events);
  if (!served) return kFailure;
  report_unreadable({served.unreadable(), 0}, "records", options.database);
  Watcher watcher(&served.server(), origins, options.json);
  if (!options.where.empty() && !watcher.set_condition(options.where)) return kUsage;
  if (runner) watcher.set_runner(&*runner);
  watcher.report_start();
  /* Refresh here, and not at an interval of the server: each result is seen, and the
   * register has no messages of other threads. */
  RefreshNews news(options.database, served.unreadable());
  const auto output_has_gone = [&] { return watcher.has_lost_reports() && !runner; };
  while (!output_has_gone()) {
    news.take(served.server().refreshEvents(0));
    if (!output_has_gone() && ending.wait(options.interval)) break;
  }
  return news.failing() || watcher.has_lost_reports() ? kFailure : kOk;
}

void describe_watch(CLI::App &command, WatchOptions &options) {
  add_database(command, options.database);
  command.add_option("--interval", options.interval, "Seconds between looks")
      ->check(number_between(0.01, 4000.0))
      ->capture_default_str();
  command
      .add_option("--limit,--max-events", options.max_events,
                  "Only the events of the last N rows of the table")
      ->type_name("N")
      ->check(whole_number(0, INT_MAX));
  command.add_flag("--json", options.json, "One JSON object a line");
  command
      .add_option("--where", options.where,
                  "Only new and changed events for which this query is true")
      ->type_name("QUERY");
  command
      .add_option("--exec", options.command,
                  "Run this command for each of them, with the event as JSON on its\n"
                  "standard input; without a shell")
      ->type_name("COMMAND");
  command.add_option("--jobs", options.jobs, "At most N commands at a time")
      ->type_name("N")
      ->check(whole_number(1, 100))
      ->capture_default_str();
}

}  // namespace

Command watch_command() {
  return make_command<WatchOptions>(
      "watch", "Follows a database and prints each change; ends on SIGINT or SIGTERM",
      {"ksevents watch --interval 1 data/aug2015", "ksevents watch --json data/aug2015",
       "ksevents watch --where 'magnitude >= 6' --exec 'tee -a strong.json' "
       "data/aug2015"},
      describe_watch, watch);
}

}  // namespace ksutil::tools
