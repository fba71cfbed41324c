#include "formats/exchange/import/import_plan.h"

#include <algorithm>

#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {

std::int64_t ImportPlan::find(const std::string &id) const {
  const std::int64_t evid = tables_.public_id("evid", id);
  const std::int64_t record = evid < 0 ? -1 : tables_.event_of(evid);
  return record >= 0 ? record : tables_.named_event(id);
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
  changed_ = differs_ = false;
  report_ = FillReport();
  const ImportTables::Counters counters = tables_.counters();
  const ImportCounts counts = counts_;
  const int mark = elog_mark();
  if (!plan(event, record)) return Result::kFailed;
  if (!report_.refused.empty()) {
    elog_flush(0, mark);
    tables_.return_to(counters);
    counts_ = counts;
    return Result::kRefused;
  }
  counts_.shortened += report_.shortened;
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
  if (record >= 0) {
    evid = integer(kEvent, "evid", row);
    prefor = integer(kEvent, "prefor", row);
    double loaded = 0.0;
    const db::RealColumn lddate(tables_.layout(kEvent), "lddate");
    if (event.updated != 0.0 && lddate.read(row, loaded) &&
        loaded > event.updated + 1e-5) {
      counts_.older++;
      return true;
    }
  } else {
    healed = find_orphan(event, evid, prefor);
    if (!healed && !take(kEvid, evid)) return false;
    if (healed) {
      record = tables_.event_of(evid);  // a row without a name, or none
      row = row_of(kEvent, record);
    }
  }

  std::int64_t preferred = prefor;
  bool kept = false;
  for (std::size_t i = 0; i < event.origins.size(); i++) {
    const Origin &origin = event.origins[i];
    Place place{evid, -1, true};
    if (!origin.id.empty()) place.orid = tables_.public_id("orid", origin.id);
    if (place.orid < 0 && i == event.preferred) place.orid = prefor;
    place.fresh = place.orid < 0 || tables_.origin_of(place.orid) < 0;
    if (place.orid < 0 && !take(kOrid, place.orid)) return false;

    const std::size_t planned = pending_.size();
    const bool changed = changed_, differed = differs_;
    const ImportTables::Counters counters = tables_.counters();
    differs_ = false;
    if (!plan_origin(event, origin, place)) return false;
    if (options_.keep_origins && differs_ && !place.fresh && !healed &&
        origin.id.empty()) {
      pending_.resize(planned, Pending{});
      changed_ = changed;
      tables_.return_to(counters);
      kept = true;
      place.fresh = true;
      if (!take(kOrid, place.orid) || !plan_origin(event, origin, place)) return false;
    }
    differs_ = differs_ || differed;
    if (!origin.id.empty() && !plan_public_id("orid", origin.id, place.orid)) {
      return false;
    }
    if (i == event.preferred) preferred = place.orid;
  }

  std::int64_t commid = integer(kEvent, "commid", row);
  if (!plan_remark(place_remark(event), is_place_remark, commid)) return false;
  RowPut put(tables_.layout(kEvent), row, report_);
  put.put("evid", evid);
  if (record < 0 || healed) {
    put.put("evname",
            std::string_view(event_name(event.id, tables_.width(kEvent, "evname"))));
  }
  put.put("prefor", preferred)
      .put("auth", std::string_view(event.author))
      .put("commid", commid);
  set(kEvent, record, std::move(row));
  const bool changed_rows = changed_;
  if (!plan_public_id("evid", event.id, evid)) return false;

  if (record < 0 || healed) {
    counts_.added++;
    counts_.healed += healed ? 1 : 0;
  } else {
    (changed_rows ? counts_.updated : counts_.unchanged)++;
    counts_.kept += kept ? 1 : 0;
  }
  return true;
}

