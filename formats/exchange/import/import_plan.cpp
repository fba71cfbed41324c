#include "formats/exchange/import/import_plan.h"

#include <algorithm>
#include <cmath>

#include "formats/exchange/import/gathering.h"
#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "platform/geo/geo.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

/* Whether a place is in a list of this origin of the event. */
bool is_list_of(const Event &event, const Origin &origin, const ListPlace &place) {
  return place.origin >= 0 && place.origin == &origin - event.origins.data();
}

}  // namespace

std::int64_t ImportPlan::find(const Event &event, bool &by_alias) const {
  by_alias = false;
  std::int64_t record = find_id(event.id);
  if (record >= 0) return record;
  for (const std::string &alias : event.aliases) {
    record = find_id(alias);
    by_alias = record >= 0 && is_near(event, record);
    if (by_alias) return record;
  }
  return -1;
}

std::int64_t ImportPlan::find_id(const std::string &id) const {
  const std::int64_t evid = tables_.public_id("evid", id);
  const std::int64_t record = evid < 0 ? -1 : tables_.event_of(evid);
  return record >= 0 ? record : tables_.named_event(id);
}

bool ImportPlan::is_near(const Event &event, std::int64_t record) const {
  constexpr double kMostSeconds = 300.0, kMostDegrees = 10.0;
  const std::int64_t origin =
      tables_.origin_of(integer(kEvent, "prefor", row_of(kEvent, record)));
  if (origin < 0) return false;
  const std::string row = row_of(kOrigin, origin);
  double time = 0.0, lat = 0.0, lon = 0.0;
  const db::Relation &layout = tables_.layout(kOrigin);
  if (!db::RealColumn(layout, "time").read(row, time) ||
      !db::RealColumn(layout, "lat").read(row, lat) ||
      !db::RealColumn(layout, "lon").read(row, lon)) {
    return false;
  }
  const Origin &own = preferred_origin(event);
  return std::abs(time - own.time) <= kMostSeconds &&
         distance_degrees(lat, lon, own.lat, own.lon) <= kMostDegrees;
}

std::string ImportPlan::row_of(Table table, std::int64_t record) const {
  return record < 0 ? tables_.null_row(table)
                    : std::string(tables_.rows(table).row(record));
}

std::int64_t ImportPlan::integer(Table table, std::string_view field,
                                 std::string_view row) const {
  const db::IntegerColumn column(tables_.layout(table), field);
  std::int64_t value = column.null();
  return column.read(row, value) ? value : column.null();
}

std::string ImportPlan::as_stored(Table table, std::string_view field,
                                  std::string_view text) const {
  std::string row = tables_.null_row(table);
  FillReport ignored;
  RowPut(tables_.layout(table), row, ignored).lenient().put(field, text);
  const db::TextColumn column(tables_.layout(table), field);
  std::string_view stored;
  return column.read(row, stored) && !column.is_null(stored) ? std::string(stored) : "";
}

bool ImportPlan::take(IdKey key, std::int64_t &id) {
  id = tables_.take_id(key);
  return id >= 0;
}

/* Whether rows are equal apart from one field. */
bool ImportPlan::same_but(std::string_view field, Table table, std::string_view a,
                          std::string_view b) const {
  const db::Field *found = tables_.layout(table).find(field);
  if (found == nullptr || a.size() != b.size()) return a == b;
  const auto from = static_cast<std::size_t>(found->offset);
  const std::size_t to = from + static_cast<std::size_t>(found->width);
  return a.substr(0, from) == b.substr(0, from) && a.substr(to) == b.substr(to);
}

/* Whether rows are equal apart from their load dates and comments. */
bool ImportPlan::same_solution(Table table, std::string row,
                               std::string_view before) const {
  const db::Field *commid = tables_.layout(table).find("commid");
  if (commid != nullptr && row.size() == before.size()) {
    const auto from = static_cast<std::size_t>(commid->offset);
    const auto width = static_cast<std::size_t>(commid->width);
    row.replace(from, width, before.substr(from, width));
  }
  return same_but("lddate", table, row, before);
}

/* A row without an update time of its own is stamped with the time of the import, but an
 * import that changes nothing else does not change the stamp. */
