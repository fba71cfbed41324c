#include "formats/exchange/export/row_records.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "formats/exchange/error_ellipse.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

template <std::size_t kCount>
std::array<db::RealColumn, kCount> columns_of(
    const db::Relation &layout, const std::array<const char *, kCount> &names) {
  std::array<db::RealColumn, kCount> columns;
  for (std::size_t i = 0; i < kCount; i++) {
    columns[i] = db::RealColumn(layout, names[i]);
  }
  return columns;
}

constexpr double kNone = -999.0;

}  // namespace

double RowGet::real(const db::RealColumn &column, double null) const {
  double value = null;
  if (!column.read(row_, value)) {
    unreadable_++;
    return null;
  }
  return value == column.null() || !std::isfinite(value) ? null : value;
}

std::int64_t RowGet::integer(const db::IntegerColumn &column) const {
  std::int64_t value = -1;
  if (!column.read(row_, value)) {
    unreadable_++;
    return -1;
  }
  return value == column.null() ? -1 : value;
}

std::string RowGet::text(const db::TextColumn &column) const {
  std::string_view value;
  if (!column.read(row_, value)) {
    unreadable_++;
    return "";
  }
  value = trimmed(value);
  return column.is_null(value) ? "" : std::string(value);
}

char RowGet::letter(const db::TextColumn &column) const {
  const std::string value = text(column);
  return value.empty() ? '\0' : value.front();
}

OriginRows::OriginRows(const db::Relation &layout)
    : orid(layout, "orid"),
      evid(layout, "evid"),
      commid(layout, "commid"),
      time(layout, "time"),
      etype(layout, "etype"),
      lat_(layout, "lat"),
      lon_(layout, "lon"),
      depth_(layout, "depth"),
      depdp_(layout, "depdp"),
      nass_(layout, "nass"),
      ndef_(layout, "ndef"),
      ndp_(layout, "ndp"),
      own_values_(columns_of<3>(layout, {"mb", "ms", "ml"})),
      own_ids_{db::IntegerColumn(layout, "mbid"), db::IntegerColumn(layout, "msid"),
               db::IntegerColumn(layout, "mlid")},
      dtype_(layout, "dtype"),
      algorithm_(layout, "algorithm"),
      auth_(layout, "auth") {}

void OriginRows::read(const RowGet &row, Origin &origin, LeftOut &left_out) const {
  origin.time = row.real(time, kNoTime);
  origin.lat = row.real(lat_, kNone);
  origin.lon = row.real(lon_, kNone);
  origin.depth = row.real(depth_, kNone);
  origin.depth_type = row.letter(dtype_);
  origin.associated = row.integer(nass_);
  origin.phases = row.integer(ndef_);
  origin.depth_phases = row.integer(ndp_);
  origin.algorithm = row.text(algorithm_);
  origin.author = row.text(auth_);
  left_out.add_if(row.real(depdp_, kNone) != kNone, "depths from depth phases (depdp)");
}

std::array<OriginRows::Own, 3> OriginRows::own_magnitudes(const RowGet &row) const {
  std::array<Own, 3> own{{{"mb"}, {"ms"}, {"ml"}}};
  for (std::size_t i = 0; i < own.size(); i++) {
    own[i].value = row.real(own_values_[i], kNone);
    own[i].magid = row.integer(own_ids_[i]);
  }
  return own;
}

OrigerrRows::OrigerrRows(const db::Relation &layout)
    : commid(layout, "commid"),
      covariance_(columns_of<10>(layout, {"sxx", "syy", "szz", "stt", "sxy", "sxz",
                                          "syz", "stx", "sty", "stz"})),
      sdobs_(layout, "sdobs"),
      smajax_(layout, "smajax"),
      sminax_(layout, "sminax"),
      strike_(layout, "strike"),
      sdepth_(layout, "sdepth"),
      stime_(layout, "stime"),
      conf_(layout, "conf") {}

