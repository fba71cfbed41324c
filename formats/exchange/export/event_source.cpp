#include "formats/exchange/export/event_source.h"

#include <algorithm>
#include <cmath>

#include "formats/exchange/import/event_rows.h"
#include "formats/exchange/import/gathering.h"
#include "formats/exchange/text/value_text.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

std::string base_name(const std::string &path) {
  const std::size_t slash = path.rfind('/');
  return slash == path.npos ? path : path.substr(slash + 1);
}

/* Where an id stands in a list; -1: nowhere, or it is a null. */
std::int64_t index_in(const std::vector<std::int64_t> &ids, std::int64_t id) {
  const auto found = id < 0 ? ids.end() : std::find(ids.begin(), ids.end(), id);
  return found == ids.end() ? -1 : found - ids.begin();
}

int width_of(const ExportTable &table, const char *name) {
  const db::Field *field = table.layout().find(name);
  return field == nullptr ? 0 : field->width;
}

}  // namespace

EventSource::EventSource(db::DatabaseStore &store, const EventSelection &selection)
    : store_(store), selection_(selection), name_(base_name(store.name())) {}

std::unique_ptr<EventSource> EventSource::open(db::DatabaseStore &store,
                                               const EventSelection &selection,
                                               std::string &problem) {
  std::unique_ptr<EventSource> source(new EventSource(store, selection));
  if (!source->prepare(problem)) return nullptr;
  return source;
}

bool EventSource::prepare(std::string &problem) {
  if (!tables_.open(store_)) return false;
  if (!tables_.event.there() || !tables_.origin.there()) {
    problem = "the schema " + store_.schema()->name() + " has no tables of events";
    return false;
  }
  origins_.emplace(tables_.origin.layout());
  errors_.emplace(tables_.origerr.layout());
  magnitudes_.emplace(tables_.netmag.layout());
  station_magnitudes_.emplace(tables_.stamag.layout());
  arrivals_.emplace(tables_.arrival.layout());
  associations_.emplace(tables_.assoc.layout());
  tensors_.emplace(tables_.mt.layout());
  const db::Relation &event = tables_.event.layout();
  evid_ = db::IntegerColumn(event, "evid");
  prefor_ = db::IntegerColumn(event, "prefor");
  commid_ = db::IntegerColumn(event, "commid");
  evname_ = db::TextColumn(event, "evname");
  auth_ = db::TextColumn(event, "auth");
  lddate_ = db::RealColumn(event, "lddate");
  lineno_ = db::IntegerColumn(tables_.remark.layout(), "lineno");
  remark_ = db::TextColumn(tables_.remark.layout(), "remark");
  if (!selection_.where.empty()) {
    filter_.emplace(event, tables_.origin.layout());
    if (!filter_->compile(selection_.where, problem)) return false;
  }
  order_events(find_doubled_names());
  return true;
}

/* A row of a table, without the messages about one that cannot be read. */
std::string_view EventSource::usable(const ExportTable &table, std::int64_t record) {
  const ElogScope quiet;
  const std::string_view row = table.row(record);
  if (row.empty()) faults_.rows++;
  return row;
}

/* Sorts the events by the times of their preferred origins, else of their first ones.
 * `unnamed` rows of event could not be read before; those that can be read now have lost
 * their names. */
void EventSource::order_events(std::int64_t unnamed) {
  const ElogScope quiet;
  std::vector<std::int64_t> missing = selection_.evids;
  std::sort(missing.begin(), missing.end());
  missing.erase(std::unique(missing.begin(), missing.end()), missing.end());
  const std::vector<std::int64_t> wanted = missing;
  for (long record = 0; record < tables_.event.count(); record++) {
    const std::string_view row = tables_.event.row(record);
    std::int64_t evid = -1, prefor = -1;
    if (row.empty()) unnamed--;
    if (row.empty() || !evid_.read(row, evid) || evid < 0) {
      faults_.events++;
      continue;
    }
    if (!wanted.empty()) {
      if (!std::binary_search(wanted.begin(), wanted.end(), evid)) continue;
      std::erase(missing, evid);
    }
    if (!prefor_.read(row, prefor)) prefor = -1;
    double time = kNoTime;
    bool found = false;
    for (const RowIndex::Item item : tables_.origin.find(evid)) {
      const std::string_view origin = tables_.origin.row(item.row);
      std::int64_t orid = -1;
      double own = kNoTime;
      if (origin.empty() || !origins_->time.read(origin, own)) continue;
      const bool preferred = origins_->orid.read(origin, orid) && orid == prefor;
      if (!found || preferred) time = own;
      found = true;
      if (preferred) break;
    }
    if (!found) {
      faults_.events++;
      continue;
    }
    if (time < selection_.after || time >= selection_.before) continue;
    order_.push_back({time, record});
  }
  faults_.missing = std::move(missing);
  std::sort(order_.begin(), order_.end(), [](const Place &a, const Place &b) {
    return a.time != b.time ? a.time < b.time : a.row < b.row;
  });
  if (unnamed > 0) faults_.rows += unnamed;
}

