/* fields: lists the fields of each record that are printed and compared, with their
 * format. */
#ifndef KSUTIL_EVENTS_RECORDS_INTERNAL_FIELDS_H
#define KSUTIL_EVENTS_RECORDS_INTERNAL_FIELDS_H

#include <string>
#include <tuple>

#include "events/records.h"

namespace ksutil::events {

/* The format of a value. */
enum class Form {
  kNumber,    // ids, record numbers, indexes and flags
  kReal,      // times, load dates and magnitudes
  kResidual,  // residuals and distances: three decimals
  kText,
  kRecord  // a row text, with its own newline
};

template <class Record, class Value>
struct FieldOf {
  const char *name;
  Value Record::*member;
  Form form;
};

template <class Record, class Value>
constexpr FieldOf<Record, Value> number(const char *name, Value Record::*member) {
  return {name, member, Form::kNumber};
}
template <class Record>
constexpr FieldOf<Record, double> real(const char *name, double Record::*member) {
  return {name, member, Form::kReal};
}
template <class Record>
constexpr FieldOf<Record, double> residual(const char *name, double Record::*member) {
  return {name, member, Form::kResidual};
}
template <class Record, class Text>
constexpr FieldOf<Record, Text> text(const char *name, Text Record::*member) {
  return {name, member, Form::kText};
}
template <class Record>
constexpr FieldOf<Record, db::RowText> row(const char *name,
                                           db::RowText Record::*member) {
  return {name, member, Form::kRecord};
}

/* Fields: for each record, its name in difference lines, the width of its field names
 * in prints, and its printed and compared fields in order. */
template <class Record>
struct Fields;

template <>
struct Fields<EVEvent> {
  using R = EVEvent;
  static constexpr const char *kName = "event";
  static constexpr int kColumn = 19;
  static constexpr auto kPrinted = std::make_tuple(
      number("recno_event", &R::recno_event), row("record_event", &R::record_event),
      number("evid", &R::evid), number("prefor", &R::prefor),
      real("lddate_event", &R::lddate_event), real("lddate_view", &R::lddate_view),
      real("access_time", &R::access_time), real("magnitude", &R::magnitude),
      text("magtype", &R::magtype), number("pref_origin", &R::pref_origin),
      number("pref_magnitude_origin", &R::pref_magnitude_origin),
      number("pref_moment_origin", &R::pref_moment_origin));
  /* Without order and access_time, which differ between readings of the same rows, and
   * without time, magnitude and magtype, which follow from the origins. */
  static constexpr auto kCompared = std::make_tuple(
      number("recno_event", &R::recno_event), row("record_event", &R::record_event),
      number("evid", &R::evid), number("prefor", &R::prefor),
      real("lddate_event", &R::lddate_event), real("lddate_view", &R::lddate_view),
      number("pref_origin", &R::pref_origin),
      number("pref_magnitude_origin", &R::pref_magnitude_origin),
      number("pref_moment_origin", &R::pref_moment_origin));
};

template <>
struct Fields<EVOrigin> {
  using R = EVOrigin;
  static constexpr const char *kName = "origin";
  static constexpr int kColumn = 19;
  static constexpr auto kPrinted = std::make_tuple(
      number("recno_origin", &R::recno_origin), row("record_origin", &R::record_origin),
      number("orid", &R::orid), real("lddate_origin", &R::lddate_origin),
      real("lddate_origin_view", &R::lddate_origin_view), real("time", &R::time),
      number("recno_origerr", &R::recno_origerr),
      row("record_origerr", &R::record_origerr),
      number("pref_magnitude", &R::pref_magnitude),
      number("pref_moment", &R::pref_moment), number("preferred", &R::preferred));
  static constexpr auto kCompared = std::make_tuple(
      number("recno_origin", &R::recno_origin), number("orid", &R::orid),
      real("lddate_origin", &R::lddate_origin), number("preferred", &R::preferred),
      number("recno_origerr", &R::recno_origerr),
      number("pref_magnitude", &R::pref_magnitude),
      number("pref_moment", &R::pref_moment), real("time", &R::time),
      real("magnitude", &R::magnitude), text("magtype", &R::magtype),
      row("record_origin", &R::record_origin),
      row("record_origerr", &R::record_origerr));
};

template <>
struct Fields<EVMagnitude> {
  using R = EVMagnitude;
  static constexpr const char *kName = "magnitude";
  static constexpr int kColumn = 19;
  static constexpr auto kPrinted = std::make_tuple(
      number("recno_netmag", &R::recno_netmag), row("record_netmag", &R::record_netmag),
      real("lddate_netmag", &R::lddate_netmag), real("magnitude", &R::magnitude),
      text("magtype", &R::magtype));
  static constexpr auto kCompared =
      std::make_tuple(number("recno_netmag", &R::recno_netmag),
                      real("lddate_netmag", &R::lddate_netmag),
                      row("record_netmag", &R::record_netmag));
};

template <>
struct Fields<EVStamag> {
  using R = EVStamag;
  static constexpr const char *kName = "stamag";
  static constexpr int kColumn = 20;
  static constexpr auto kPrinted = std::make_tuple(
      number("recno_stamag", &R::recno_stamag), row("record_stamag", &R::record_stamag),
      real("lddate_stamag", &R::lddate_stamag), real("magnitude", &R::magnitude),
      text("magtype", &R::magtype));
  static constexpr auto kCompared =
      std::make_tuple(number("recno_stamag", &R::recno_stamag),
                      real("lddate_stamag", &R::lddate_stamag),
                      row("record_stamag", &R::record_stamag));
};

template <>
struct Fields<EVMoment> {
  using R = EVMoment;
  static constexpr const char *kName = "moment";
  static constexpr int kColumn = 19;
  static constexpr auto kPrinted =
      std::make_tuple(number("recno_mt", &R::recno_mt), row("record_mt", &R::record_mt),
                      real("lddate_mt", &R::lddate_mt));
  static constexpr auto kCompared = std::make_tuple(number("recno_mt", &R::recno_mt),
                                                    real("lddate_mt", &R::lddate_mt),
                                                    row("record_mt", &R::record_mt));
};

template <>
struct Fields<EVAssociation> {
  using R = EVAssociation;
  static constexpr const char *kName = "association";
  static constexpr int kColumn = 19;
  static constexpr auto kPrinted = std::make_tuple(
      number("recno_assoc", &R::recno_assoc), row("record_assoc", &R::record_assoc),
      real("lddate_assoc", &R::lddate_assoc),
      number("recno_arrival", &R::recno_arrival),
      row("record_arrival", &R::record_arrival),
      real("lddate_arrival", &R::lddate_arrival), number("recno_site", &R::recno_site),
      row("record_site", &R::record_site), number("defining", &R::defining));
  static constexpr auto kCompared = std::make_tuple(
      number("recno_assoc", &R::recno_assoc), real("lddate_assoc", &R::lddate_assoc),
      row("record_assoc", &R::record_assoc), number("recno_arrival", &R::recno_arrival),
      real("lddate_arrival", &R::lddate_arrival),
      row("record_arrival", &R::record_arrival), number("recno_site", &R::recno_site),
      row("record_site", &R::record_site), number("defining", &R::defining));
};

template <>
struct Fields<EVDetection> {
  using R = EVDetection;
  static constexpr const char *kName = "detection";
  static constexpr int kColumn = 20;
  static constexpr auto kPrinted = std::make_tuple(
      number("recno_detection", &R::recno_detection),
      row("record_detection", &R::record_detection),
      real("lddate_detection", &R::lddate_detection),
      number("recno_site", &R::recno_site), row("record_site", &R::record_site),
      residual("presidual", &R::presidual), residual("sresidual", &R::sresidual),
      residual("delta", &R::delta));
  static constexpr auto kCompared = std::make_tuple(
      number("recno_detection", &R::recno_detection),
      real("lddate_detection", &R::lddate_detection),
      row("record_detection", &R::record_detection),
      number("recno_site", &R::recno_site), row("record_site", &R::record_site),
      residual("presidual", &R::presidual), residual("sresidual", &R::sresidual),
      residual("delta", &R::delta));
};

template <>
struct Fields<EVTableRecord> {
  using R = EVTableRecord;
  static constexpr int kColumn = 12;
};

/* Calls fn(field) for each field of a list above. */
template <class List, class Fn>
constexpr void for_each_field(const List &list, Fn fn) {
  std::apply([&](const auto &...field) { (fn(field), ...); }, list);
}

}  // namespace ksutil::events
#endif
