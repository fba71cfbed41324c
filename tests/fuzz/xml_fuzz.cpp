/* XML: the elements as they come and as trees, and bulletins in both dialects.
 * Words: formats/exchange/quakeml formats/exchange/sc3ml */
#include <string>

#include "formats/exchange/import/gathering.h"
#include "formats/exchange/quakeml/bulletin_reader.h"
#include "formats/exchange/text/xml_element.h"
#include "tests/fuzz/subject.h"

namespace {

using namespace ksutil;

std::unique_ptr<exchange::Input> open(std::string_view bytes) {
  std::string problem;
  auto input = exchange::Input::open(fuzz::file_of(bytes), problem);
  fuzz::require(input != nullptr, "a file can be opened");
  return input;
}

/* Reads all elements; every second one at a depth of 2 as a tree. */
void read_elements(std::string_view bytes) {
  const auto input = open(bytes);
  exchange::XmlReader reader(*input);
  for (bool tree = false;;) {
    switch (reader.next()) {
      case exchange::XmlReader::Got::kStart:
        fuzz::require(reader.depth() <= exchange::XmlReader::kMostDepth,
                      "the depth is bounded");
        if (reader.depth() == 2 && (tree = !tree)) {
          exchange::XmlElement element;
          if (element.read(reader)) element.without_use([](const std::string &) {});
        }
        break;
      case exchange::XmlReader::Got::kEnd:
        break;
      case exchange::XmlReader::Got::kDone:
        return;
      case exchange::XmlReader::Got::kFailed:
        fuzz::require(!reader.problem().empty(), "a failure has a reason");
        return;
    }
  }
}

void read_bulletin(std::string_view bytes, const exchange::XmlDialect &dialect) {
  const auto input = open(bytes);
  exchange::BulletinReader reader(*input, dialect);
  exchange::Gathering events;
  exchange::Event event;
  for (;;) {
    switch (reader.next(event)) {
      case exchange::Reader::Got::kRecord:
        fuzz::require(!event.id.empty() && event.preferred < event.origins.size(),
                      "a record has an id and an origin");
        fuzz::require(exchange::record_count(event) <= exchange::kMostRecords,
                      "the records of an event are bounded");
        for (const exchange::Origin &origin : event.origins) {
          for (const exchange::Association &association : origin.associations) {
            fuzz::require(
                static_cast<std::size_t>(association.pick) < event.picks.size(),
                "an association has a pick");
          }
        }
        fuzz::require(events.add(event), "an event is gathered");
        break;
      case exchange::Reader::Got::kRefused:
        fuzz::require(!reader.problem().empty(), "a refusal has a reason");
        break;
      case exchange::Reader::Got::kEnd:
      case exchange::Reader::Got::kFailed:
        return;
    }
  }
}

}  // namespace

void ksutil::fuzz::read_input(std::string_view bytes) {
  read_elements(bytes);
  read_bulletin(bytes, exchange::kQuakemlDialect);
  read_bulletin(bytes, exchange::kSc3mlDialect);
}
