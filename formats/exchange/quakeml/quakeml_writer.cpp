#include "formats/exchange/quakeml/quakeml_writer.h"

#include <algorithm>
#include <array>

#include "formats/exchange/event_types.h"
#include "formats/exchange/quakeml/element_values.h"
#include "formats/exchange/quakeml/field_attributes.h"
#include "formats/exchange/quakeml/quakeml_writer_values.h"
#include "formats/exchange/quakeml/resource_id.h"
#include "formats/exchange/text/value_text.h"

namespace ksutil::exchange {

using namespace quakeml;

namespace {

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

}  // namespace ksutil::exchange
