/* Catalogues to import: any kind that is recognised, and the way of an event through the
 * gathering.
 * Words: formats/exchange/table formats/exchange/geojson formats/exchange/ndk */
#include <string>

#include "formats/exchange/format.h"
#include "formats/exchange/import/gathering.h"
#include "tests/fuzz/subject.h"

void ksutil::fuzz::read_input(std::string_view bytes) {
  std::string problem;
  const auto input = exchange::Input::open(file_of(bytes), problem);
  require(input != nullptr, "a file can be opened");
  const auto reader =
      exchange::open_reader(*input, exchange::recognise(input->head()), problem);
  require(reader != nullptr || !problem.empty(), "a refusal has a reason");
  if (reader == nullptr) return;
  exchange::Gathering events;
  exchange::Event event;
  for (bool more = true; more;) {
    switch (reader->next(event)) {
      case exchange::Reader::Got::kRecord:
        require(!event.id.empty() && event.preferred < event.origins.size(),
                "a record has an id and an origin");
        require(events.add(event), "an event is gathered");
        break;
      case exchange::Reader::Got::kRefused:
        require(!reader->problem().empty(), "a refused line has a reason");
        break;
      case exchange::Reader::Got::kEnd:
      case exchange::Reader::Got::kFailed:
        more = false;
    }
  }
  for (const std::uint32_t index : events.by_time()) {
    exchange::Event again;
    require(events.get(index, again) && !again.id.empty(), "an event is given back");
  }
}
