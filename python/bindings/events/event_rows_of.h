/* event_rows_of: names the rows that each kind of record of an event holds. */
#ifndef KSUTIL_PYTHON_BINDINGS_EVENTS_EVENT_ROWS_OF_H
#define KSUTIL_PYTHON_BINDINGS_EVENTS_EVENT_ROWS_OF_H

#include <ksutil/events/records.h>

#include <cstddef>
#include <vector>

namespace ksutil::python {

/* A row of a table; a null text: the record that would hold it is not there. */
struct RowRef {
  const char *table;
  const db::RowText *text;
  long recno;
};

/* The rows whose fields are attributes of a record, in the order in which a name is looked
 * for; the first `own` of them belong to the record, the others to preferred records
 * below. */
struct RowsOf {
  std::vector<RowRef> rows;
  std::size_t own;
};

inline RowsOf rows_of(const EVStamag &s) {
  return {{{"stamag", &s.record_stamag, s.recno_stamag}}, 1};
}
inline RowsOf rows_of(const EVMagnitude &m) {
  return {{{"netmag", &m.record_netmag, m.recno_netmag}}, 1};
}
inline RowsOf rows_of(const EVMoment &m) {
  return {{{"mt", &m.record_mt, m.recno_mt}}, 1};
}
inline RowsOf rows_of(const EVAssociation &a) {
  return {{{"assoc", &a.record_assoc, a.recno_assoc},
           {"arrival", &a.record_arrival, a.recno_arrival},
           {"site", &a.record_site, a.recno_site}},
          3};
}
inline RowsOf rows_of(const EVDetection &d) {
  return {{{"detection", &d.record_detection, d.recno_detection},
           {"site", &d.record_site, d.recno_site}},
          2};
}

/* Adds the rows of the preferred magnitude and moment tensor of two origins. */
inline void add_preferred(const EVOrigin *magnitudes, const EVOrigin *moments,
                          RowsOf &rows) {
  const EVMagnitude *const magnitude =
      magnitudes == nullptr ? nullptr
                            : magnitudes->magnitudes.ptr(magnitudes->pref_magnitude);
  const EVMoment *const moment =
      moments == nullptr ? nullptr : moments->moments.ptr(moments->pref_moment);
  rows.rows.push_back({"netmag",
                       magnitude == nullptr ? nullptr : &magnitude->record_netmag,
                       magnitude == nullptr ? -1 : magnitude->recno_netmag});
  rows.rows.push_back({"mt", moment == nullptr ? nullptr : &moment->record_mt,
                       moment == nullptr ? -1 : moment->recno_mt});
}

inline RowsOf rows_of(const EVOrigin &o) {
  RowsOf rows{{{"origin", &o.record_origin, o.recno_origin},
               {"origerr", &o.record_origerr, o.recno_origerr}},
              2};
  add_preferred(&o, &o, rows);
  return rows;
}

inline RowsOf rows_of(const EVEvent &e) {
  RowsOf rows{{{"event", &e.record_event, e.recno_event}}, 1};
  const EVOrigin *const origin = e.origins.ptr(e.pref_origin);
  rows.rows.push_back({"origin", origin == nullptr ? nullptr : &origin->record_origin,
                       origin == nullptr ? -1 : origin->recno_origin});
  rows.rows.push_back({"origerr", origin == nullptr ? nullptr : &origin->record_origerr,
                       origin == nullptr ? -1 : origin->recno_origerr});
  add_preferred(e.origins.ptr(e.pref_magnitude_origin),
                e.origins.ptr(e.pref_moment_origin), rows);
  return rows;
}

}  // namespace ksutil::python
#endif
