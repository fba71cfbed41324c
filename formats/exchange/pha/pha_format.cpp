#include "formats/exchange/pha/pha_format.h"

#include <array>

#include "formats/exchange/pha/pha_reader.h"

namespace ksutil::exchange {
namespace {

bool is_pha(const Beginning &beginning) { return is_pha_header(beginning.first_line); }

std::unique_ptr<Reader> open_pha(Input &input, std::string &) {
  return std::make_unique<PhaReader>(input);
}

constexpr std::array<Mapping, 8> kMappings{{
    {"ID", "publicid.textid, event.evname"},
    {"date and time", "origin.time"},
    {"LAT, LON, DEP", "origin.lat, origin.lon, origin.depth"},
    {"MAG", "netmag.magnitude"},
    {"EH, EZ, RMS", "origerr.smajax, origerr.sdepth, origerr.sdobs"},
    {"STA, PHASE", "arrival.sta, arrival.iphase, assoc.phase"},
    {"travel time", "arrival.time"},
    {"weight", "assoc.wgt, assoc.timedef"},
}};

}  // namespace

const Format kPhaFormat{
    "pha", "phase files for double differences", is_pha, open_pha, nullptr, kMappings};

}  // namespace ksutil::exchange
