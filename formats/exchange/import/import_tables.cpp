#include "formats/exchange/import/import_tables.h"

#include "formats/exchange/import/column_values.h"

#include <algorithm>

#include "formats/exchange/import/event_rows.h"
#include "formats/exchange/import/gathering.h"
#include "formats/exchange/import/last_id.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

struct TableName {
  const char *name;
  bool required;
  /* Null: taken whatever the events have. */
  bool Needs::*need;
};
constexpr std::array<TableName, kTableCount> kNames{
    {{"lastid", true, nullptr},
     {"remark", false, nullptr},
     {"network", false, &Needs::networks},
     {"affiliation", false, &Needs::networks},
     {"seedcode", false, &Needs::networks},
     {"arrival", false, &Needs::picks},
     {"assoc", false, &Needs::associations},
     {"stamag", false, &Needs::station_magnitudes},
     {"netmag", true, nullptr},
     {"mt", false, &Needs::tensors},
     {"origerr", true, nullptr},
     {"origin", true, nullptr},
     {"publicid", false, nullptr},
     {"event", true, nullptr}}};

constexpr std::array<const char *, kIdKeyCount> kIdKeys{"evid", "orid", "magid",
                                                        "mtid", "arid", "commid"};

struct KeyFields {
  Table table;
  std::array<const char *, 5> fields;
};
constexpr std::array<KeyFields, static_cast<std::size_t>(RowKey::kCount)> kKeyFields{
    {{kArrival, {"sta", "chan", "time", "iphase", "auth"}},
     {kAssoc, {"arid", "orid"}},
     {kStamag, {"magid", "orid", "sta", "magtype"}},
     {kOrigin, {"evid", "auth"}},
     {kSeedcode, {"net", "seedsta", "seedchan", "loc"}},
     {kSeedcode, {"sta", "chan"}},
     {kAffiliation, {"net", "sta"}},
     {kNetwork, {"net"}}}};

std::uint64_t public_hash(std::string_view key, std::string_view text) {
  return hash_of(text) * 31 + hash_of(key);
}

std::string_view text_of(const db::TextColumn &column, std::string_view row) {
  std::string_view value;
  return column.read(row, value) ? value : std::string_view();
}

}  // namespace

std::vector<std::string> ImportTables::names(db::DatabaseStore &store,
                                             const Needs &needs) {
  std::vector<std::string> names;
  for (const TableName &table : kNames) {
    if (table.need != nullptr && !(needs.*table.need)) continue;
    if (store.schema()->find(table.name) != nullptr) {
      names.push_back(table.name);
    } else if (table.required) {
      elog_log(0, "import: the schema %s has no table %s.\n",
               store.schema()->name().c_str(), table.name);
      return {};
    }
  }
  return names;
}

ImportTables::ImportTables(db::DatabaseStore &store, db::Transaction &step,
                           const std::vector<std::string> &names, const Needs &needs)
    : store_(store), step_(step), needs_(needs) {
  for (std::size_t table = 0; table < kTableCount; table++) {
    const auto place = std::find(names.begin(), names.end(), kNames[table].name);
    places_[table] = place == names.end()
                         ? kAbsent
                         : static_cast<std::size_t>(place - names.begin());
  }
}

bool ImportTables::open() {
  for (std::size_t table = 0; table < kTableCount; table++) {
    if (places_[table] == kAbsent) continue;
    snapshots_[table] = step_.snapshot(places_[table]);
    if (snapshots_[table] == nullptr) return false;
    null_rows_[table] = db::null_record(layout(static_cast<Table>(table)));
  }
  const bool good = index_by(rows(kEvent), "evid", by_evid_) &&
                    index_by(rows(kOrigin), "orid", by_orid_) &&
                    index_by(rows(kOrigerr), "orid", errors_) &&
                    index_by(rows(kNetmag), "orid", magnitudes_) &&
                    (!has(kMt) || index_by(rows(kMt), "orid", tensors_)) &&
                    (!has(kRemark) || index_by(rows(kRemark), "commid", remarks_)) &&
                    index_details();
  if (!good) return false;
  if (has(kPublicid)) index_public_ids();
  index_names();
  index_orphans();
  return rows(kEvent).complete() && rows(kOrigin).complete() &&
         (!has(kPublicid) || rows(kPublicid).complete());
}

