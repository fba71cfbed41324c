#include "formats/exchange/geojson/geojson_writer.h"

#include <cmath>

#include "formats/exchange/event_types.h"
#include "formats/exchange/text/value_text.h"

namespace ksutil::exchange {
bool GeoJsonWriter::begin() {
  buffer_.text() += "{\"type\":\"FeatureCollection\",\"features\":[";
  return true;
}

void GeoJsonWriter::put_time(const char *name, double time) {
  if (!is_writable_time(time)) return json_.put(name, "");
  json_.key(name);
  const double microseconds = std::round(time * 1e6);
  if (std::fmod(microseconds, 1000.0) == 0.0) {
    json_.integer(static_cast<std::int64_t>(microseconds / 1000.0));
  } else {
    json_.number(microseconds / 1000.0);
  }
}

bool GeoJsonWriter::put(const Event &event) {
  const Origin &origin = preferred_origin(event);
  const Magnitude *magnitude = shown_magnitude(event);
  left_out_.add_rest(event, magnitude, kFeedPlaces);
  const std::string_view type = event_type_word(event.type);

  buffer_.text() += first_ ? "\n" : ",\n";
  first_ = false;
  json_.restart();
  json_.begin_object();
  json_.put("type", "Feature");
  json_.put("id", event.id);
  json_.key("properties");
  json_.begin_object();
  json_.put("mag", magnitude == nullptr ? -999.0 : magnitude->value, -999.0);
  json_.put("place", event.place);
  put_time("time", origin.time);
  put_time("updated", event.updated == 0.0 ? kNoTime : event.updated);
  json_.put("status", origin.status);
  json_.put("net", event.author);
  json_.put("nst", origin.phases);
  json_.put("dmin", origin.nearest, -1.0);
  json_.put("rms", origin.rms, -1.0);
  json_.put("gap", origin.gap, -1.0);
  json_.put("magType", magnitude == nullptr ? "" : magnitude->type);
  json_.put("type", type.empty() ? std::string_view(event.type) : type);
  json_.put(
      "horizontalError",
      origin.horizontal_error >= 0.0 ? origin.horizontal_error : origin.major_axis,
      -1.0);
  json_.put("depthError", origin.depth_error, -1.0);
  json_.put("magError", magnitude == nullptr ? -1.0 : magnitude->error, -1.0);
  json_.put("magNst", magnitude == nullptr ? std::int64_t{-1} : magnitude->stations);
  json_.put("locationSource", origin.author);
  json_.put("magSource", magnitude == nullptr ? "" : magnitude->author);
  json_.end_object();
  json_.key("geometry");
  json_.begin_object();
  json_.put("type", "Point");
  json_.key("coordinates");
  json_.begin_array();
  json_.number(origin.lon);
  json_.number(origin.lat);
  if (origin.depth > -999.0) json_.number(origin.depth);
  json_.end_array();
  json_.end_object();
  json_.end_object();
  return buffer_.settle();
}

bool GeoJsonWriter::end() {
  buffer_.text() += "\n]}\n";
  return buffer_.flush();
}

}  // namespace ksutil::exchange
