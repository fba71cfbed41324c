#include "tools/ksdb/verify_mend.h"

#include <cstdint>
#include <map>
#include <string_view>
#include <unordered_set>

#include "platform/clock/clock.h"
#include "platform/db/access.h"
#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "tools/ksdb/verify_counters.h"
#include "tools/ksdb/verify_tables.h"

namespace ksutil::tools {
namespace {

/* The origin that an orphaned event will prefer. */
struct Preferred {
  std::int64_t orid = -1;
  double lddate = 0.0;
  std::string auth;
};

std::unordered_set<std::int64_t> evids_of(const db::Snapshot &events) {
  std::unordered_set<std::int64_t> evids;
  const db::IntegerColumn evid(events.layout(), "evid");
  for (long i = 0; i < events.count(); i++) {
    std::int64_t id = -1;
    if (evid.read(events.row(i), id)) evids.insert(id);
  }
  return evids;
}

/* The events that origins name and the event table lacks, by evid. */
std::map<std::int64_t, Preferred> orphans(const db::Snapshot &origins,
                                          const db::Snapshot &events) {
  const std::unordered_set<std::int64_t> known = evids_of(events);
  const db::IntegerColumn evid(origins.layout(), "evid"),
      orid(origins.layout(), "orid");
  const db::RealColumn lddate(origins.layout(), "lddate");
  const db::TextColumn auth(origins.layout(), "auth");
  std::map<std::int64_t, Preferred> found;
  for (long i = 0; i < origins.count(); i++) {
    const std::string_view row = origins.row(i);
    std::int64_t event = -1;
    Preferred origin;
    if (!evid.read(row, event) || event == evid.null() || known.contains(event) ||
        !orid.read(row, origin.orid) || origin.orid == orid.null()) {
      continue;
    }
    lddate.read(row, origin.lddate);
    std::string_view author;
    if (auth.read(row, author)) origin.auth = author;
    const auto [place, fresh] = found.try_emplace(event, origin);
    if (!fresh && origin.lddate >= place->second.lddate) place->second = origin;
  }
  return found;
}

/* The row of an event; empty with a message. */
std::string event_row(const db::Relation &layout, std::int64_t evid,
                      const Preferred &origin) {
  std::string row = db::null_record(layout);
  const auto field = [&](const char *name) { return layout.find(name); };
  const bool written =
      field("evid") != nullptr && db::write_integer(*field("evid"), evid, row) &&
      field("prefor") != nullptr &&
      db::write_integer(*field("prefor"), origin.orid, row) &&
      (field("auth") == nullptr || db::write_text(*field("auth"), origin.auth, row)) &&
      (field("lddate") == nullptr || db::write_real(*field("lddate"), std_now(), row));
  return written ? row : "";
}

}  // namespace

bool mend_orphans(const OpenDatabase &database, std::vector<std::string> &mended) {
  db::TableStore *const events = db::table_store(database.table("event"));
  db::TableStore *const origins = db::table_store(database.table("origin"));
  if (events == nullptr || origins == nullptr) return false;
  std::size_t added = 0;
  const bool done = events->exclusively([&](db::TableStore::Exclusive &locked) {
    const auto event_rows = locked.snapshot();
    const auto origin_rows = origins->snapshot();
    if (event_rows == nullptr || origin_rows == nullptr) return false;
    std::string rows;
    {
      const ElogScope quiet;
      const auto found = orphans(*origin_rows, *event_rows);
      if (!event_rows->complete() || !origin_rows->complete()) return false;
      for (const auto &[evid, origin] : found) {
        const std::string row = event_row(events->layout(), evid, origin);
        if (row.empty()) continue;
        rows += row;
        added++;
      }
    }
    return rows.empty() || locked.append_all(rows) >= 0;
  });
  if (!done) return false;
  if (added > 0) {
    mended.push_back("event: " + std::to_string(added) +
                     (added == 1 ? " row added for origins without event"
                                 : " rows added for origins without event"));
  }
  return true;
}

bool mend_counters(const OpenDatabase &database, std::vector<std::string> &mended) {
  const db::DatabaseStore *store = db::database_store(database.get());
  Tables tables;
  if (store == nullptr || !read_tables(database, tables)) return false;
  Dbptr lastid = database.table("lastid");
  for (const StaleCounter &counter : stale_counters(*store->schema(), tables)) {
    lastid.record = counter.record;
    if (dbputv(lastid, "keyvalue", static_cast<long>(counter.greatest), "lddate",
               std_now(), static_cast<char *>(nullptr)) != 0) {
      return false;
    }
    mended.push_back("lastid: " + counter.name + " set from " +
                     std::to_string(counter.value) + " to " +
                     std::to_string(counter.greatest));
  }
  return true;
}

}  // namespace ksutil::tools