/* What only some inputs ask for. */
bool ImportTables::index_details() {
  return (!needs_.magnitude_ids || index_by(rows(kNetmag), "magid", by_magid_)) &&
         (!has(kMt) || index_by(rows(kMt), "mtid", by_mtid_)) &&
         (!has(kArrival) || index_by(rows(kArrival), "arid", by_arid_)) &&
         (!has(kArrival) || !needs_.bare_picks || index_keys(RowKey::kArrival)) &&
         (!has(kAssoc) || index_keys(RowKey::kAssoc)) &&
         (!has(kStamag) || index_keys(RowKey::kStamag)) &&
         (!needs_.bare_origins || index_keys(RowKey::kOrigin)) &&
         (!has(kSeedcode) ||
          (index_keys(RowKey::kSeedName) && index_keys(RowKey::kChannel))) &&
         (!has(kAffiliation) || index_keys(RowKey::kAffiliation)) &&
         (!has(kNetwork) || index_keys(RowKey::kNetwork));
}

bool ImportTables::index_keys(RowKey key) {
  const db::Snapshot &table = rows(kKeyFields[static_cast<std::size_t>(key)].table);
  RowIndex &index = keyed_[static_cast<std::size_t>(key)];
  for (long row = 0; row < table.count(); row++) {
    const std::string_view record = table.row(row);
    if (!record.empty()) index.add(key_of(key, record), row);
  }
  index.settle();
  return table.complete();
}

/* Of the texts as they are stored.  Blanks at either end do not count, since other programs
 * may set them otherwise, and a null is a blank.  Never 0. */
std::uint64_t ImportTables::key_of(RowKey key, std::string_view row) const {
  const KeyFields &fields = kKeyFields[static_cast<std::size_t>(key)];
  std::uint64_t value = 1;
  for (const char *name : fields.fields) {
    if (name == nullptr) break;
    const db::Field *field = layout(fields.table).find(name);
    if (field == nullptr) continue;
    const auto from = static_cast<std::size_t>(field->offset);
    if (row.size() < from) continue;
    std::string_view text =
        trimmed(row.substr(from, static_cast<std::size_t>(field->width)));
    if (text == field->null_text) text = {};
    value = value * 31 + hash_of(text);
  }
  return value == 0 ? 1 : value;
}

int ImportTables::width(Table table, std::string_view field) const {
  const db::Field *found = layout(table).find(field);
  return found == nullptr ? 0 : found->width;
}

void ImportTables::index_public_ids() {
  const db::Snapshot &table = rows(kPublicid);
  const db::TextColumn text(table.layout(), "textid"), key(table.layout(), "tagname");
  const db::IntegerColumn id(table.layout(), "tagid");
  for (long row = 0; row < table.count(); row++) {
    const std::string_view record = table.row(row);
    if (record.empty()) continue;
    const std::string_view name = text_of(key, record);
    public_ids_.add(public_hash(name, text_of(text, record)), row);
    if (name != "orid") continue;
    named_orids_.add(static_cast<std::uint64_t>(integer_of(id, record)), row);
  }
  public_ids_.settle();
  named_orids_.settle();
}

std::int64_t ImportTables::public_id(std::string_view key,
                                     const std::string &id) const {
  if (!has(kPublicid)) return -1;
  const db::Snapshot &table = rows(kPublicid);
  const db::TextColumn text(table.layout(), "textid"), name(table.layout(), "tagname");
  const std::string wanted = public_text(id, width(kPublicid, "textid"));
  for (const RowIndex::Item item : public_ids_.find(public_hash(key, wanted))) {
    const std::string_view record = table.row(item.row);
    if (text_of(text, record) == wanted && text_of(name, record) == key) {
      return integer_of(db::IntegerColumn(table.layout(), "tagid"), record);
    }
  }
  return -1;
}

