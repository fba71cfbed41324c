#include "formats/exchange/quakeml/quakeml_writer.h"

#include <algorithm>
#include <array>

#include "formats/exchange/event_types.h"
#include "formats/exchange/quakeml/element_values.h"
#include "formats/exchange/quakeml/field_attributes.h"
#include "formats/exchange/quakeml/resource_id.h"
#include "formats/exchange/text/value_text.h"

namespace ksutil::exchange {
namespace {

constexpr double kNone = -999.0;
constexpr double kMetres = 1000.0;   // in a kilometre
constexpr double kNanometre = 1e-9;  // in metres
constexpr double kPercent = 100.0;

std::string real(double value, double null = kNone) {
  return value == null ? "" : number_text(value);
}

std::string positive(double value, double factor = 1.0) {
  return value < 0.0 ? "" : scaled_text(value, factor);
}

std::string count_text(std::int64_t count) {
  return count < 0 ? "" : std::to_string(count);
}

bool within(double value, double low, double high) {
  return value >= low && value <= high;
}

/* The ten numbers in the order of the fields of origerr; "" when none is given. */
std::string covariance_text(const Covariance &c) {
  if (c.xx < 0.0 && c.yy < 0.0 && c.zz < 0.0 && c.tt < 0.0) return "";
  std::string text;
  for (const double value :
       {c.xx, c.yy, c.zz, c.tt, c.xy, c.xz, c.yz, c.tx, c.ty, c.tz}) {
    text += (text.empty() ? "" : " ") + number_text(value);
  }
  return text;
}

bool has_tensor(const MomentTensor &tensor) {
  return std::all_of(tensor.elements.begin(), tensor.elements.end(),
                     [](double element) { return element != kNone; });
}

bool has_planes(const std::array<double, 3> &plane) {
  return std::all_of(plane.begin(), plane.end(),
                     [](double angle) { return angle != kNone; });
}

bool has_centroid(const MomentTensor &tensor) {
  return is_writable_time(tensor.time) && tensor.lat != kNone && tensor.lon != kNone;
}

/* Whether there is more than planes and axes: an element momentTensor. */
bool is_given(const MomentTensor &tensor) {
  return has_tensor(tensor) || tensor.moment != kNone || has_centroid(tensor);
}

/* The identifier of a focalMechanism; `id` is that of its tensor, if it has one. */
std::string mechanism_id(const MomentTensor &tensor, const std::string &id) {
  return is_given(tensor) ? id + "/mechanism" : id;
}

const std::string *id_at(const ListPlace &place,
                         const std::vector<std::vector<std::string>> &ids) {
  const auto origin = static_cast<std::size_t>(place.origin);
  const auto index = static_cast<std::size_t>(place.index);
  return origin < ids.size() && index < ids[origin].size() ? &ids[origin][index]
                                                           : nullptr;
}

}  // namespace

bool QuakeMlWriter::begin() {
  xml_.declare();
  xml_.open("q:quakeml");
  xml_.attribute("xmlns:q", "http://quakeml.org/xmlns/quakeml/1.2");
  xml_.attribute("xmlns", "http://quakeml.org/xmlns/bed/1.2");
  xml_.attribute("xmlns:ks", kFieldSpace);
  xml_.open("eventParameters");
  xml_.attribute("publicID", "smi:local/events");
  return xml_.settle();
}

bool QuakeMlWriter::end() {
  xml_.close();
  xml_.close();
  return xml_.flush();
}

std::vector<Unplaced> QuakeMlWriter::without_place() const {
  std::vector<Unplaced> list = left_out_.list();
  if (xml_.replaced() > 0) {
    list.push_back({"characters that are not text", xml_.replaced()});
  }
  return list;
}

bool QuakeMlWriter::put(const Event &event) {
  name_all(event);
  put_event(event);
  return xml_.settle();
}

/* A record without an id is named after what owns it. */
void QuakeMlWriter::name_all(const Event &event) {
  const auto name = [](const std::string &id, const std::string &owner,
                       const char *kind, std::size_t index) {
    return id.empty() ? owner + "/" + kind + "/" + std::to_string(index + 1)
                      : resource_id(id);
  };
  event_id_ = resource_id(event.id);
  pick_ids_.clear();
  origin_ids_.clear();
  magnitude_ids_.clear();
  tensor_ids_.clear();
  for (std::size_t i = 0; i < event.picks.size(); i++) {
    pick_ids_.push_back(name(event.picks[i].id, event_id_, "pick", i));
  }
  for (std::size_t i = 0; i < event.origins.size(); i++) {
    const Origin &origin = event.origins[i];
    origin_ids_.push_back(name(origin.id, event_id_, "origin", i));
    std::vector<std::string> &ids = magnitude_ids_.emplace_back();
    for (std::size_t k = 0; k < origin.magnitudes.size(); k++) {
      ids.push_back(name(origin.magnitudes[k].id, origin_ids_[i], "magnitude", k));
    }
    std::vector<std::string> &tensors = tensor_ids_.emplace_back();
    for (std::size_t k = 0; k < origin.tensors.size(); k++) {
      tensors.push_back(name(origin.tensors[k].id, origin_ids_[i], "mechanism", k));
    }
  }
}

std::string QuakeMlWriter::station_magnitude_id(std::size_t origin,
                                                std::size_t index) const {
  return origin_ids_[origin] + "/stamag/" + std::to_string(index + 1);
}

std::string QuakeMlWriter::bounded(const std::string &text, std::size_t most) {
  if (text.size() <= most) return text;
  left_out_.add("ends of long texts");
  std::size_t end = most;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) end--;
  return text.substr(0, end);
}