void ImportPlan::set(Table table, std::int64_t record, std::string row) {
  const bool stored = record >= 0;
  if (stored && adding_only_) return;
  const std::string_view before = stored ? tables_.rows(table).row(record) : "";
  if (updated_ != 0.0) {
    RowPut(tables_.layout(table), row, report_).put("lddate", updated_);
    if (stored && row == before) return;
  }
  const bool same = stored && same_but("lddate", table, row, before);
  if (updated_ == 0.0) {
    if (same) return;
    RowPut(tables_.layout(table), row, report_).put("lddate", now_);
  }
  changed_ = true;
  const bool of_solution =
      table == kOrigin || table == kOrigerr || table == kNetmag || table == kMt;
  differs_ = differs_ || (of_solution && !same_solution(table, row, before));
  pending_.push_back({table, record, std::move(row)});
}

ImportPlan::Result ImportPlan::import(const Event &event, std::int64_t record) {
  updated_ = event.updated;
  pending_.clear();
  met_.clear();
  changed_ = differs_ = adding_only_ = false;
  preferred_ = PreferredIds();
  report_ = FillReport();
  const ImportTables::Counters counters = tables_.counters();
  const ImportCounts counts = counts_;
  const int mark = elog_mark();
  if (!plan(event, record)) return Result::kFailed;
  if (!report_.refused.empty()) {
    elog_flush(0, mark);
    tables_.return_to(counters);
    counts_ = counts;
    codes_.forget();
    return Result::kRefused;
  }
  counts_.shortened += report_.shortened;
  counts_.cut_fields.add(report_.cut_fields);
  counts_.without_place.add(report_.left_out);
  codes_.keep();
  for (const auto &[key, id] : met_) ids_.put(key, id);
  return write() ? Result::kDone : Result::kFailed;
}

bool ImportPlan::write() {
  for (const Pending &pending : pending_) {
    const bool written =
        pending.record < 0 ? tables_.add(pending.table, pending.row)
                           : tables_.change(pending.table, pending.record, pending.row);
    if (!written) return false;
  }
  return true;
}

bool ImportPlan::plan(const Event &event, std::int64_t record) {
  std::string row = row_of(kEvent, record);
  std::int64_t evid = -1, prefor = -1;
  bool healed = false;
  if (event.id == "-") {
    report_.refused = "the event's id is '-', which means that there is none";
    return true;
  }
  if (record >= 0) {
    evid = integer(kEvent, "evid", row);
    prefor = integer(kEvent, "prefor", row);
    double loaded = 0.0;
    const db::RealColumn lddate(tables_.layout(kEvent), "lddate");
    if (event.updated != 0.0 && lddate.read(row, loaded) &&
        loaded > event.updated + 1e-5) {
      adding_only_ = has_news(event);
      if (!adding_only_) {
        counts_.older++;
        return true;
      }
    }
  } else {
    healed = find_orphan(event, evid, prefor);
    if (!healed && !take(kEvid, evid)) return false;
    if (healed) {
      record = tables_.event_of(evid);  // a row without a name, or none
      row = row_of(kEvent, record);
    }
  }

  const std::int64_t kept_before = counts_.kept;
  if (!plan_picks(event) || !plan_origins(event, evid, healed, prefor)) return false;

  if (adding_only_) {
    counts_.updated++;
    return true;
  }
  std::int64_t commid = integer(kEvent, "commid", row);
  if (!plan_remarks(event_remarks(event, preferred_, remark_width()), commid)) {
    return false;
  }
  RowPut put(tables_.layout(kEvent), row, report_);
  put.put("evid", evid);
  if (record < 0 || healed) {
    const std::string name =
        event.name.empty() || !tables_.has(kPublicid)
            ? event_name(event.id, tables_.width(kEvent, "evname"))
            : fitted_id(event.name, tables_.width(kEvent, "evname"), 0);
    put.put("evname", std::string_view(name));
  }
  put.put("prefor", prefor)
      .put("auth", std::string_view(event.author))
      .put("commid", commid);
  set(kEvent, record, std::move(row));
  const bool changed_rows = changed_;
  if (!plan_public_id("evid", event.id, evid) || !plan_aliases(event, evid))
    return false;

  if (record < 0 || healed) {
    counts_.added++;
    counts_.healed += healed ? 1 : 0;
    counts_.kept = kept_before;
  } else {
    (changed_rows ? counts_.updated : counts_.unchanged)++;
  }
  return true;
}

