#include "events/reading/internal/tree_reader.h"

#include <strings.h>

#include <algorithm>
#include <string>

#include "platform/clock/clock.h"
#include "platform/db/access.h"
#include "platform/elog/elog.h"

namespace ksutil::events {

template <class Columns>
bool TreeReader::take(const char *name, ReadTable<Columns> &table) {
  table.rows = database_.rows(name);
  if (table.rows == nullptr) return false;
  if (keep_rows_) table.rows->keep_rows();
  table.columns = Columns(table.rows->layout());
  return true;
}

bool TreeReader::bind(unsigned tables) {
  const db::OneLook look(db::database_store(database_.handle()));
  const bool detections = (tables & kReadDetections) != 0;
  if ((tables & kReadList) != 0 && !bind_list()) return false;
  if ((tables & kReadExpansion) != 0) return bind_expansion(detections);
  if (detections) return bind_detections();
  return (tables & kReadSites) == 0 || bind_sites();
}

bool TreeReader::bind_list() {
  now_ = std_now();
  rules_ = std::make_unique<RuleBook>(database_.vars().rules);
  return take("event", event_) && take("origin", origin_) &&
         take("origerr", origerr_) && take("netmag", netmag_) && take("mt", mt_) &&
         index_list();
}

bool TreeReader::bind_expansion(bool detections) {
  if (!take("stamag", stamag_) || !take("assoc", assoc_) ||
      !take("arrival", arrival_) || !index_expansion()) {
    return false;
  }
  return detections ? bind_detections() : bind_sites();
}

bool TreeReader::bind_detections() {
  return bind_sites() && take("detection", detection_) && follow_detections();
}

bool TreeReader::bind_sites() { return take("site", site_) && follow_sites(); }

bool TreeReader::follow_sites() { return database_.sites().follow(site_.rows); }

bool TreeReader::follow_detections() {
  return database_.detection_times().follow(detection_.rows);
}

bool TreeReader::index_list() {
  EVVars &vars = database_.vars();
  return database_.index({{event_.rows, vars.event_evid, by_.event_evid},
                          {origin_.rows, vars.origin_evid, by_.origin_evid},
                          {origin_.rows, vars.origin_orid, by_.origin_orid},
                          {origerr_.rows, vars.origerr_orid, by_.origerr_orid},
                          {netmag_.rows, vars.netmag_orid, by_.netmag_orid},
                          {mt_.rows, vars.mt_orid, by_.mt_orid}});
}

bool TreeReader::index_expansion() {
  EVVars &vars = database_.vars();
  return database_.index(
      {{assoc_.rows, vars.assoc_orid, expanded_by_.assoc_orid},
       {arrival_.rows, vars.arrival_arid, expanded_by_.arrival_arid},
       {stamag_.rows, vars.stamag_magid, expanded_by_.stamag_magid}});
}

bool TreeReader::resume() {
  if (event_.rows != nullptr && !index_list()) return false;
  if (assoc_.rows != nullptr && !index_expansion()) return false;
  if (site_.rows != nullptr && !follow_sites()) return false;
  return detection_.rows == nullptr || follow_detections();
}

/* Of all tables; null for those that are not bound. */
std::array<const db::Snapshot *, 10> TreeReader::snapshots() const {
  return {event_.rows.get(),    origin_.rows.get(),  origerr_.rows.get(),
          mt_.rows.get(),       netmag_.rows.get(),  stamag_.rows.get(),
          assoc_.rows.get(),    arrival_.rows.get(), site_.rows.get(),
          detection_.rows.get()};
}

bool TreeReader::complete() const {
  const auto taken = snapshots();
  return std::all_of(taken.begin(), taken.end(), [](const db::Snapshot *rows) {
    return rows == nullptr || rows->complete();
  });
}

bool TreeReader::overtaken() const {
  const auto taken = snapshots();
  return std::any_of(taken.begin(), taken.end(), [](const db::Snapshot *rows) {
    return rows != nullptr && rows->overtaken();
  });
}

int TreeReader::read_event_of(int64_t evid, long first, EVEvent &event) {
  int result = kNoRow;
  for (const bool listed : {true, false}) {
    for (const long row : by_.event_evid->find(evid)) {
      if ((row >= first) != listed) continue;
      event = EVEvent();
      result = read_event(row, event, nullptr);
      if (result <= 0) return result;
    }
  }
  return result;
}

int TreeReader::read_event(long recno, EVEvent &event, long *order, bool outline) {
  const EventColumns &columns = event_.columns;
  const std::string_view row = event_.rows->row(recno);
  if (row.empty() || !columns.evid.read(row, event.evid) ||
      !columns.prefor.read(row, event.prefor) ||
      !columns.lddate.read(row, event.lddate_event)) {
    return event_.unreadable();
  }
  event.record_event = event_.rows->text(recno);
  event.recno_event = recno;
  event.access_time = now_;
  if (order != nullptr) event.order = (*order)++;

  origin_rows_.clear();
  for (const long origin : by_.origin_evid->find(event.evid)) {
    double lddate;
    const std::string_view origin_row = origin_.rows->row(origin);
    if (origin_row.empty() || !origin_.columns.lddate.read(origin_row, lddate)) {
      return origin_.unreadable();
    }
    origin_rows_.emplace_back(lddate, origin);
  }
  if (origin_rows_.empty()) return 0;
  /* A stable sort keeps the order of rows with the same load date; otherwise the
   * preferred origin could change with every refresh. */
  if (origin_rows_.size() > 1) {
    std::stable_sort(origin_rows_.begin(), origin_rows_.end(),
                     [](const auto &a, const auto &b) { return a.first < b.first; });
  }

  event.origins.reserve(static_cast<long>(origin_rows_.size()));
  double newest_moment = 0.0;
  for (const auto &[lddate, origin_recno] : origin_rows_) {
    const long i = event.origins.push(EVOrigin());
    EVOrigin &origin = *event.origins.ptr(i);
    const int result = read_origin(origin_recno, origin, outline);
    if (result < 0) {
      elog_log(0, "%s::refreshEvent: refreshOrigin() error.\n", database_.owner().name);
    }
    if (result != 0) return result;
    if (origin.orid == event.prefor) {
      origin.preferred = 1;
      event.pref_origin = static_cast<int32_t>(i);
      event.time = origin.time;
    }
    if (const EVMoment *moment = origin.moments.ptr(origin.pref_moment)) {
      if (moment->lddate_mt > newest_moment) {
        newest_moment = moment->lddate_mt;
        event.pref_moment_origin = static_cast<int32_t>(i);
      }
    }
    event.lddate_view = std::max(event.lddate_view, origin.lddate_origin_view);
  }
  if (event.pref_origin < 0) {
    const long last = event.origins.size() - 1;
    event.pref_origin = static_cast<int32_t>(last);
    event.origins.ptr(last)->preferred = 1;
    event.time = event.origins.ptr(last)->time;
  }
  if (!outline) set_preferred_magnitude(*rules_, event);
  return 0;
}

int TreeReader::read_origin(long recno, EVOrigin &origin, bool outline) {
  const OriginColumns &columns = origin_.columns;
  const std::string_view row = origin_.rows->row(recno);
  int64_t evid;
  if (row.empty() || !columns.time.read(row, origin.time) ||
      !columns.orid.read(row, origin.orid) || !columns.evid.read(row, evid) ||
      !columns.lddate.read(row, origin.lddate_origin)) {
    return origin_.unreadable();
  }
  origin.record_origin = origin_.rows->text(recno);
  origin.recno_origin = recno;
  origin.lddate_origin_view = origin.lddate_origin;
  if (outline) return 0;

  const db::KeyIndex::Rows origerrs = by_.origerr_orid->find(origin.orid);
  if (!origerrs.empty()) {
    origin.recno_origerr = origerrs.front();
    origin.record_origerr = origerr_.rows->text(origin.recno_origerr);
    if (origin.record_origerr.empty()) return origerr_.unreadable();
  }
  int result = read_netmags(origin);
  if (result == 0) result = add_own_magnitudes(recno, evid, origin);
  if (result != 0) return result;
  set_preferred_magnitude(*rules_, origin);
  return read_moments(origin);
}

int TreeReader::read_origin_of(int64_t orid, EVOrigin &origin) {
  int result = kNoRow;
  for (const long row : by_.origin_orid->find(orid)) {
    origin = EVOrigin();
    result = read_origin(row, origin);
    if (result <= 0) break;
  }
  return result;
}

int TreeReader::read_netmags(EVOrigin &origin) {
  const NetmagColumns &columns = netmag_.columns;
  const db::KeyIndex::Rows rows = by_.netmag_orid->find(origin.orid);
  magids_.clear();
  if (rows.empty()) return 0;
  long count = 0;
  for ([[maybe_unused]] const long recno : rows) count++;
  origin.magnitudes.reserve(count);
  for (const long recno : rows) {
    EVMagnitude magnitude;
    const std::string_view row = netmag_.rows->row(recno);
    int64_t magid;
    std::string_view magtype;
    if (row.empty() || !columns.magid.read(row, magid) ||
        !columns.magtype.read(row, magtype) ||
        !columns.magnitude.read(row, magnitude.magnitude) ||
        !columns.lddate.read(row, magnitude.lddate_netmag)) {
      return netmag_.unreadable();
    }
    magnitude.recno_netmag = recno;
    magnitude.record_netmag = netmag_.rows->text(recno);
    magnitude.magtype = magtype;
    origin.lddate_origin_view =
        std::max(origin.lddate_origin_view, magnitude.lddate_netmag);
    magids_.push_back(magid);
    origin.magnitudes.push(std::move(magnitude));
  }
  return 0;
}

int TreeReader::add_own_magnitudes(long recno, int64_t evid, EVOrigin &origin) {
  const OriginColumns &columns = origin_.columns;
  const std::string_view row = origin_.rows->row(recno);
  if (row.empty()) return origin_.unreadable();
  const struct {
    const char *type;
    const db::RealColumn &value;
    const db::IntegerColumn &magid;
  } own_columns[] = {{"mb", columns.mb, columns.mbid},
                     {"ms", columns.ms, columns.msid},
                     {"ml", columns.ml, columns.mlid}};
  const long netmags = origin.magnitudes.size();
  for (const auto &own : own_columns) {
    double value;
    int64_t magid;
    if (!own.value.read(row, value) || !own.magid.read(row, magid)) return kUnreadable;
    if (value == kNoValue) continue;
    bool present = magid != own.magid.null() &&
                   std::find(magids_.begin(), magids_.end(), magid) != magids_.end();
    for (long i = 0; i < netmags && !present; i++) {
      const EVMagnitude &magnitude = *origin.magnitudes.ptr(i);
      present = magnitude.magnitude == value &&
                strcasecmp(magnitude.magtype.c_str(), own.type) == 0;
    }
    if (present) continue;
    EVMagnitude magnitude;
    magnitude.magnitude = value;
    magnitude.magtype = own.type;
    magnitude.record_netmag = own_magnitude_row(magid, origin.orid, evid, magnitude);
    origin.magnitudes.push(std::move(magnitude));
  }
  origin.magnitudes.shrink_to_fit();
  return 0;
}

/* The synthetic netmag row of an origin's own magnitude.  Its load date stays null, so
 * that reading it twice gives the same text; otherwise every refresh would see a
 * change.  A number that does not fit a field of netmag stays null there. */
db::RowText TreeReader::own_magnitude_row(int64_t magid, int64_t orid, int64_t evid,
                                          const EVMagnitude &magnitude) {
  const db::Relation &layout = netmag_.rows->layout();
  if (null_netmag_.empty()) null_netmag_ = db::null_record(layout);
  scratch_row_ = null_netmag_;
  const std::pair<const char *, int64_t> ids[] = {
      {"magid", magid}, {"orid", orid}, {"evid", evid}};
  for (const auto &[name, id] : ids) {
    if (const db::Field *field = layout.find(name)) {
      db::write_integer(*field, id, scratch_row_);
    }
  }
  if (const db::Field *field = layout.find("magtype")) {
    db::write_text(*field, magnitude.magtype, scratch_row_);
  }
  if (const db::Field *field = layout.find("magnitude")) {
    db::write_real(*field, magnitude.magnitude, scratch_row_);
  }
  return made_rows_.add(scratch_row_);
}

int TreeReader::read_moments(EVOrigin &origin) {
  double newest = 0.0;
  for (const long recno : by_.mt_orid->find(origin.orid)) {
    EVMoment moment;
    const std::string_view row = mt_.rows->row(recno);
    if (row.empty() || !mt_.columns.lddate.read(row, moment.lddate_mt)) {
      return mt_.unreadable();
    }
    moment.recno_mt = recno;
    moment.record_mt = mt_.rows->text(recno);
    const double lddate = moment.lddate_mt;
    const long i = origin.moments.push(std::move(moment));
    if (lddate > newest) {
      newest = lddate;
      origin.pref_moment = static_cast<int32_t>(i);
    }
  }
  origin.moments.shrink_to_fit();
  if (origin.pref_moment >= 0) {
    origin.lddate_origin_view = std::max(origin.lddate_origin_view, newest);
  }
  return 0;
}

}  // namespace ksutil::events
