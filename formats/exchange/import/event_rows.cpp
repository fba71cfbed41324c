#include "formats/exchange/import/event_rows.h"

#include <algorithm>
#include <array>
#include <utility>

#include "formats/exchange/import/gathering.h"
#include "platform/clock/clock.h"
#include "platform/db/columns.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

/* The event type codes of origin.etype for the words of a catalogue. */
std::string_view event_type_code(const std::string &type) {
  static constexpr std::array<std::pair<std::string_view, std::string_view>, 10> kCodes{
      {{"earthquake", "eq"},
       {"quarry blast", "qb"},
       {"explosion", "ex"},
       {"mining explosion", "me"},
       {"nuclear explosion", "nu"},
       {"ice quake", "iq"},
       {"volcanic eruption", "ve"},
       {"sonic boom", "sb"},
       {"landslide", "ls"},
       {"rock burst", "rb"}}};
  const auto *known = std::find_if(kCodes.begin(), kCodes.end(), [&](const auto &code) {
    return code.first == type;
  });
  return known == kCodes.end() ? std::string_view(type) : known->second;
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
  if (!report_.refused.empty()) return;
  report_.refused = layout_.name + "." + field.name + " cannot hold " + value;
}

RowPut &RowPut::put(std::string_view name, std::int64_t value) {
  const db::Field *field = next(name);
  if (field == nullptr) return *this;
  if (!db::write_integer(*field, value, row_)) refuse(*field, std::to_string(value));
  return *this;
}

RowPut &RowPut::put(std::string_view name, double value) {
  const db::Field *field = next(name);
  if (field == nullptr) return *this;
  if (!db::write_real(*field, value, row_)) {
    refuse(*field, field->type == db::FieldType::kTime ? time_text(value)
                                                       : format_text("%g", value));
  }
  return *this;
}

RowPut &RowPut::put(std::string_view name, std::string_view value) {
  const db::Field *field = next(name);
  if (field == nullptr) return *this;
  if (value.empty()) value = field->null_text;
  const auto width = static_cast<std::size_t>(field->width);
  if (value.size() > width) {
    report_.shortened++;
    value = value.substr(0, width);
    /* Not in the middle of a character of UTF-8. */
    while (!value.empty() &&
           (static_cast<unsigned char>(value.back()) & 0xc0) == 0x80) {
      value.remove_suffix(1);
    }
    if (!value.empty() && (static_cast<unsigned char>(value.back()) & 0x80) != 0) {
      value.remove_suffix(1);
    }
  }
  if (!db::write_text(*field, value, row_)) refuse(*field, "the text");
  return *this;
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

bool has_errors(const Origin &origin) {
  return origin.rms >= 0.0 || origin.horizontal_error >= 0.0 ||
         origin.depth_error >= 0.0;
}

void fill_origin(const Event &event, const Origin &origin, std::int64_t evid,
                 std::int64_t orid, const OriginMagnitudes &own, RowPut row) {
  row.put("lat", origin.lat)
      .put("lon", origin.lon)
      .put("depth", origin.depth)
      .put("time", origin.time)
      .put("orid", orid)
      .put("evid", evid)
      .put("jdate", static_cast<std::int64_t>(yearday(origin.time)))
      .put("ndef", origin.phases)
      .put("etype", event_type_code(event.type))
      .put("mb", own.mb)
      .put("mbid", own.mbid)
      .put("ms", own.ms)
      .put("msid", own.msid)
      .put("ml", own.ml)
      .put("mlid", own.mlid)
      .put("auth", std::string_view(origin.author));
}

void fill_origerr(const Origin &origin, std::int64_t orid, RowPut row) {
  row.put("orid", orid)
      .put("sdobs", origin.rms)
      .put("smajax", origin.horizontal_error)
      .put("sdepth", origin.depth_error);
}

void fill_netmag(const Magnitude &magnitude, std::int64_t evid, std::int64_t orid,
                 std::int64_t magid, RowPut row) {
  row.put("magid", magid)
      .put("net", std::string_view(magnitude.author))
      .put("orid", orid)
      .put("evid", evid)
      .put("magtype", std::string_view(magnitude.type))
      .put("nsta", magnitude.stations)
      .put("magnitude", magnitude.value)
      .put("uncertainty", magnitude.error)
      .put("auth", std::string_view(magnitude.author));
}

void fill_mt(const MomentTensor &tensor, std::int64_t evid, std::int64_t orid,
             std::int64_t mtid, std::int64_t magid, RowPut row) {
  static constexpr std::array<const char *, 6> kElements{"mrr", "mtt", "mpp",
                                                         "mrt", "mrp", "mtp"};
  static constexpr std::array<const char *, 9> kAxes{"tval", "tplunge", "tazim",
                                                     "nval", "nplunge", "nazim",
                                                     "pval", "pplunge", "pazim"};
  row.put("mtid", mtid).put("orid", orid).put("evid", evid).put("magid", magid);
  row.put("ctime", tensor.time)
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
  row.put("auth", std::string_view(tensor.author));
}

std::string place_remark(const Event &event) {
  return event.place.empty() ? "" : "place: " + event.place;
}

std::string origin_remark(const Origin &origin) {
  std::string line;
  const auto add = [&line](const char *name, const std::string &value) {
    if (!line.empty()) line += "; ";
    line += std::string(name) + ": " + value;
  };
  if (!origin.status.empty()) add("status", origin.status);
  if (origin.gap >= 0.0) add("gap", format_text("%.10g", origin.gap));
  if (origin.nearest >= 0.0) add("dmin", format_text("%.10g", origin.nearest));
  return line;
}

bool is_place_remark(std::string_view line) { return line.starts_with("place: "); }

bool is_origin_remark(std::string_view line) {
  return line.starts_with("status: ") || line.starts_with("gap: ") ||
         line.starts_with("dmin: ");
}

}  // namespace ksutil::exchange
