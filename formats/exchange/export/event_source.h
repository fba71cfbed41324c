/* EventSource: gives the events of a database, one after the other in the order of their
 * origin times, as the records of the exchange formats.
 *
 * Memory holds one event at a time; besides, 16 bytes for each event and each row of the
 * tables below it, and the station codes.
 * Rows that are missing or cannot be read are left out and counted.
 * Ids are those of publicid; a row without one has "NAME/FIELD/ID", such as
 * "mydb/orid/17", and an event of a database without public ids the name that an import has
 * given it in evname, unless two events have it. */
#ifndef KSUTIL_FORMATS_EXCHANGE_EXPORT_EVENT_SOURCE_H
#define KSUTIL_FORMATS_EXCHANGE_EXPORT_EVENT_SOURCE_H

#include <array>
#include <cfloat>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "formats/exchange/export/event_filter.h"
#include "formats/exchange/export/export_tables.h"
#include "formats/exchange/export/left_out.h"
#include "formats/exchange/export/row_records.h"
#include "formats/exchange/records.h"

namespace ksutil::exchange {

/* Which events are given: those that fulfil all conditions. */
struct EventSelection {
  double after = -DBL_MAX, before = DBL_MAX;  // origin times: after <= time < before
  double min_magnitude = -DBL_MAX;            // of the magnitude shown for the event
  std::vector<std::int64_t> evids;            // empty: all
  std::string where;                          // see EventFilter; empty: all
};

/* Faults of the database, counted. */
struct SourceFaults {
  std::int64_t events = 0;      // left out: no origin, or a row that cannot be read
  std::int64_t rows = 0;        // left out: cannot be read, or lack time or place
  std::int64_t values = 0;      // given as nulls: cannot be read
  std::int64_t references = 0;  // to rows that are not there
  std::vector<std::int64_t> missing;  // of EventSelection::evids: not in the table
};

class EventSource {
 public:
  /* Null, with `problem` set or a message registered, when the tables cannot be read or the
   * selection is not valid.  The store must outlive the source. */
  static std::unique_ptr<EventSource> open(db::DatabaseStore &store,
                                           const EventSelection &selection,
                                           std::string &problem);

  /* The next event; false at the end. */
  bool next(Event &event);

  /* Events that may be given, and those of them that have been looked at. */
  std::size_t size() const { return order_.size(); }
  std::size_t looked_at() const { return at_; }

  SourceFaults faults() const {
    SourceFaults faults = faults_;
    faults.rows += tables_.ids.unreadable();
    return faults;
  }
  /* Values of rows that no record has a place for. */
  const std::vector<Unplaced> &without_place() const { return left_out_.list(); }

 private:
  struct Place {
    double time;
    std::int64_t row;  // of event
  };

  EventSource(db::DatabaseStore &store, const EventSelection &selection);
  bool prepare(std::string &problem);
  void order_events(std::int64_t unnamed);
  std::int64_t find_doubled_names();
  bool read_event(std::int64_t record, Event &event);
  void read_origin(std::int64_t record, Event &event);
  void read_parts(std::size_t index, Event &event);
  void read_magnitudes(Origin &origin);
  void add_own_magnitudes(std::size_t index, Origin &origin);
  void read_tensors(Origin &origin);
  void read_associations(Event &event, Origin &origin);
  void read_station_magnitudes(Event &event, Origin &origin);
  std::int64_t index_of(std::int64_t magid);
  std::int64_t pick_of(std::int64_t arid, Event &event);
  std::vector<std::string> comments(std::int64_t commid);
  std::string id_of(const char *field, std::int64_t id);
  bool selects(std::string_view event_row, const Event &event);
  std::string_view usable(const ExportTable &table, std::int64_t record);

  db::DatabaseStore &store_;
  const EventSelection selection_;
  ExportTables tables_;
  std::string name_;  // of the database, without its folder
  std::optional<OriginRows> origins_;
  std::optional<OrigerrRows> errors_;
  std::optional<NetmagRows> magnitudes_;
  std::optional<StamagRows> station_magnitudes_;
  std::optional<ArrivalRows> arrivals_;
  std::optional<AssocRows> associations_;
  std::optional<MtRows> tensors_;
  db::IntegerColumn evid_, prefor_, commid_, lineno_;
  db::TextColumn evname_, auth_, remark_;
  db::RealColumn lddate_;
  RowIndex names_;  // of events without public ids, by a hash of evname
  std::optional<EventFilter> filter_;
  std::vector<Place> order_;
  std::size_t at_ = 0;
  /* Of the event that is being read: */
  std::int64_t prefor_of_event_ = -1;
  std::int64_t preferred_row_ = -1;                  // of origin
  bool preferred_found_ = false;                     // the row of prefor
  std::vector<std::array<OriginRows::Own, 3>> own_;  // of the origins
  std::vector<std::int64_t> magids_, mtids_;         // of the origin that is being read
  std::unordered_map<std::int64_t, std::int64_t> picks_;  // by arid; -1: there is none
  SourceFaults faults_;
  LeftOut left_out_;
};

}  // namespace ksutil::exchange
#endif
