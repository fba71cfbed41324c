#include "tools/ksevents/plot/catalogue.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "events/evclient.h"
#include "platform/clock/clock.h"
#include "platform/elog/elog.h"
#include "tools/common/cli.h"
#include "tools/ksevents/event_line.h"
#include "tools/ksevents/event_query.h"
#include "tools/ksevents/served_events.h"

namespace ksutil::tools {
namespace {

double or_nan(double value) {
  return value == -999.0 ? std::numeric_limits<double>::quiet_NaN() : value;
}

/* A client for one scope. */
class ScopedClient {
 public:
  explicit ScopedClient(EVServer &server) : server_(server), client_(&server) {}
  ~ScopedClient() { server_.deregisterClient(&client_); }
  ScopedClient(const ScopedClient &) = delete;
  ScopedClient &operator=(const ScopedClient &) = delete;
  EVClient &get() { return client_; }

 private:
  EVServer &server_;
  EVClient client_;
};

}  // namespace

int read_catalogue(const std::string &database, const std::string &where,
                   std::vector<CatalogueEvent> &events, Unreadable &unreadable) {
  OriginReader origins;
  if (!origins.open(database)) return kFailure;
  ServedEvents served(database);
  if (!served) return kFailure;
  unreadable.rows += served.unreadable();
  ScopedClient client(served.server());
  std::optional<EventQuery> query;
  if (!where.empty()) {
    query.emplace();
    if (!query->parse(client.get(), where)) return kUsage;
    if (query->is_text()) {
      complain("--where: '" + where + "' is a text, not a condition");
      return kUsage;
    }
  }
  Table<EVEvent> all = served.events();
  for (int i = 0; i < all.size(); i++) {
    EVEvent &event = *all.ptr(i);
    const EVOrigin *const origin = shown_origin(event);
    bool shown = true;
    {
      const ElogScope quiet;
      if (query && !query->holds(client.get(), event, shown)) unreadable.values++;
    }
    if (!shown || origin == nullptr || !(origin->time > kNullTime)) continue;
    const OriginReader::Position at = origins.position(
        db::RowText::Reading(origin->record_origin).text(), unreadable);
    if (at.lat == -999.0 || at.lon == -999.0) continue;
    events.push_back({event.evid, origin->orid, origin->time, at.lat, at.lon,
                      or_nan(at.depth), or_nan(event.magnitude)});
  }
  std::stable_sort(events.begin(), events.end(),
                   [](const auto &a, const auto &b) { return a.time < b.time; });
  return kOk;
}

}  // namespace ksutil::tools