void OrigerrRows::read(const RowGet &row, Origin &origin) const {
  std::array<double, 10> values{};
  for (std::size_t i = 0; i < values.size(); i++) values[i] = row.real(covariance_[i]);
  origin.covariance = {values[0], values[1], values[2], values[3], values[4],
                       values[5], values[6], values[7], values[8], values[9]};
  origin.rms = row.real(sdobs_);
  origin.depth_error = row.real(sdepth_);
  origin.time_error = row.real(stime_);
  origin.confidence = row.real(conf_, 0.0);
  /* A major axis without minor axis and strike is an error of the epicentre in all
   * directions. */
  const double major = row.real(smajax_), minor = row.real(sminax_);
  const double strike = row.real(strike_);
  if (minor < 0.0 && strike < 0.0) {
    origin.horizontal_error = major;
  } else {
    origin.major_axis = major;
    origin.minor_axis = minor;
    origin.ellipse_strike = strike;
  }
}

NetmagRows::NetmagRows(const db::Relation &layout)
    : magid(layout, "magid"),
      commid(layout, "commid"),
      net_(layout, "net"),
      magtype_(layout, "magtype"),
      auth_(layout, "auth"),
      nsta_(layout, "nsta"),
      magnitude_(layout, "magnitude"),
      uncertainty_(layout, "uncertainty") {}

void NetmagRows::read(const RowGet &row, Magnitude &magnitude,
                      LeftOut &left_out) const {
  const std::string net = row.text(net_);
  magnitude.type = row.text(magtype_);
  magnitude.author = row.text(auth_);
  left_out.add_if(!net.empty(),
                  magnitude.author.empty()
                      ? "networks of magnitudes (net), which become authors"
                      : "networks of magnitudes (net)");
  if (magnitude.author.empty()) magnitude.author = net;
  magnitude.stations = row.integer(nsta_);
  magnitude.value = row.real(magnitude_, kNone);
  magnitude.error = row.real(uncertainty_);
}

StamagRows::StamagRows(const db::Relation &layout)
    : magid(layout, "magid"),
      arid(layout, "arid"),
      ampid_(layout, "ampid"),
      commid_(layout, "commid"),
      sta_(layout, "sta"),
      phase_(layout, "phase"),
      magtype_(layout, "magtype"),
      magdef_(layout, "magdef"),
      mmodel_(layout, "mmodel"),
      auth_(layout, "auth"),
      delta_(layout, "delta"),
      magnitude_(layout, "magnitude"),
      uncertainty_(layout, "uncertainty"),
      magres_(layout, "magres") {}

void StamagRows::read(const RowGet &row, StationMagnitude &magnitude,
                      LeftOut &left_out) const {
  magnitude.at.station = row.text(sta_);
  magnitude.phase = row.text(phase_);
  magnitude.type = row.text(magtype_);
  magnitude.used = row.letter(magdef_);
  magnitude.author = row.text(auth_);
  magnitude.value = row.real(magnitude_, kNone);
  magnitude.error = row.real(uncertainty_);
  left_out.add_if(row.real(delta_) >= 0.0, "distances of station magnitudes (delta)");
  left_out.add_if(row.real(magres_, kNone) != kNone,
                  "residuals of station magnitudes (magres)");
  left_out.add_if(!row.text(mmodel_).empty(), "models of station magnitudes (mmodel)");
  left_out.add_if(row.integer(ampid_) >= 0, "amplitudes of station magnitudes (ampid)");
  left_out.add_if(row.integer(commid_) >= 0, "comments on station magnitudes (commid)");
}

ArrivalRows::ArrivalRows(const db::Relation &layout)
    : arid(layout, "arid"),
      commid(layout, "commid"),
      stassid_(layout, "stassid"),
      sta_(layout, "sta"),
      chan_(layout, "chan"),
      iphase_(layout, "iphase"),
      stype_(layout, "stype"),
      clip_(layout, "clip"),
      fm_(layout, "fm"),
      qual_(layout, "qual"),
      auth_(layout, "auth"),
      time_(layout, "time"),
      deltim_(layout, "deltim"),
      azimuth_(layout, "azimuth"),
      delaz_(layout, "delaz"),
      slow_(layout, "slow"),
      delslo_(layout, "delslo"),
      ema_(layout, "ema"),
      rect_(layout, "rect"),
      amp_(layout, "amp"),
      per_(layout, "per"),
      logat_(layout, "logat"),
      snr_(layout, "snr") {}

