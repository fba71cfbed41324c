#include "formats/exchange/import/event_rows.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "formats/exchange/error_ellipse.h"
#include "formats/exchange/event_types.h"
#include "formats/exchange/import/gathering.h"
#include "platform/clock/clock.h"
#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

/* A text of one letter; "" for 0. */
std::string_view one_letter(const char &letter) {
  return {&letter, letter == 0 ? std::size_t{0} : std::size_t{1}};
}

/* Whether a text is as fitted_id() shortens them. */
bool is_shortened(std::string_view text, int width, int digits) {
  const auto tail = static_cast<std::size_t>(digits);
  return text.size() == static_cast<std::size_t>(width) && text.size() > tail + 1 &&
         text[text.size() - tail - 1] == '~' &&
         std::all_of(text.end() - digits, text.end(), [](char c) {
           return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z');
         });
}

}  // namespace

std::string fitted_id(const std::string &id, int width, int digits) {
  const auto room = static_cast<std::size_t>(std::max(width, 0));
  const auto tail = static_cast<std::size_t>(digits);
  if (id.size() <= room || room <= tail + 1) return id;
  std::uint64_t hash = hash_of(id);
  std::string name = id.substr(0, room - tail - 1) + '~';
  for (std::size_t i = 0; i < tail; i++, hash /= 36) {
    name += "0123456789abcdefghijklmnopqrstuvwxyz"[hash % 36];
  }
  return name;
}

bool is_name_of_long_id(const std::string &name, int name_width,
                        const std::string &public_text, int text_width) {
  if (!is_shortened(name, name_width, kNameDigits) ||
      !is_shortened(public_text, text_width, kPublicDigits)) {
    return false;
  }
  const std::size_t kept = name.size() - kNameDigits - 1;
  return public_text.starts_with(std::string_view(name).substr(0, kept));
}

/* The fields are put in the order of the layout, mostly: the next one is near. */
const db::Field *RowPut::next(std::string_view name) {
  const std::size_t count = layout_.fields.size();
  for (std::size_t i = 0; i < count; i++) {
    const std::size_t at = at_ + i < count ? at_ + i : at_ + i - count;
    if (layout_.fields[at].name != name) continue;
    at_ = at;
    return &layout_.fields[at];
  }
  return nullptr;
}

void RowPut::refuse(const db::Field &field, const std::string &value) {
  if (lenient_) {
    elog_flush(0, mark_);
    report_.left_out.add(layout_.name + "." + field.name + " beyond its range");
    row_.replace(static_cast<std::size_t>(field.offset),
                 static_cast<std::size_t>(field.width), db::null_record(layout_),
                 static_cast<std::size_t>(field.offset),
                 static_cast<std::size_t>(field.width));
    return;
  }
  if (!report_.refused.empty()) return;
  report_.refused = layout_.name + "." + field.name + " cannot hold " + value;
}

RowPut &RowPut::lenient() {
  lenient_ = true;
  mark_ = elog_mark();
  return *this;
}

RowPut &RowPut::put(std::string_view name, std::int64_t value) {
  const db::Field *field = next(name);
  if (field == nullptr) return *this;
  if (db::write_integer(*field, value, row_)) return *this;
  refuse(*field, std::to_string(value));
  return *this;
}

RowPut &RowPut::put(std::string_view name, double value) {
  const db::Field *field = next(name);
  if (field == nullptr) return *this;
  if (db::write_real(*field, value, row_)) return *this;
  refuse(*field, field->type == db::FieldType::kTime ? time_text(value)
                                                     : format_text("%g", value));
  return *this;
}

RowPut &RowPut::put(std::string_view name, std::string_view value) {
  const db::Field *field = next(name);
  if (field == nullptr) return *this;
  if (value.empty()) value = field->null_text;
  const auto width = static_cast<std::size_t>(field->width);
  if (value.size() > width) {
    report_.shortened++;
    report_.cut_fields.add(layout_.name + "." + field->name);
    /* Not in the middle of a character of UTF-8. */
    std::size_t end = width;
    while (end > 0 && (static_cast<unsigned char>(value[end]) & 0xc0) == 0x80) end--;
    value = value.substr(0, end);
  }
  if (db::write_text(*field, value, row_)) return *this;
  refuse(*field, "the text");
  return *this;
}

bool RowPut::put_if_there(std::string_view name, std::string_view value) {
  if (next(name) == nullptr) return false;
  put(name, value);
  return true;
}

