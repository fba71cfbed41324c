#include "formats/exchange/quakeml/event_elements.h"

#include <algorithm>
#include <array>
#include <utility>

#include "formats/exchange/error_ellipse.h"
#include "formats/exchange/quakeml/field_attributes.h"
#include "formats/exchange/second_names.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

using Child = XmlElement::Child;

/* What fill_event takes the further ids of the event from; the source of the data is the
 * beginning of their id. */
bool is_of_event_id(std::string_view element, std::string_view attribute) {
  return element == "event" && (attribute == "eventsource" || attribute == "eventid" ||
                                attribute == "datasource" || attribute == "dataid");
}

bool is_true(const std::string &text) { return text == "true" || text == "1"; }

Child child_of(bool good) { return good ? Child::kTaken : Child::kFailed; }

}  // namespace

bool EventElements::count(EventParts &parts) {
  if (++parts.records <= kMostRecords) return true;
  if (parts.problem.empty()) {
    parts.problem = "the event has more than " + std::to_string(kMostRecords) +
                    " picks, magnitudes and the like";
  }
  return false;
}

void EventElements::finish(const XmlElement &element) {
  for (const auto &[name, value] : element.attributes) {
    if (name != "publicID" && name != "id" && !value.empty() &&
        !is_field_attribute(name) && !is_of_event_id(element.name, name)) {
      left_out_.add(element.name + "@" + name);
    }
  }
  element.without_use([this](const std::string &path) { left_out_.add(path); });
}

bool EventElements::take_element(EventParts &parts,
                                 void (EventElements::*fill)(const XmlElement &,
                                                             EventParts &)) {
  if (!count(parts)) return reader_.skip();
  XmlElement element;
  if (!element.read(reader_)) return false;
  (this->*fill)(element, parts);
  finish(element);
  return true;
}

Child EventElements::take_part(EventParts &parts) {
  const std::string &name = reader_.name();
  if (name == "pick") return child_of(take_element(parts, &EventElements::fill_pick));
  if (name == "amplitude") {
    return child_of(take_element(parts, &EventElements::fill_amplitude));
  }
  if (name == "stationMagnitude") {
    return child_of(take_element(parts, &EventElements::fill_station_magnitude));
  }
  if (name == "focalMechanism") {
    return child_of(take_element(parts, &EventElements::fill_mechanism));
  }
  if (name == "origin") return child_of(take_origin(parts));
  if (name == "magnitude") return child_of(take_magnitude(parts, ""));
  return Child::kKept;
}

bool EventElements::take_event(EventParts &parts) {
  XmlElement element;
  const std::string space = reader_.space();
  if (!element.read_around(reader_, [&] {
        return reader_.space() == space ? take_part(parts) : Child::kKept;
      })) {
    return false;
  }
  fill_event(element, parts);
  finish(element);
  return true;
}

