/* import_stations: ksdb import of stations. */
#ifndef KSUTIL_TOOLS_KSDB_IMPORT_STATIONS_H
#define KSUTIL_TOOLS_KSDB_IMPORT_STATIONS_H

#include <string>

#include "formats/exchange/format.h"

namespace ksutil::tools {

struct StationArguments {
  std::string database, schema;
  bool quiet = false, dry_run = false, strict = false;
};

/* Brings a database up to date with the stations of an input; the exit code. */
int import_station_file(exchange::Input &input, const exchange::Recognised &kind,
                        const StationArguments &arguments);

}  // namespace ksutil::tools
#endif
