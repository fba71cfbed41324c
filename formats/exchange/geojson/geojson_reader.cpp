#include "formats/exchange/geojson/geojson_reader.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "formats/exchange/event_types.h"
#include "formats/exchange/isf/ims_codes.h"
#include "formats/exchange/second_names.h"
#include "platform/clock/clock.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

using Json = nlohmann::json;

constexpr double kMaxMagnitude = 11.0;
constexpr double kMostKm = 9999.0;
constexpr double kMostMilliseconds = 1e14;

enum class Member {
  kTime,
  kUpdated,
  kMag,
  kMagType,
  kPlace,
  kType,
  kStatus,
  kNet,
  kCode,
  kId,
  kIds,
  kDepth,
  kNst,
  kGap,
  kDmin,
  kRms,
  kHorizontalError,
  kDepthError,
  kMagError,
  kMagNst,
  kLocationSource,
  kMagSource,
  kDerived  // from the others
};

struct MemberName {
  const char *name;  // in lower case
  Member member;
};

constexpr MemberName kMembers[] = {
    {"time", Member::kTime},
    {"updated", Member::kUpdated},
    {"lastupdate", Member::kUpdated},
    {"mag", Member::kMag},
    {"magnitude", Member::kMag},
    {"magtype", Member::kMagType},
    {"place", Member::kPlace},
    {"flynn_region", Member::kPlace},
    {"type", Member::kType},
    {"evtype", Member::kType},
    {"status", Member::kStatus},
    {"net", Member::kNet},
    {"auth", Member::kNet},
    {"author", Member::kNet},
    {"code", Member::kCode},
    {"id", Member::kId},
    {"eventid", Member::kId},
    {"unid", Member::kId},
    {"ids", Member::kIds},
    {"depth", Member::kDepth},
    {"nst", Member::kNst},
    {"gap", Member::kGap},
    {"dmin", Member::kDmin},
    {"rms", Member::kRms},
    {"horizontalerror", Member::kHorizontalError},
    {"deptherror", Member::kDepthError},
    {"magerror", Member::kMagError},
    {"magnst", Member::kMagNst},
    {"locationsource", Member::kLocationSource},
    {"magsource", Member::kMagSource},
    {"title", Member::kDerived},
    {"lat", Member::kDerived},
    {"lon", Member::kDerived},
    {"latitude", Member::kDerived},
    {"longitude", Member::kDerived},
};

bool is_control(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < ' ' || byte == 127;
}

/* A value for a message: bounded. */
std::string shown(const Json &value) {
  constexpr std::size_t kMost = 60;
  std::string text = value.is_structured()
                         ? value.type_name()
                         : value.dump(-1, ' ', false, Json::error_handler_t::replace);
  std::replace_if(text.begin(), text.end(), is_control, '?');
  return text.size() > kMost ? text.substr(0, kMost) + "..." : text;
}

/* A number, or a text that is one; false for anything else. */
bool number_of(const Json &value, double &number) {
  if (value.is_number()) {
    number = value.get<double>();
    return std::isfinite(number);
  }
  return value.is_string() &&
         parse_real(value.get_ref<const std::string &>(), number) &&
         std::isfinite(number);
}

bool is_given(const Json &value) {
  return !value.is_null() &&
         !(value.is_string() && value.get_ref<const std::string &>().empty());
}

bool has_depth(const Json &properties) {
  for (const auto &[name, value] : properties.items()) {
    if (lowered(name) == "depth" && is_given(value)) return true;
  }
  return false;
}

}  // namespace

void GeojsonReader::refuse(const char *name, const Json &value) {
  if (problem_.empty()) problem_ = std::string(name) + " is " + shown(value);
}

void GeojsonReader::leave(const std::string &name) {
  std::string known = "property " + name.substr(0, 60);
  std::replace_if(known.begin(), known.end(), is_control, '?');
  unplaced_.add(known);
}

void GeojsonReader::real(const Json &value, const char *name, double low, double high,
                         double &result) {
  double number = 0.0;
  if (!number_of(value, number) || number < low || number > high) {
    return refuse(name, value);
  }
  result = number;
}

void GeojsonReader::count(const Json &value, const char *name, std::int64_t &result) {
  double number = -1.0;
  real(value, name, 0.0, 1e6, number);
  if (number >= 0.0) result = std::llround(number);
}

void GeojsonReader::time(const Json &value, const char *name, double &result) {
  if (value.is_string()) {
    if (!parse_date_text(value.get_ref<const std::string &>(), result)) {
      refuse(name, value);
    }
    return;
  }
  double milliseconds = 0.0;
  if (!value.is_number() || !number_of(value, milliseconds) ||
      std::abs(milliseconds) > kMostMilliseconds) {
    return refuse(name, value);
  }
  result = milliseconds / 1000.0;
}

void GeojsonReader::text(const Json &value, const char *name, std::string &result) {
  if (value.is_number()) {
    result = value.dump();
    return;
  }
  if (!value.is_string()) return refuse(name, value);
  result = trimmed(value.get_ref<const std::string &>());
  if (std::any_of(result.begin(), result.end(), is_control)) refuse(name, value);
}

/* Some services write heights as third coordinates, in km or in m, and the depth among the
 * properties: then the coordinate does not count. */
