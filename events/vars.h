/* EVVars: the tables that a server watches, its match keys and its magnitude rules.
 *
 * The server and every view own one.  A program may make one of its own and match with
 * its keys:
 *
 *     EVVars vars;
 *     EVMatch &key = vars.site_sta;
 *     Tbl *rows = nullptr;
 *     dbmatches(arrival_row, site, &key.kpattern, &key.tpattern, &key.hook, &rows);
 *
 * Threads: one thread at a time for each object, reading included, since dbmatches
 * writes to a key's hook. */
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

/* The bookkeeping of one watched table.  A view sets `name`, `db`, `count` and
 * `filetime` only. */
struct EVTable {
  std::string name;
  Dbptr db = dbinvalid();   // invalid while no database is open
  int64_t count = -1;       // rows at the last look; -1: not looked at yet
  double filetime = 0.0;    // time of the last change at that look, epoch seconds; 0.0
                            // without rows
  std::string null_record;  // the text of the null record
  std::string filename, dirname;  // of the table's file, which need not exist
  int64_t record_size = 0;        // bytes, newline included
};

/* A reusable key for dbmatches: the fields of the key record, the fields of the table,
 * and the index that dbmatches keeps.  Owns all three; a copy has lists of its own and
 * no hook.  Making and copying throw std::bad_alloc, and an assignment that throws
 * leaves its target as it was. */
struct KSUTIL_API EVMatch {
  EVMatch() = default;
  EVMatch(std::initializer_list<const char *> key,
          std::initializer_list<const char *> table);
  /* With copies of two lists of texts, which stay the caller's; null stays null. */
  EVMatch(Tbl *key, Tbl *table);
  EVMatch(const EVMatch &other);
  EVMatch &operator=(const EVMatch &other);
  ~EVMatch();

  Tbl *kpattern = nullptr;
  Tbl *tpattern = nullptr;
  Hook *hook =
      nullptr;  // null until dbmatches has made it; free_hook() drops the index
};

/* The value of EVVars::mark, by which a server is recognised. */
inline constexpr uint32_t kEVServerMark = 0x1f3b2d56;

struct KSUTIL_API EVVars {
  /* The thirteen tables by name, not opened, and all keys; no rules.  Throws
   * std::bad_alloc. */
  EVVars();

  uint32_t mark = kEVServerMark;
  Array<std::string, EVTable> tables;

  /* The keys by which events are read and commands find rows. */
  EVMatch event_evid;       // evid of a scratch event in event
  EVMatch origin_evid;      // evid of an event in origin
  EVMatch origin_orid;      // orid of a scratch origin in origin
  EVMatch origerr_orid;     // orid of an origin in origerr
  EVMatch netmag_orid;      // orid of an origin in netmag
  EVMatch mt_orid;          // orid of an origin in mt
  EVMatch assoc_orid;       // orid of an origin in assoc
  EVMatch assoc_arid;       // arid of an arrival in assoc
  EVMatch arrival_arid;     // arid of an assoc in arrival
  EVMatch stamag_magid;     // magid of a netmag in stamag
  EVMatch arrival_stachan;  // span of a scratch wfdisc at sta, chan in arrival
  EVMatch arrival_sta;      // the same at a station
  EVMatch wfdisc_stachan;   // span of a scratch wfdisc at sta, chan in wfdisc

  /* Part of the record for programs; the library itself finds these rows by indexes of
   * its own, or does not read them. */
  EVMatch detection_origin;     // 10 s before to 1800 s after an origin in detection
  EVMatch detection_window;     // span of a scratch wfdisc in detection
  EVMatch detection_stachan;    // the same at a station and channel
  EVMatch wfmeas_stachan;       // an arrival's sta, chan, time in wfmeas
  EVMatch site_sta;             // sta and day of an arrival or detection in site
  EVMatch calibration_stachan;  // span of a wfdisc at sta, chan in calibration

  Table<EVPreferredMagnitude> rules;  // the active preferred-magnitude rules
};

/* The watched tables, in the order in which they are opened.  wfmeas and calibration
 * are opened and watched, but no reading of the library uses their rows. */
inline constexpr const char *kEVTableNames[] = {
    "event",  "origin", "origerr", "assoc",     "arrival", "wfmeas",     "netmag",
    "stamag", "mt",     "site",    "detection", "wfdisc",  "calibration"};

#endif