/* Notes the names by which an import would know events: those without a public id.
 * Returns how many rows could not be read. */
std::int64_t EventSource::find_doubled_names() {
  const ElogScope quiet;
  std::int64_t unread = 0;
  for (long record = 0; record < tables_.event.count(); record++) {
    const std::string_view row = tables_.event.row(record);
    std::string_view name;
    std::int64_t evid = -1;
    if (row.empty()) unread++;
    if (row.empty() || !evname_.read(row, name) || evname_.is_null(name) ||
        !evid_.read(row, evid) || !tables_.ids.find("evid", evid).empty()) {
      continue;
    }
    names_.add(hash_of(name), record);
  }
  names_.settle();
  return unread;
}

std::string EventSource::id_of(const char *field, std::int64_t id) {
  std::string text = tables_.ids.find(field, id);
  if (text.empty()) text = name_ + '/' + field + '/' + std::to_string(id);
  return text;
}

std::vector<std::string> EventSource::comments(std::int64_t commid) {
  std::vector<std::pair<std::int64_t, std::string>> lines;
  for (const RowIndex::Item item : tables_.remark.find(commid)) {
    const std::string_view text = usable(tables_.remark, item.row);
    if (text.empty()) continue;
    const RowGet row(text, faults_.values);
    lines.emplace_back(row.integer(lineno_), row.text(remark_));
  }
  std::stable_sort(lines.begin(), lines.end(),
                   [](const auto &a, const auto &b) { return a.first < b.first; });
  std::vector<std::string> texts;
  for (auto &[number, text] : lines) {
    if (!text.empty()) texts.push_back(std::move(text));
  }
  return texts;
}

bool EventSource::selects(std::string_view event_row, const Event &event) {
  if (selection_.min_magnitude <= -DBL_MAX && !filter_) return true;
  const Magnitude *shown = shown_magnitude(event);
  const double magnitude = shown == nullptr ? -999.0 : shown->value;
  if (magnitude < selection_.min_magnitude) return false;
  if (!filter_) return true;
  const ElogScope quiet;
  const int accepted =
      filter_->accepts({event_row, tables_.origin.row(preferred_row_), magnitude,
                        shown == nullptr ? std::string_view() : shown->type});
  if (accepted < 0) faults_.values++;
  return accepted > 0;
}

bool EventSource::next(Event &event) {
  while (at_ < order_.size()) {
    const std::int64_t record = order_[at_++].row;
    if (read_event(record, event)) return true;
  }
  return false;
}

/* False when the event is not wanted, or has nothing to show. */
bool EventSource::read_event(std::int64_t record, Event &event) {
  const std::string_view kept = usable(tables_.event, record);
  if (kept.empty()) {
    faults_.events++;
    return false;
  }
  const std::string text(kept);  // its block may go while other rows are read
  const RowGet row(text, faults_.values);
  event = Event();
  picks_.clear();
  own_.clear();
  preferred_row_ = -1;
  event.evid = row.integer(evid_);
  event.author = row.text(auth_);
  event.updated = row.real(lddate_, 0.0);
  if (event.updated < 0.0) event.updated = 0.0;
  prefor_of_event_ = row.integer(prefor_);
  preferred_found_ = false;

  for (const RowIndex::Item item : tables_.origin.find(event.evid)) {
    read_origin(item.row, event);
  }
  if (event.origins.empty()) {
    faults_.events++;
    return false;
  }
  if (!preferred_found_ && prefor_of_event_ >= 0) faults_.references++;

  event.id = tables_.ids.find("evid", event.evid);
  const std::string name = row.text(evname_);
  if (event.id.empty() && !name.empty() && names_.find(hash_of(name)).size() == 1) {
    event.id = name;
  }
  if (event.id.empty()) event.id = id_of("evid", event.evid);
  event.aliases = tables_.ids.others("evid", event.evid);
  PreferredIds preferred;
  for (const std::string &line : comments(row.integer(commid_))) {
    read_event_remark(line, event, preferred);
  }
  const int width = width_of(tables_.event, "evname");
  if (width > 0 && event.name.empty() && name != event_name(event.id, width) &&
      !is_name_of_long_id(name, width, event.id, tables_.ids.width())) {
    event.name = name;
  }
  for (std::size_t i = 0; i < event.origins.size(); i++) {
    read_parts(i, event);
    const std::int64_t magnitude = index_in(magids_, preferred.magid);
    const std::int64_t tensor = index_in(mtids_, preferred.mtid);
    const auto origin = static_cast<std::int64_t>(i);
    if (i == event.preferred) {
      event.preferred_magnitude = magnitude;
    } else if (magnitude >= 0) {
      event.distant_magnitude = {origin, magnitude};
    }
    if (tensor >= 0) event.preferred_tensor = {origin, tensor};
  }
  return selects(text, event);
}