bool ImportPlan::has_news(const Event &event) const {
  const auto is_new = [this](const char *key, const std::string &id) {
    if (id.empty()) return false;
    const Known known = known_id(key, id);
    return !known.now && known.id < 0;
  };
  return std::any_of(event.origins.begin(), event.origins.end(), [&](const Origin &o) {
    return is_new("orid", o.id) ||
           std::any_of(o.magnitudes.begin(), o.magnitudes.end(),
                       [&](const Magnitude &m) { return is_new("magid", m.id); }) ||
           std::any_of(o.tensors.begin(), o.tensors.end(),
                       [&](const MomentTensor &t) { return is_new("mtid", t.id); });
  });
}

bool ImportPlan::place_origin(const Event &event, std::size_t i, std::int64_t prefor,
                              Place &place) {
  const Origin &origin = event.origins[i];
  place.orid = -1;
  if (!origin.id.empty()) {
    const Known known = known_id("orid", origin.id);
    if (known.now) return false;
    place.orid = known.id;
    const std::int64_t record = tables_.origin_of(place.orid);
    if (place.orid >= 0 && record >= 0) {
      const std::int64_t owner = integer(kOrigin, "evid", row_of(kOrigin, record));
      if (owner != place.evid && tables_.event_of(owner) >= 0) return false;
    }
  } else if (event.origins.size() > 1) {
    /* The next of its author that is no other's. */
    std::string row = tables_.null_row(kOrigin);
    FillReport ignored;
    RowPut(tables_.layout(kOrigin), row, ignored)
        .lenient()
        .put("evid", place.evid)
        .put("auth", std::string_view(origin.author));
    const std::uint64_t key = tables_.key_of(RowKey::kOrigin, row);
    const auto rows = tables_.rows_with(RowKey::kOrigin, key);
    for (std::size_t &at = seen_[key]; place.orid < 0 && at < rows.size(); at++) {
      const std::int64_t orid = integer(kOrigin, "orid", row_of(kOrigin, rows[at].row));
      if (!placed_.contains(orid)) place.orid = orid;
    }
  }
  /* The one that the event has had without an id may be the one that now has one. */
  const bool unnamed =
      origin.id.empty() ? event.origins.size() == 1 : !tables_.is_public_origin(prefor);
  if (place.orid < 0 && i == event.preferred && !adding_only_ && unnamed &&
      !placed_.contains(prefor)) {
    place.orid = prefor;
  }
  place.fresh = place.orid < 0 || tables_.origin_of(place.orid) < 0;
  return true;
}

bool ImportPlan::plan_origins(const Event &event, std::int64_t evid, bool healed,
                              std::int64_t &prefor) {
  const std::int64_t earlier = prefor;
  std::int64_t first = -1;
  bool preferred = false, kept = false;
  seen_.clear();
  placed_.clear();
  for (const Origin &origin : event.origins) {
    if (!origin.id.empty()) placed_.insert(known_id("orid", origin.id).id);
  }
  for (std::size_t i = 0; i < event.origins.size(); i++) {
    const Origin &origin = event.origins[i];
    Place place{evid, -1, true};
    if (!place_origin(event, i, earlier, place)) {
      report_.left_out.add("an origin that another event has");
      continue;
    }
    if (adding_only_ && origin.id.empty()) continue;
    if (place.orid < 0 && !take(kOrid, place.orid)) return false;

    const std::size_t planned = pending_.size();
    const bool changed = changed_, differed = differs_;
    const ImportTables::Counters counters = tables_.counters();
    const bool may_keep = options_.keep_origins && !place.fresh && !healed &&
                          origin.id.empty() && event.origins.size() == 1;
    const auto met = may_keep ? met_ : decltype(met_)();
    const FillReport report = may_keep ? report_ : FillReport();
    differs_ = false;
    if (!plan_origin(event, origin, place)) return false;
    if (may_keep && differs_) {
      pending_.resize(planned, Pending{});
      changed_ = changed;
      tables_.return_to(counters);
      met_ = met;
      report_ = report;
      kept = true;
      place.fresh = true;
      if (!take(kOrid, place.orid) || !plan_origin(event, origin, place)) return false;
    }
    differs_ = differs_ || differed;
    if (!plan_public_id("orid", origin.id, place.orid)) return false;
    placed_.insert(place.orid);
    if (first < 0) first = place.orid;
    if (i != event.preferred) continue;
    preferred = true;
    prefor = place.orid;
  }
  if (first < 0 && report_.refused.empty()) {
    report_.refused = "another event has all of its origins";
  }
  if (!preferred && prefor < 0) prefor = first;
  counts_.kept += kept ? 1 : 0;
  return true;
}

