#include "formats/exchange/gse/gse_format.h"

#include <array>

#include "formats/exchange/gse/gse_reader.h"
#include "formats/exchange/text/columns.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

bool is_gse(const Beginning &beginning) {
  const std::string line = lowered(beginning.first_line.substr(0, 200));
  const std::vector<std::string_view> words = words_of(line, 3);
  if (words.size() >= 2 && words[0] == "begin" && words[1].starts_with("gse")) {
    return true;
  }
  if (words.size() == 3 && words[0] == "data_type" && words[2].starts_with("gse")) {
    return true;
  }
  return beginning.text.find(kGseOrigins) != beginning.text.npos;
}

std::unique_ptr<Reader> open_gse(Input &input, std::string &problem) {
  const std::string line = lowered(first_text_line(input.head()).substr(0, 200));
  if (line.starts_with("begin gse1")) {
    problem = input.name() + " is a GSE1 message, which is not read";
    return nullptr;
  }
  return std::make_unique<GseReader>(input);
}

constexpr std::array<Mapping, 22> kMappings{{
    {"EVENT: number", "publicid.textid, event.evname"},
    {"region", "remark (place)"},
    {"origin: Date, Time", "origin.time"},
    {"origin: Latitude, Longitude, Depth", "origin.lat, origin.lon, origin.depth"},
    {"origin: flag of the depth", "origin.dtype"},
    {"origin: Ndef", "origin.ndef"},
    {"origin: Gap, mdist", "remark (gap, dmin)"},
    {"origin: Mag1, Mag2, Mag3", "netmag.magtype, netmag.magnitude"},
    {"origin: N and Err of magnitudes", "netmag.nsta, netmag.uncertainty"},
    {"origin: Author, ID", "origin.auth, publicid.textid"},
    {"origin: rms, OT_Error", "origerr.sdobs, origerr.stime"},
    {"origin: Smajor, Sminor, Az", "origerr.smajax, origerr.sminax, origerr.strike"},
    {"origin: Err of the depth", "origerr.sdepth"},
    {"origin: Quality", "remark (status), origin.algorithm, origin.etype"},
    {"phase: Sta, Phase", "arrival.sta, arrival.iphase, assoc.phase"},
    {"phase: Dist, EvAz", "assoc.delta, assoc.seaz"},
    {"phase: Date, Time", "arrival.time"},
    {"phase: TRes, AzRes, SRes", "assoc.timeres, assoc.azres, assoc.slores"},
    {"phase: Azim, Slow, SNR, Amp, Per",
     "arrival.azimuth, arrival.slow, arrival.snr, arrival.amp, arrival.per"},
    {"phase: Def", "assoc.timedef, assoc.azdef, assoc.slodef"},
    {"phase: Mag1, Mag2", "stamag.magtype, stamag.magnitude"},
    {"phase: Arr ID", "publicid.textid"},
}};

}  // namespace

const Format kGseFormat{"gse",   "GSE2.0 bulletins", is_gse, open_gse,
                        nullptr, kMappings};

}  // namespace ksutil::exchange