void EventSource::read_origin(std::int64_t record, Event &event) {
  const std::string_view text = usable(tables_.origin, record);
  if (text.empty()) return;
  const RowGet row(text, faults_.values);
  Origin origin;
  origin.orid = row.integer(origins_->orid);
  origins_->read(row, origin, left_out_);
  if (!is_writable_time(origin.time) || !(std::abs(origin.lat) <= 90.0) ||
      !(std::abs(origin.lon) <= 360.0)) {
    faults_.rows++;
    return;
  }
  own_.push_back(origins_->own_magnitudes(row));
  const std::string type = row.text(origins_->etype);
  const std::int64_t commid = row.integer(origins_->commid);
  origin.id = id_of("orid", origin.orid);
  for (const std::string &line : comments(commid)) read_origin_remark(line, origin);
  if (event.origins.empty()) {
    event.type = type;
    preferred_row_ = record;
  }
  if (origin.orid >= 0 && origin.orid == prefor_of_event_) {
    event.type = type;
    event.preferred = event.origins.size();
    preferred_row_ = record;
    preferred_found_ = true;
  }
  event.origins.push_back(std::move(origin));
}

/* What the tables have for an origin. */
void EventSource::read_parts(std::size_t index, Event &event) {
  Origin &origin = event.origins[index];
  for (const RowIndex::Item item : tables_.origerr.find(origin.orid)) {
    const std::string_view text = usable(tables_.origerr, item.row);
    if (text.empty()) continue;
    const RowGet row(text, faults_.values);
    errors_->read(row, origin);
    for (const std::string &line : comments(row.integer(errors_->commid))) {
      read_origerr_remark(line, origin);
    }
    break;
  }
  read_magnitudes(origin);
  add_own_magnitudes(index, origin);
  read_tensors(origin);
  read_associations(event, origin);
  read_station_magnitudes(event, origin);
}

void EventSource::read_magnitudes(Origin &origin) {
  magids_.clear();
  for (const RowIndex::Item item : tables_.netmag.find(origin.orid)) {
    const std::string_view text = usable(tables_.netmag, item.row);
    if (text.empty()) continue;
    const RowGet row(text, faults_.values);
    const std::int64_t magid = row.integer(magnitudes_->magid);
    const std::int64_t commid = row.integer(magnitudes_->commid);
    Magnitude magnitude;
    magnitudes_->read(row, magnitude, left_out_);
    if (magnitude.value <= -999.0) continue;
    magnitude.id = id_of("magid", magid);
    magnitude.comments = comments(commid);
    origin.magnitudes.push_back(std::move(magnitude));
    magids_.push_back(magid);
  }
}

/* Magnitudes that the origin has in its row alone, as the event list takes them: those
 * whose netmag row is not there, unless another row has the same value. */
