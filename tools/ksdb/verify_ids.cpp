#include "tools/ksdb/verify_ids.h"

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace ksutil::tools {

void verify_ids(const db::Snapshot &rows, const Report &report) {
  const std::string &field = rows.layout().id_field;
  TextNumbers texts;
  const IdReader reader(rows.layout(), field, texts);
  if (field.empty() || !reader.valid()) return;
  std::vector<std::int64_t> ids;
  std::int64_t id = 0;
  each_row(rows, [&](long, std::string_view row) {
    if (reader.read(row, id)) ids.push_back(id);
  });
  std::sort(ids.begin(), ids.end());
  std::unordered_map<std::int64_t, long> first;  // of each id that is repeated
  for (std::size_t i = 1; i < ids.size(); i++) {
    if (ids[i] == ids[i - 1]) first.try_emplace(ids[i], -1);
  }
  if (first.empty()) return;
  each_row(rows, [&](long i, std::string_view row) {
    if (!reader.read(row, id)) return;
    const auto repeated = first.find(id);
    if (repeated == first.end()) return;
    if (repeated->second < 0) {
      repeated->second = i;
    } else {
      report("repeated ids", i,
             field + " " + texts.text(id) + " is that of record " +
                 std::to_string(repeated->second));
    }
  });
}

const IdSet &ReferenceVerifier::ids_of(const db::Snapshot &rows,
                                       const std::string &field) {
  const auto [place, fresh] = ids_.try_emplace({rows.layout().name, field});
  IdSet &ids = place->second;
  const IdReader reader(rows.layout(), field, texts_);
  if (!fresh || !reader.valid()) return ids;
  std::int64_t id = 0;
  each_row(rows, [&](long, std::string_view row) {
    if (reader.read(row, id)) ids.add(id);
  });
  ids.settle();
  return ids;
}

void ReferenceVerifier::verify(const db::Snapshot &rows, const Report &report) {
  for (const db::ForeignKey &key : rows.layout().foreign) {
    const auto target = tables_.find(key.table);
    const IdReader reader(rows.layout(), key.field, texts_);
    if (target == tables_.end() || !reader.valid()) continue;
    const IdSet &known = ids_of(*target->second, key.table_field);
    std::int64_t id = 0;
    each_row(rows, [&](long i, std::string_view row) {
      if (!reader.read(row, id) || known.contains(id)) return;
      report("dangling references", i,
             key.field + " " + texts_.text(id) + " is not in " + key.table);
    });
  }
}

void verify_preferred_origins(const Tables &tables, const Report &report) {
  struct OriginOfEvent {
    std::int64_t orid, evid;
    bool known;  // false: the row has no evid that can be read
  };
  const auto event = tables.find("event"), origin = tables.find("origin");
  if (event == tables.end() || origin == tables.end()) return;
  const db::Snapshot &events = *event->second, &origins = *origin->second;
  TextNumbers texts;
  const IdReader origin_orid(origins.layout(), "orid", texts),
      origin_evid(origins.layout(), "evid", texts);
  const IdReader event_prefor(events.layout(), "prefor", texts),
      event_evid(events.layout(), "evid", texts);
  if (!origin_orid.valid() || !event_prefor.valid() || !event_evid.valid()) return;
  std::vector<OriginOfEvent> owners;
  each_row(origins, [&](long, std::string_view row) {
    OriginOfEvent owner{};
    if (!origin_orid.read(row, owner.orid)) return;
    owner.known = origin_evid.valid() && origin_evid.read(row, owner.evid);
    owners.push_back(owner);
  });
  const auto before = [](const OriginOfEvent &a, const OriginOfEvent &b) {
    return a.orid < b.orid;
  };
  std::stable_sort(owners.begin(), owners.end(), before);
  each_row(events, [&](long i, std::string_view row) {
    OriginOfEvent wanted{};
    if (!event_prefor.read(row, wanted.orid) || !event_evid.read(row, wanted.evid)) {
      return;
    }
    /* Of several origins with the id the last one counts. */
    const auto end = std::upper_bound(owners.begin(), owners.end(), wanted, before);
    if (end == owners.begin() || end[-1].orid != wanted.orid) return;
    const OriginOfEvent &owner = end[-1];
    if (owner.known && owner.evid == wanted.evid) return;
    report("foreign preferred origins", i,
           "prefor " + texts.text(wanted.orid) + " belongs to evid " +
               (owner.known ? texts.text(owner.evid) : "-") + ", not to " +
               texts.text(wanted.evid));
  });
}

}  // namespace ksutil::tools