void ArrivalRows::read(const RowGet &row, Pick &pick, LeftOut &left_out) const {
  pick.at.station = row.text(sta_);
  pick.at.channel = row.text(chan_);
  pick.time = row.real(time_, kNoTime);
  pick.time_error = row.real(deltim_);
  pick.phase = row.text(iphase_);
  pick.onset = row.letter(qual_);
  pick.azimuth = row.real(azimuth_);
  pick.azimuth_error = row.real(delaz_);
  pick.slowness = row.real(slow_);
  pick.slowness_error = row.real(delslo_);
  pick.emergence = row.real(ema_);
  pick.rectilinearity = row.real(rect_);
  pick.amplitude = row.real(amp_);
  pick.period = row.real(per_);
  pick.snr = row.real(snr_);
  pick.author = row.text(auth_);
  /* c or d of short periods, u or r of long ones. */
  const std::string motion = row.text(fm_);
  if (motion.find_first_of("cu") != motion.npos) {
    pick.first_motion = 'c';
  } else if (motion.find_first_of("dr") != motion.npos) {
    pick.first_motion = 'd';
  }
  left_out.add_if(motion.find_first_of("ur") != motion.npos,
                  "first motions of long periods (fm)");
  left_out.add_if(row.integer(stassid_) >= 0, "groups of arrivals (stassid)");
  left_out.add_if(row.letter(stype_) != 0, "types of signals (stype)");
  left_out.add_if(row.letter(clip_) == 'c', "marks of clipped data (clip)");
  left_out.add_if(row.real(logat_, kNone) != kNone, "amplitudes over period (logat)");
}

AssocRows::AssocRows(const db::Relation &layout)
    : arid(layout, "arid"),
      commid_(layout, "commid"),
      phase_(layout, "phase"),
      timedef_(layout, "timedef"),
      azdef_(layout, "azdef"),
      slodef_(layout, "slodef"),
      vmodel_(layout, "vmodel"),
      belief_(layout, "belief"),
      delta_(layout, "delta"),
      seaz_(layout, "seaz"),
      esaz_(layout, "esaz"),
      timeres_(layout, "timeres"),
      azres_(layout, "azres"),
      slores_(layout, "slores"),
      emares_(layout, "emares"),
      wgt_(layout, "wgt") {}

void AssocRows::read(const RowGet &row, Association &association,
                     LeftOut &left_out) const {
  association.phase = row.text(phase_);
  association.belief = row.real(belief_);
  association.delta = row.real(delta_);
  association.seaz = row.real(seaz_, kNone);
  association.esaz = row.real(esaz_, kNone);
  association.time_residual = row.real(timeres_, kNone);
  association.azimuth_residual = row.real(azres_, kNone);
  association.slowness_residual = row.real(slores_, kNone);
  association.emergence_residual = row.real(emares_, kNone);
  association.time_used = row.letter(timedef_);
  association.azimuth_used = row.letter(azdef_);
  association.slowness_used = row.letter(slodef_);
  association.weight = row.real(wgt_);
  association.earth_model = row.text(vmodel_);
  left_out.add_if(row.integer(commid_) >= 0, "comments on associations (commid)");
}

MtRows::MtRows(const db::Relation &layout)
    : mtid(layout, "mtid"),
      magid(layout, "magid"),
      commid(layout, "commid"),
      ctime_(layout, "ctime"),
      clat_(layout, "clat"),
      clon_(layout, "clon"),
      cdepth_(layout, "cdepth"),
      moment_(layout, "moment"),
      mw_(layout, "mw"),
      pctdc_(layout, "pctdc"),
      pctclvd_(layout, "pctclvd"),
      pctiso_(layout, "pctiso"),
      varred_(layout, "varred"),
      elements_(columns_of<6>(layout, {"mrr", "mtt", "mpp", "mrt", "mrp", "mtp"})),
      planes_(columns_of<6>(layout,
                            {"strike1", "dip1", "rake1", "strike2", "dip2", "rake2"})),
      axes_(columns_of<9>(layout, {"tval", "tplunge", "tazim", "nval", "nplunge",
                                   "nazim", "pval", "pplunge", "pazim"})),
      nsta_(layout, "nsta"),
      ncomp_(layout, "ncomp"),
      evalmode_(layout, "evalmode"),
      algorithm_(layout, "algorithm"),
      auth_(layout, "auth") {}