void ImportTables::index_names() {
  if (has(kPublicid)) {
    const db::Snapshot &table = rows(kPublicid);
    const db::TextColumn key(table.layout(), "tagname");
    const db::IntegerColumn id(table.layout(), "tagid");
    for (long row = 0; row < table.count(); row++) {
      const std::string_view record = table.row(row);
      if (record.empty() || text_of(key, record) != "evid") continue;
      named_evids_.add(static_cast<std::uint64_t>(integer_of(id, record)), row);
    }
    named_evids_.settle();
  }
  const db::Snapshot &table = rows(kEvent);
  const db::TextColumn name(table.layout(), "evname");
  const db::IntegerColumn evid(table.layout(), "evid");
  for (long row = 0; row < table.count(); row++) {
    const std::string_view record = table.row(row);
    if (record.empty() || named_evids_.first(integer_of(evid, record)) >= 0) continue;
    const std::string_view text = text_of(name, record);
    if (!name.is_null(text)) named_.add(hash_of(text), row);
  }
  named_.settle();
}

std::int64_t ImportTables::named_event(const std::string &id) const {
  const std::string wanted = event_name(id, width(kEvent, "evname"));
  const db::TextColumn name(rows(kEvent).layout(), "evname");
  for (const RowIndex::Item item : named_.find(hash_of(wanted))) {
    if (text_of(name, rows(kEvent).row(item.row)) == wanted) return item.row;
  }
  return -1;
}

std::uint64_t ImportTables::place_key(std::string_view origin_row) const {
  std::uint64_t key = 0;
  for (const char *name : {"lat", "lon", "depth", "time"}) {
    const db::Field *field = layout(kOrigin).find(name);
    if (field == nullptr) continue;
    key = key * 31 + hash_of(origin_row.substr(static_cast<std::size_t>(field->offset),
                                               static_cast<std::size_t>(field->width)));
  }
  return key;
}

void ImportTables::index_orphans() {
  const db::Snapshot &table = rows(kOrigin);
  const db::IntegerColumn evid(table.layout(), "evid");
  for (long row = 0; row < table.count(); row++) {
    const std::string_view record = table.row(row);
    if (record.empty()) continue;
    const std::int64_t id = integer_of(evid, record);
    if (id != evid.null() && !is_named(id)) orphans_.add(place_key(record), row);
  }
  orphans_.settle();
}

/* Whether an event is there and says which one it is, by a public id or a name.  Rows that
 * were made up for origins without event (ksdb verify --fix) do not. */
bool ImportTables::is_named(std::int64_t evid) const {
  const long record = event_of(evid);
  if (record < 0) return false;
  if (named_evids_.first(evid) >= 0) return true;
  const db::TextColumn name(rows(kEvent).layout(), "evname");
  return !name.is_null(text_of(name, rows(kEvent).row(record)));
}

std::int64_t ImportTables::orphan_like(std::string_view origin_row) const {
  const auto found = orphans_.find(place_key(origin_row));
  return found.empty() ? -1 : found.front().row;
}

bool ImportTables::start_counter(const char *key, Counter &counter) {
  const auto own = [this](const std::string &name) {
    std::shared_ptr<const db::Snapshot> table;
    for (std::size_t i = 0; i < kTableCount; i++) {
      if (has(static_cast<Table>(i)) && name == kNames[i].name) table = snapshots_[i];
    }
    return table;
  };
  LastId last;
  if (!find_last_id(store_, rows(kLastid), key, own, last)) return false;
  counter.record = last.record;
  counter.next = last.value + 1;
  return true;
}

std::int64_t ImportTables::take_id(IdKey key) {
  Counter &counter = counters_[key];
  if (counter.next < 0 && !start_counter(kIdKeys[key], counter)) return -1;
  counter.used = true;
  return counter.next++;
}

bool ImportTables::write_counters(double now) {
  for (std::size_t key = 0; key < kIdKeyCount; key++) {
    const Counter &counter = counters_[key];
    if (!counter.used) continue;
    std::string row = counter.record < 0
                          ? null_row(kLastid)
                          : std::string(rows(kLastid).row(counter.record));
    FillReport report;
    RowPut(layout(kLastid), row, report)
        .put("keyname", std::string_view(kIdKeys[key]))
        .put("keyvalue", counter.next - 1)
        .put("lddate", now);
    if (!report.refused.empty()) {
      elog_log(0, "import: %s.\n", report.refused.c_str());
      return false;
    }
    if (!(counter.record < 0 ? add(kLastid, row)
                             : change(kLastid, counter.record, row)))
      return false;
  }
  return true;
}

}  // namespace ksutil::exchange