void EventSource::add_own_magnitudes(std::size_t index, Origin &origin) {
  const std::size_t count = origin.magnitudes.size();
  for (const OriginRows::Own &own : own_[index]) {
    if (own.value <= -999.0) continue;
    bool present = own.magid >= 0 && std::find(magids_.begin(), magids_.end(),
                                               own.magid) != magids_.end();
    for (std::size_t i = 0; i < count && !present; i++) {
      const Magnitude &magnitude = origin.magnitudes[i];
      present = magnitude.value == own.value && lowered(magnitude.type) == own.type;
    }
    if (present) continue;
    Magnitude magnitude;
    magnitude.id = own.magid >= 0 ? id_of("magid", own.magid)
                                  : origin.id + "/" + std::string(own.type);
    magnitude.type = own.type;
    magnitude.value = own.value;
    origin.magnitudes.push_back(std::move(magnitude));
    magids_.push_back(own.magid);
  }
}

void EventSource::read_tensors(Origin &origin) {
  mtids_.clear();
  for (const RowIndex::Item item : tables_.mt.find(origin.orid)) {
    const std::string_view text = usable(tables_.mt, item.row);
    if (text.empty()) continue;
    const RowGet row(text, faults_.values);
    MomentTensor tensor;
    tensors_->read(row, tensor);
    tensor.magnitude = index_of(row.integer(tensors_->magid));
    const std::int64_t commid = row.integer(tensors_->commid);
    mtids_.push_back(row.integer(tensors_->mtid));
    tensor.id = id_of("mtid", mtids_.back());
    tensor.comments = comments(commid);
    origin.tensors.push_back(std::move(tensor));
  }
}

/* The index of a magnitude of the origin; -1, counted unless the id is a null, when the
 * origin has none of that id. */
std::int64_t EventSource::index_of(std::int64_t magid) {
  if (magid < 0) return -1;
  const std::int64_t found = index_in(magids_, magid);
  if (found >= 0) return found;
  faults_.references++;
  return -1;
}

void EventSource::read_associations(Event &event, Origin &origin) {
  for (const RowIndex::Item item : tables_.assoc.find(origin.orid)) {
    const std::string_view text = usable(tables_.assoc, item.row);
    if (text.empty()) continue;
    const RowGet row(text, faults_.values);
    Association association;
    associations_->read(row, association, left_out_);
    const std::int64_t pick = pick_of(row.integer(associations_->arid), event);
    if (pick < 0) {
      faults_.references++;
      continue;
    }
    association.pick = pick;
    origin.associations.push_back(std::move(association));
  }
}

void EventSource::read_station_magnitudes(Event &event, Origin &origin) {
  for (const RowIndex::Item item : tables_.stamag.find(origin.orid)) {
    const std::string_view text = usable(tables_.stamag, item.row);
    if (text.empty()) continue;
    const RowGet row(text, faults_.values);
    StationMagnitude magnitude;
    station_magnitudes_->read(row, magnitude, left_out_);
    if (magnitude.value <= -999.0) continue;
    magnitude.magnitude = index_of(row.integer(station_magnitudes_->magid));
    const std::int64_t arid = row.integer(station_magnitudes_->arid);
    magnitude.pick = arid < 0 ? -1 : pick_of(arid, event);
    if (arid >= 0 && magnitude.pick < 0) faults_.references++;
    if (magnitude.pick >= 0) {
      magnitude.at = event.picks[static_cast<std::size_t>(magnitude.pick)].at;
    } else {
      left_out_.add_if(tables_.codes.has_channels(magnitude.at.station),
                       "channels of station magnitudes without an arrival (seedcode)");
      tables_.codes.restore(magnitude.at);
    }
    origin.station_magnitudes.push_back(std::move(magnitude));
  }
}

/* The index of an arrival among the picks of the event, to which it is added when it is
 * new; -1 when there is no such arrival. */
std::int64_t EventSource::pick_of(std::int64_t arid, Event &event) {
  const auto known = picks_.find(arid);
  if (known != picks_.end()) return known->second;
  for (const RowIndex::Item item : tables_.arrival.find(arid)) {
    const std::string_view text = usable(tables_.arrival, item.row);
    if (text.empty()) continue;
    const RowGet row(text, faults_.values);
    Pick pick;
    arrivals_->read(row, pick, left_out_);
    if (!is_writable_time(pick.time)) continue;
    const std::int64_t commid = row.integer(arrivals_->commid);
    pick.id = id_of("arid", arid);
    pick.comments = comments(commid);
    tables_.codes.restore(pick.at);
    const auto index = static_cast<std::int64_t>(event.picks.size());
    event.picks.push_back(std::move(pick));
    picks_.emplace(arid, index);
    return index;
  }
  picks_.emplace(arid, -1);
  return -1;
}

}  // namespace ksutil::exchange