void QuakeMlWriter::put_quantity(const char *name, const std::string &value,
                                 const std::string &uncertainty) {
  if (value.empty()) return;
  xml_.open(name);
  xml_.element("value", value);
  xml_.given("uncertainty", uncertainty);
  xml_.close();
}

void QuakeMlWriter::put_channel(const ChannelCode &channel) {
  constexpr std::size_t kMost = 8;
  xml_.open("waveformID");
  xml_.attribute("networkCode", bounded(channel.network, kMost));
  xml_.attribute("stationCode", bounded(channel.station, kMost));
  if (!channel.channel.empty()) {
    xml_.attribute("channelCode", bounded(channel.channel, kMost));
  }
  if (!channel.location.empty()) {
    xml_.attribute("locationCode", bounded(channel.location, kMost));
  }
  xml_.close();
}

void QuakeMlWriter::put_creation(const std::string &author, double time) {
  const bool timed = time != 0.0 && is_writable_time(time);
  if (author.empty() && !timed) return;
  xml_.open("creationInfo");
  xml_.given("agencyID", bounded(author, 64));
  if (timed) xml_.element("creationTime", utc_text(time));
  xml_.close();
}

void QuakeMlWriter::put_comments(const std::vector<std::string> &comments) {
  for (const std::string &comment : comments) {
    xml_.open("comment");
    xml_.element("text", comment);
    xml_.close();
  }
}

void QuakeMlWriter::put_status(const std::string &status) {
  static constexpr std::array<std::string_view, 5> kStatuses{
      "preliminary", "confirmed", "reviewed", "final", "rejected"};
  if (status == "automatic" || status == "manual") {
    xml_.element("evaluationMode", status);
  } else if (std::find(kStatuses.begin(), kStatuses.end(), status) != kStatuses.end()) {
    xml_.element("evaluationStatus", status);
  } else {
    left_out_.add_if(!status.empty(), "states of review that have no word");
  }
}

void QuakeMlWriter::put_method(const char *name, const std::string &method) {
  if (!method.empty()) xml_.element(name, resource_id(method));
}

void QuakeMlWriter::put_field(const char *field, const std::string &value) {
  if (!value.empty()) xml_.attribute(std::string("ks:") + field, value);
}

/* A name that its element cannot hold, since an identifier may not have its characters. */
void QuakeMlWriter::put_name_field(const char *field, const std::string &name) {
  if (!name.empty() && last_part(resource_id(name)) != name) put_field(field, name);
}