bool ImportPlan::find_orphan(const Event &event, std::int64_t &evid,
                             std::int64_t &orid) const {
  if (!tables_.has_orphans()) return false;
  std::string probe = tables_.null_row(kOrigin);
  FillReport ignored;
  fill_origin(event, preferred_origin(event), {}, {},
              RowPut(tables_.layout(kOrigin), probe, ignored));
  const std::int64_t orphan = tables_.orphan_like(probe);
  if (orphan < 0) return false;
  const std::string origin = row_of(kOrigin, orphan);
  evid = integer(kOrigin, "evid", origin);
  orid = integer(kOrigin, "orid", origin);
  return true;
}

bool ImportPlan::plan_origin(const Event &event, const Origin &origin, Place place) {
  OriginMagnitudes own;
  if (!plan_magnitudes(event, origin, place, own)) return false;
  if (adding_only_ && !place.fresh) return true;
  plan_station_magnitudes(origin, place);
  plan_associations(origin, place);
  const std::int64_t record = place.fresh ? -1 : tables_.origin_of(place.orid);
  std::string row = row_of(kOrigin, record);
  std::int64_t commid = integer(kOrigin, "commid", row);
  if (!plan_remarks(origin_remarks(origin, remark_width()), commid)) return false;
  RowIds ids;
  ids.evid = place.evid;
  ids.orid = place.orid;
  RowPut put(tables_.layout(kOrigin), row, report_);
  fill_origin(event, origin, ids, own, put);
  put.put("commid", commid);
  set(kOrigin, record, std::move(row));
  if (!has_errors(origin)) return true;
  const std::int64_t errors = place.fresh ? -1 : tables_.origerr_of(place.orid);
  row = row_of(kOrigerr, errors);
  commid = integer(kOrigerr, "commid", row);
  if (!plan_remarks(origerr_remarks(origin), commid)) return false;
  RowPut error_put(tables_.layout(kOrigerr), row, report_);
  fill_origerr(origin, ids, error_put);
  error_put.put("commid", commid);
  set(kOrigerr, errors, std::move(row));
  return true;
}

/* The row of a magnitude: the one of its id, else one of its type, else, for the only
 * magnitude of an origin, the first row whatever its type; -1: a new one. */
std::int64_t ImportPlan::netmag_of(const Magnitude &magnitude, std::int64_t known,
                                   std::size_t count, Place place,
                                   const std::vector<std::int64_t> &taken) const {
  if (known >= 0) return tables_.netmag_of(known);
  if (place.fresh) return -1;
  const std::string type = lowered(as_stored(kNetmag, "magtype", magnitude.type));
  const db::TextColumn magtype(tables_.layout(kNetmag), "magtype");
  std::int64_t same_type = -1, first = -1;
  for (const RowIndex::Item item : tables_.netmags_of(place.orid)) {
    if (std::find(taken.begin(), taken.end(), item.row) != taken.end()) continue;
    const std::string_view row = tables_.rows(kNetmag).row(item.row);
    std::string_view text;
    if (same_type < 0 && magtype.read(row, text) &&
        (magtype.is_null(text) ? type.empty() : lowered(text) == type)) {
      same_type = item.row;
    }
    if (first < 0) first = item.row;
  }
  return same_type < 0 && count == 1 ? first : same_type;
}

