#include <algorithm>

#include "platform/clock/clock.h"
#include "platform/db/access.h"
#include "platform/db/columns.h"
#include "platform/db/db.h"
#include "platform/db/internal/boundary.h"
#include "platform/db/internal/greatest_ids.h"
#include "platform/db/internal/registry.h"
#include "platform/elog/elog.h"

namespace ksutil::db {

std::int64_t GreatestIds::follow(const std::string &table, const std::string &field,
                                 const std::shared_ptr<const Snapshot> &snapshot) {
  Seen &seen = seen_[{table, field}];
  if (seen.snapshot == snapshot) return seen.greatest;
  const IntegerColumn column(snapshot->layout(), field);
  const auto raise = [&](long row) {
    std::int64_t id;
    if (column.read(snapshot->row(row), id) && id != column.null()) {
      seen.greatest = std::max(seen.greatest, id);
    }
  };
  Changes changes;
  if (seen.snapshot != nullptr) changes = changes_between(*seen.snapshot, *snapshot);
  if (!changes.known || seen.snapshot == nullptr) {
    changes.changed.clear();
    changes.old_count = 0;
  }
  for (const long row : changes.changed) raise(row);
  for (long row = changes.old_count; row < snapshot->count(); ++row) raise(row);
  seen.snapshot = snapshot->complete() ? snapshot : nullptr;
  return seen.greatest;
}

namespace {

constexpr long kMaxReservedIds = 10'000'000;

/* The greatest id that any table uses of the counter; false with a message. */
bool greatest_in_use(Database &database, const std::string &counter,
                     std::int64_t &greatest) {
  greatest = 0;
  for (const Schema::CounterUse &use : database.schema().counter_uses(counter)) {
    TableSource *const table = database.table(use.table);
    if (table == nullptr) continue;
    const std::shared_ptr<const Snapshot> rows = table->look("dbnextid");
    if (rows == nullptr) return false;
    greatest =
        std::max(greatest, database.greatest_ids().follow(use.table, use.field, rows));
    /* A row that was not seen may hold a greater one. */
    if (!rows->complete()) return false;
  }
  return true;
}

/* The counter's row with the greatest value; -1 when it has none. */
struct CounterRow {
  long record = -1;
  std::int64_t value = 0;
};

CounterRow find_counter(const Snapshot &lastid, std::string_view counter) {
  const TextColumn name(lastid.layout(), "keyname");
  const IntegerColumn value(lastid.layout(), "keyvalue");
  CounterRow found;
  for (long record = 0; record < lastid.count(); ++record) {
    const std::string_view row = lastid.row(record);
    std::string_view text;
    std::int64_t last;
    if (!name.read(row, text) || text != counter || !value.read(row, last)) continue;
    if (found.record < 0 || last > found.value) found = {record, last};
  }
  return found;
}

bool write_counter(const Relation &layout, std::string_view counter, std::int64_t value,
                   std::string &row) {
  const Field *const name = layout.find("keyname");
  const Field *const keyvalue = layout.find("keyvalue");
  const Field *const lddate = layout.find("lddate");
  return name != nullptr && keyvalue != nullptr && write_text(*name, counter, row) &&
         write_integer(*keyvalue, value, row) &&
         (lddate == nullptr || write_real(*lddate, std_now(), row));
}

/* Counts on by `count`, with the table of counters locked: the first of the new ids.
 * False with a message. */
bool count_on(Database &database, TableSource &lastid, TableStore::Exclusive &locked,
              const std::string &counter, std::int64_t count, std::int64_t &id) {
  const std::shared_ptr<const Snapshot> rows = locked.snapshot();
  std::int64_t greatest;
  if (rows == nullptr || !greatest_in_use(database, counter, greatest)) return false;
  const CounterRow found = find_counter(*rows, counter);
  if (!rows->complete()) return false;
  id = std::max({greatest, found.value, std::int64_t{0}}) + 1;
  const Relation &layout = found.record < 0 ? lastid.store().layout() : rows->layout();
  std::string row =
      found.record < 0 ? null_record(layout) : std::string(rows->row(found.record));
  if (!write_counter(layout, counter, id + count - 1, row)) return false;
  return found.record < 0 ? locked.append(row) >= 0
                          : locked.overwrite(found.record, row);
}

}  // namespace

long reserve_ids(Dbptr db, const char *key, long count) {
  return guarded("dbnextid", -1L, [&] {
    if (key == nullptr || *key == '\0') {
      elog_log(0, "dbnextid: no counter is named.\n");
      return -1L;
    }
    if (count < 1 || count > kMaxReservedIds) {
      elog_log(0, "dbnextid: cannot reserve %ld ids.\n", count);
      return -1L;
    }
    const Opened opened("dbnextid", db);
    if (!opened) return -1L;
    TableSource *const lastid = opened->table("lastid");
    if (lastid == nullptr) {
      elog_log(0, "dbnextid: schema %s has no table lastid.\n",
               opened->schema().name().c_str());
      return -1L;
    }
    std::int64_t id = -1;
    const bool counted =
        lastid->exclusively("dbnextid", [&](TableStore::Exclusive &locked) {
          return count_on(*opened, *lastid, locked, key, count, id);
        });
    if (counted) return static_cast<long>(id);
    elog_log(0, "dbnextid: no next id of counter '%s'.\n", key);
    return -1L;
  });
}

}  // namespace ksutil::db

long dbnextid(Dbptr db, const char *key) { return ksutil::db::reserve_ids(db, key, 1); }
