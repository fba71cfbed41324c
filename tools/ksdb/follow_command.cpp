/* follow_command: ksdb follow. */
#include "tools/ksdb/commands.h"

#ifdef KSUTIL_FEEDS

#include <cstdio>
#include <random>

#include "platform/clock/clock.h"
#include "platform/db/store.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"
#include "tools/common/cells.h"
#include "tools/common/options.h"
#include "tools/common/rows.h"
#include "tools/feeds/feed_address.h"
#include "tools/feeds/feed_import.h"
#include "tools/feeds/feed_pause.h"
#include "tools/feeds/http_client.h"
#include "tools/ksdb/import_target.h"

namespace ksutil::tools {
namespace {

/* Requests ask for updates from kOverlap seconds before the last known one: clocks
 * differ, and a service may publish an update some time after its date. */
constexpr double kOverlap = 300.0;

struct FollowOptions {
  std::string url, database, schema, after, before, since, format;
  double interval = 60.0, timeout = 60.0;
  double min_magnitude = -DBL_MAX;
  long megabytes = 64;
  bool once = false, keep_origins = false, quiet = false, json = false;
};

bool read_moment(const char *option, const std::string &text, double &moment) {
  if (text.empty() || parse_date_text(text, moment)) return true;
  complain(std::string(option) + " '" + text + "' is not a date");
  return false;
}

/* Makes the database, and sets `made`, if it does not exist and a schema for it is
 * given. */
bool is_there(const FollowOptions &options, bool &made) {
  const auto open = [&] { return db::open_store(options.database, "r+", 1 << 20); };
  {
    const ElogScope quiet;
    if (open() != nullptr) return true;
  }
  if (options.schema.empty()) {
    if (open() == nullptr) {
      complain("cannot open " + options.database + "; --create SCHEMA makes a new one");
    }
    return false;
  }
  made = dbcreate(options.database.c_str(), options.schema.c_str()) == 0;
  return made;
}

/* Asks one feed again and again. */
class Follower {
 public:
  Follower(const FollowOptions &options, const FeedAddress &address,
           const exchange::ImportOptions &import, double since)
      : options_(options),
        address_(address),
        import_(import),
        client_(
            {static_cast<std::size_t>(options.megabytes) << 20, options.timeout, 5}),
        since_(since),
        pause_(options.interval, [this] { return share_(random_); }) {}

  /* Runs until the signal comes or a request cannot succeed; the exit code. */
  int run() {
    for (bool ever = false;;) {
      const Poll result = poll();
      ever = ever || result == Poll::kDone || result == Poll::kRefusals;
      if (result == Poll::kStopped) return kOk;
      if (options_.once) return result == Poll::kDone ? kOk : kFailure;
      if (result == Poll::kHopeless && !ever) return kFailure;
      if (stop_.wait(next_)) return kOk;
    }
  }

 private:
  /* kRefusals: done, but some events could not be used.  kHopeless: the service refuses
   * the request. */
  enum class Poll { kDone, kRefusals, kFailed, kHopeless, kStopped };

  std::string url() const {
    if (!address_.is_fdsn()) return address_.url({});
    FeedParameters parameters = {
        {"format", options_.format.empty() ? "text" : options_.format}};
    const auto add_time = [&](const char *name, const std::string &text) {
      double time = 0.0;
      if (!text.empty() && parse_date_text(text, time)) {
        parameters.emplace_back(name, time_text(time, 3));
      }
    };
    add_time("starttime", options_.after);
    add_time("endtime", options_.before);
    if (options_.min_magnitude > -DBL_MAX) {
      parameters.emplace_back("minmagnitude", shortest_cell(options_.min_magnitude));
    }
    if (since_ > 0.0) parameters.emplace_back("updatedafter", time_text(since_, 3));
    return address_.url(parameters);
  }

  Poll poll() {
    const double asked = std_now();
    HttpRequest request{url(), "", ""};
    if (request.url == last_.url) request = last_;
    HttpAnswer answer = client_.get(request, stop_);
    switch (answer.kind) {
      case HttpAnswer::Kind::kStopped:
        return Poll::kStopped;
      case HttpAnswer::Kind::kFailed:
        return fail(answer.problem, answer.retry_after, answer.permanent);
      case HttpAnswer::Kind::kUnchanged:
      case HttpAnswer::Kind::kEmpty:
        return succeed(FeedResult(), answer, request, asked);
      case HttpAnswer::Kind::kBody:
        break;
    }
    FeedResult result;
    if (!import_feed(options_.database, address_.shown(),
                     {std::move(answer.body), answer.framed}, import_, result)) {
      return fail(result.problem, -1.0, false);
    }
    return succeed(result, answer, request, asked);
  }

  Poll succeed(const FeedResult &result, const HttpAnswer &answer,
               const HttpRequest &request, double asked) {
    if (answer.kind != HttpAnswer::Kind::kUnchanged) {
      last_ = {request.url, answer.etag, answer.last_modified};
    }
    /* Use the clock of the service if its answer gives the time. */
    since_ = (answer.date > 0.0 ? answer.date : asked) - kOverlap;
    next_ = pause_.after_success();
    tell(result);
    for (const std::string &refusal : result.refusals) complain(refusal);
    const long more = result.refused - static_cast<long>(result.refusals.size());
    if (more > 0) complain(std::to_string(more) + " more events refused");
    return result.refused == 0 ? Poll::kDone : Poll::kRefusals;
  }

