#include "formats/exchange/nordic/nordic_format.h"

#include <algorithm>
#include <array>

#include "formats/exchange/nordic/nordic_reader.h"

namespace ksutil::exchange {
namespace {

/* The first line that is not blank, with the blanks at its beginning. */
std::string_view whole_first_line(std::string_view text) {
  const std::string_view line = first_text_line(text);
  if (line.empty()) return line;
  const auto begin = static_cast<std::size_t>(line.data() - text.data());
  const std::size_t before = text.substr(0, begin).find_last_of("\r\n");
  const std::size_t from = before == text.npos ? 0 : before + 1;
  text.remove_prefix(from);
  return text.substr(0, text.find_first_of("\r\n"));
}

bool is_nordic(const Beginning &beginning) {
  return is_nordic_header(whole_first_line(beginning.text));
}

std::unique_ptr<Reader> open_nordic(Input &input, std::string &) {
  return std::make_unique<NordicReader>(input);
}

constexpr std::array<Mapping, 24> kMappings{{
    {"I: ID, with the agency in front", "publicid.textid, event.evname"},
    {"I: time of the action", "lddate of all rows"},
    {"1: date and time", "origin.time"},
    {"1, H: latitude, longitude, depth", "origin.lat, origin.lon, origin.depth"},
    {"1: event type", "origin.etype"},
    {"1: depth indicator", "origin.dtype"},
    {"1: agency", "origin.auth"},
    {"1, H: RMS", "origerr.sdobs"},
    {"1: magnitudes with type and agency",
     "netmag.magnitude, netmag.magtype, netmag.auth"},
    {"E: GAP", "remark (gap)"},
    {"E: errors",
     "origerr.stime, origerr.sdepth, origerr.sxx, origerr.syy, origerr.szz"},
    {"E: covariances", "origerr.sxy, origerr.sxz, origerr.syz"},
    {"F: strike, dip, rake", "mt.strike1, mt.dip1, mt.rake1"},
    {"3: LOCALITY", "remark (place)"},
    {"3: other text", "remark"},
    {"phase: station, component", "arrival.sta, arrival.chan"},
    {"phase: onset, first motion", "arrival.qual, arrival.fm"},
    {"phase: name", "arrival.iphase, assoc.phase"},
    {"phase: hour, minute, seconds", "arrival.time"},
    {"phase: amplitude, period", "arrival.amp, arrival.per"},
    {"phase: direction, velocity", "arrival.azimuth, arrival.slow"},
    {"phase: residuals", "assoc.timeres, assoc.azres"},
    {"phase: weight", "assoc.wgt, assoc.timedef"},
    {"phase: distance, azimuth of the station", "assoc.delta, assoc.esaz"},
}};

}  // namespace

const Format kNordicFormat{"nordic",    "Nordic files", is_nordic,
                           open_nordic, nullptr,        kMappings};

}  // namespace ksutil::exchange
