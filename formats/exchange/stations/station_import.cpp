#include "formats/exchange/stations/station_import.h"

#include <vector>

#include "formats/exchange/stations/station_plan.h"
#include "platform/clock/clock.h"
#include "platform/db/shared/read_only_tables.h"

namespace ksutil::exchange {
namespace {

/* The directory of response files; "" for a database in memory. */
std::string response_directory(db::DatabaseStore &store) {
  const db::TableStore *instrument = store.table("instrument");
  if (instrument == nullptr || instrument->directory().empty()) return "";
  return instrument->directory() + "/" + kResponseFolder;
}

}  // namespace

StationsImported import_stations(
    db::DatabaseStore &store, StationGathering &stations,
    const StationImportOptions &options,
    const std::function<void(std::int64_t line, const std::string &reason)> &refused,
    StationImportCounts &counts) {
  const std::vector<std::string> names = StationPlan::names(store);
  if (names.empty()) return StationsImported::kFailed;
  const std::string directory = response_directory(store);
  bool too_strict = false;
  const auto work = [&](db::Transaction &step) {
    counts = StationImportCounts();
    StationPlan plan(store, stations, refused, counts);
    if (!plan.open(step, names, directory) || !plan.run()) return false;
    too_strict = options.strict && (counts.refused > 0 || counts.shortened > 0);
    if (too_strict) return false;
    if (options.dry_run) return true;
    return stations.responses().publish(plan.files(), directory) &&
           plan.write(std_now());
  };
  bool done;
  if (options.dry_run) {
    db::ReadOnlyTables step(store, names);
    done = work(step);
  } else {
    done = store.transaction(names, work);
    if (!done) stations.responses().take_back();
  }
  return done         ? StationsImported::kYes
         : too_strict ? StationsImported::kStrict
                      : StationsImported::kFailed;
}

}  // namespace ksutil::exchange