void choose_magnitude(const Magnitude &magnitude, std::int64_t magid,
                      OriginMagnitudes &own) {
  const std::string type = lowered(magnitude.type);
  const auto take = [&](double &value, std::int64_t &id) {
    if (value > -999.0) return;
    value = magnitude.value;
    id = magid;
  };
  if (type == "mb") take(own.mb, own.mbid);
  if (type == "ms" || type.starts_with("ms_")) take(own.ms, own.msid);
  if (type == "ml") take(own.ml, own.mlid);
}

void fill_origin(const Event &event, const Origin &origin, const RowIds &ids,
                 const OriginMagnitudes &own, RowPut row) {
  row.put("lat", origin.lat)
      .put("lon", origin.lon)
      .put("depth", origin.depth)
      .put("time", origin.time)
      .put("orid", ids.orid)
      .put("evid", ids.evid)
      .put("jdate", static_cast<std::int64_t>(yearday(origin.time)))
      .lenient()
      .put("nass", origin.associated)
      .put("ndef", origin.phases)
      .put("ndp", origin.depth_phases)
      .put("etype", event_type_code(event.type))
      .put("dtype", one_letter(origin.depth_type))
      .put("mb", own.mb)
      .put("mbid", own.mbid)
      .put("ms", own.ms)
      .put("msid", own.msid)
      .put("ml", own.ml)
      .put("mlid", own.mlid)
      .put("algorithm", std::string_view(origin.algorithm))
      .put("auth", std::string_view(origin.author));
}

void fill_netmag(const Magnitude &magnitude, const RowIds &ids, RowPut row) {
  row.put("magid", ids.magid)
      .put("orid", ids.orid)
      .put("evid", ids.evid)
      .put("magtype", std::string_view(magnitude.type))
      .put("nsta", magnitude.stations)
      .put("magnitude", magnitude.value)
      .put("uncertainty", magnitude.error)
      .put("auth", std::string_view(magnitude.author));
}

bool is_reviewed(std::string_view status) {
  return status == "reviewed" || status == "manual" || status == "confirmed" ||
         status == "final";
}

void fill_mt(const MomentTensor &tensor, const RowIds &ids, RowPut row) {
  static constexpr std::array<const char *, 6> kElements{"mrr", "mtt", "mpp",
                                                         "mrt", "mrp", "mtp"};
  static constexpr std::array<const char *, 9> kAxes{"tval", "tplunge", "tazim",
                                                     "nval", "nplunge", "nazim",
                                                     "pval", "pplunge", "pazim"};
  row.put("mtid", ids.mtid)
      .put("orid", ids.orid)
      .put("evid", ids.evid)
      .put("magid", ids.magid)
      .lenient()
      .put("ctime", tensor.time)
      .put("clat", tensor.lat)
      .put("clon", tensor.lon)
      .put("cdepth", tensor.depth);
  for (std::size_t i = 0; i < kElements.size(); i++) {
    row.put(kElements[i], tensor.elements[i]);
  }
  row.put("moment", tensor.moment)
      .put("mw", tensor.mw)
      .put("strike1", tensor.plane1[0])
      .put("dip1", tensor.plane1[1])
      .put("rake1", tensor.plane1[2])
      .put("strike2", tensor.plane2[0])
      .put("dip2", tensor.plane2[1])
      .put("rake2", tensor.plane2[2]);
  for (std::size_t i = 0; i < kAxes.size(); i++) row.put(kAxes[i], tensor.axes[i]);
  row.put("pctdc", tensor.double_couple)
      .put("pctclvd", tensor.clvd)
      .put("pctiso", tensor.isotropic)
      .put("nsta", tensor.stations)
      .put("ncomp", tensor.components)
      .put("varred", tensor.variance_reduction)
      .put("evalmode", tensor.status.empty()        ? ""
                       : is_reviewed(tensor.status) ? "m"
                                                    : "a")
      .put("algorithm", std::string_view(tensor.algorithm))
      .put("auth", std::string_view(tensor.author));
}

bool has_errors(const Origin &origin) {
  return origin.rms >= 0.0 || origin.horizontal_error >= 0.0 ||
         origin.depth_error >= 0.0 || origin.time_error >= 0.0 ||
         origin.major_axis >= 0.0 || is_given(origin.covariance);
}

bool lacks_ellipse(const Origin &origin) {
  return (origin.major_axis < 0.0 || origin.ellipse_computed) &&
         ellipse_of(origin.covariance, kOneSigma).major >= 0.0;
}

namespace {

double rounded(double value, double unit) { return std::round(value / unit) * unit; }

/* A covariance as the fields hold it: what is computed from it is then the same for the
 * row and for a copy of it. */
Covariance rounded(Covariance c) {
  for (double *value :
       {&c.xx, &c.yy, &c.zz, &c.tt, &c.xy, &c.xz, &c.yz, &c.tx, &c.ty, &c.tz}) {
    *value = rounded(*value, 1e-4);
  }
  return c;
}

}  // namespace