  Poll fail(const std::string &problem, double retry_after, bool permanent) {
    next_ = pause_.after_failure(retry_after);
    const std::string cause = address_.shown() + ": " + problem;
    if (!problem.empty()) {
      complain(options_.once ? cause
                             : cause + format_text("; asked again in %.3g s", next_));
    }
    /* Messages that the import registered; a later attempt may succeed. */
    if (anything_registered()) print_register();
    return permanent ? Poll::kHopeless : Poll::kFailed;
  }

  void tell(const FeedResult &result) const {
    const exchange::ImportCounts &counts = result.counts;
    const bool news = counts.added > 0 || counts.updated > 0;
    if (options_.quiet || (!news && !options_.once)) return;
    if (options_.json) {
      print_json({{"time", time_cell(std_now())},
                  {"added", counts.added},
                  {"updated", counts.updated},
                  {"unchanged", counts.unchanged},
                  {"older", counts.older},
                  {"left_out", counts.left_out},
                  {"refused", result.refused}},
                 -1);
    } else {
      std::printf("%sZ  %ld added, %ld updated, %ld unchanged\n",
                  time_text(std_now(), 0).c_str(), static_cast<long>(counts.added),
                  static_cast<long>(counts.updated),
                  static_cast<long>(counts.unchanged + counts.older));
    }
    std::fflush(stdout);
  }

  const FollowOptions &options_;
  const FeedAddress &address_;
  const exchange::ImportOptions import_;
  StopSignal stop_;
  HttpClient client_;
  HttpRequest last_;  // with the validators of the last answer
  double since_;      // ask for updates after this time; 0: all
  double next_ = 0.0;
  std::mt19937 random_{std::random_device()()};
  std::uniform_real_distribution<double> share_{0.0, 1.0};
  FeedPause pause_;
};

int follow(const FollowOptions &options) {
  exchange::ImportOptions import;
  import.min_magnitude = options.min_magnitude;
  import.keep_origins = options.keep_origins;
  double since = 0.0;
  FeedAddress address;
  std::string problem;
  if (!read_moment("--after", options.after, import.after) ||
      !read_moment("--before", options.before, import.before) ||
      !read_moment("--since", options.since, since)) {
    return kUsage;
  }
  if (!address.parse(options.url, problem)) {
    complain(problem);
    return kUsage;
  }
  if (!options.format.empty() && !address.is_fdsn()) {
    complain("--format is for event services with /fdsnws/event/ in their addresses");
    return kUsage;
  }
  bool made = false;
  if (!is_there(options, made)) return kFailure;
  if (options.since.empty()) {
    const double latest = latest_update(options.database);
    since = latest > 0.0 ? latest - kOverlap : 0.0;
  }
  const int code = Follower(options, address, import, since).run();
  if (made && code != kOk) {
    const auto schema = db::Schema::load(options.schema);
    if (schema != nullptr) remove_empty_database(options.database, *schema);
  }
  return code;
}

void describe_follow(CLI::App &command, FollowOptions &options) {
  command
      .add_option("url", options.url,
                  "An FDSN event service (http://HOST/fdsnws/event/1), or a feed")
      ->required();
  add_database(command, options.database);
  command.add_option("--create", options.schema,
                     "Make the database with this schema when it does not exist");
  command.add_option("--interval", options.interval, "Seconds between requests")
      ->check(number_between(0.01, 1e6))
      ->capture_default_str();
  command.add_flag("--once", options.once, "Ask once, and say what came");
  command.add_option("--min-magnitude", options.min_magnitude,
                     "Only events of this magnitude and above");
  command.add_option("--after", options.after, "Only events at or after this date");
  command.add_option("--before", options.before, "Only events before this date");
  command.add_option("--since", options.since,
                     "First ask an event service for updates after this date\n"
                     "(default: after the latest load date of an event)");
  command
      .add_option("--format", options.format,
                  "What an event service is asked for (text)")
      ->check(CLI::IsMember({"text", "xml", "geojson"}));
  command.add_option("--timeout", options.timeout, "Seconds that an answer may take")
      ->check(number_between(0.1, 3600.0))
      ->capture_default_str();
  command
      .add_option("--max-size", options.megabytes, "Megabytes that an answer may have")
      ->check(whole_number(1, 2000))
      ->capture_default_str();
  command.add_flag("--keep-origins", options.keep_origins,
                   "Add a revised solution as a further origin, and prefer it");
  command.add_flag("--json", options.json, "One JSON object a line");
  add_quiet(command, options.quiet);
}

}  // namespace
}  // namespace ksutil::tools

#else

namespace ksutil::tools {
namespace {

struct FollowOptions {
  std::vector<std::string> arguments;
};

int follow(const FollowOptions &) {
  complain("this ksdb was built without libcurl and cannot follow feeds");
  return kFailure;
}

void describe_follow(CLI::App &command, FollowOptions &options) {
  command.add_option("arguments", options.arguments, "URL DATABASE");
  command.allow_extras();
}

}  // namespace
}  // namespace ksutil::tools

#endif

namespace ksutil::tools {

Command follow_command() {
  return make_command<FollowOptions>(
      "follow",
      "Asks an event service or a feed again and again, and imports what is new; ends "
      "on "
      "SIGINT or SIGTERM",
      {"ksdb follow http://localhost:8080/fdsnws/event/1 mydb"}, describe_follow,
      follow);
}

}  // namespace ksutil::tools
