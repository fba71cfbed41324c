#include "platform/db/internal/next_id.h"

#include <algorithm>

#include "platform/clock/clock.h"
#include "platform/db/columns.h"
#include "platform/db/internal/greatest_ids.h"
#include "platform/db/settled_reading.h"
#include "platform/elog/failure.h"

namespace ksutil::db {
namespace {

constexpr long kMaxReservedIds = 10'000'000;

/* The greatest id of the counter that any table uses; false with a message. */
bool greatest_in_use(Database &database, const std::string &counter,
                     std::int64_t &greatest) {
  greatest = 0;
  for (const Schema::CounterUse &use : database.schema().counter_uses(counter)) {
    TableSource *const table = database.table(use.table);
    if (table == nullptr) continue;
    /* A row that was not seen may hold a greater id. */
    const bool seen = read_settled(
        [&] { return table->look("dbnextid"); },
        [&](const std::shared_ptr<const Snapshot> &rows) {
          greatest = std::max(
              greatest, database.greatest_ids().follow(use.table, use.field, rows));
        });
    if (!seen) return false;
  }
  return true;
}

/* The row of the counter with the greatest value; -1 when it has none. */
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

/* Raises the counter by `count`, with the table of counters locked, and gives the first
 * of the new ids.  False with a message. */
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

long next_ids(Database &database, const char *key, long count) {
  if (key == nullptr || *key == '\0') return fail("dbnextid", "no counter is named");
  if (count < 1 || count > kMaxReservedIds) {
    return fail("dbnextid", "cannot reserve %ld ids", count);
  }
  TableSource *const lastid = database.table("lastid");
  if (lastid == nullptr) {
    return fail("dbnextid", "schema %s has no table lastid",
                database.schema().name().c_str());
  }
  std::int64_t id = -1;
  const bool counted =
      lastid->exclusively("dbnextid", [&](TableStore::Exclusive &locked) {
        return count_on(database, *lastid, locked, key, count, id);
      });
  if (counted) return static_cast<long>(id);
  return fail("dbnextid", "no next id of counter '%s'", key);
}

}  // namespace ksutil::db