void fill_origerr(const Origin &origin, const RowIds &ids, RowPut row) {
  const Covariance c = rounded(origin.covariance);
  const bool computed = lacks_ellipse(origin);
  Ellipse ellipse{origin.major_axis, origin.minor_axis, origin.ellipse_strike};
  double depth = origin.depth_error, time = origin.time_error;
  double confidence = origin.confidence;
  if (computed) {
    if (confidence <= 0.0 || confidence >= 1.0) confidence = kOneSigma;
    confidence = rounded(confidence, 1e-3);
    ellipse = ellipse_of(c, confidence);
    const double k = std::sqrt(chi_square(1, confidence));
    if (depth < 0.0 && c.zz >= 0.0) depth = k * std::sqrt(c.zz);
    if (time < 0.0 && c.tt >= 0.0) time = k * std::sqrt(c.tt);
  } else if (ellipse.major < 0.0) {
    ellipse.major = origin.horizontal_error;
  }
  row.put("orid", ids.orid).lenient();
  if (is_given(c)) {
    row.put("sxx", c.xx)
        .put("syy", c.yy)
        .put("szz", c.zz)
        .put("stt", c.tt)
        .put("sxy", c.xy)
        .put("sxz", c.xz)
        .put("syz", c.yz)
        .put("stx", c.tx)
        .put("sty", c.ty)
        .put("stz", c.tz);
  }
  row.put("sdobs", origin.rms)
      .put("smajax", ellipse.major)
      .put("sminax", ellipse.minor)
      .put("strike", ellipse.strike)
      .put("sdepth", depth)
      .put("stime", time)
      .put("conf", confidence);
}

void fill_arrival(const Pick &pick, const StationCode &code, const RowIds &ids,
                  RowPut row) {
  const std::string motion =
      pick.first_motion == 0 ? "" : std::string{pick.first_motion, '.'};
  row.put("time", pick.time)
      .put("arid", ids.arid)
      .put("jdate", static_cast<std::int64_t>(yearday(pick.time)))
      .lenient()
      .put("sta", std::string_view(code.sta))
      .put("chan", std::string_view(code.chan))
      .put("iphase", std::string_view(pick.phase))
      .put("deltim", pick.time_error)
      .put("azimuth", pick.azimuth)
      .put("delaz", pick.azimuth_error)
      .put("slow", pick.slowness)
      .put("delslo", pick.slowness_error)
      .put("ema", pick.emergence)
      .put("rect", pick.rectilinearity)
      .put("amp", pick.amplitude)
      .put("per", pick.period)
      .put("fm", std::string_view(motion))
      .put("snr", pick.snr)
      .put("qual", one_letter(pick.onset))
      .put("auth", std::string_view(pick.author));
}

void fill_assoc(const Association &association, const Origin &origin,
                const std::string &sta, const RowIds &ids, RowPut row) {
  const std::string &model =
      association.earth_model.empty() ? origin.earth_model : association.earth_model;
  row.put("arid", ids.arid)
      .put("orid", ids.orid)
      .lenient()
      .put("sta", std::string_view(sta))
      .put("phase", std::string_view(association.phase))
      .put("belief", association.belief < 0.0 ? 9.99 : association.belief)
      .put("delta", association.delta)
      .put("seaz", association.seaz)
      .put("esaz", association.esaz)
      .put("timeres", association.time_residual)
      .put("timedef", one_letter(association.time_used))
      .put("azres", association.azimuth_residual)
      .put("azdef", one_letter(association.azimuth_used))
      .put("slores", association.slowness_residual)
      .put("slodef", one_letter(association.slowness_used))
      .put("emares", association.emergence_residual)
      .put("wgt", association.weight)
      .put("vmodel", std::string_view(model));
}

void fill_stamag(const StationMagnitude &magnitude, const std::string &sta,
                 const RowIds &ids, RowPut row) {
  row.put("magid", ids.magid)
      .lenient()
      .put("sta", std::string_view(sta))
      .put("arid", ids.arid)
      .put("orid", ids.orid)
      .put("evid", ids.evid)
      .put("phase", std::string_view(magnitude.phase))
      .put("magtype", std::string_view(magnitude.type))
      .put("magnitude", magnitude.value)
      .put("uncertainty", magnitude.error)
      .put("auth", std::string_view(magnitude.author));
  const char used =
      magnitude.used != 0 || magnitude.magnitude < 0 ? magnitude.used : 'd';
  if (!row.put_if_there("magdef", one_letter(used)) && used == 'n') {
    row.leave_out("station magnitudes of weight 0, which stamag cannot mark");
  }
}

}  // namespace ksutil::exchange
