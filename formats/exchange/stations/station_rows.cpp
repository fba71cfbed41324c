#include "formats/exchange/stations/station_rows.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "platform/clock/clock.h"
#include "platform/db/columns.h"
#include "platform/stock/text.h"
#include "waveforms/response.h"

namespace ksutil::exchange {
namespace {

constexpr double kNanometres = 1e9;  // in a metre
constexpr double kLostDigits = 1e-6;

std::string_view field_text(const db::Field &field, std::string_view row) {
  return trimmed(row.substr(static_cast<std::size_t>(field.offset),
                            static_cast<std::size_t>(field.width)));
}

/* Whether a field has the same value in two rows of a layout. */
bool same_value(const db::Relation &layout, const db::Field &field, std::string_view a,
                std::string_view b) {
  if (field_text(field, a) == field_text(field, b)) return true;
  if (field.type == db::FieldType::kText) return false;
  if (field.type == db::FieldType::kInteger || field.type == db::FieldType::kYearday) {
    const db::IntegerColumn column(layout, field.name);
    std::int64_t first = 0, second = 0;
    return column.read(a, first) && column.read(b, second) && first == second;
  }
  const db::RealColumn column(layout, field.name);
  double first = 0.0, second = 0.0;
  return column.read(a, first) && column.read(b, second) && first == second;
}

}  // namespace

void RowEdit::take(const db::Field &field, const std::string &fresh) {
  if (!same_value(layout_, field, fresh, row_)) row_ = fresh;
}

RowEdit &RowEdit::put(std::string_view name, std::int64_t value) {
  const db::Field *field = layout_.find(name);
  if (field == nullptr) return *this;
  std::string fresh = row_;
  RowPut(layout_, fresh, report_).put(name, value);
  take(*field, fresh);
  return *this;
}

RowEdit &RowEdit::put(std::string_view name, double value) {
  const db::Field *field = layout_.find(name);
  if (field == nullptr) return *this;
  std::string fresh = row_;
  RowPut(layout_, fresh, report_).put(name, value);
  take(*field, fresh);
  return *this;
}

RowEdit &RowEdit::put(std::string_view name, std::string_view value) {
  const db::Field *field = layout_.find(name);
  if (field == nullptr) return *this;
  std::string fresh = row_, line(value);
  std::replace_if(
      line.begin(), line.end(),
      [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 127; }, ' ');
  RowPut(layout_, fresh, report_).put(name, std::string_view(trimmed(line)));
  take(*field, fresh);
  return *this;
}

RowEdit &RowEdit::put_exactly(std::string_view name, double value) {
  const db::Field *field = layout_.find(name);
  if (field == nullptr) return *this;
  std::string fresh = row_;
  RowPut(layout_, fresh, report_).put(name, value);
  double kept = 0.0;
  const db::RealColumn column(layout_, name);
  if (column.read(fresh, kept) &&
      std::fabs(kept - value) > kLostDigits * std::fabs(value)) {
    const std::string text = format_text("%*.8e", field->width, value);
    if (text.size() == static_cast<std::size_t>(field->width)) {
      fresh.replace(static_cast<std::size_t>(field->offset), text.size(), text);
    }
  }
  take(*field, fresh);
  return *this;
}

std::int64_t first_day(const Epoch &epoch) {
  return epoch.start == kNoTime ? -1 : yearday(epoch.start);
}

std::int64_t last_day(const Epoch &epoch) {
  if (epoch.end == kNoTime) return -1;
  return std::max<std::int64_t>(yearday(epoch.end - 0.001), first_day(epoch));
}

double ncalib_of(double sensitivity, double frequency, const std::string &unit) {
  double metres = 1.0;
  const int derivatives = ground_unit(unit, metres);
  if (derivatives < 0 || sensitivity == 0.0) return 0.0;
  if (derivatives > 0 && !(frequency > 0.0)) return 0.0;
  const double omega = 2.0 * std::numbers::pi * frequency;
  const double ncalib =
      kNanometres * metres / (sensitivity * std::pow(omega, derivatives));
  return std::isfinite(ncalib) ? ncalib : 0.0;
}

/* The formula is its own inverse.  Of the numbers that the field would hold alike, the one
 * of the fewest digits is most likely the one that was given. */
double sensitivity_of(double ncalib, double frequency, const std::string &unit) {
  const double exact = ncalib_of(ncalib, frequency, unit);
  double rounded = 0.0;  // as the field holds numbers that lose little by it
  const bool in_places =
      parse_real(format_text("%.6f", ncalib), rounded) && rounded == ncalib;
  const char *const format = in_places ? "%.6f" : "%.8e";
  const std::string kept = format_text(format, ncalib);
  constexpr int kMostDigits = 17;
  for (int digits = 1; digits < kMostDigits; digits++) {
    double shorter = 0.0;
    if (parse_real(format_text("%.*g", digits, exact), shorter) &&
        format_text(format, ncalib_of(shorter, frequency, unit)) == kept) {
      return shorter;
    }
  }
  return exact;
}

double frequency_of(double period) {
  if (!(period > 0.0)) return 0.0;
  constexpr double kHalfOfLastDecimal = 5e-7;
  double frequency = 0.0;
  for (int digits = 3; digits <= 15; digits++) {
    parse_real(format_text("%.*g", digits, 1.0 / period), frequency);
    if (std::fabs(1.0 / frequency - period) < kHalfOfLastDecimal) break;
  }
  return frequency;
}

std::string unit_of_letter(const std::string &letter) {
  return letter == "D" ? "M" : letter == "V" ? "M/S" : letter == "A" ? "M/S**2" : "";
}

std::string natural_unit(const std::string &unit) {
  double metres = 1.0;
  switch (unit.empty() ? -1 : ground_unit(unit, metres)) {
    case 0:
      return "D";
    case 1:
      return "V";
    case 2:
      return "A";
    default:
      return "";
  }
}

std::string_view band_of(const std::string &channel_code) {
  if (channel_code.size() < 3) return "";
  switch (channel_code.front()) {
    case 'E':
    case 'S':
      return "s";
    case 'D':
    case 'G':
      return "h";
    case 'B':
    case 'C':
    case 'F':
    case 'H':
      return "b";
    case 'M':
      return "m";
    case 'L':
      return "l";
    case 'V':
    case 'U':
    case 'R':
      return "v";
    default:
      return "";
  }
}

void fill_site(const Station &station, const std::string &sta, RowEdit row) {
  row.put("sta", std::string_view(sta))
      .given("lat", station.lat)
      .given("lon", station.lon)
      .given("elev", station.elevation)
      .given("staname", std::string_view(station.name));
}

void fill_geometry(const Channel &channel, RowEdit row) {
  row.put("ctype", std::string_view("n"))
      .given("edepth", channel.depth)
      .given("hang", channel.azimuth)
      .given("descrip", std::string_view(channel.description));
  if (channel.dip != -999.0) row.put("vang", vang_of_dip(channel.dip));
}

bool has_instrument(const Channel &channel) {
  return !channel.sensor.empty() || channel.samprate > 0.0 ||
         channel.sensitivity != 0.0 || channel.response != nullptr;
}

void fill_instrument(const Channel &channel, const std::string &file,
                     const std::string &kind, bool had_file, RowEdit row) {
  std::string unit = channel.input_unit;
  if (unit.empty() && channel.response != nullptr)
    unit = channel.response->input_unit();
  const double frequency = channel.sensitivity_frequency;
  const double ncalib =
      unit.empty() ? 0.0 : ncalib_of(channel.sensitivity, frequency, unit);
  row.given("insname", std::string_view(channel.sensor))
      .given("instype", channel.sensor_model.size() <= 6
                            ? std::string_view(channel.sensor_model)
                            : std::string_view())
      .given("band", band_of(channel.code));
  if (channel.samprate > 0.0) {
    row.put("digital", std::string_view("d")).put("samprate", channel.samprate);
  }
  if (ncalib != 0.0) {
    row.put_exactly("ncalib", ncalib);
    if (frequency > 0.0) row.put("ncalper", 1.0 / frequency);
  }
  if (!file.empty()) {
    row.put("dir", std::string_view(kResponseFolder))
        .put("dfile", std::string_view(file))
        .put("rsptype", std::string_view(kind));
  } else if (!had_file) {
    row.given("rsptype", std::string_view(natural_unit(unit)));
  }
}

void fill_sensor(const Channel &channel, RowEdit row) {
  if (channel.epoch.start != kNoTime) {
    row.put("time", channel.epoch.start)
        .put("jdate", static_cast<std::int64_t>(yearday(channel.epoch.start)));
  }
  row.put("endtime", channel.epoch.end == kNoTime ? 9999999999.999 : channel.epoch.end);
  if (channel.sensitivity_frequency > 0.0) {
    row.put("calper", 1.0 / channel.sensitivity_frequency);
  }
}

}  // namespace ksutil::exchange