void QuakeMlWriter::put_event(const Event &event) {
  xml_.open("event");
  xml_.attribute("publicID", event_id_);
  const std::string_view known = event_type_word(event.type);
  if (known.empty()) put_field(kEtypeField, event.type);
  std::string further;
  for (const std::string &id : event.aliases) {
    if (id.find(' ') != id.npos) {
      left_out_.add("further ids of events");
    } else {
      further += (further.empty() ? "" : " ") + id;
    }
  }
  put_field(kFurtherIdsField, further);
  xml_.element("preferredOriginID", origin_ids_[event.preferred]);
  const auto preferred = static_cast<std::size_t>(event.preferred_magnitude);
  if (event.preferred_magnitude >= 0 &&
      preferred < magnitude_ids_[event.preferred].size()) {
    xml_.element("preferredMagnitudeID", magnitude_ids_[event.preferred][preferred]);
  } else if (const std::string *id = id_at(event.distant_magnitude, magnitude_ids_)) {
    xml_.element("preferredMagnitudeID", *id);
  }
  if (const std::string *id = id_at(event.preferred_tensor, tensor_ids_)) {
    const auto origin = static_cast<std::size_t>(event.preferred_tensor.origin);
    const auto index = static_cast<std::size_t>(event.preferred_tensor.index);
    const MomentTensor &tensor = event.origins[origin].tensors[index];
    xml_.element("preferredFocalMechanismID", mechanism_id(tensor, *id));
  }
  if (!event.type.empty()) {
    xml_.element("type", known.empty() ? "other event" : known);
  }
  const auto describe = [&](const char *type, const std::string &text) {
    if (text.empty()) return;
    xml_.open("description");
    xml_.element("text", text);
    xml_.element("type", type);
    xml_.close();
  };
  describe("region name", event.place);
  describe("earthquake name", event.name);
  put_comments(event.comments);
  put_creation(event.author, event.updated);
  for (std::size_t i = 0; i < event.picks.size(); i++) {
    put_pick(event.picks[i], pick_ids_[i]);
  }
  for (std::size_t i = 0; i < event.picks.size(); i++) {
    put_amplitude(event.picks[i], pick_ids_[i]);
  }
  for (std::size_t i = 0; i < event.origins.size(); i++) put_origin(event, i);
  for (std::size_t i = 0; i < event.origins.size(); i++) {
    const Origin &origin = event.origins[i];
    for (std::size_t k = 0; k < origin.magnitudes.size(); k++) {
      put_magnitude(origin, i, k);
    }
    for (std::size_t k = 0; k < origin.station_magnitudes.size(); k++) {
      put_station_magnitude(event, i, k);
    }
  }
  for (std::size_t i = 0; i < event.origins.size(); i++) {
    const std::vector<MomentTensor> &tensors = event.origins[i].tensors;
    for (std::size_t k = 0; k < tensors.size(); k++) {
      put_mechanism(event, i, tensors[k], tensor_ids_[i][k]);
    }
  }
  xml_.close();
}

void QuakeMlWriter::put_pick(const Pick &pick, const std::string &id) {
  xml_.open("pick");
  xml_.attribute("publicID", id);
  put_field(kEmaField, positive(pick.emergence));
  put_field(kRectField, positive(pick.rectilinearity));
  if (pick.amplitude < 0.0) {
    put_field(kPerField, positive(pick.period));
    put_field(kSnrField, positive(pick.snr));
  }
  put_quantity("time", utc_text(pick.time), positive(pick.time_error));
  put_channel(pick.at);
  put_quantity("horizontalSlowness", positive(pick.slowness),
               positive(pick.slowness_error));
  put_quantity("backazimuth", positive(pick.azimuth), positive(pick.azimuth_error));
  if (pick.onset == 'i' || pick.onset == 'e' || pick.onset == 'w') {
    xml_.element("onset", pick.onset == 'i'   ? "impulsive"
                          : pick.onset == 'e' ? "emergent"
                                              : "questionable");
  }
  xml_.given("phaseHint", pick.phase);
  if (pick.first_motion != 0) {
    xml_.element("polarity", pick.first_motion == 'c' ? "positive" : "negative");
  }
  if (pick.automatic) xml_.element("evaluationMode", "automatic");
  put_comments(pick.comments);
  put_creation(pick.author, 0.0);
  xml_.close();
  left_out_.add_if(pick.slowness < 0.0 && pick.slowness_error >= 0.0,
                   "errors without their values");
  left_out_.add_if(pick.azimuth < 0.0 && pick.azimuth_error >= 0.0,
                   "errors without their values");
}

void QuakeMlWriter::put_amplitude(const Pick &pick, const std::string &pick_id) {
  if (pick.amplitude < 0.0) return;
  xml_.open("amplitude");
  xml_.attribute("publicID", pick_id + "/amplitude");
  put_quantity("genericAmplitude", scaled_text(pick.amplitude, kNanometre));
  xml_.element("unit", "m");
  put_quantity("period", positive(pick.period));
  xml_.given("snr", positive(pick.snr));
  xml_.element("pickID", pick_id);
  put_channel(pick.at);
  xml_.close();
}

