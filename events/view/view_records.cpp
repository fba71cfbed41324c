#include "events/view/internal/view_records.h"

#include <cerrno>
#include <cstdlib>
#include <new>

#include "platform/stock/memory.h"

void *KSEVRecord::operator new(std::size_t bytes) {
  void *const record = ks_malloc(bytes);
  if (record == nullptr) throw std::bad_alloc();
  return record;
}

void KSEVRecord::operator delete(void *record) { std::free(record); }

namespace ksutil::events {

Failure fail_memory_for(const char *who, const char *record) {
  errno = ENOMEM;
  return fail_errno(who, "malloc(%s) error", record);
}

char *new_text(std::string_view text) {
  auto *const copy = static_cast<char *>(ks_malloc(text.size() + 1));
  if (copy == nullptr) throw std::bad_alloc();
  text.copy(copy, text.size());
  copy[text.size()] = '\0';
  return copy;
}

char *new_row_text(const db::RowText &text) {
  return text.read([](std::string_view row) { return new_text(row); });
}

StationPtr new_station(const char *sta) {
  void *const block = ks_malloc(sizeof(KSEVOriginStation));
  if (block == nullptr) throw std::bad_alloc();
  StationPtr station(new (block) KSEVOriginStation);
  station->sta = new_text(sta);
  return station;
}

void FreeStation::operator()(KSEVOriginStation *station) const {
  std::free(station->sta);
  std::free(station->record_site);
  std::free(station);
}

namespace {

/* The text or real field of a row that has been read before; "" or untouched for an
 * empty row or a null field. */
template <class Column>
char *field_text(const Column &column, const db::RowText &text) {
  const db::RowText::Reading reading(text);
  const std::string_view row = reading.text();
  std::string_view value;
  if (row.empty() || !column.read(row, value) || column.is_null(value)) value = "";
  return new_text(value);
}

void read_real(const db::RealColumn &column, const db::RowText &text, double &value) {
  const db::RowText::Reading reading(text);
  const std::string_view row = reading.text();
  double read;
  if (!row.empty() && column.read(row, read) && read != column.null()) value = read;
}

}  // namespace

template <class Record>
ViewRecords::Ptr<Record> ViewRecords::new_record() {
  Ptr<Record> record(new Record, FreeRecord<Record>{this});
  record->counted = true;
  ++count_of(*record);
  return record;
}

ViewRecords::Ptr<KSEVStamag> ViewRecords::make(const TreeReader &reader,
                                               const EVStamag &source) {
  auto stamag = new_record<KSEVStamag>();
  stamag->recno_stamag = source.recno_stamag;
  stamag->record_stamag = new_row_text(source.record_stamag);
  stamag->lddate_stamag = source.lddate_stamag;
  stamag->magnitude = source.magnitude;
  stamag->magtype = new_text(source.magtype);
  stamag->sta = field_text(reader.stamag_columns().sta, source.record_stamag);
  return stamag;
}

ViewRecords::Ptr<KSEVMagnitude> ViewRecords::make(const TreeReader &reader,
                                                  const EVMagnitude &source) {
  auto magnitude = new_record<KSEVMagnitude>();
  magnitude->recno_netmag = source.recno_netmag;
  magnitude->record_netmag = new_row_text(source.record_netmag);
  magnitude->lddate_netmag = source.lddate_netmag;
  magnitude->magnitude = source.magnitude;
  magnitude->magtype = new_text(source.magtype);
  magnitude->stamags = make_list<KSEVStamag>(reader, source.stamags).release();
  return magnitude;
}

ViewRecords::Ptr<KSEVMoment> ViewRecords::make(const TreeReader &,
                                               const EVMoment &source) {
  auto moment = new_record<KSEVMoment>();
  moment->recno_mt = source.recno_mt;
  moment->record_mt = new_row_text(source.record_mt);
  moment->lddate_mt = source.lddate_mt;
  return moment;
}

ViewRecords::Ptr<KSEVAssociation> ViewRecords::make(const TreeReader &reader,
                                                    const EVAssociation &source) {
  auto association = new_record<KSEVAssociation>();
  association->recno_assoc = source.recno_assoc;
  association->record_assoc = new_row_text(source.record_assoc);
  association->lddate_assoc = source.lddate_assoc;
  association->recno_arrival = source.recno_arrival;
  association->record_arrival = new_row_text(source.record_arrival);
  association->lddate_arrival = source.lddate_arrival;
  association->recno_site = source.recno_site;
  association->record_site = new_row_text(source.record_site);
  association->defining = source.defining;
  association->sta = field_text(reader.assoc_columns().sta, source.record_assoc);
  association->phase = field_text(reader.assoc_columns().phase, source.record_assoc);
  read_real(reader.assoc_columns().timeres, source.record_assoc, association->timeres);
  read_real(reader.arrival_columns().time, source.record_arrival, association->time);
  return association;
}

ViewRecords::Ptr<KSEVOrigin> ViewRecords::make(const TreeReader &reader,
                                               const EVOrigin &source) {
  auto origin = new_record<KSEVOrigin>();
  origin->recno_origin = source.recno_origin;
  origin->record_origin = new_row_text(source.record_origin);
  origin->orid = source.orid;
  origin->lddate_origin = source.lddate_origin;
  origin->lddate_origin_view = source.lddate_origin_view;
  origin->time = source.time;
  origin->recno_origerr = source.recno_origerr;
  origin->record_origerr = new_row_text(source.record_origerr);
  origin->magnitude = source.magnitude;
  origin->magtype = new_text(source.magtype);
  origin->preferred = source.preferred;
  origin->magnitudes = make_list<KSEVMagnitude>(reader, source.magnitudes).release();
  origin->moments = make_list<KSEVMoment>(reader, source.moments).release();
  origin->pref_magnitude = source.pref_magnitude;
  origin->pref_moment = source.pref_moment;
  const OriginColumns &columns = reader.origin_columns();
  read_real(columns.lat, source.record_origin, origin->lat);
  read_real(columns.lon, source.record_origin, origin->lon);
  read_real(columns.depth, source.record_origin, origin->depth);
  return origin;
}

ViewRecords::Ptr<KSEVEvent> ViewRecords::make(const TreeReader &reader,
                                              const EVEvent &source) {
  auto event = new_record<KSEVEvent>();
  event->recno_event = source.recno_event;
  event->record_event = new_row_text(source.record_event);
  event->evid = source.evid;
  event->prefor = source.prefor;
  event->order = source.order;
  event->lddate_event = source.lddate_event;
  event->lddate_view = source.lddate_view;
  event->access_time = source.access_time;
  event->time = source.time;
  event->magnitude = source.magnitude;
  event->magtype = new_text(source.magtype);
  event->pref_origin = source.pref_origin;
  event->pref_magnitude_origin = source.pref_magnitude_origin;
  event->pref_moment_origin = source.pref_moment_origin;
  event->origins = make_list<KSEVOrigin>(reader, source.origins).release();
  return event;
}

ViewRecords::Ptr<KSEVDetection> ViewRecords::make(const EVDetection &source,
                                                  const DetectionFields &fields) {
  auto detection = new_record<KSEVDetection>();
  detection->recno_detection = source.recno_detection;
  detection->record_detection = new_row_text(source.record_detection);
  detection->lddate_detection = source.lddate_detection;
  detection->recno_site = source.recno_site;
  detection->record_site = new_row_text(source.record_site);
  detection->time = fields.time;
  detection->sta = new_text(fields.sta);
  detection->chan = new_text(fields.chan);
  detection->state = new_text(fields.state);
  return detection;
}

void ViewRecords::free_contents(KSEVStamag &stamag) {
  std::free(stamag.record_stamag);
  std::free(stamag.magtype);
  std::free(stamag.sta);
}

void ViewRecords::free_contents(KSEVMagnitude &magnitude) {
  std::free(magnitude.record_netmag);
  std::free(magnitude.magtype);
  free_list<KSEVStamag>(magnitude.stamags);
}

void ViewRecords::free_contents(KSEVMoment &moment) { std::free(moment.record_mt); }

void ViewRecords::free_contents(KSEVAssociation &association) {
  for (char *text : {association.record_assoc, association.record_arrival,
                     association.record_site, association.sta, association.phase}) {
    std::free(text);
  }
}

void ViewRecords::free_contents(KSEVDetection &detection) {
  for (char *text : {detection.record_detection, detection.record_site, detection.sta,
                     detection.chan, detection.state}) {
    std::free(text);
  }
}

void ViewRecords::free_contents(KSEVOrigin &origin) {
  for (char *text : {origin.record_origin, origin.record_origerr, origin.magtype}) {
    std::free(text);
  }
  free_list<KSEVMagnitude>(origin.magnitudes);
  free_list<KSEVMoment>(origin.moments);
  free_list<KSEVDetection>(origin.detections);
  free_list<KSEVAssociation>(origin.associations);
  free_stations(origin.stations);
}

void ViewRecords::free_contents(KSEVEvent &event) {
  std::free(event.record_event);
  std::free(event.magtype);
  free_list<KSEVOrigin>(event.origins);
}

void ViewRecords::free_stations(rbtree *stations) {
  freearr(stations, [](void *station) {
    FreeStation()(static_cast<KSEVOriginStation *>(station));
  });
}

}  // namespace ksutil::events
