#include <unordered_set>

#include "formats/exchange/import/import_plan.h"
#include "platform/db/columns.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {

const StationCode &ImportPlan::code_of(const ChannelCode &channel) {
  return codes_.find(
      channel, [this](Table table, std::string row) { set(table, -1, std::move(row)); },
      report_);
}

bool ImportPlan::plan_picks(const Event &event) {
  arids_.assign(event.picks.size(), -1);
  pick_codes_.assign(event.picks.size(), StationCode());
  if (!tables_.has(kArrival)) {
    if (!event.picks.empty()) {
      report_.left_out.add("a pick: the schema has no table arrival",
                           static_cast<std::int64_t>(event.picks.size()));
    }
    return true;
  }
  for (std::size_t i = 0; i < event.picks.size(); i++) {
    if (event.picks[i].time == kNoTime) {
      report_.left_out.add("a pick without a time");
      continue;
    }
    pick_codes_[i] = code_of(event.picks[i].at);
    if (!plan_pick(event.picks[i], pick_codes_[i], arids_[i])) return false;
  }
  return true;
}

/* A pick without an id is known by its station, channel, time, phase and author.  Equal
 * picks are one arrival, also when several events have them or one of them has an id. */
bool ImportPlan::plan_pick(const Pick &pick, const StationCode &code,
                           std::int64_t &arid) {
  std::string content;  // by which a pick without an id knows this one
  std::int64_t record = -1;
  if (tables_.knows_arrivals_by_content()) {
    std::string probe = tables_.null_row(kArrival);
    FillReport ignored;
    fill_arrival(pick, code, {}, RowPut(tables_.layout(kArrival), probe, ignored));
    const std::uint64_t key = tables_.key_of(RowKey::kArrival, probe);
    const auto rows = tables_.rows_with(RowKey::kArrival, key);
    if (pick.id.empty() && !rows.empty()) record = rows.front().row;
    content = "\n" + std::to_string(key);
  }
  const Known known = known_id("arid", pick.id.empty() ? content : pick.id);
  arid = known.id;
  if (known.now) {
    if (!pick.id.empty()) {
      report_.left_out.add("a further pick with the id of an earlier one");
    }
    return true;
  }
  if (record < 0 && arid >= 0) record = tables_.arrival_of(arid);
  std::string row = row_of(kArrival, record);
  if (record >= 0) arid = integer(kArrival, "arid", row);
  if (arid < 0 && !take(kArid, arid)) return false;
  std::int64_t commid = integer(kArrival, "commid", row);
  if (!plan_remarks(comment_lines(pick.comments, remark_width()), commid)) return false;
  RowIds ids;
  ids.arid = arid;
  RowPut put(tables_.layout(kArrival), row, report_);
  fill_arrival(pick, code, ids, put);
  put.put("commid", commid);
  set(kArrival, record, std::move(row));
  if (!content.empty()) meet("arid", content, arid);
  return plan_public_id("arid", pick.id, arid);
}

void ImportPlan::plan_associations(const Origin &origin, Place place) {
  if (origin.associations.empty()) return;
  if (!tables_.has(kAssoc)) {
    report_.left_out.add("an associated phase: the schema has no table assoc",
                         static_cast<std::int64_t>(origin.associations.size()));
    return;
  }
  std::unordered_set<std::int64_t> joined;
  for (const Association &association : origin.associations) {
    const auto pick = static_cast<std::size_t>(association.pick);
    RowIds ids;
    ids.orid = place.orid;
    ids.arid = pick < arids_.size() ? arids_[pick] : -1;
    if (ids.arid < 0) {
      report_.left_out.add("an associated phase without a pick");
      continue;
    }
    if (!joined.insert(ids.arid).second) {
      report_.left_out.add("a further phase of one pick and one origin");
      continue;
    }
    std::string row = tables_.null_row(kAssoc);
    const std::string &sta = pick_codes_[pick].sta;
    fill_assoc(association, origin, sta, ids,
               RowPut(tables_.layout(kAssoc), row, report_));
    const auto rows =
        place.fresh
            ? RowIndex::Rows()
            : tables_.rows_with(RowKey::kAssoc, tables_.key_of(RowKey::kAssoc, row));
    const std::int64_t record = rows.empty() ? -1 : rows.front().row;
    if (record >= 0) {
      FillReport again;
      row = row_of(kAssoc, record);
      fill_assoc(association, origin, sta, ids,
                 RowPut(tables_.layout(kAssoc), row, again));
    }
    set(kAssoc, record, std::move(row));
  }
}

/* A station may have several magnitudes of one type, of its channels say: rows of equal
 * keys are taken in their order. */
void ImportPlan::plan_station_magnitudes(const Origin &origin, Place place) {
  if (origin.station_magnitudes.empty()) return;
  if (!tables_.has(kStamag)) {
    report_.left_out.add("a station magnitude: the schema has no table stamag",
                         static_cast<std::int64_t>(origin.station_magnitudes.size()));
    return;
  }
  std::unordered_map<std::uint64_t, std::size_t> taken;
  for (const StationMagnitude &magnitude : origin.station_magnitudes) {
    const auto pick = static_cast<std::size_t>(magnitude.pick);
    const auto of = static_cast<std::size_t>(magnitude.magnitude);
    RowIds ids;
    ids.evid = place.evid;
    ids.orid = place.orid;
    ids.arid = pick < arids_.size() ? arids_[pick] : -1;
    ids.magid = of < magids_.size() ? magids_[of] : -1;
    const std::string sta = code_of(magnitude.at).sta;
    std::string row = tables_.null_row(kStamag);
    fill_stamag(magnitude, sta, ids, RowPut(tables_.layout(kStamag), row, report_));
    std::int64_t record = -1;
    if (!place.fresh) {
      const std::uint64_t key = tables_.key_of(RowKey::kStamag, row);
      const auto rows = tables_.rows_with(RowKey::kStamag, key);
      const std::size_t at = taken[key]++;
      if (at < rows.size()) record = rows[at].row;
    }
    if (record >= 0) {
      FillReport again;
      row = row_of(kStamag, record);
      fill_stamag(magnitude, sta, ids, RowPut(tables_.layout(kStamag), row, again));
    }
    set(kStamag, record, std::move(row));
  }
}

}  // namespace ksutil::exchange