void QuakeMlWriter::put_origin(const Event &event, std::size_t index) {
  const Origin &origin = event.origins[index];
  xml_.open("origin");
  xml_.attribute("publicID", origin_ids_[index]);
  const char *depth_type = origin.depth_type == 'f'   ? "from location"
                           : origin.depth_type == 'd' ? "constrained by depth phases"
                           : origin.depth_type == 'g' ? "operator assigned"
                           : origin.depth_type == 'r' ? "other"
                                                      : "";
  if (origin.depth_type != 0 &&
      std::string_view("fdg").find(origin.depth_type) == std::string_view::npos) {
    put_field(kDtypeField, std::string(1, origin.depth_type));
  }
  put_name_field(kAlgorithmField, origin.algorithm);
  if (origin.associated < 0 && !origin.associations.empty()) {
    put_field(kNassField, "-");
  }
  put_quantity("time", utc_text(origin.time), positive(origin.time_error));
  put_quantity("longitude", number_text(origin.lon));
  put_quantity("latitude", number_text(origin.lat));
  const std::string depth =
      within(origin.depth, -100.0, 1000.0) ? scaled_text(origin.depth, kMetres) : "";
  put_quantity("depth", depth, positive(origin.depth_error, kMetres));
  left_out_.add_if(depth.empty() && origin.depth_error >= 0.0,
                   "errors without their values");
  xml_.given("depthType", depth_type);
  put_method("methodID", origin.algorithm);
  put_method("earthModelID", origin.earth_model);
  put_uncertainty(origin);
  put_quality(origin);
  put_status(origin.status);
  put_comments(origin.comments);
  put_creation(origin.author, 0.0);
  for (std::size_t i = 0; i < origin.associations.size(); i++) {
    put_association(origin.associations[i],
                    origin_ids_[index] + "/arrival/" + std::to_string(i + 1));
  }
  xml_.close();
}

void QuakeMlWriter::put_uncertainty(const Origin &origin) {
  const bool ellipse = origin.major_axis >= 0.0 &&
                       (origin.minor_axis >= 0.0 || origin.ellipse_strike >= 0.0);
  const bool leveled = origin.confidence > 0.0 && origin.confidence <= 1.0;
  const std::string covariance = covariance_text(origin.covariance);
  if (!ellipse && origin.horizontal_error < 0.0 && !leveled && covariance.empty()) {
    return;
  }
  xml_.open("originUncertainty");
  put_field(kCovarianceField, covariance);
  xml_.given("horizontalUncertainty", positive(origin.horizontal_error, kMetres));
  if (ellipse) {
    xml_.given("minHorizontalUncertainty", positive(origin.minor_axis, kMetres));
    xml_.element("maxHorizontalUncertainty", positive(origin.major_axis, kMetres));
    xml_.given("azimuthMaxHorizontalUncertainty", positive(origin.ellipse_strike));
  }
  if (ellipse || origin.horizontal_error >= 0.0) {
    xml_.element("preferredDescription",
                 ellipse ? "uncertainty ellipse" : "horizontal uncertainty");
  }
  if (leveled)
    xml_.element("confidenceLevel", scaled_text(origin.confidence, kPercent));
  xml_.close();
}

void QuakeMlWriter::put_quality(const Origin &origin) {
  const bool any = origin.associated >= 0 || origin.phases >= 0 ||
                   origin.depth_phases >= 0 || origin.rms >= 0.0 || origin.gap >= 0.0 ||
                   origin.nearest >= 0.0;
  if (!any) return;
  xml_.open("quality");
  xml_.given("associatedPhaseCount", count_text(origin.associated));
  xml_.given("usedPhaseCount", count_text(origin.phases));
  xml_.given("depthPhaseCount", count_text(origin.depth_phases));
  xml_.given("standardError", positive(origin.rms));
  if (within(origin.gap, 0.0, 360.0)) {
    xml_.element("azimuthalGap", number_text(origin.gap));
  }
  xml_.given("minimumDistance", positive(origin.nearest));
  xml_.close();
}