bool ImportPlan::plan_magnitudes(const Event &event, const Origin &origin, Place place,
                                 OriginMagnitudes &own) {
  std::vector<std::int64_t> taken;
  std::int64_t mw = -1;
  magids_.assign(origin.magnitudes.size(), -1);
  const bool preferred = &origin == &preferred_origin(event);
  for (std::size_t i = 0; i < origin.magnitudes.size(); i++) {
    const Magnitude &magnitude = origin.magnitudes[i];
    const Known known = own_id("magid", magnitude.id);
    if (adding_only_ && !place.fresh &&
        (known.now || known.id >= 0 || magnitude.id.empty())) {
      magids_[i] = known.id;
      continue;
    }
    const std::int64_t record =
        netmag_of(magnitude, known.id, origin.magnitudes.size(), place, taken);
    taken.push_back(record);
    std::string row = row_of(kNetmag, record);
    RowIds ids;
    ids.evid = place.evid;
    ids.orid = place.orid;
    ids.magid = record < 0 ? known.id : integer(kNetmag, "magid", row);
    if (ids.magid < 0 && !take(kMagid, ids.magid)) return false;
    std::int64_t commid = integer(kNetmag, "commid", row);
    if (!plan_remarks(comment_lines(magnitude.comments, remark_width()), commid)) {
      return false;
    }
    RowPut put(tables_.layout(kNetmag), row, report_);
    fill_netmag(magnitude, ids, put);
    put.put("commid", commid);
    set(kNetmag, record, std::move(row));
    magids_[i] = ids.magid;
    if (lowered(magnitude.type).starts_with("mw")) mw = ids.magid;
    if (!known.now && !plan_public_id("magid", magnitude.id, ids.magid)) return false;
  }
  /* The one that the event names comes before others of its type. */
  const auto named = static_cast<std::size_t>(event.preferred_magnitude);
  if (preferred && named < magids_.size() && magids_[named] >= 0) {
    preferred_.magid = magids_[named];
    choose_magnitude(origin.magnitudes[named], magids_[named], own);
  }
  const auto distant = static_cast<std::size_t>(event.distant_magnitude.index);
  if (is_list_of(event, origin, event.distant_magnitude) && distant < magids_.size()) {
    preferred_.magid = magids_[distant];
  }
  for (std::size_t i = 0; i < magids_.size(); i++) {
    if (magids_[i] >= 0) choose_magnitude(origin.magnitudes[i], magids_[i], own);
  }
  return plan_tensors(event, origin, place, mw);
}

/* A tensor without an id is the next one of its author. */
bool ImportPlan::plan_tensors(const Event &event, const Origin &origin, Place place,
                              std::int64_t magid) {
  if (origin.tensors.empty()) return true;
  if (!tables_.has(kMt)) {
    report_.left_out.add("a moment tensor: the schema has no table mt");
    return true;
  }
  const db::TextColumn auth(tables_.layout(kMt), "auth");
  std::vector<std::int64_t> taken;
  for (const MomentTensor &tensor : origin.tensors) {
    const Known known = own_id("mtid", tensor.id);
    if (adding_only_ && !place.fresh &&
        (known.now || known.id >= 0 || tensor.id.empty())) {
      continue;
    }
    std::int64_t record = known.id >= 0 ? tables_.mt_of(known.id) : -1;
    if ((tensor.id.empty() || known.now) && !place.fresh) {
      const std::string own_author = as_stored(kMt, "auth", tensor.author);
      for (const RowIndex::Item item : tables_.mts_of(place.orid)) {
        std::string_view author;
        if (std::find(taken.begin(), taken.end(), item.row) != taken.end()) continue;
        if (!auth.read(tables_.rows(kMt).row(item.row), author)) continue;
        if (auth.is_null(author)) author = {};
        if (author != own_author) continue;
        record = item.row;
        break;
      }
    }
    if (record >= 0) taken.push_back(record);
    std::string row = row_of(kMt, record);
    RowIds ids;
    ids.evid = place.evid;
    ids.orid = place.orid;
    const auto own = static_cast<std::size_t>(tensor.magnitude);
    ids.magid = own < magids_.size() ? magids_[own] : magid;
    ids.mtid = record < 0 ? known.id : integer(kMt, "mtid", row);
    if (ids.mtid < 0 && !take(kMtid, ids.mtid)) return false;
    std::int64_t commid = integer(kMt, "commid", row);
    if (!plan_remarks(comment_lines(tensor.comments, remark_width()), commid)) {
      return false;
    }
    RowPut put(tables_.layout(kMt), row, report_);
    fill_mt(tensor, ids, put);
    put.put("commid", commid);
    set(kMt, record, std::move(row));
    if (is_list_of(event, origin, event.preferred_tensor) &&
        event.preferred_tensor.index == &tensor - origin.tensors.data()) {
      preferred_.mtid = ids.mtid;
    }
    if (!known.now && !plan_public_id("mtid", tensor.id, ids.mtid)) return false;
  }
  return true;
}

}  // namespace ksutil::exchange
