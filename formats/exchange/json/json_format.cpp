#include "formats/exchange/json/json_format.h"

#include <array>

#include "formats/exchange/json/json_writer.h"

namespace ksutil::exchange {
namespace {

std::unique_ptr<Writer> open_json_writer(TextSink &sink) {
  return std::make_unique<JsonLinesWriter>(sink);
}

constexpr std::array<Mapping, 24> kMappings{{
    {"evid, prefor", "event.evid, event.prefor"},
    {"magnitude, magtype", "the magnitude that the event list shows"},
    {"id", "publicid.textid of the event"},
    {"name, place, comments", "remark, under event.commid"},
    {"etype", "origin.etype of the preferred origin"},
    {"auth, lddate", "event.auth, event.lddate"},
    {"origins: orid, preferred", "origin.orid, and whether it is event.prefor"},
    {"origins: time, lat, lon, depth", "origin.time, lat, lon, depth"},
    {"origins: magnitude, magtype", "its preferred magnitude"},
    {"origins: nass, ndef, ndp, dtype, algorithm, auth", "the fields of origin"},
    {"origins: sdobs, smajax, sminax, strike, sdepth, stime, conf",
     "the fields of origerr"},
    {"origins: covariance", "origerr.sxx, syy, szz, stt, sxy, sxz, syz, stx, sty, stz"},
    {"origins: status, gap, dmin, vmodel, comments", "remark, under origin.commid"},
    {"magnitudes: magnitude, magtype, preferred", "netmag.magnitude, magtype"},
    {"magnitudes: uncertainty, nsta, auth", "the fields of netmag"},
    {"associations: sta, phase, time", "arrival.sta, assoc.phase, arrival.time"},
    {"associations: residual, defining", "assoc.timeres, timedef"},
    {"associations: distance, azimuth, seaz", "assoc.delta, esaz, seaz"},
    {"associations: net, loc, chan", "seedcode.net, loc, seedchan"},
    {"associations: iphase, deltim, amp, per, snr, qual, fm, auth",
     "the fields of arrival"},
    {"associations: slow, meas_azimuth, azres, slores, wgt, belief, vmodel",
     "arrival.slow, azimuth; the fields of assoc"},
    {"station_magnitudes: sta, phase, magnitude, magtype, uncertainty, magdef, auth",
     "the fields of stamag"},
    {"moment_tensors", "the fields of mt"},
    {"comments of magnitudes, arrivals and tensors",
     "remark, under netmag.commid, arrival.commid, mt.commid"},
}};

}  // namespace

const Format kJsonLinesFormat{.word = "jsonl",
                              .name = "JSON lines",
                              .open_writer = open_json_writer,
                              .mappings = kMappings};

}  // namespace ksutil::exchange
