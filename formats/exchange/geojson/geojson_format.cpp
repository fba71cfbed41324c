#include "formats/exchange/geojson/geojson_format.h"

#include "formats/exchange/geojson/geojson_reader.h"
#include "formats/exchange/geojson/geojson_writer.h"

namespace ksutil::exchange {
namespace {

bool is_geojson(const Beginning &beginning) {
  return beginning.first_line.starts_with('{') &&
         (beginning.text.find("\"FeatureCollection\"") != beginning.text.npos ||
          beginning.text.find("\"features\"") != beginning.text.npos);
}

std::unique_ptr<Reader> open_geojson(Input &input, std::string &) {
  return std::make_unique<GeojsonReader>(input);
}

constexpr Mapping kGeojsonMappings[] = {
    {"id, else net and code", "publicid.textid (evid); event.evname"},
    {"geometry.coordinates", "origin.lon, origin.lat, origin.depth"},
    {"depth, in place of the third coordinate", "origin.depth"},
    {"time", "origin.time, origin.jdate"},
    {"mag, magType", "netmag.magnitude, netmag.magtype; origin.mb, ms, ml"},
    {"net, auth", "event.auth, origin.auth, netmag.auth"},
    {"locationSource", "origin.auth"},
    {"magSource", "netmag.auth"},
    {"type", "origin.etype"},
    {"updated", "lddate of all rows"},
    {"place", "line \"place\" of event.commid"},
    {"status, gap, dmin", "line \"status; gap; dmin\" of origin.commid"},
    {"nst", "origin.ndef"},
    {"rms", "origerr.sdobs"},
    {"horizontalError, depthError", "origerr.smajax, origerr.sdepth"},
    {"magError, magNst", "netmag.uncertainty, netmag.nsta"},
};

std::unique_ptr<Writer> open_geojson_writer(TextSink &sink) {
  return std::make_unique<GeoJsonWriter>(sink);
}

}  // namespace

const Format kGeojsonFormat{.word = "geojson",
                            .name = "GeoJSON",
                            .recognise = is_geojson,
                            .open_reader = open_geojson,
                            .open_writer = open_geojson_writer,
                            .mappings = kGeojsonMappings,
                            .shows_its_end = true};

}  // namespace ksutil::exchange
