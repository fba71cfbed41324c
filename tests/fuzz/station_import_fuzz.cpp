/* Stations on their way through a database: files of any format of stations.  What was
 * imported is a sound database; the same import again changes nothing; what is exported is
 * read again, and makes another sound database.
 * Words: formats/exchange/stationxml formats/exchange/fdsn_station */
#include <string>

#include "formats/exchange/stations/station_import.h"
#include "tests/fuzz/import_subject.h"

namespace ksutil::fuzz {
namespace {

using exchange::StationGathering, exchange::StationReader;

/* The stations of a file; null when it is refused as a whole. */
std::unique_ptr<StationGathering> gather(std::string_view bytes) {
  std::string problem;
  const auto input = exchange::Input::open(file_of(bytes), problem);
  require(input != nullptr, "a file can be opened");
  const auto reader = exchange::open_station_reader(
      *input, exchange::recognise(input->head()), problem);
  if (reader == nullptr) return nullptr;
  auto stations = std::make_unique<StationGathering>();
  exchange::StationItem item;
  for (;;) {
    const StationReader::Got got = reader->next(item);
    if (got == StationReader::Got::kFailed) return nullptr;
    if (got == StationReader::Got::kEnd) return stations;
    if (got == StationReader::Got::kRefused) continue;
    require(stations->add(item, reader->line()), "an item is gathered");
  }
}

exchange::StationImportCounts import(db::DatabaseStore &store,
                                     StationGathering &stations) {
  exchange::StationImportCounts counts;
  std::int64_t refused = 0;
  require(import_stations(
              store, stations, {},
              [&refused](std::int64_t, const std::string &reason) {
                require(!reason.empty(), "what is refused has a reason");
                refused++;
              },
              counts) == exchange::StationsImported::kYes,
          "stations are imported");
  require(counts.refused == refused, "refusals are told");
  return counts;
}

bool changes(const exchange::StationImportCounts &counts) {
  const auto any = [](const exchange::RecordCounts &each) {
    return each.added + each.updated > 0;
  };
  return any(counts.networks) || any(counts.stations) || any(counts.channels);
}

void write_all(db::DatabaseStore &store, const exchange::Format &format,
               exchange::TextSink &sink) {
  const auto source = exchange::StationSource::open(store);
  require(source != nullptr, "stations can be exported");
  write_stations(*source, format, sink);
  require(source->faults().empty(), "an import leaves nothing that cannot be exported");
}

}  // namespace

void read_input(std::string_view bytes) {
  const auto stations = gather(bytes);
  if (stations == nullptr) return;
  static const Databases databases;
  const std::string path = databases.make("one");
  const auto store = open_store(path);
  const exchange::StationImportCounts first = import(*store, *stations);
  require_verified(path);
  exchange::StationImportCounts again = import(*store, *stations);
  /* A station that was refused as another network's far away fits once the other one has an
   * epoch at its place. */
  if (first.refused > 0) again = import(*store, *stations);
  require(!changes(again), "the same import again changes nothing");

  for (const exchange::Format *format : exchange::formats()) {
    if (format->open_station_writer == nullptr) continue;
    test::KeptText kept;
    write_all(*store, *format, kept);
    const auto back = gather(kept.text);
    if (!changes(first)) continue;
    require(back != nullptr, "what was written can be read");
    const std::string second = databases.make("two");
    import(*open_store(second), *back);
    require_verified(second);
  }
}

}  // namespace ksutil::fuzz