void QuakeMlWriter::put_association(const Association &association,
                                    const std::string &id) {
  if (association.pick < 0) return left_out_.add("associations without arrivals");
  /* What was used in the location has a weight above 0. */
  const auto used = [](char letter) {
    return letter == 'd' ? "1" : letter == 'n' ? "0" : "";
  };
  const char implied = association.weight < 0.0   ? '\0'
                       : association.weight > 0.0 ? 'd'
                                                  : 'n';
  const auto letter_field = [&](const char *field, char letter, bool is_implied) {
    if (letter != 0 && !is_implied) put_field(field, std::string(1, letter));
  };
  const auto is_flag = [](char letter) { return letter == 'd' || letter == 'n'; };
  xml_.open("arrival");
  xml_.attribute("publicID", id);
  put_field(kBeliefField, positive(association.belief));
  put_field(kSeazField, real(association.seaz));
  put_field(kEmaresField, real(association.emergence_residual));
  letter_field(kTimedefField, association.time_used, association.time_used == implied);
  letter_field(kAzdefField, association.azimuth_used,
               is_flag(association.azimuth_used));
  letter_field(kSlodefField, association.slowness_used,
               is_flag(association.slowness_used));
  put_name_field(kVmodelField, association.earth_model);
  xml_.element("pickID", pick_ids_[static_cast<std::size_t>(association.pick)]);
  xml_.element("phase", association.phase);
  xml_.given("azimuth", real(association.esaz));
  xml_.given("distance", positive(association.delta));
  xml_.given("timeResidual", real(association.time_residual));
  xml_.given("horizontalSlownessResidual", real(association.slowness_residual));
  xml_.given("backazimuthResidual", real(association.azimuth_residual));
  xml_.given("timeWeight", positive(association.weight));
  xml_.given("horizontalSlownessWeight", used(association.slowness_used));
  xml_.given("backazimuthWeight", used(association.azimuth_used));
  put_method("earthModelID", association.earth_model);
  xml_.close();
}

void QuakeMlWriter::put_magnitude(const Origin &origin, std::size_t origin_index,
                                  std::size_t index) {
  const Magnitude &magnitude = origin.magnitudes[index];
  xml_.open("magnitude");
  xml_.attribute("publicID", magnitude_ids_[origin_index][index]);
  if (magnitude.type.empty()) put_field(kMagtypeField, "-");
  put_quantity("mag", number_text(magnitude.value), positive(magnitude.error));
  xml_.given("type", bounded(magnitude.type, 32));
  xml_.element("originID", origin_ids_[origin_index]);
  xml_.given("stationCount", count_text(magnitude.stations));
  for (std::size_t i = 0; i < origin.station_magnitudes.size(); i++) {
    if (origin.station_magnitudes[i].magnitude != static_cast<std::int64_t>(index)) {
      continue;
    }
    xml_.open("stationMagnitudeContribution");
    xml_.element("stationMagnitudeID", station_magnitude_id(origin_index, i));
    xml_.close();
  }
  put_comments(magnitude.comments);
  put_creation(magnitude.author, 0.0);
  xml_.close();
}

void QuakeMlWriter::put_station_magnitude(const Event &event, std::size_t origin_index,
                                          std::size_t index) {
  const StationMagnitude &magnitude =
      event.origins[origin_index].station_magnitudes[index];
  xml_.open("stationMagnitude");
  xml_.attribute("publicID", station_magnitude_id(origin_index, index));
  put_field(kStamagPhaseField, magnitude.phase);
  const std::string pick =
      magnitude.pick < 0 ? "" : pick_ids_[static_cast<std::size_t>(magnitude.pick)];
  const bool measured =
      !pick.empty() &&
      event.picks[static_cast<std::size_t>(magnitude.pick)].amplitude >= 0.0;
  if (!measured) put_field(kStamagPickField, pick);
  xml_.element("originID", origin_ids_[origin_index]);
  put_quantity("mag", number_text(magnitude.value), positive(magnitude.error));
  xml_.given("type", bounded(magnitude.type, 32));
  if (measured) xml_.element("amplitudeID", pick + "/amplitude");
  put_channel(magnitude.at);
  put_creation(magnitude.author, 0.0);
  xml_.close();
}

void QuakeMlWriter::put_centroid(const MomentTensor &tensor, const std::string &id) {
  xml_.open("origin");
  xml_.attribute("publicID", id);
  put_field(kCentroidField, "1");
  put_quantity("time", utc_text(tensor.time));
  put_quantity("longitude", number_text(tensor.lon));
  put_quantity("latitude", number_text(tensor.lat));
  put_quantity("depth",
               tensor.depth == kNone ? "" : scaled_text(tensor.depth, kMetres));
  xml_.element("type", "centroid");
  put_creation(tensor.author, 0.0);
  xml_.close();
}

