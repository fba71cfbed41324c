/* Importer: brings a database up to date with gathered events, in one step.
 *
 * An event is known by its text id: in the table publicid (key "evid"), or, in databases
 * and schemas without one, in event.evname.  A new event gets an event row, an origin row
 * and, where the records give them, origerr, netmag, stamag, mt, arrival, assoc and remark
 * rows, and its station channels rows of affiliation and seedcode; a later version of a
 * known one changes these rows in place and keeps their ids.  Rows that a later version
 * does not give any more stay.  What an interrupted
 * import of earlier versions left (origins without their event) is taken up by the event
 * that fits it.
 * The database has all of the import afterwards, or nothing of it: see
 * DatabaseStore::transaction. */
#ifndef KSUTIL_FORMATS_EXCHANGE_IMPORT_IMPORTER_H
#define KSUTIL_FORMATS_EXCHANGE_IMPORT_IMPORTER_H

#include <cfloat>
#include <cstdint>
#include <functional>
#include <string>

#include "formats/exchange/import/gathering.h"
#include "formats/exchange/unplaced.h"
#include "platform/db/store.h"

namespace ksutil::exchange {

struct ImportOptions {
  double after = -DBL_MAX, before = DBL_MAX;  // origin times: after <= time < before
  double min_magnitude = -DBL_MAX;  // of the preferred origin's first magnitude
  /* A solution that differs becomes a further origin of its event, and the preferred one;
   * else it replaces the earlier one. */
  bool keep_origins = false;
  bool dry_run = false;  // counts what would be done
  /* A refused event or a shortened text undoes everything. */
  bool strict = false;
};

/* The number of events by their outcome. */
struct ImportCounts {
  std::int64_t added = 0;
  std::int64_t updated = 0;
  std::int64_t unchanged = 0;
  std::int64_t older = 0;     // the database holds a later version
  std::int64_t left_out = 0;  // by time or magnitude
  std::int64_t refused = 0;   // a value does not fit
  /* Of those added and updated: */
  std::int64_t healed = 0;       // added to origins that had lost their event
  std::int64_t kept = 0;         // updated, with the earlier solution kept
  std::int64_t shortened = 0;    // texts that were cut to their fields
  UnplacedCounts cut_fields;     // these fields, as "netmag.auth"
  UnplacedCounts without_place;  // what the tables have no place for
};

/* Hears of progress and of events that are refused. */
struct ImportListener {
  /* What begins: the tables of the database are indexed, then events are imported, of
   * which reached() tells, then their rows are copied into the tables. */
  enum class Stage { kIndexing, kImporting, kCopying };
  std::function<void(Stage stage)> begun = [](Stage) {};
  std::function<void(std::int64_t done)> reached = [](std::int64_t) {};
  std::function<void(std::int64_t line, const std::string &reason)> refused =
      [](std::int64_t, const std::string &) {};
};

/* kStrict: an event was refused or a text shortened under `strict`, nothing imported;
 * kFailed: nothing imported, with a message. */
enum class Imported { kYes, kStrict, kFailed };
Imported import_events(db::DatabaseStore &store, Gathering &events,
                       const ImportOptions &options, const ImportListener &listener,
                       ImportCounts &counts);

}  // namespace ksutil::exchange
#endif
