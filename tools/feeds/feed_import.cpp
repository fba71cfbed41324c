#include "tools/feeds/feed_import.h"

#include <algorithm>

#include "formats/exchange/format.h"
#include "formats/exchange/text/input.h"
#include "platform/clock/clock.h"
#include "platform/db/columns.h"
#include "platform/db/store.h"
#include "platform/elog/elog.h"

namespace ksutil::tools {
namespace {

constexpr std::size_t kFeedBlockBytes = std::size_t{64} << 20;  // of tables, in memory
constexpr std::size_t kMostRefusals = 20;
constexpr double kDay = 86400.0;

void refuse(FeedResult &result, const std::string &name, std::int64_t line,
            const std::string &reason) {
  if (++result.refused > static_cast<long>(kMostRefusals)) return;
  result.refusals.push_back(name + ":" + std::to_string(line) + ": " + reason);
}

/* Reads all events before the database is touched. */
bool gather_feed(exchange::Reader &reader, const std::string &name,
                 exchange::Gathering &events, FeedResult &result) {
  using Got = exchange::Reader::Got;
  exchange::Event event;
  for (;;) {
    switch (reader.next(event)) {
      case Got::kEnd:
        return true;
      case Got::kFailed:
        result.problem = reader.problem();
        return false;
      case Got::kRefused:
        refuse(result, name, reader.line(), reader.problem());
        break;
      case Got::kRecord:
        if (events.add(event)) break;
        result.problem = events.problem();
        return false;
    }
  }
}

}  // namespace

bool import_feed(const std::string &database, const std::string &name, FeedText text,
                 const exchange::ImportOptions &options, FeedResult &result) {
  const bool ends_in_line = !text.text.empty() && text.text.back() != '\n';
  const auto input = exchange::Input::of_text(name, std::move(text.text));
  const exchange::Recognised kind = exchange::recognise(input->head());
  if (kind.empty) return true;
  if (kind.format != nullptr && !kind.format->shows_its_end && !text.framed &&
      ends_in_line) {
    result.problem = "the answer ends within a line and may have been cut off";
    return false;
  }
  const auto reader = exchange::open_reader(*input, kind, result.problem);
  exchange::Gathering events;
  if (reader == nullptr || !gather_feed(*reader, name, events, result)) return false;
  if (events.size() == 0) return true;
  const auto store = db::open_store(database, "r+", kFeedBlockBytes);
  if (store == nullptr) return false;
  exchange::ImportListener listener;
  listener.refused = [&](std::int64_t line, const std::string &reason) {
    refuse(result, name, line, reason);
  };
  return exchange::import_events(*store, events, options, listener, result.counts) ==
         exchange::Imported::kYes;
}

double latest_update(const std::string &database) {
  const ElogScope quiet;
  const auto store = db::open_store(database, "r", kFeedBlockBytes);
  db::TableStore *const table = store == nullptr ? nullptr : store->table("event");
  const auto rows = table == nullptr ? nullptr : table->snapshot();
  if (rows == nullptr) return 0.0;
  const db::RealColumn lddate(rows->layout(), "lddate");
  const double most = std_now() + kDay;  // a later date is an error of its writer
  double latest = 0.0;
  for (long i = 0; i < rows->count(); i++) {
    double date = 0.0;
    if (lddate.read(rows->row(i), date) && date <= most)
      latest = std::max(latest, date);
  }
  return latest;
}

}  // namespace ksutil::tools
