#include "events/client/internal/record_kinds.h"

#include "events/database/internal/row_columns.h"
#include "events/records.h"

namespace ksutil::events {
namespace {

using expr::Type;
using expr::Value;

template <auto Member>
struct Owner;
template <class Record, class T, T Record::*Member>
struct Owner<Member> {
  using type = Record;
};

template <auto Member>
const auto &member(const void *record) {
  return static_cast<const typename Owner<Member>::type *>(record)->*Member;
}

/* Ids, record numbers and indexes; -1 is null. */
template <auto Member>
void read_id(const void *record, Value &value) {
  value.integer = member<Member>(record);
  value.null = value.integer == -1;
}

template <auto Member>
void read_flag(const void *record, Value &value) {
  value.integer = member<Member>(record);
}

template <auto Member>
void read_real(const void *record, Value &value) {
  value.real = member<Member>(record);
  value.null = value.real == kNoValue;
}

/* Load dates and access times; 0 is null. */
template <auto Member>
void read_stamp(const void *record, Value &value) {
  value.real = member<Member>(record);
  value.null = value.real == 0.0;
}

template <auto Member>
void read_text(const void *record, Value &value) {
  value.text = member<Member>(record);
  value.null = value.text.empty();
}

template <auto List>
void read_count(const void *record, Value &value) {
  value.integer = member<List>(record).size();
}

/* Over all origins of an event. */
template <auto List>
void read_total(const void *record, Value &value) {
  value.integer = 0;
  for (const EVOrigin &origin : static_cast<const EVEvent *>(record)->origins) {
    value.integer += (origin.*List).size();
  }
}

const EVOrigin *preferred_origin(const EVEvent &event) {
  return event.origins.ptr(event.pref_origin);
}

void read_event_time(const void *record, Value &value) {
  const auto &event = *static_cast<const EVEvent *>(record);
  value.real = event.time;
  value.null = preferred_origin(event) == nullptr || event.time <= kNoTimeBelow;
}

void read_origin_time(const void *record, Value &value) {
  value.real = static_cast<const EVOrigin *>(record)->time;
  value.null = value.real <= kNoTimeBelow;
}

template <auto Row>
const db::RowText &row_of(const void *record) {
  return member<Row>(record);
}

template <auto List>
const void *item(const void *record, long index) {
  return member<List>(record).ptr(index);
}

const void *to_preferred_origin(const void *record, long) {
  return preferred_origin(*static_cast<const EVEvent *>(record));
}

template <auto Index, auto List, auto Preferred>
const void *to_preferred_below(const void *record, long) {
  const auto &event = *static_cast<const EVEvent *>(record);
  const EVOrigin *const origin = event.origins.ptr(event.*Index);
  return origin == nullptr ? nullptr : (origin->*List).ptr(origin->*Preferred);
}

template <auto List, auto Preferred>
const void *to_preferred(const void *record, long) {
  const auto &origin = *static_cast<const EVOrigin *>(record);
  return (origin.*List).ptr(origin.*Preferred);
}

const RecordKind &stamag_kind() {
  using R = EVStamag;
  static const RecordKind kind{
      {{"magnitude", Type::kReal, read_real<&R::magnitude>},
       {"magtype", Type::kText, read_text<&R::magtype>},
       {"recno_stamag", Type::kInteger, read_id<&R::recno_stamag>},
       {"lddate_stamag", Type::kTime, read_stamp<&R::lddate_stamag>}},
      {{"stamag", row_of<&R::record_stamag>}},
      {},
      {}};
  return kind;
}

const RecordKind &magnitude_kind() {
  using R = EVMagnitude;
  static const RecordKind kind{
      {{"magnitude", Type::kReal, read_real<&R::magnitude>},
       {"magtype", Type::kText, read_text<&R::magtype>},
       {"recno_netmag", Type::kInteger, read_id<&R::recno_netmag>},
       {"lddate_netmag", Type::kTime, read_stamp<&R::lddate_netmag>},
       {"nstamags", Type::kInteger, read_count<&R::stamags>}},
      {{"netmag", row_of<&R::record_netmag>}},
      {{"stamags", stamag_kind, item<&R::stamags>}},
      {}};
  return kind;
}

const RecordKind &moment_kind() {
  using R = EVMoment;
  static const RecordKind kind{{{"recno_mt", Type::kInteger, read_id<&R::recno_mt>},
                                {"lddate_mt", Type::kTime, read_stamp<&R::lddate_mt>}},
                               {{"mt", row_of<&R::record_mt>}},
                               {},
                               {}};
  return kind;
}

const RecordKind &association_kind() {
  using R = EVAssociation;
  static const RecordKind kind{
      {{"defining", Type::kInteger, read_flag<&R::defining>},
       {"recno_assoc", Type::kInteger, read_id<&R::recno_assoc>},
       {"recno_arrival", Type::kInteger, read_id<&R::recno_arrival>},
       {"recno_site", Type::kInteger, read_id<&R::recno_site>},
       {"lddate_assoc", Type::kTime, read_stamp<&R::lddate_assoc>},
       {"lddate_arrival", Type::kTime, read_stamp<&R::lddate_arrival>}},
      {{"assoc", row_of<&R::record_assoc>},
       {"arrival", row_of<&R::record_arrival>},
       {"site", row_of<&R::record_site>}},
      {},
      {}};
  return kind;
}

const RecordKind &detection_kind() {
  using R = EVDetection;
  static const RecordKind kind{
      {{"presidual", Type::kReal, read_real<&R::presidual>},
       {"sresidual", Type::kReal, read_real<&R::sresidual>},
       {"delta", Type::kReal, read_real<&R::delta>},
       {"recno_detection", Type::kInteger, read_id<&R::recno_detection>},
       {"recno_site", Type::kInteger, read_id<&R::recno_site>},
       {"lddate_detection", Type::kTime, read_stamp<&R::lddate_detection>}},
      {{"detection", row_of<&R::record_detection>}, {"site", row_of<&R::record_site>}},
      {},
      {}};
  return kind;
}

}  // namespace

const RecordKind &origin_kind() {
  using R = EVOrigin;
  static const RecordKind kind{
      {{"orid", Type::kInteger, read_id<&R::orid>, true},
       {"time", Type::kTime, read_origin_time, true},
       {"magnitude", Type::kReal, read_real<&R::magnitude>},
       {"magtype", Type::kText, read_text<&R::magtype>},
       {"preferred", Type::kInteger, read_flag<&R::preferred>, true},
       {"nmagnitudes", Type::kInteger, read_count<&R::magnitudes>},
       {"nmoments", Type::kInteger, read_count<&R::moments>},
       {"ndetections", Type::kInteger, read_count<&R::detections>},
       {"nassociations", Type::kInteger, read_count<&R::associations>},
       {"recno_origin", Type::kInteger, read_id<&R::recno_origin>, true},
       {"recno_origerr", Type::kInteger, read_id<&R::recno_origerr>},
       {"lddate_origin", Type::kTime, read_stamp<&R::lddate_origin>, true},
       {"lddate_origin_view", Type::kTime, read_stamp<&R::lddate_origin_view>},
       {"pref_magnitude", Type::kInteger, read_id<&R::pref_magnitude>},
       {"pref_moment", Type::kInteger, read_id<&R::pref_moment>}},
      {{"origin", row_of<&R::record_origin>, true},
       {"origerr", row_of<&R::record_origerr>}},
      {{"magnitudes", magnitude_kind, item<&R::magnitudes>},
       {"moments", moment_kind, item<&R::moments>},
       {"detections", detection_kind, item<&R::detections>},
       {"associations", association_kind, item<&R::associations>}},
      {{"netmag", magnitude_kind, to_preferred<&R::magnitudes, &R::pref_magnitude>},
       {"mt", moment_kind, to_preferred<&R::moments, &R::pref_moment>}}};
  return kind;
}

const RecordKind &event_kind() {
  using R = EVEvent;
  static const RecordKind kind{
      {{"evid", Type::kInteger, read_id<&R::evid>, true},
       {"prefor", Type::kInteger, read_id<&R::prefor>, true},
       {"time", Type::kTime, read_event_time, true},
       {"magnitude", Type::kReal, read_real<&R::magnitude>},
       {"magtype", Type::kText, read_text<&R::magtype>},
       {"order", Type::kInteger, read_id<&R::order>, true},
       {"norigins", Type::kInteger, read_count<&R::origins>, true},
       {"nmagnitudes", Type::kInteger, read_total<&EVOrigin::magnitudes>},
       {"nmoments", Type::kInteger, read_total<&EVOrigin::moments>},
       {"ndetections", Type::kInteger, read_total<&EVOrigin::detections>},
       {"nassociations", Type::kInteger, read_total<&EVOrigin::associations>},
       {"recno_event", Type::kInteger, read_id<&R::recno_event>, true},
       {"lddate_event", Type::kTime, read_stamp<&R::lddate_event>, true},
       {"lddate_view", Type::kTime, read_stamp<&R::lddate_view>},
       {"access_time", Type::kTime, read_stamp<&R::access_time>},
       {"pref_origin", Type::kInteger, read_id<&R::pref_origin>, true},
       {"pref_magnitude_origin", Type::kInteger, read_id<&R::pref_magnitude_origin>},
       {"pref_moment_origin", Type::kInteger, read_id<&R::pref_moment_origin>}},
      {{"event", row_of<&R::record_event>, true}},
      {{"origins", origin_kind, item<&R::origins>}},
      {{"origin", origin_kind, to_preferred_origin},
       {"netmag", magnitude_kind,
        to_preferred_below<&R::pref_magnitude_origin, &EVOrigin::magnitudes,
                           &EVOrigin::pref_magnitude>},
       {"mt", moment_kind,
        to_preferred_below<&R::pref_moment_origin, &EVOrigin::moments,
                           &EVOrigin::pref_moment>}}};
  return kind;
}

}  // namespace ksutil::events
