#include "formats/exchange/table/csv_writer.h"

#include "formats/exchange/event_types.h"
#include "formats/exchange/text/value_text.h"

namespace ksutil::exchange {
bool CsvWriter::begin() {
  buffer_.text() +=
      "time,latitude,longitude,depth,mag,magType,nst,gap,dmin,rms,net,id,updated,place,"
      "type,horizontalError,depthError,magError,magNst,status,locationSource,"
      "magSource\n";
  return true;
}

void CsvWriter::cell(std::string_view text) {
  std::string &row = buffer_.text();
  if (!first_) row += ',';
  first_ = false;
  clean_.clear();
  const std::int64_t replaced = append_clean_line(text, clean_);
  left_out_.add("characters that are not text", static_cast<std::size_t>(replaced));
  if (clean_.find_first_of(",\"") == clean_.npos) {
    row += clean_;
    return;
  }
  row += '"';
  for (const char c : clean_) {
    if (c == '"') row += '"';
    row += c;
  }
  row += '"';
}

void CsvWriter::number(double value, double low, double high) {
  const bool given = value > -999.0;
  const bool good = value >= low && value <= high;
  left_out_.add_if(given && !good && value != -1.0, "values beyond their range");
  cell(good ? number_text(value) : "");
}

bool CsvWriter::put(const Event &event) {
  const Origin &origin = preferred_origin(event);
  const Magnitude *shown = shown_magnitude(event);
  const Magnitude none;
  const Magnitude &magnitude = shown == nullptr ? none : *shown;
  left_out_.add_rest(event, shown, kFeedPlaces);
  const std::string_view type = event_type_word(event.type);
  const double horizontal =
      origin.horizontal_error >= 0.0 ? origin.horizontal_error : origin.major_axis;

  first_ = true;
  cell(utc_text(origin.time));
  cell(number_text(origin.lat));
  cell(number_text(origin.lon));
  number(origin.depth, -100.0, 1000.0);
  number(magnitude.value, -10.0, 11.0);
  cell(magnitude.type);
  number(static_cast<double>(origin.phases), 0.0, 1e6);
  number(origin.gap, 0.0, 360.0);
  number(origin.nearest, 0.0, 180.0);
  number(origin.rms, 0.0, 9999.0);
  cell(event.author);
  cell(event.id);
  cell(is_writable_time(event.updated) && event.updated != 0.0 ? utc_text(event.updated)
                                                               : "");
  cell(event.place);
  cell(type.empty() ? std::string_view(event.type) : type);
  number(horizontal, 0.0, 9999.0);
  number(origin.depth_error, 0.0, 9999.0);
  number(magnitude.error, 0.0, 9999.0);
  number(static_cast<double>(magnitude.stations), 0.0, 1e6);
  cell(origin.status);
  cell(origin.author);
  cell(magnitude.author);
  buffer_.text() += '\n';
  return buffer_.settle();
}

}  // namespace ksutil::exchange