void QuakeMlWriter::put_mechanism(const Event &event, std::size_t origin_index,
                                  const MomentTensor &tensor, const std::string &id) {
  std::string derived = origin_ids_[origin_index];
  const auto is_centroid = [&](const Origin &origin) {
    return origin.time == tensor.time && origin.lat == tensor.lat &&
           origin.lon == tensor.lon && origin.depth == tensor.depth;
  };
  if (has_centroid(tensor)) {
    const auto known =
        std::find_if(event.origins.begin(), event.origins.end(), is_centroid);
    if (known != event.origins.end()) {
      derived = origin_ids_[static_cast<std::size_t>(known - event.origins.begin())];
    } else {
      derived = id + "/centroid";
      put_centroid(tensor, derived);
    }
  }
  const bool tensor_given = is_given(tensor);
  xml_.open("focalMechanism");
  xml_.attribute("publicID", mechanism_id(tensor, id));
  const std::vector<Magnitude> &magnitudes = event.origins[origin_index].magnitudes;
  const bool same_mw =
      tensor_given && tensor.magnitude >= 0 &&
      magnitudes[static_cast<std::size_t>(tensor.magnitude)].value == tensor.mw;
  if (!same_mw) put_field(kMwField, real(tensor.mw));
  put_name_field(kMtAlgorithmField, tensor.algorithm);
  xml_.element("triggeringOriginID", origin_ids_[origin_index]);
  put_planes(tensor);
  put_axes(tensor);
  put_method("methodID", tensor.algorithm);
  put_status(tensor.status);
  put_comments(tensor.comments);
  put_creation(tensor.author, 0.0);
  if (tensor_given) put_moment_tensor(origin_index, tensor, id, derived);
  xml_.close();
}

void QuakeMlWriter::put_moment_tensor(std::size_t origin_index,
                                      const MomentTensor &tensor, const std::string &id,
                                      const std::string &derived) {
  static constexpr std::array<const char *, 6> kElements{"Mrr", "Mtt", "Mpp",
                                                         "Mrt", "Mrp", "Mtp"};
  xml_.open("momentTensor");
  xml_.attribute("publicID", id);
  xml_.element("derivedOriginID", derived);
  if (tensor.magnitude >= 0) {
    xml_.element(
        "momentMagnitudeID",
        magnitude_ids_[origin_index][static_cast<std::size_t>(tensor.magnitude)]);
  }
  put_quantity("scalarMoment", real(tensor.moment));
  if (has_tensor(tensor)) {
    xml_.open("tensor");
    for (std::size_t i = 0; i < kElements.size(); i++) {
      put_quantity(kElements[i], number_text(tensor.elements[i]));
    }
    xml_.close();
  }
  const auto part = [](double percent) {
    return percent == kNone ? "" : scaled_text(percent, 1.0 / kPercent);
  };
  xml_.given("varianceReduction", real(tensor.variance_reduction));
  xml_.given("doubleCouple", part(tensor.double_couple));
  xml_.given("clvd", part(tensor.clvd));
  xml_.given("iso", part(tensor.isotropic));
  if (tensor.stations >= 0 || tensor.components >= 0) {
    xml_.open("dataUsed");
    xml_.element("waveType", "unknown");
    xml_.given("stationCount", count_text(tensor.stations));
    xml_.given("componentCount", count_text(tensor.components));
    xml_.close();
  }
  xml_.close();
}

void QuakeMlWriter::put_planes(const MomentTensor &tensor) {
  if (!has_planes(tensor.plane1) && !has_planes(tensor.plane2)) return;
  xml_.open("nodalPlanes");
  const auto put = [&](const char *name, const std::array<double, 3> &plane) {
    if (!has_planes(plane)) return;
    xml_.open(name);
    put_quantity("strike", number_text(plane[0]));
    put_quantity("dip", number_text(plane[1]));
    put_quantity("rake", number_text(plane[2]));
    xml_.close();
  };
  put("nodalPlane1", tensor.plane1);
  put("nodalPlane2", tensor.plane2);
  xml_.close();
}

void QuakeMlWriter::put_axes(const MomentTensor &tensor) {
  const auto given = [&](std::size_t from) {
    return tensor.axes[from + 1] != kNone && tensor.axes[from + 2] != kNone;
  };
  if (!given(0) || !given(6)) return;
  const auto put = [&](const char *name, std::size_t from) {
    if (!given(from)) return;
    xml_.open(name);
    put_quantity("azimuth", number_text(tensor.axes[from + 2]));
    put_quantity("plunge", number_text(tensor.axes[from + 1]));
    put_quantity("length", real(tensor.axes[from]));
    xml_.close();
  };
  xml_.open("principalAxes");
  put("tAxis", 0);
  put("pAxis", 6);
  put("nAxis", 3);
  xml_.close();
}

}  // namespace ksutil::exchange
