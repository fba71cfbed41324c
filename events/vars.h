/* The server's bookkeeping of tables and match keys. */
#ifndef KSUTIL_EVENTS_VARS_H
#define KSUTIL_EVENTS_VARS_H

#include <cstdint>
#include <initializer_list>
#include <string>

#include "core/Array.h"
#include "core/Table.h"
#include "events/records.h"
#include "platform/db/db.h"
#include "platform/stock/export.h"
#include "platform/stock/hook.h"
#include "platform/stock/tbl.h"

/* One watched table: what it is and what was seen of it last. */
struct EVTable {
  std::string name;
  Dbptr db = dbinvalid();
  int64_t count = -1;     // remembered rows; -1: not looked at yet
  double filetime = 0.0;  // remembered time of change, epoch seconds
  std::string null_record, filename, dirname;
  int64_t record_size = 0;
};

/* A reusable key for dbmatches.  Owns its lists, their texts and the hook; a copy has
 * lists of its own and no hook.  Making and copying throw std::bad_alloc. */
struct KSUTIL_API EVMatch {
  EVMatch() = default;
  EVMatch(std::initializer_list<const char *> key,
          std::initializer_list<const char *> table);
  /* With copies of two lists; null stays null. */
  EVMatch(Tbl *key, Tbl *table);
  EVMatch(const EVMatch &other);
  EVMatch &operator=(const EVMatch &other);
  ~EVMatch();

  Tbl *kpattern = nullptr;
  Tbl *tpattern = nullptr;
  Hook *hook = nullptr;
};

/* Stands at the head of EVVars, so that a client can recognise a server. */
inline constexpr uint32_t kEVServerMark = 0x1f3b2d56;

/* The server's fixed set of tables and keys. */
struct KSUTIL_API EVVars {
  EVVars();

  uint32_t mark = kEVServerMark;
  Array<std::string, EVTable> tables;  // the thirteen watched tables by name

  EVMatch event_evid;           // evid of a scratch event in event
  EVMatch origin_evid;          // evid of an event in origin
  EVMatch origin_orid;          // orid of a scratch origin in origin
  EVMatch origerr_orid;         // orid of an origin in origerr
  EVMatch netmag_orid;          // orid of an origin in netmag
  EVMatch mt_orid;              // orid of an origin in mt
  EVMatch assoc_orid;           // orid of an origin in assoc
  EVMatch assoc_arid;           // arid of an arrival in assoc
  EVMatch arrival_arid;         // arid of an assoc in arrival
  EVMatch stamag_magid;         // magid of a netmag in stamag
  EVMatch detection_origin;     // window around an origin's time in detection
  EVMatch detection_window;     // span of a scratch wfdisc in detection
  EVMatch detection_stachan;    // the same at a station and channel
  EVMatch arrival_stachan;      // span of a scratch wfdisc at sta, chan in arrival
  EVMatch arrival_sta;          // the same at a station
  EVMatch wfmeas_stachan;       // an arrival's sta, chan, time in wfmeas
  EVMatch wfdisc_stachan;       // span of a scratch wfdisc at sta, chan in wfdisc
  EVMatch site_sta;             // sta and day of an arrival or detection in site
  EVMatch calibration_stachan;  // span of a wfdisc at sta, chan in calibration

  Table<EVPreferredMagnitude> rules;  // the active preferred-magnitude rules
};

/* The watched tables, in the order in which they are opened. */
inline constexpr const char *kEVTableNames[] = {
    "event",  "origin", "origerr", "assoc",     "arrival", "wfmeas",     "netmag",
    "stamag", "mt",     "site",    "detection", "wfdisc",  "calibration"};

#endif
