#include "tools/ksdb/import_stations.h"

#include <cstdio>

#include "formats/exchange/stations/station_import.h"
#include "tools/common/cli.h"
#include "tools/common/progress.h"
#include "tools/ksdb/import_target.h"
#include "tools/ksdb/refusals.h"

namespace ksutil::tools {
namespace {

using exchange::StationsImported;

constexpr long kStationMegabyte = 1 << 20;

/* Reads the whole input before it touches the database; false after a complaint. */
bool gather_stations(exchange::Input &input, exchange::StationReader &reader,
                     bool quiet, exchange::StationGathering &stations,
                     Refusals &refusals) {
  const bool sized = input.size() > 0;
  Progress progress("reading " + input.name(),
                    sized ? input.size() / kStationMegabyte + 1 : 0, quiet,
                    sized ? "MB" : "channels");
  exchange::StationItem item;
  for (;;) {
    switch (reader.next(item)) {
      case exchange::StationReader::Got::kEnd:
        return true;
      case exchange::StationReader::Got::kFailed:
        progress.wipe();
        complain(reader.problem());
        return false;
      case exchange::StationReader::Got::kRefused:
        progress.wipe();
        refusals.add(reader.line(), reader.problem());
        break;
      case exchange::StationReader::Got::kRecord:
        if (stations.add(item, reader.line())) break;
        progress.wipe();
        complain(stations.problem());
        return false;
    }
    progress.reach(sized ? input.consumed() / kStationMegabyte
                         : static_cast<long>(stations.channels().size()));
  }
}

void tell_of_records(const char *kind, const exchange::RecordCounts &counts) {
  std::printf("%s: %ld added, %ld updated, %ld unchanged\n", kind,
              static_cast<long>(counts.added), static_cast<long>(counts.updated),
              static_cast<long>(counts.unchanged));
}

void tell_of_stations(const exchange::StationImportCounts &counts, long refused,
                      bool dry_run) {
  if (dry_run) std::printf("would be:\n");
  tell_of_records("networks", counts.networks);
  tell_of_records("stations", counts.stations);
  tell_of_records("channels", counts.channels);
  const auto tell = [](const char *format, std::int64_t count) {
    if (count > 0) std::printf(format, static_cast<long>(count));
  };
  tell("%ld refused\n", refused);
  tell("%ld response files\n", counts.files);
  tell("%ld texts shortened to their fields\n", counts.shortened);
}

bool has_no_place(const exchange::UnplacedCounts &without_place, bool strict) {
  if (!strict || without_place.empty()) return false;
  complain("no place for " + without_place.list().front().name);
  return true;
}

}  // namespace

int import_station_file(exchange::Input &input, const exchange::Recognised &kind,
                        const StationArguments &arguments) {
  const bool strict = arguments.strict, quiet = arguments.quiet;
  std::string problem;
  const auto reader = exchange::open_station_reader(input, kind, problem);
  if (reader == nullptr) {
    complain(problem);
    return kFailure;
  }
  Refusals refusals(input.name());
  exchange::StationGathering stations;
  if (!gather_stations(input, *reader, quiet, stations, refusals)) return kFailure;
  exchange::UnplacedCounts without_place = stations.unplaced();
  for (const exchange::Unplaced &left : reader->without_place()) {
    without_place.add(left.name, left.count);
  }
  if (has_no_place(without_place, strict) || (strict && refusals.count() > 0)) {
    refusals.finish();
    complain("nothing imported (--strict)");
    return kFailure;
  }

  ImportTarget target;
  if (!target.open(arguments.database, arguments.schema, arguments.dry_run)) {
    return kFailure;
  }
  exchange::StationImportCounts counts;
  const StationsImported imported = exchange::import_stations(
      target.store(), stations, {arguments.dry_run, strict},
      [&](std::int64_t line, const std::string &reason) { refusals.add(line, reason); },
      counts);
  refusals.finish();
  if (imported == StationsImported::kStrict) {
    if (counts.shortened > 0) {
      complain(std::to_string(counts.shortened) + " texts do not fit their fields");
    }
    complain("nothing imported (--strict)");
  }
  if (imported != StationsImported::kYes) return kFailure;
  const bool any =
      counts.networks.added + counts.stations.added + counts.channels.added > 0;
  if (any || refusals.count() == 0) target.keep();
  if (!quiet) {
    tell_of_stations(counts, refusals.count(), arguments.dry_run);
    for (const exchange::Unplaced &left : without_place.list()) {
      std::printf(
          "no place for %s%s\n", left.name.c_str(),
          left.count > 1 ? (" (" + std::to_string(left.count) + ")").c_str() : "");
    }
  }
  return refusals.count() == 0 ? kOk : kFailure;
}

}  // namespace ksutil::tools
