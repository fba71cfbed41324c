/* records: defines the records of the event server, a tree of plain values copied from
 * database rows.
 *
 * A record that mirrors a row holds the record number (recno_*, -1: no row), the text of
 * the row with its newline (record_*) and the load date (lddate_*, epoch seconds, 0.0
 * until it is read).  -999.0 means no value (magnitudes, residuals, distances), -1 means
 * none (ids, record numbers, indexes).  Copies are deep.  Nothing points into a database:
 * row texts share memory, which lives as long as they do.  A record that is assigned to
 * itself loses the rows below it, as any Table does. */
#ifndef KSUTIL_EVENTS_RECORDS_H
#define KSUTIL_EVENTS_RECORDS_H

#include <cstdint>
#include <string>

#include "core/ShortText.h"
#include "core/Table.h"
#include "platform/db/row_text.h"

/* One stamag row: the magnitude of one station. */
struct EVStamag {
  int64_t recno_stamag = -1;
  ksutil::db::RowText record_stamag;
  double lddate_stamag = 0.0;
  int64_t spare = -1;
  double magnitude = -999.0;
  ShortText magtype;
};

/* One netmag row; or one of the origin's own mb, ms, ml, with recno_netmag -1 and a
 * synthetic row text that is not in any table.  stamags is filled when an event is
 * expanded. */
struct EVMagnitude {
  int64_t recno_netmag = -1;
  ksutil::db::RowText record_netmag;
  double lddate_netmag = 0.0;
  double magnitude = -999.0;
  ShortText magtype;
  Table<EVStamag> stamags;
};

/* One mt row: a moment tensor. */
struct EVMoment {
  int64_t recno_mt = -1;
  ksutil::db::RowText record_mt;
  double lddate_mt = 0.0;
};

/* One assoc row with its arrival and the site that was valid at the arrival's time. */
struct EVAssociation {
  int64_t recno_assoc = -1;
  ksutil::db::RowText record_assoc;
  double lddate_assoc = 0.0;
  int64_t recno_arrival = -1;
  ksutil::db::RowText record_arrival;
  double lddate_arrival = 0.0;
  int64_t recno_site = -1;
  ksutil::db::RowText record_site;
  int32_t defining = 0;  // 1: the arrival's time was used in the location
};

/* One detection row with its site.  Residuals are the detection's time minus the
 * predicted times of the first P-type and S-type arrivals, in seconds; delta is the
 * distance from station to origin in degrees. */
struct EVDetection {
  int64_t recno_detection = -1;
  ksutil::db::RowText record_detection;
  double lddate_detection = 0.0;
  int64_t recno_site = -1;
  ksutil::db::RowText record_site;
  double presidual = -999.0;
  double sresidual = -999.0;
  double delta = -999.0;
};

/* One origin row with its origerr row and the rows that belong to it. */
struct EVOrigin {
  int64_t recno_origin = -1;
  ksutil::db::RowText record_origin;
  int64_t orid = -1;
  double lddate_origin = 0.0;
  double lddate_origin_view = 0.0;  // greatest lddate of the origin, netmag and mt rows
  double time = 0.0;                // origin time, epoch seconds
  int64_t recno_origerr = -1;
  ksutil::db::RowText record_origerr;
  double magnitude = -999.0;  // of the preferred magnitude
  ShortText magtype;
  int32_t preferred = 0;  // 1: the event's preferred origin
  Table<EVMagnitude> magnitudes;
  Table<EVMoment> moments;
  Table<EVDetection> detections;      // filled when an event is expanded
  Table<EVAssociation> associations;  // filled when an event is expanded
  int32_t pref_magnitude = -1;        // index in magnitudes
  int32_t pref_moment = -1;           // index in moments
};

/* One event row with its origins. */
struct EVEvent {
  int64_t recno_event = -1;
  ksutil::db::RowText record_event;
  int64_t evid = -1;
  int64_t prefor = -1;  // orid of the preferred origin, as in the row
  int64_t order = -1;   // position in which the refresh read the event
  double lddate_event = 0.0;
  double lddate_view = 0.0;   // greatest lddate_origin_view
  double access_time = 0.0;   // when it was last read or handed out, epoch seconds
  double time = 0.0;          // origin time of the preferred origin
  double magnitude = -999.0;  // by the preferred-magnitude rules
  ShortText magtype;
  int32_t pref_origin = -1;            // index in origins
  int32_t pref_magnitude_origin = -1;  // index in origins
  int32_t pref_moment_origin = -1;     // index in origins
  Table<EVOrigin> origins;
};

/* An arrival row, as commands return it. */
struct EVArrival {
  int64_t recno_arrival = -1;
  int64_t recno_assoc = -1;  // the first assoc row with its arid
  double time = 0.0;
  std::string sta, chan, iphase, record_arrival;
};

/* A row of any table, as commands return it. */
struct EVTableRecord {
  int64_t recno = -1;
  std::string record;
};

/* A station and channel with the span of its waveforms, epoch seconds. */
struct EVStaChan {
  std::string sta, chan;
  double tstart = 0.0, tend = 0.0;
};

/* One rule of the preferred-magnitude list; both ends of the range belong to it. */
struct EVPreferredMagnitude {
  std::string magtype;  // lower case, at most 7 characters
  double minmag = -999.0;
  double maxmag = 999.0;
};

/* The changes that a refresh has found, as clients receive them. */
struct EVResponse {
  int32_t events_changed = 0;      // the event list; always with a forced refresh
  int32_t detections_changed = 0;  // the detection window
  int32_t expanded_changed = 0;    // an event of the cache of expanded events
  int32_t lastmodified_changed = 0;
  int64_t lastmodified_evid = -1;
  int32_t mostrecent_changed = 0;
  int64_t mostrecent_evid = -1;
  /* New and changed events: those of the list in its order, then expanded events. */
  Table<long> changed_evids;
  Table<long> removed_evids;  // no longer in the list
};

class EVClient;

/* One registration of a client. */
struct EVServerClient {
  EVClient *client = nullptr;
};

#endif
