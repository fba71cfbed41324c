#include "formats/exchange/kml/kml_format.h"

#include <array>

#include "formats/exchange/kml/kml_writer.h"

namespace ksutil::exchange {
namespace {

std::unique_ptr<Writer> open_kml_writer(TextSink &sink) {
  return std::make_unique<KmlWriter>(sink);
}

constexpr std::array<Mapping, 7> kMappings{{
    {"Placemark id", "the number of the event in the file"},
    {"name", "netmag.magtype, magnitude; the place of the event"},
    {"TimeStamp", "origin.time"},
    {"Point", "origin.lon, lat, at the surface"},
    {"description", "time, magnitude, origin.depth, place and author as a text"},
    {"ExtendedData",
     "publicid.textid of the event; netmag.magnitude, magtype; origin.depth, etype; "
     "event.auth; status in remark"},
    {"styleUrl", "a size for netmag.magnitude, a colour for origin.depth"},
}};

}  // namespace

const Format kKmlFormat{.word = "kml",
                        .name = "KML",
                        .open_writer = open_kml_writer,
                        .mappings = kMappings};

}  // namespace ksutil::exchange
