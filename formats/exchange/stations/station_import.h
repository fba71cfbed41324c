/* station_import: brings a database up to date with gathered stations, in one step.
 *
 * A station is known by its code (after seedcode) and first day, a channel by station,
 * channel code (with the location code behind it, unless seedcode says otherwise) and the
 * beginning of its epoch.  What is known is changed in place where it differs and keeps its
 * ids; what the input does not give stays.  Channel epochs that follow each other with the
 * same position and orientation share a row of sitechan; each has a row of sensor.
 * Instruments that agree in all values share a row of instrument.
 * The database has all of the import afterwards, or nothing of it: see
 * DatabaseStore::transaction.  Response files are there before the rows that name them, and
 * are removed when the import fails; a process that dies may leave files that no row
 * names, which the next import of the same responses uses. */
#ifndef KSUTIL_FORMATS_EXCHANGE_STATIONS_STATION_IMPORT_H
#define KSUTIL_FORMATS_EXCHANGE_STATIONS_STATION_IMPORT_H

#include <cstdint>
#include <functional>
#include <string>

#include "formats/exchange/stations/station_gathering.h"
#include "platform/db/store.h"

namespace ksutil::exchange {

struct StationImportOptions {
  bool dry_run = false;  // counts what would be done
  /* A refused record or a shortened text undoes everything. */
  bool strict = false;
};

/* The number of records of one kind by their outcome. */
struct RecordCounts {
  std::int64_t added = 0, updated = 0, unchanged = 0;
};

struct StationImportCounts {
  RecordCounts networks, stations, channels;
  std::int64_t refused = 0;    // stations and channels with a value that does not fit
  std::int64_t shortened = 0;  // texts that were cut to their fields
  std::int64_t files = 0;      // responses in use by what was added or updated
};

/* kStrict: something was refused or shortened under `strict`, nothing imported; kFailed:
 * nothing imported, with a message. */
enum class StationsImported { kYes, kStrict, kFailed };
StationsImported import_stations(
    db::DatabaseStore &store, StationGathering &stations,
    const StationImportOptions &options,
    const std::function<void(std::int64_t line, const std::string &reason)> &refused,
    StationImportCounts &counts);

}  // namespace ksutil::exchange
#endif
