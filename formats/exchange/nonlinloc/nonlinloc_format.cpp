#include "formats/exchange/nonlinloc/nonlinloc_format.h"

#include <array>
#include <string>

#include "formats/exchange/nonlinloc/nonlinloc_reader.h"
#include "formats/exchange/text/columns.h"

namespace ksutil::exchange {
namespace {

bool is_nonlinloc(const Beginning &beginning) {
  return beginning.first_line.starts_with("NLLOC \"");
}

std::unique_ptr<Reader> open_nonlinloc(Input &input, std::string &) {
  return std::make_unique<NonLinLocReader>(input);
}

/* "STA Ins Cmp On Pha FM Date HrMn Sec GAU ..." */
bool is_observation(std::string_view line) {
  const std::vector<std::string_view> words = words_of(line, 20);
  return words.size() >= 14 && words[9] == "GAU" && words[6].size() == 8;
}

bool are_observations(const Beginning &beginning) {
  const std::string_view line = beginning.first_line;
  if (!line.starts_with("PUBLIC_ID ")) return is_observation(line);
  const auto after = static_cast<std::size_t>(line.data() - beginning.text.data());
  return is_observation(first_text_line(beginning.text.substr(after + line.size())));
}

constexpr std::array<Mapping, 19> kMappings{{
    {"PUBLIC_ID or name of the file", "publicid.textid, event.evname"},
    {"COMMENT", "remark"},
    {"SIGNATURE", "origin.auth, origin.algorithm, lddate of all rows"},
    {"GEOGRAPHIC: OT", "origin.time"},
    {"GEOGRAPHIC: Lat, Long, Depth", "origin.lat, origin.lon, origin.depth"},
    {"QUALITY: RMS", "origerr.sdobs"},
    {"QUALITY: Nphs", "origin.ndef"},
    {"QUALITY: Gap, Dist", "remark (gap, dmin)"},
    {"QUALITY: Mamp, Mdur", "netmag.magnitude (types ML, MD)"},
    {"STATISTICS: Cov", "origerr.sxx, syy, szz, sxy, sxz, syz"},
    {"QML_OriginQuality: assocPhCt, depthPhCt", "origin.nass, origin.ndp"},
    {"QML_OriginUncertainty", "origerr.smajax, origerr.sminax, origerr.strike"},
    {"FOCALMECH", "mt.strike1, mt.dip1, mt.rake1"},
    {"phase: ID, Cmp, Pha", "arrival.sta, arrival.chan, arrival.iphase, assoc.phase"},
    {"phase: On, FM", "arrival.qual, arrival.fm"},
    {"phase: Date, HrMn, Sec", "arrival.time"},
    {"phase: ErrMag", "arrival.deltim"},
    {"phase: Res, Weight", "assoc.timeres, assoc.wgt, assoc.timedef"},
    {"phase: SDist, SAzim", "assoc.delta, assoc.esaz"},
}};

}  // namespace

const Format kNonLinLocFormat{"nonlinloc",  "NonLinLoc hypocentre-phase files",
                              is_nonlinloc, open_nonlinloc,
                              nullptr,      kMappings};
const Format kNonLinLocObservationFormat{
    "nonlinloc-obs", "NonLinLoc observations without a location", are_observations};

}  // namespace ksutil::exchange
