#include "formats/exchange/json/json_writer.h"

#include <array>

#include "formats/exchange/export/left_out.h"
#include "formats/exchange/text/value_text.h"

namespace ksutil::exchange {
namespace {

constexpr double kNone = -999.0;

}  // namespace

void JsonLinesWriter::put_time(const char *name, double time) {
  json_.put(name, is_writable_time(time) ? utc_text(time) : "");
}

void JsonLinesWriter::put_letter(const char *name, char letter) {
  json_.put(name, std::string_view(&letter, letter == 0 ? 0 : 1));
}

void JsonLinesWriter::put_comments(const std::vector<std::string> &comments) {
  json_.key("comments");
  json_.begin_array();
  for (const std::string &comment : comments) json_.text(comment);
  json_.end_array();
}

void JsonLinesWriter::put_channel(const ChannelCode &channel) {
  json_.put("sta", channel.station);
  json_.put("net", channel.network);
  json_.put("loc", channel.location);
  json_.put("chan", channel.channel);
}

bool JsonLinesWriter::put(const Event &event) {
  const Magnitude *shown = shown_magnitude(event);
  json_.restart();
  json_.begin_object();
  json_.put("evid", event.evid);
  json_.put("prefor", preferred_origin(event).orid);
  json_.put("magnitude", shown == nullptr ? kNone : shown->value, kNone);
  json_.put("magtype", shown == nullptr ? "" : shown->type);
  json_.put("id", event.id);
  json_.put("name", event.name);
  json_.put("place", event.place);
  json_.put("etype", event.type);
  json_.put("auth", event.author);
  put_time("lddate", event.updated == 0.0 ? kNoTime : event.updated);
  put_comments(event.comments);
  json_.key("origins");
  json_.begin_array();
  for (std::size_t i = 0; i < event.origins.size(); i++) put_origin(event, i);
  json_.end_array();
  json_.end_object();
  buffer_.text() += '\n';
  return buffer_.settle();
}

void JsonLinesWriter::put_origin(const Event &event, std::size_t index) {
  const Origin &origin = event.origins[index];
  const bool preferred = index == event.preferred;
  const std::int64_t shown =
      shown_magnitude_index(origin, preferred ? event.preferred_magnitude : -1);
  const Magnitude none;
  const Magnitude &magnitude =
      shown < 0 ? none : origin.magnitudes[static_cast<std::size_t>(shown)];

  json_.begin_object();
  json_.put("orid", origin.orid);
  json_.put("preferred", std::int64_t{preferred ? 1 : 0});
  put_time("time", origin.time);
  json_.put("lat", origin.lat, kNone);
  json_.put("lon", origin.lon, kNone);
  json_.put("depth", origin.depth, kNone);
  json_.put("magnitude", magnitude.value, kNone);
  json_.put("magtype", magnitude.type);
  json_.put("id", origin.id);
  json_.put("nass", origin.associated);
  json_.put("ndef", origin.phases);
  json_.put("ndp", origin.depth_phases);
  put_letter("dtype", origin.depth_type);
  json_.put("algorithm", origin.algorithm);
  json_.put("auth", origin.author);
  put_errors(origin);
  json_.put("status", origin.status);
  json_.put("gap", origin.gap, -1.0);
  json_.put("dmin", origin.nearest, -1.0);
  json_.put("vmodel", origin.earth_model);
  put_comments(origin.comments);
  json_.key("magnitudes");
  json_.begin_array();
  for (std::size_t i = 0; i < origin.magnitudes.size(); i++) {
    put_magnitude(origin.magnitudes[i], static_cast<std::int64_t>(i) == shown);
  }
  json_.end_array();
  json_.key("associations");
  json_.begin_array();
  for (const Association &association : origin.associations) {
    put_association(event, association);
  }
  json_.end_array();
  json_.key("station_magnitudes");
  json_.begin_array();
  for (const StationMagnitude &own : origin.station_magnitudes) {
    put_station_magnitude(origin, own);
  }
  json_.end_array();
  json_.key("moment_tensors");
  json_.begin_array();
  for (const MomentTensor &tensor : origin.tensors) put_tensor(tensor);
  json_.end_array();
  json_.end_object();
}

void JsonLinesWriter::put_errors(const Origin &origin) {
  const Covariance &c = origin.covariance;
  json_.put("sdobs", origin.rms, -1.0);
  json_.put("smajax",
            origin.major_axis >= 0.0 ? origin.major_axis : origin.horizontal_error,
            -1.0);
  json_.put("sminax", origin.minor_axis, -1.0);
  json_.put("strike", origin.ellipse_strike, -1.0);
  json_.put("sdepth", origin.depth_error, -1.0);
  json_.put("stime", origin.time_error, -1.0);
  json_.put("conf", origin.confidence, 0.0);
  json_.key("covariance");
  if (c.xx < 0.0) return json_.null();
  json_.begin_object();
  json_.put("sxx", c.xx, -1.0);
  json_.put("syy", c.yy, -1.0);
  json_.put("szz", c.zz, -1.0);
  json_.put("stt", c.tt, -1.0);
  json_.put("sxy", c.xy, -1.0);
  json_.put("sxz", c.xz, -1.0);
  json_.put("syz", c.yz, -1.0);
  json_.put("stx", c.tx, -1.0);
  json_.put("sty", c.ty, -1.0);
  json_.put("stz", c.tz, -1.0);
  json_.end_object();
}

void JsonLinesWriter::put_magnitude(const Magnitude &magnitude, bool preferred) {
  json_.begin_object();
  json_.put("magnitude", magnitude.value, kNone);
  json_.put("magtype", magnitude.type);
  json_.put("preferred", std::int64_t{preferred ? 1 : 0});
  json_.put("id", magnitude.id);
  json_.put("uncertainty", magnitude.error, -1.0);
  json_.put("nsta", magnitude.stations);
  json_.put("auth", magnitude.author);
  put_comments(magnitude.comments);
  json_.end_object();
}

void JsonLinesWriter::put_association(const Event &event,
                                      const Association &association) {
  const Pick none;
  const Pick &pick = association.pick < 0
                         ? none
                         : event.picks[static_cast<std::size_t>(association.pick)];
  json_.begin_object();
  put_channel(pick.at);
  json_.put("phase", association.phase);
  put_time("time", pick.time);
  json_.put("residual", association.time_residual, kNone);
  json_.put("defining", std::int64_t{association.time_used == 'd' ? 1 : 0});
  json_.put("distance", association.delta, -1.0);
  json_.put("azimuth", association.esaz, kNone);
  json_.put("seaz", association.seaz, kNone);
  json_.put("azres", association.azimuth_residual, kNone);
  json_.put("slores", association.slowness_residual, kNone);
  json_.put("wgt", association.weight, -1.0);
  json_.put("belief", association.belief, -1.0);
  json_.put("vmodel", association.earth_model);
  json_.put("id", pick.id);
  json_.put("iphase", pick.phase);
  json_.put("deltim", pick.time_error, -1.0);
  json_.put("meas_azimuth", pick.azimuth, -1.0);
  json_.put("slow", pick.slowness, -1.0);
  json_.put("amp", pick.amplitude, -1.0);
  json_.put("per", pick.period, -1.0);
  json_.put("snr", pick.snr, -1.0);
  put_letter("qual", pick.onset);
  put_letter("fm", pick.first_motion);
  json_.put("auth", pick.author);
  put_comments(pick.comments);
  json_.end_object();
}

void JsonLinesWriter::put_station_magnitude(const Origin &origin,
                                            const StationMagnitude &magnitude) {
  std::string_view of;
  if (magnitude.magnitude >= 0) {
    of = origin.magnitudes[static_cast<std::size_t>(magnitude.magnitude)].id;
  }
  json_.begin_object();
  put_channel(magnitude.at);
  json_.put("phase", magnitude.phase);
  json_.put("magnitude", magnitude.value, kNone);
  json_.put("magtype", magnitude.type);
  json_.put("uncertainty", magnitude.error, -1.0);
  put_letter("magdef", magnitude.used);
  json_.put("auth", magnitude.author);
  json_.put("of", of);
  json_.end_object();
}

void JsonLinesWriter::put_tensor(const MomentTensor &tensor) {
  static constexpr std::array<const char *, 6> kElements{"mrr", "mtt", "mpp",
                                                         "mrt", "mrp", "mtp"};
  static constexpr std::array<const char *, 9> kAxes{"tval", "tplunge", "tazim",
                                                     "nval", "nplunge", "nazim",
                                                     "pval", "pplunge", "pazim"};
  static constexpr std::array<const char *, 3> kPlane1{"strike1", "dip1", "rake1"};
  static constexpr std::array<const char *, 3> kPlane2{"strike2", "dip2", "rake2"};
  json_.begin_object();
  json_.put("id", tensor.id);
  put_time("ctime", tensor.time);
  json_.put("clat", tensor.lat, kNone);
  json_.put("clon", tensor.lon, kNone);
  json_.put("cdepth", tensor.depth, kNone);
  for (std::size_t i = 0; i < 6; i++) {
    json_.put(kElements[i], tensor.elements[i], kNone);
  }
  json_.put("moment", tensor.moment, kNone);
  json_.put("mw", tensor.mw, kNone);
  for (std::size_t i = 0; i < 3; i++) json_.put(kPlane1[i], tensor.plane1[i], kNone);
  for (std::size_t i = 0; i < 3; i++) json_.put(kPlane2[i], tensor.plane2[i], kNone);
  for (std::size_t i = 0; i < 9; i++) json_.put(kAxes[i], tensor.axes[i], kNone);
  json_.put("pctdc", tensor.double_couple, kNone);
  json_.put("pctclvd", tensor.clvd, kNone);
  json_.put("pctiso", tensor.isotropic, kNone);
  json_.put("nsta", tensor.stations);
  json_.put("ncomp", tensor.components);
  json_.put("varred", tensor.variance_reduction, kNone);
  json_.put("status", tensor.status);
  json_.put("algorithm", tensor.algorithm);
  json_.put("auth", tensor.author);
  put_comments(tensor.comments);
  json_.end_object();
}

}  // namespace ksutil::exchange