void MtRows::read(const RowGet &row, MomentTensor &tensor) const {
  tensor.time = row.real(ctime_, kNoTime);
  tensor.lat = row.real(clat_, kNone);
  tensor.lon = row.real(clon_, kNone);
  tensor.depth = row.real(cdepth_, kNone);
  for (std::size_t i = 0; i < 6; i++) {
    tensor.elements[i] = row.real(elements_[i], kNone);
  }
  for (std::size_t i = 0; i < 9; i++) tensor.axes[i] = row.real(axes_[i], kNone);
  for (std::size_t i = 0; i < 3; i++) {
    tensor.plane1[i] = row.real(planes_[i], kNone);
    tensor.plane2[i] = row.real(planes_[3 + i], kNone);
  }
  tensor.moment = row.real(moment_, kNone);
  tensor.mw = row.real(mw_, kNone);
  tensor.double_couple = row.real(pctdc_, kNone);
  tensor.clvd = row.real(pctclvd_, kNone);
  tensor.isotropic = row.real(pctiso_, kNone);
  tensor.variance_reduction = row.real(varred_, kNone);
  tensor.stations = row.integer(nsta_);
  tensor.components = row.integer(ncomp_);
  const char mode = row.letter(evalmode_);
  if (mode != 0) tensor.status = mode == 'a' ? "automatic" : "reviewed";
  tensor.algorithm = row.text(algorithm_);
  tensor.author = row.text(auth_);
}

namespace {

/* The value of a line "word: value"; null for another line. */
std::optional<std::string_view> value_of(std::string_view line, std::string_view word) {
  if (!line.starts_with(word) || !line.substr(word.size()).starts_with(": ")) {
    return std::nullopt;
  }
  return trimmed(line.substr(word.size() + 2));
}

}  // namespace

void read_event_remark(std::string_view line, Event &event, PreferredIds &preferred) {
  const auto read_id = [line](std::string_view name, std::string_view kind, auto &id) {
    const auto value = value_of(line, name);
    return value && value->starts_with(kind) &&
           parse_integer(value->substr(kind.size()), id);
  };
  if (const auto place = value_of(line, "place"); place && event.place.empty()) {
    event.place = *place;
  } else if (const auto name = value_of(line, "name"); name && event.name.empty()) {
    event.name = *name;
  } else if (!read_id("preferred magnitude", "magid ", preferred.magid) &&
             !read_id("preferred mechanism", "mtid ", preferred.mtid)) {
    event.comments.emplace_back(line);
  }
}

void read_origin_remark(std::string_view line, Origin &origin) {
  if (const auto model = value_of(line, "model"); model && origin.earth_model.empty()) {
    origin.earth_model = *model;
    return;
  }
  if (!value_of(line, "status") && !value_of(line, "gap") && !value_of(line, "dmin")) {
    origin.comments.emplace_back(line);
    return;
  }
  while (!line.empty()) {
    const std::size_t end = std::min(line.find("; "), line.size());
    const std::string_view part = line.substr(0, end);
    if (const auto status = value_of(part, "status")) origin.status = *status;
    if (const auto gap = value_of(part, "gap")) parse_real(*gap, origin.gap);
    if (const auto near = value_of(part, "dmin")) parse_real(*near, origin.nearest);
    line.remove_prefix(std::min(end + 2, line.size()));
  }
}

/* An ellipse that an import has computed is marked, so that the next import computes it
 * again. */
void read_origerr_remark(std::string_view line, Origin &origin) {
  if (!value_of(line, "ellipse")) return;
  origin.ellipse_computed =
      origin.major_axis >= 0.0 && ellipse_of(origin.covariance, kOneSigma).major >= 0.0;
}

}  // namespace ksutil::exchange