void EventElements::fill_event(const XmlElement &element, EventParts &parts) {
  const ElementValues values(element, parts.problem, left_out_);
  Event &event = parts.event;
  event.id = values.id();
  add_alias(event, id_in_identifier(event.id));
  add_alias(event, networked_id(element.attribute("eventsource"),
                                element.attribute("eventid")));
  add_alias(event, element.attribute("dataid"));
  std::string further;
  values.field(kFurtherIdsField, further);
  for (std::string_view rest = further; !rest.empty();) {
    const std::size_t end = std::min(rest.find(' '), rest.size());
    add_alias(event, rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  event.line = element.line;
  event.author = values.author();
  values.created(parts.updated);
  event.type = lowered(values.text("type"));
  values.field(kEtypeField, event.type);
  values.comments(event.comments);
  element.each("description", [&](const XmlElement &description) {
    const std::string &text = description.text_of("text");
    const std::string type = one_line(description.text_of("type"));
    if (text.empty()) return;
    if (type == "earthquake name" && event.name.empty()) {
      event.name = one_line(text);
    } else if ((type == "region name" || type == "Flinn-Engdahl region" ||
                type == "nearest cities" || type.empty()) &&
               event.place.empty()) {
      event.place = one_line(text);
    } else {
      event.comments.push_back(type.empty() ? text : type + ": " + text);
    }
  });
  parts.preferred_origin = values.text("preferredOriginID");
  parts.preferred_magnitude = values.text("preferredMagnitudeID");
  parts.preferred_mechanism = values.text("preferredFocalMechanismID");
  const auto references = [&](const char *name, std::vector<std::string> &list) {
    element.each(name, [&](const XmlElement &child) {
      if (!child.text.empty()) list.push_back(child.text);
    });
  };
  references("originReference", parts.origin_references);
  references("focalMechanismReference", parts.mechanism_references);
}

void EventElements::fill_pick(const XmlElement &element, EventParts &parts) {
  const ElementValues values(element, parts.problem, left_out_);
  Pick &pick = parts.picks.emplace_back();
  pick.id = values.id();
  pick.author = values.author();
  pick.at = values.channel();
  values.time("time/value", pick.time);
  values.real("time/uncertainty", pick.time_error, 1.0, 0.0);
  pick.phase = values.text("phaseHint");
  values.azimuth("backazimuth/value", pick.azimuth);
  values.real("backazimuth/uncertainty", pick.azimuth_error, 1.0, 0.0);
  values.real("horizontalSlowness/value", pick.slowness);
  values.real("horizontalSlowness/uncertainty", pick.slowness_error, 1.0, 0.0);
  const std::string onset = values.text("onset"), polarity = values.text("polarity");
  pick.onset = onset == "impulsive"      ? 'i'
               : onset == "emergent"     ? 'e'
               : onset == "questionable" ? 'w'
                                         : '\0';
  pick.first_motion = polarity == "positive"   ? 'c'
                      : polarity == "negative" ? 'd'
                                               : '\0';
  pick.automatic = values.text("evaluationMode") == "automatic";
  if (pick.automatic) left_out_.add("pick/evaluationMode automatic");
  values.field(kEmaField, pick.emergence);
  values.field(kRectField, pick.rectilinearity);
  values.field(kPerField, pick.period);
  values.field(kSnrField, pick.snr);
  values.comments(pick.comments);
}

void EventElements::fill_amplitude(const XmlElement &element, EventParts &parts) {
  constexpr double kNanometre = 1e9;
  const ElementValues values(element, parts.problem, left_out_);
  AmplitudePart &part = parts.amplitudes.emplace_back();
  part.id = values.id();
  part.pick = values.text("pickID");
  part.at = values.channel();
  part.unit = values.text("unit");
  double value = -1.0;
  values.real(std::string(dialect_.amplitude) + "/value", value);
  if (part.unit == "m" && value >= 0.0) part.value = value * kNanometre;
  if (part.unit == "nm" && value >= 0.0) part.value = value;
  values.real("period/value", part.period, 1.0, 0.0);
  values.real("snr", part.snr);
}

void EventElements::fill_station_magnitude(const XmlElement &element,
                                           EventParts &parts) {
  const ElementValues values(element, parts.problem, left_out_);
  const std::string value = dialect_.magnitude;
  StationMagnitudePart &part = parts.station_magnitudes.emplace_back();
  part.origin = values.text("originID");
  part.amplitude = values.text("amplitudeID");
  part.magnitude.id = values.id();
  part.magnitude.author = values.author();
  part.magnitude.type = values.text("type");
  part.magnitude.at = values.channel();
  values.needed(value + "/value", part.magnitude.value);
  values.real(value + "/uncertainty", part.magnitude.error, 1.0, 0.0);
  values.field(kStamagPhaseField, part.magnitude.phase);
  values.field(kStamagPickField, part.pick);
  values.field(kMagdefField, part.magnitude.used);
}

bool EventElements::take_magnitude(EventParts &parts, const std::string &origin) {
  if (!count(parts)) return reader_.skip();
  XmlElement element;
  const std::string *id = reader_.attribute("publicID");
  const std::string own = id == nullptr ? "" : *id;
  std::int64_t lost = 0;
  const auto contribution = [&] {
    if (reader_.name() != "stationMagnitudeContribution") return Child::kKept;
    XmlElement child;
    if (!child.read(reader_)) return Child::kFailed;
    const std::string &of = child.text_of("stationMagnitudeID");
    /* Rows have a field for whether a station counts, and none for how much. */
    const std::string &text = child.text_of("weight");
    double weight = 1.0;
    if (!text.empty() &&
        (!parse_real(text, weight) || (weight != 0.0 && weight != 1.0))) {
      left_out_.add("magnitude/stationMagnitudeContribution/weight");
    }
    if (parts.contributions.size() < kMostRecords) {
      if (!parts.contributions.emplace(of, Contribution{own, weight != 0.0}).second) {
        lost++;
      }
    }
    child.without_use(
        [this](const std::string &path) { left_out_.add("magnitude/" + path); });
    return Child::kTaken;
  };
  if (!element.read_around(reader_, contribution)) return false;
  if (lost > 0) left_out_.add("a further contribution of a station magnitude", lost);
  const ElementValues values(element, parts.problem, left_out_);
  const std::string value = dialect_.magnitude;
  MagnitudePart part;
  Magnitude &magnitude = part.magnitude;
  part.origin = values.text("originID");
  if (part.origin.empty()) part.origin = origin;
  magnitude.id = own;
  magnitude.author = values.author();
  values.created(parts.updated);
  magnitude.type = values.text("type");
  if (magnitude.type.empty() && element.attribute(kMagtypeField).empty()) {
    magnitude.type = "M";
  }
  values.needed(value + "/value", magnitude.value, 1.0, -20.0, 20.0);
  values.real(value + "/uncertainty", magnitude.error, 1.0, 0.0);
  values.count("stationCount", magnitude.stations);
  values.comments(magnitude.comments);
  finish(element);
  if (magnitude.value == -999.0) {
    left_out_.add("a magnitude without a value");
  } else {
    parts.magnitudes.push_back(std::move(part));
  }
  return true;
}

bool EventElements::take_origin(EventParts &parts) {
  if (!count(parts)) return reader_.skip();
  OriginPart part;
  const std::string *id = reader_.attribute("publicID");
  const std::string own = id == nullptr ? "" : *id;
  const std::string space = reader_.space();
  XmlElement element;
  const auto child = [&] {
    if (reader_.space() != space) return Child::kKept;
    if (reader_.name() == "arrival") {
      if (!count(parts)) return child_of(reader_.skip());
      XmlElement arrival;
      if (!arrival.read(reader_)) return Child::kFailed;
      fill_arrival(arrival, part, parts.problem);
      finish(arrival);
      return Child::kTaken;
    }
    /* The dialect has the magnitudes within their origin. */
    if (reader_.name() == "magnitude") return child_of(take_magnitude(parts, own));
    if (reader_.name() == "stationMagnitude") {
      const std::size_t before = parts.station_magnitudes.size();
      const Child taken = take_part(parts);
      if (parts.station_magnitudes.size() > before) {
        parts.station_magnitudes.back().origin = own;
      }
      return taken;
    }
    return Child::kKept;
  };
  if (!element.read_around(reader_, child)) return false;
  fill_origin(element, part, parts);
  finish(element);
  parts.origins.push_back(std::move(part));
  return true;
}

void EventElements::fill_arrival(const XmlElement &element, OriginPart &part,
                                 std::string &problem) {
  const ElementValues values(element, problem, left_out_);
  part.picks.push_back(values.text("pickID"));
  Association &association = part.origin.associations.emplace_back();
  association.id = values.id();
  association.phase = values.text("phase");
  values.real("distance", association.delta, 1.0, 0.0);
  values.azimuth("azimuth", association.esaz);
  values.real("timeResidual", association.time_residual);
  values.real("horizontalSlownessResidual", association.slowness_residual);
  values.real("backazimuthResidual", association.azimuth_residual);
  association.earth_model = last_part(values.text("earthModelID"));
  /* Something is used when it says so, or has a weight that is not 0. */
  const auto used = [&](const char *flag, const char *weight, double &value) {
    const std::string &said = element.text_of(flag);
    values.real(weight, value);
    if (!said.empty()) return is_true(said) ? 'd' : 'n';
    return value < 0.0 ? '\0' : value > 0.0 ? 'd' : 'n';
  };
  association.time_used = used("timeUsed", "timeWeight", association.weight);
  double azimuth = -1.0, slowness = -1.0;
  association.azimuth_used = used("backazimuthUsed", "backazimuthWeight", azimuth);
  association.slowness_used =
      used("horizontalSlownessUsed", "horizontalSlownessWeight", slowness);
  if (association.weight < 0.0) values.real("weight", association.weight);
  values.field(kBeliefField, association.belief);
  values.field(kSeazField, association.seaz);
  values.field(kEmaresField, association.emergence_residual);
  values.field(kTimedefField, association.time_used);
  values.field(kAzdefField, association.azimuth_used);
  values.field(kSlodefField, association.slowness_used);
  values.field(kVmodelField, association.earth_model);
}

void EventElements::fill_origin(const XmlElement &element, OriginPart &part,
                                EventParts &parts) {
  const ElementValues values(element, parts.problem, left_out_);
  Origin &origin = part.origin;
  origin.id = values.id();
  origin.author = values.author();
  values.created(parts.updated);
  values.time("time/value", origin.time);
  values.needed("latitude/value", origin.lat, 1.0, -90.0, 90.0);
  values.needed("longitude/value", origin.lon, 1.0, -180.0, 360.0);
  if (origin.lon > 180.0) origin.lon -= 360.0;
  values.needed("depth/value", origin.depth, dialect_.km, -100.0, 1000.0);
  for (const bool missing :
       {origin.time == kNoTime, origin.lat == -999.0, origin.lon == -999.0}) {
    if (missing && parts.problem.empty()) {
      parts.problem = "the origin " + origin.id.substr(0, 100) +
                      " has no time, latitude or longitude";
    }
  }
  const std::string depth = values.text("depthType");
  if (depth == "from location" || depth == "constrained by direct phases") {
    origin.depth_type = 'f';
  } else if (depth == "constrained by depth phases") {
    origin.depth_type = 'd';
  } else if (depth == "operator assigned") {
    origin.depth_type = 'g';
  } else if (!depth.empty() && element.attribute(kDtypeField).empty()) {
    left_out_.add("origin/depthType " + depth.substr(0, 60));
  }
  values.field(kDtypeField, origin.depth_type);
  part.centroid = element.attribute(kCentroidField) == "1";
  values.count("quality/usedPhaseCount", origin.phases);
  values.count("quality/associatedPhaseCount", origin.associated);
  values.count("quality/depthPhaseCount", origin.depth_phases);
  if (origin.associated < 0 && !origin.associations.empty() &&
      element.attribute(kNassField).empty()) {
    origin.associated = static_cast<std::int64_t>(origin.associations.size());
  }
  values.real("quality/standardError", origin.rms, 1.0, 0.0);
  values.real("quality/azimuthalGap", origin.gap, 1.0, 0.0, 360.0);
  values.real("quality/minimumDistance", origin.nearest, 1.0, 0.0);
  fill_errors(element, origin, parts.problem);
  origin.status = values.status();
  origin.algorithm = last_part(values.text("methodID"));
  values.field(kAlgorithmField, origin.algorithm);
  origin.earth_model = last_part(values.text("earthModelID"));
  values.comments(origin.comments);
}

void EventElements::fill_errors(const XmlElement &element, Origin &origin,
                                std::string &problem) {
  const ElementValues values(element, problem, left_out_);
  values.real("time/uncertainty", origin.time_error, 1.0, 0.0);
  values.real("depth/uncertainty", origin.depth_error, dialect_.km, 0.0);
  const XmlElement *uncertainty = element.find(dialect_.uncertainty);
  if (uncertainty == nullptr) return;
  const ElementValues errors(*uncertainty, problem, left_out_);
  errors.text("preferredDescription");
  errors.real("horizontalUncertainty", origin.horizontal_error, dialect_.km, 0.0);
  errors.real("maxHorizontalUncertainty", origin.major_axis, dialect_.km, 0.0);
  errors.real("minHorizontalUncertainty", origin.minor_axis, dialect_.km, 0.0);
  errors.azimuth("azimuthMaxHorizontalUncertainty", origin.ellipse_strike);
  errors.real("confidenceLevel", origin.confidence, 0.01, 0.0, 1.0);
  origin.ellipse_computed = uncertainty->attribute(kEllipseField) == "computed";
  fill_covariance(*uncertainty, origin, problem);
  const bool ellipse =
      origin.major_axis >= 0.0 || ellipse_of(origin.covariance, kOneSigma).major >= 0.0;
  if (ellipse && origin.horizontal_error >= 0.0) {
    left_out_.add("origin/originUncertainty/horizontalUncertainty beside an ellipse");
  }
}

void EventElements::fill_covariance(const XmlElement &uncertainty, Origin &origin,
                                    std::string &problem) {
  const ElementValues errors(uncertainty, problem, left_out_);
  const XmlElement *given = uncertainty.find("confidenceEllipsoid");
  if (errors.covariance(origin.covariance) || given == nullptr) return;
  const ElementValues axes(*given, problem, left_out_);
  Ellipsoid ellipsoid;
  constexpr double kMetre = 1e-3;  // in both dialects
  axes.real("semiMajorAxisLength", ellipsoid.major, kMetre, 0.0);
  axes.real("semiIntermediateAxisLength", ellipsoid.intermediate, kMetre, 0.0);
  axes.real("semiMinorAxisLength", ellipsoid.minor, kMetre, 0.0);
  axes.real("majorAxisPlunge", ellipsoid.plunge);
  axes.real("majorAxisAzimuth", ellipsoid.azimuth);
  axes.real("majorAxisRotation", ellipsoid.rotation);
  const double level = origin.confidence > 0.0 && origin.confidence < 1.0
                           ? origin.confidence
                           : kOneSigma;
  if (ellipsoid.major > 0.0 && ellipsoid.intermediate >= 0.0 &&
      ellipsoid.minor >= 0.0) {
    origin.covariance = covariance_of(ellipsoid, level);
  }
}

void EventElements::fill_mechanism(const XmlElement &element, EventParts &parts) {
  const ElementValues values(element, parts.problem, left_out_);
  MechanismPart part;
  MomentTensor &tensor = part.tensor;
  part.id = tensor.id = values.id();
  part.triggering = values.text("triggeringOriginID");
  tensor.author = values.author();
  values.created(parts.updated);
  tensor.status = values.status();
  tensor.algorithm = last_part(values.text("methodID"));
  values.field(kMtAlgorithmField, tensor.algorithm);
  part.no_centroid = element.attribute(kCtimeField) == "-";
  part.no_mw = element.attribute(kMwField) == "-";
  if (!part.no_mw) values.field(kMwField, tensor.mw);
  values.comments(tensor.comments);
  const auto plane = [&](const std::string &path, std::array<double, 3> &angles) {
    values.real(path + "/strike/value", angles[0]);
    values.real(path + "/dip/value", angles[1]);
    values.real(path + "/rake/value", angles[2]);
  };
  const XmlElement *planes = element.find("nodalPlanes");
  if (planes != nullptr && !planes->attribute("preferredPlane").empty()) {
    left_out_.add("focalMechanism/nodalPlanes@preferredPlane");
  }
  plane("nodalPlanes/nodalPlane1", tensor.plane1);
  plane("nodalPlanes/nodalPlane2", tensor.plane2);
  static constexpr std::array<const char *, 3> kAxes{"tAxis", "nAxis", "pAxis"};
  for (std::size_t i = 0; i < kAxes.size(); i++) {
    const std::string path = std::string("principalAxes/") + kAxes[i];
    values.real(path + "/length/value", tensor.axes[3 * i]);
    values.real(path + "/plunge/value", tensor.axes[3 * i + 1]);
    values.real(path + "/azimuth/value", tensor.axes[3 * i + 2]);
  }
  bool with_tensor = false;
  element.each("momentTensor", [&](const XmlElement &child) {
    if (with_tensor) return left_out_.add("a further momentTensor of a focalMechanism");
    with_tensor = true;
    fill_tensor(child, part, parts.problem);
  });
  parts.mechanisms.push_back(std::move(part));
}

void EventElements::fill_tensor(const XmlElement &element, MechanismPart &part,
                                std::string &problem) {
  constexpr double kPercent = 100.0;
  const ElementValues values(element, problem, left_out_);
  MomentTensor &tensor = part.tensor;
  if (!values.id().empty()) tensor.id = values.id();
  if (tensor.author.empty()) tensor.author = values.author();
  part.derived = values.text("derivedOriginID");
  part.magnitude = values.text("momentMagnitudeID");
  values.real("scalarMoment/value", tensor.moment);
  static constexpr std::array<const char *, 6> kElements{"Mrr", "Mtt", "Mpp",
                                                         "Mrt", "Mrp", "Mtp"};
  for (std::size_t i = 0; i < kElements.size(); i++) {
    values.real(std::string("tensor/") + kElements[i] + "/value", tensor.elements[i]);
  }
  values.real("doubleCouple", tensor.double_couple, kPercent);
  values.real("clvd", tensor.clvd, kPercent);
  values.real("iso", tensor.isotropic, kPercent);
  values.real("varianceReduction", tensor.variance_reduction);
  if (tensor.algorithm.empty()) tensor.algorithm = last_part(values.text("methodID"));
  values.comments(tensor.comments);
  /* Stations may have several kinds of waves; components are of one. */
  element.each("dataUsed", [&](const XmlElement &data) {
    const ElementValues used(data, problem, left_out_);
    std::int64_t stations = -1, components = -1;
    used.count("stationCount", stations);
    used.count("componentCount", components);
    tensor.stations = std::max(tensor.stations, stations);
    if (components >= 0) {
      tensor.components = std::max<std::int64_t>(tensor.components, 0) + components;
    }
  });
}

}  // namespace ksutil::exchange
