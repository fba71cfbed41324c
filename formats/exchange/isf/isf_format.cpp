#include "formats/exchange/isf/isf_format.h"

#include <array>

#include "formats/exchange/isf/isf_reader.h"
#include "formats/exchange/isf/isf_writer.h"
#include "formats/exchange/text/columns.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

bool is_isf(const Beginning &beginning) {
  const std::string line = lowered(beginning.first_line.substr(0, 200));
  const std::vector<std::string_view> words = words_of(line, 3);
  if (words.size() >= 2 && words[0] == "begin" && words[1].starts_with("ims")) {
    return true;
  }
  if (words.size() == 3 && words[0] == "data_type" &&
      (words[2].starts_with("ims") || words[2].starts_with("isf"))) {
    return true;
  }
  return beginning.text.find(kIsfOrigins) != beginning.text.npos;
}

std::unique_ptr<Reader> open_isf(Input &input, std::string &) {
  return std::make_unique<IsfReader>(input);
}

std::unique_ptr<Writer> open_isf_writer(TextSink &sink) {
  return std::make_unique<IsfWriter>(sink);
}

constexpr std::array<Mapping, 38> kMappings{{
    {"Event: number", "publicid.textid, event.evname"},
    {"Event: place", "remark (place)"},
    {"origin: Date, Time", "origin.time"},
    {"origin: Err of the time", "origerr.stime"},
    {"origin: RMS", "origerr.sdobs"},
    {"origin: Latitude, Longitude, Depth", "origin.lat, origin.lon, origin.depth"},
    {"origin: flag of the depth", "origin.dtype"},
    {"origin: Smaj, Smin, Az", "origerr.smajax, origerr.sminax, origerr.strike"},
    {"origin: Err of the depth", "origerr.sdepth"},
    {"origin: Ndef", "origin.ndef"},
    {"origin: Gap, mdist", "remark (gap, dmin)"},
    {"origin: Qual: analysis", "remark (status)"},
    {"origin: Qual: method", "origin.algorithm"},
    {"origin: Qual: type of the event", "origin.etype"},
    {"origin: Author", "origin.auth"},
    {"origin: OrigID", "publicid.textid"},
    {"#PRIME", "event.prefor"},
    {"#CENTROID", "mt.ctime, mt.clat, mt.clon, mt.cdepth"},
    {"#MOMTENS", "mt.mrr to mt.mtp, mt.moment, mt.mw"},
    {"#FAULT_PLANE", "mt.strike1 to mt.rake2"},
    {"#PRINAX", "mt.tval to mt.pazim"},
    {"other comments", "remark"},
    {"magnitude: type, value", "netmag.magtype, netmag.magnitude"},
    {"magnitude: Err, Nsta, Author", "netmag.uncertainty, netmag.nsta, netmag.auth"},
    {"phase: Sta", "arrival.sta, assoc.sta"},
    {"phase: Dist, EvAz", "assoc.delta, assoc.esaz"},
    {"phase: Phase", "arrival.iphase, assoc.phase"},
    {"phase: Time", "arrival.time"},
    {"phase: TRes, AzRes, SRes", "assoc.timeres, assoc.azres, assoc.slores"},
    {"phase: Azim, Slow", "arrival.azimuth, arrival.slow"},
    {"phase: Def", "assoc.timedef, assoc.azdef, assoc.slodef"},
    {"phase: SNR, Amp, Per", "arrival.snr, arrival.amp, arrival.per"},
    {"phase: Qual", "arrival.fm, arrival.qual"},
    {"phase: Magnitude", "stamag.magtype, stamag.magnitude"},
    {"phase: ArrID", "publicid.textid"},
    {"phase information: Chan, Date", "arrival.chan, arrival.time"},
    {"phase information: eTime, eAzim, eSlow",
     "arrival.deltim, arrival.delaz, arrival.delslo"},
    {"phase information: wTime, Author", "assoc.wgt, arrival.auth"},
}};

}  // namespace

const Format kIsfFormat{"isf",    "IMS1.0/ISF bulletins", is_isf,
                        open_isf, open_isf_writer,        kMappings};

}  // namespace ksutil::exchange