bool ImportPlan::find_orphan(const Event &event, std::int64_t &evid,
                             std::int64_t &orid) const {
  if (!tables_.has_orphans()) return false;
  std::string probe = tables_.null_row(kOrigin);
  FillReport ignored;
  fill_origin(event, preferred_origin(event), -1, -1, {},
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
  if (!plan_magnitudes(origin, place, own)) return false;
  const std::int64_t record = place.fresh ? -1 : tables_.origin_of(place.orid);
  std::string row = row_of(kOrigin, record);
  std::int64_t commid = integer(kOrigin, "commid", row);
  if (!plan_remark(origin_remark(origin), is_origin_remark, commid)) return false;
  RowPut put(tables_.layout(kOrigin), row, report_);
  fill_origin(event, origin, place.evid, place.orid, own, put);
  put.put("commid", commid);
  set(kOrigin, record, std::move(row));
  if (!has_errors(origin)) return true;
  const std::int64_t errors = place.fresh ? -1 : tables_.origerr_of(place.orid);
  row = row_of(kOrigerr, errors);
  fill_origerr(origin, place.orid, RowPut(tables_.layout(kOrigerr), row, report_));
  set(kOrigerr, errors, std::move(row));
  return true;
}

/* The row of a magnitude: the one of its id, else one of its type, else, for the only
 * magnitude of an origin, the first row whatever its type; -1: a new one. */
std::int64_t ImportPlan::netmag_of(const Magnitude &magnitude, std::size_t count,
                                   Place place,
                                   const std::vector<std::int64_t> &taken) const {
  if (place.fresh) return -1;
  const std::int64_t known =
      magnitude.id.empty() ? -1 : tables_.public_id("magid", magnitude.id);
  const std::string type = lowered(magnitude.type);
  const db::TextColumn magtype(tables_.layout(kNetmag), "magtype");
  std::int64_t same_type = -1, first = -1;
  for (const RowIndex::Item &item : tables_.netmags_of(place.orid)) {
    if (std::find(taken.begin(), taken.end(), item.row) != taken.end()) continue;
    const std::string_view row = tables_.rows(kNetmag).row(item.row);
    if (known >= 0 && integer(kNetmag, "magid", row) == known) return item.row;
    std::string_view text;
    if (same_type < 0 && magtype.read(row, text) && lowered(text) == type) {
      same_type = item.row;
    }
    if (first < 0) first = item.row;
  }
  if (known >= 0) return -1;
  return same_type < 0 && count == 1 ? first : same_type;
}

bool ImportPlan::plan_magnitudes(const Origin &origin, Place place,
                                 OriginMagnitudes &own) {
  std::vector<std::int64_t> taken;
  std::int64_t mw = -1;
  for (const Magnitude &magnitude : origin.magnitudes) {
    const std::int64_t record =
        netmag_of(magnitude, origin.magnitudes.size(), place, taken);
    taken.push_back(record);
    std::string row = row_of(kNetmag, record);
    std::int64_t magid = integer(kNetmag, "magid", row);
    if (record < 0 && !take(kMagid, magid)) return false;
    fill_netmag(magnitude, place.evid, place.orid, magid,
                RowPut(tables_.layout(kNetmag), row, report_));
    set(kNetmag, record, std::move(row));
    choose_magnitude(magnitude, magid, own);
    if (lowered(magnitude.type).starts_with("mw")) mw = magid;
    if (!magnitude.id.empty() && !plan_public_id("magid", magnitude.id, magid)) {
      return false;
    }
  }
  return plan_tensors(origin, place, mw);
}

/* A tensor without an id is the one of its author. */
bool ImportPlan::plan_tensors(const Origin &origin, Place place, std::int64_t magid) {
  if (!tables_.has(kMt)) return true;
  const db::TextColumn auth(tables_.layout(kMt), "auth");
  for (const MomentTensor &tensor : origin.tensors) {
    const std::int64_t known =
        tensor.id.empty() ? -1 : tables_.public_id("mtid", tensor.id);
    std::int64_t record = -1;
    if (!place.fresh) {
      for (const RowIndex::Item &item : tables_.mts_of(place.orid)) {
        const std::string_view row = tables_.rows(kMt).row(item.row);
        std::string_view author;
        if (known >= 0 ? integer(kMt, "mtid", row) == known
                       : auth.read(row, author) && author == tensor.author) {
          record = item.row;
        }
      }
    }
    std::string row = row_of(kMt, record);
    std::int64_t mtid = integer(kMt, "mtid", row);
    if (record < 0 && !take(kMtid, mtid)) return false;
    fill_mt(tensor, place.evid, place.orid, mtid, magid,
            RowPut(tables_.layout(kMt), row, report_));
    set(kMt, record, std::move(row));
    if (!tensor.id.empty() && !plan_public_id("mtid", tensor.id, mtid)) return false;
  }
  return true;
}

bool ImportPlan::plan_public_id(const char *key, const std::string &id,
                                std::int64_t value) {
  if (!tables_.has(kPublicid) || tables_.public_id(key, id) == value) return true;
  const std::string text = public_text(id, tables_.width(kPublicid, "textid"));
  std::string row = tables_.null_row(kPublicid);
  RowPut(tables_.layout(kPublicid), row, report_)
      .put("textid", std::string_view(text))
      .put("tagname", std::string_view(key))
      .put("tagid", value)
      .put("lddate", updated_ != 0.0 ? updated_ : now_);
  pending_.push_back({kPublicid, -1, std::move(row)});
  return true;
}

/* The import's own line among the comment lines of a row: changed in place, or added
 * behind those that others have written. */
bool ImportPlan::plan_remark(const std::string &line, bool (*is_ours)(std::string_view),
                             std::int64_t &commid) {
  if (!tables_.has(kRemark) || line.empty()) return true;
  const db::TextColumn remark(tables_.layout(kRemark), "remark");
  std::int64_t record = -1, lineno = 0;
  if (commid >= 0) {
    for (const RowIndex::Item &item : tables_.remarks_of(commid)) {
      const std::string_view row = tables_.rows(kRemark).row(item.row);
      std::string_view text;
      if (record < 0 && remark.read(row, text) && is_ours(text)) record = item.row;
      lineno = std::max(lineno, integer(kRemark, "lineno", row));
    }
  } else if (!take(kCommid, commid)) {
    return false;
  }
  std::string row = row_of(kRemark, record);
  RowPut put(tables_.layout(kRemark), row, report_);
  if (record < 0) put.put("commid", commid).put("lineno", lineno + 1);
  put.put("remark", std::string_view(line));
  set(kRemark, record, std::move(row));
  return true;
}

}  // namespace ksutil::exchange
