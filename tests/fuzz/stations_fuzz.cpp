/* Stations to import: any format of stations, the way through the gathering with its
 * response files, and what a writer makes of them, which must be read again.
 * Words: formats/exchange/stationxml formats/exchange/fdsn_station */
#include <string>

#include "formats/exchange/format.h"
#include "formats/exchange/stations/station_gathering.h"
#include "tests/fuzz/subject.h"
#include "tests/support/kept_text.h"

void ksutil::fuzz::read_input(std::string_view bytes) {
  std::string problem;
  const auto input = exchange::Input::open(file_of(bytes), problem);
  require(input != nullptr, "a file can be opened");
  const auto reader = exchange::open_station_reader(
      *input, exchange::recognise(input->head()), problem);
  require(reader != nullptr || !problem.empty(), "a refusal has a reason");
  if (reader == nullptr) return;
  exchange::StationGathering stations;
  test::KeptText kept;
  const auto writer = exchange::format_of_word("stationxml")->open_station_writer(kept);
  require(writer->begin(), "a writer begins");
  exchange::StationItem item;
  std::size_t channels = 0;
  for (bool more = true; more;) {
    switch (reader->next(item)) {
      case exchange::StationReader::Got::kRecord:
        require(stations.add(item, reader->line()), "an item is gathered");
        require(writer->put(item), "an item is written");
        if (item.kind == exchange::StationItem::Kind::kChannel) channels++;
        break;
      case exchange::StationReader::Got::kRefused:
        require(!reader->problem().empty(), "a refused record has a reason");
        break;
      case exchange::StationReader::Got::kEnd:
      case exchange::StationReader::Got::kFailed:
        more = false;
    }
  }
  require(stations.channels().size() == channels, "all channels are gathered");
  require(writer->end(), "a writer ends");
  const auto again = exchange::Input::open(file_of(kept.text), problem);
  const auto second = exchange::open_station_reader(
      *again, exchange::recognise(again->head()), problem);
  require(second != nullptr, "what is written is recognised");
  for (;;) {
    const auto got = second->next(item);
    if (got == exchange::StationReader::Got::kEnd) break;
    require(got != exchange::StationReader::Got::kFailed, "what is written is read");
  }
}