bool GeojsonReader::read_place(const Json &feature, bool has_depth, Origin &origin) {
  const auto geometry = feature.find("geometry");
  const Json *coordinates = nullptr;
  if (geometry != feature.end() && geometry->is_object() &&
      geometry->value("type", Json()) == "Point") {
    const auto found = geometry->find("coordinates");
    if (found != geometry->end() && found->is_array() && found->size() >= 2) {
      coordinates = &*found;
    }
  }
  if (coordinates == nullptr) {
    problem_ = "the feature is not a point";
    return false;
  }
  real((*coordinates)[0], "longitude", -180.0, 360.0, origin.lon);
  real((*coordinates)[1], "latitude", -90.0, 90.0, origin.lat);
  if (origin.lon > 180.0) origin.lon -= 360.0;
  if (coordinates->size() > 2 && !(*coordinates)[2].is_null() && !has_depth) {
    real((*coordinates)[2], "depth", -100.0, 1000.0, origin.depth);
  }
  return problem_.empty();
}

void GeojsonReader::read_properties(const Json &properties, Event &event) {
  Origin &origin = event.origins.front();
  Magnitude magnitude;
  std::string id, code, ids;
  /* Without these members the author of the event is that of its parts. */
  bool names_locator = false, names_magnitude_author = false;
  for (const auto &[name, value] : properties.items()) {
    const std::string lower = lowered(name);
    const auto *known =
        std::find_if(std::begin(kMembers), std::end(kMembers),
                     [&](const MemberName &member) { return lower == member.name; });
    if (known != std::end(kMembers)) {
      names_locator |= known->member == Member::kLocationSource;
      names_magnitude_author |= known->member == Member::kMagSource;
    }
    if (!is_given(value)) continue;
    if (known == std::end(kMembers)) {
      leave(name);
      continue;
    }
    switch (known->member) {
      case Member::kTime:
        time(value, "time", origin.time);
        break;
      case Member::kUpdated:
        time(value, "updated", event.updated);
        break;
      case Member::kMag:
        real(value, "mag", -10.0, kMaxMagnitude, magnitude.value);
        break;
      case Member::kMagType:
        text(value, "magType", magnitude.type);
        break;
      case Member::kPlace:
        if (!value.is_string()) {
          refuse("place", value);
          break;
        }
        event.place = value.get<std::string>();
        std::replace_if(event.place.begin(), event.place.end(), is_control, ' ');
        break;
      case Member::kType:
        text(value, "type", event.type);
        if (is_ims_event_type(event.type) && event_type_word(event.type).empty() &&
            ims_event_type_says_more(event.type)) {
          unplaced_.add("suspected, felt or damaging events");
        }
        break;
      case Member::kStatus:
        text(value, "status", origin.status);
        break;
      case Member::kNet:
        text(value, "net", event.author);
        break;
      case Member::kCode:
        text(value, "code", code);
        break;
      case Member::kId:
        text(value, "id", id);
        break;
      case Member::kIds:
        text(value, "ids", ids);
        break;
      case Member::kDepth:
        real(value, "depth", -100.0, 1000.0, origin.depth);
        break;
      case Member::kNst:
        count(value, "nst", origin.phases);
        break;
      case Member::kGap:
        real(value, "gap", 0.0, 360.0, origin.gap);
        break;
      case Member::kDmin:
        real(value, "dmin", 0.0, 180.0, origin.nearest);
        break;
      case Member::kRms:
        real(value, "rms", 0.0, kMostKm, origin.rms);
        break;
      case Member::kHorizontalError:
        real(value, "horizontalError", 0.0, kMostKm, origin.horizontal_error);
        break;
      case Member::kDepthError:
        real(value, "depthError", 0.0, kMostKm, origin.depth_error);
        break;
      case Member::kMagError:
        real(value, "magError", 0.0, kMostKm, magnitude.error);
        break;
      case Member::kMagNst:
        count(value, "magNst", magnitude.stations);
        break;
      case Member::kLocationSource:
        text(value, "locationSource", origin.author);
        break;
      case Member::kMagSource:
        text(value, "magSource", magnitude.author);
        break;
      case Member::kDerived:
        break;
    }
  }
  if (event.id.empty()) event.id = !id.empty() ? id : event.author + code;
  for (std::string_view rest = ids; !rest.empty();) {
    const std::size_t end = std::min(rest.find(','), rest.size());
    add_alias(event, rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  if (!names_locator) origin.author = event.author;
  if (!names_magnitude_author) magnitude.author = event.author;
  if (magnitude.value > -999.0) origin.magnitudes.push_back(std::move(magnitude));
}

bool GeojsonReader::read_feature(const std::string &source, Event &event) {
  const Json feature = Json::parse(source, nullptr, false);
  if (!feature.is_object()) {
    problem_ = "the feature is not valid JSON";
    return false;
  }
  const auto properties = feature.find("properties");
  if (properties == feature.end() || !properties->is_object()) {
    problem_ = "the feature has no properties";
    return false;
  }
  if (!read_place(feature, has_depth(*properties), event.origins.emplace_back())) {
    return false;
  }
  const auto id = feature.find("id");
  if (id != feature.end() && !id->is_null()) text(*id, "id", event.id);
  read_properties(*properties, event);
  if (!problem_.empty()) return false;
  if (event.id.empty()) {
    problem_ = "the feature has no id";
  } else if (event.origins.front().time == kNoTime) {
    problem_ = "the feature has no time";
  }
  return problem_.empty();
}

Reader::Got GeojsonReader::next(Event &event) {
  problem_.clear();
  switch (scanner_.next(feature_)) {
    case FeatureScanner::Got::kEnd:
      return Got::kEnd;
    case FeatureScanner::Got::kFailed:
      problem_ = scanner_.problem();
      return Got::kFailed;
    case FeatureScanner::Got::kTooLong:
      problem_ = "the feature is too long";
      return Got::kRefused;
    case FeatureScanner::Got::kFeature:
      break;
  }
  event = Event();
  event.line = scanner_.line();
  return read_feature(feature_, event) ? Got::kRecord : Got::kRefused;
}

}  // namespace ksutil::exchange
