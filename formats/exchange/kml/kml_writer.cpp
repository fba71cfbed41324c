#include "formats/exchange/kml/kml_writer.h"

#include <algorithm>
#include <array>
#include <string>

#include "formats/exchange/event_types.h"
#include "formats/exchange/text/value_text.h"

namespace ksutil::exchange {
namespace {

constexpr Places kPlaces{.type = true, .place = true, .status = true};

struct DepthClass {
  const char *name;
  double below;        // km
  const char *colour;  // alpha, blue, green, red
};
constexpr std::array<DepthClass, 4> kDepths{{{"shallow", 70.0, "c82828dc"},
                                             {"intermediate", 300.0, "c800a5ff"},
                                             {"deep", 1e9, "c8c86414"},
                                             {"unknown", 0.0, "c8808080"}}};
constexpr int kLargest = 9;

const DepthClass &class_of(double depth) {
  if (depth <= -999.0) return kDepths[3];
  return depth < kDepths[0].below   ? kDepths[0]
         : depth < kDepths[1].below ? kDepths[1]
                                    : kDepths[2];
}

std::string style_name(int size, const DepthClass &depth) {
  return "m" + std::to_string(size) + "-" + depth.name;
}

}  // namespace

bool KmlWriter::begin() {
  xml_.declare();
  xml_.open("kml");
  xml_.attribute("xmlns", "http://www.opengis.net/kml/2.2");
  xml_.open("Document");
  for (int size = 0; size <= kLargest; size++) {
    for (const DepthClass &depth : kDepths) {
      xml_.open("Style");
      xml_.attribute("id", style_name(size, depth));
      xml_.open("IconStyle");
      xml_.element("color", depth.colour);
      xml_.element("scale", scaled_text(0.4 + 0.2 * size, 1.0));
      xml_.close();
      xml_.close();
    }
  }
  return xml_.settle();
}

void KmlWriter::put_data(const char *name, std::string_view value) {
  if (value.empty()) return;
  xml_.open("Data");
  xml_.attribute("name", name);
  xml_.element("value", value);
  xml_.close();
}

bool KmlWriter::put(const Event &event) {
  const Origin &origin = preferred_origin(event);
  const Magnitude *magnitude = shown_magnitude(event);
  left_out_.add_rest(event, magnitude, kPlaces);
  const std::string_view word = event_type_word(event.type);
  const std::string time = utc_text(origin.time);
  const std::string depth = origin.depth > -999.0 ? number_text(origin.depth) : "";
  std::string size = "no magnitude";
  int step = 0;
  if (magnitude != nullptr) {
    size = magnitude->type + (magnitude->type.empty() ? "" : " ") +
           number_text(magnitude->value);
    step = static_cast<int>(std::clamp(magnitude->value, 0.0, double{kLargest}));
  }

  xml_.open("Placemark");
  xml_.attribute("id", "event" + std::to_string(++count_));
  xml_.element("name", event.place.empty() ? size : size + ", " + event.place);
  xml_.element("description",
               time + "\n" + size + "\n" +
                   (depth.empty() ? "depth not known" : "depth " + depth + " km") +
                   (event.place.empty() ? "" : "\n" + event.place) +
                   (event.author.empty() ? "" : "\n" + event.author));
  xml_.open("TimeStamp");
  xml_.element("when", time);
  xml_.close();
  xml_.element("styleUrl", "#" + style_name(step, class_of(origin.depth)));
  xml_.open("ExtendedData");
  put_data("id", event.id);
  if (magnitude != nullptr) {
    put_data("magnitude", number_text(magnitude->value));
    put_data("magtype", magnitude->type);
  }
  put_data("depth", depth);
  put_data("etype", word.empty() ? std::string_view(event.type) : word);
  put_data("auth", event.author);
  put_data("status", origin.status);
  xml_.close();
  xml_.open("Point");
  xml_.element("coordinates", number_text(origin.lon) + "," + number_text(origin.lat));
  xml_.close();
  xml_.close();
  return xml_.settle();
}

bool KmlWriter::end() {
  xml_.close();
  xml_.close();
  return xml_.flush();
}

std::vector<Unplaced> KmlWriter::without_place() const {
  std::vector<Unplaced> list = left_out_.list();
  if (xml_.replaced() > 0) {
    list.push_back({"characters that are not text", xml_.replaced()});
  }
  return list;
}

}  // namespace ksutil::exchange
