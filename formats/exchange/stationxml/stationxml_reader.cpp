#include "formats/exchange/stationxml/stationxml_reader.h"

#include <algorithm>
#include <array>

#include "formats/exchange/stations/station_values.h"
#include "formats/exchange/stationxml/stationxml_response.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

constexpr double kMetre = 0.001;  // in km

/* Elements that tell of the file and of what was selected into it. */
constexpr std::array<std::string_view, 9> kOfFile{"Source",
                                                  "Sender",
                                                  "Module",
                                                  "ModuleURI",
                                                  "Created",
                                                  "TotalNumberStations",
                                                  "SelectedNumberStations",
                                                  "TotalNumberChannels",
                                                  "SelectedNumberChannels"};

bool is_of_file(const std::string &name) {
  return std::find(kOfFile.begin(), kOfFile.end(), name) != kOfFile.end();
}

const std::string &attribute_of(const XmlAttributes &attributes,
                                std::string_view name) {
  static const std::string kNone;
  const auto found =
      std::find_if(attributes.begin(), attributes.end(),
                   [&](const auto &attribute) { return attribute.first == name; });
  return found == attributes.end() ? kNone : found->second;
}

Epoch epoch_of(const XmlAttributes &attributes, std::int64_t line) {
  Epoch epoch;
  std::string cause;
  if (!read_epoch(attribute_of(attributes, "startDate"),
                  attribute_of(attributes, "endDate"), epoch, cause)) {
    throw ValueFault{line, cause};
  }
  return epoch;
}

double distance_of(const XmlElement &element, std::string_view path) {
  const double metres = number_of(element, path, -999.0);
  return element.find(path) == nullptr ? -999.0 : metres * kMetre;
}

void check_place(double lat, double &lon, std::int64_t line) {
  const std::string cause = fit_place(lat, lon);
  if (!cause.empty()) throw ValueFault{line, cause};
}

double samprate_of(const XmlElement &element) {
  double rate = number_of(element, "SampleRate", -1.0);
  if (const XmlElement *ratio = element.find("SampleRateRatio")) {
    const double samples = number_of(*ratio, "NumberSamples", 0.0);
    const double seconds = number_of(*ratio, "NumberSeconds", 0.0);
    if (element.find("SampleRate") == nullptr && seconds > 0.0)
      rate = samples / seconds;
  }
  if (rate < 0.0 && element.find("SampleRate") != nullptr) {
    throw ValueFault{element.line, "the sample rate is negative"};
  }
  return rate;
}

/* What the sensor is, in the words of the file. */
void read_sensor(const XmlElement &element, Channel &channel) {
  const XmlElement *sensor = element.find("Sensor");
  if (sensor == nullptr) return;
  channel.sensor_model = sensor->text_of("Model");
  channel.sensor = sensor->text_of("Description");
  /* The other texts stay for the list of what has no place, unless one is needed. */
  if (channel.sensor.empty()) channel.sensor = sensor->text_of("Type");
  if (channel.sensor.empty()) channel.sensor = channel.sensor_model;
}

}  // namespace

bool StationXmlReader::begin(std::string &problem) {
  if (xml_.next() != XmlReader::Got::kStart) {
    problem = xml_.problem();
    if (problem.empty()) problem = xml_.input_name() + " has no elements";
    return false;
  }
  if (xml_.name() != "FDSNStationXML") {
    problem = xml_.input_name() + ": the root element is " + xml_.name() +
              ", not FDSNStationXML";
    return false;
  }
  const std::string *version = xml_.attribute("schemaVersion");
  if (version != nullptr && *version != "1" && !version->starts_with("1.")) {
    problem = xml_.input_name() + " is StationXML " + version->substr(0, 20) +
              "; versions 1.0 to 1.2 are read";
    return false;
  }
  return true;
}

StationXmlReader::Got StationXmlReader::next(StationItem &item) {
  for (;;) {
    bool given = false;
    const Got got = step(item, given);
    if (given || got != Got::kRecord) return got;
  }
}

/* One token.  kRecord without `given`: go on. */
StationXmlReader::Got StationXmlReader::step(StationItem &item, bool &given) {
  XmlReader::Got got = XmlReader::Got::kStart;
  if (!again_) got = xml_.next();
  again_ = false;
  switch (got) {
    case XmlReader::Got::kFailed:
      return failed();
    case XmlReader::Got::kDone:
      return Got::kEnd;
    case XmlReader::Got::kStart:
      return element(item, given);
    case XmlReader::Got::kEnd:
      break;
  }
  if (inside_ == Inside::kStation) {
    inside_ = Inside::kNetwork;
    return finish_station(item, given);
  }
  if (inside_ == Inside::kNetwork) {
    inside_ = Inside::kRoot;
    if (!network_given_) return give(item, StationItem::Kind::kNetwork, given);
  }
  return Got::kRecord;
}

StationXmlReader::Got StationXmlReader::element(StationItem &item, bool &given) {
  const std::string &name = xml_.name();
  switch (inside_) {
    case Inside::kRoot:
      if (name == "Network") {
        begin_network();
        return Got::kRecord;
      }
      if (!is_of_file(name)) unplaced_.add(name);
      return xml_.skip() ? Got::kRecord : failed();
    case Inside::kNetwork:
      if (name != "Station") return network_child();
      if (!network_given_) {
        again_ = true;
        return give(item, StationItem::Kind::kNetwork, given);
      }
      begin_station();
      return Got::kRecord;
    case Inside::kStation:
      if (name != "Channel") return station_child();
      if (!station_given_) {
        again_ = true;
        return finish_station(item, given);
      }
      if (!station_fault_.empty()) return xml_.skip() ? Got::kRecord : failed();
      return read_channel(item, given);
  }
  return Got::kRecord;
}

StationXmlReader::Got StationXmlReader::give(StationItem &item, StationItem::Kind kind,
                                             bool &given) {
  given = true;
  network_given_ = true;
  line_ = kind == StationItem::Kind::kNetwork ? network_line_ : station_line_;
  now_.kind = kind;
  item = now_;
  return Got::kRecord;
}

void StationXmlReader::begin_network() {
  now_.network = Network();
  now_.network.code = trimmed(attribute_of(xml_.attributes(), "code"));
  network_given_ = false;
  network_line_ = xml_.line();
  inside_ = Inside::kNetwork;
  count_attributes("Network", xml_.attributes());
  /* No table has a field for the epoch of a network: a faulty one does no harm. */
  std::string cause;
  read_epoch(attribute_of(xml_.attributes(), "startDate"),
             attribute_of(xml_.attributes(), "endDate"), now_.network.epoch, cause);
}

void StationXmlReader::begin_station() {
  now_.station = Station();
  station_given_ = false;
  station_fault_.clear();
  station_line_ = xml_.line();
  inside_ = Inside::kStation;
  now_.station.code = trimmed(attribute_of(xml_.attributes(), "code"));
  count_attributes("Station", xml_.attributes());
  try {
    if (now_.station.code.empty()) throw ValueFault{station_line_, "it has no code"};
    now_.station.epoch = epoch_of(xml_.attributes(), station_line_);
  } catch (const ValueFault &fault) {
    station_fault_ = fault.cause;
  }
}

/* What of the station stands before its channels, or at its end, makes it a record. */
StationXmlReader::Got StationXmlReader::finish_station(StationItem &item, bool &given) {
  if (station_given_) return Got::kRecord;
  station_given_ = true;
  Station &station = now_.station;
  if (station_fault_.empty() && (station.lat == -999.0 || station.lon == -999.0)) {
    station_fault_ = "it has no coordinates";
  }
  if (station_fault_.empty()) station_fault_ = fit_place(station.lat, station.lon);
  if (station_fault_.empty()) return give(item, StationItem::Kind::kStation, given);
  return refuse(station_line_, "station " + station.code.substr(0, 40) +
                                   " is left out with its channels: " + station_fault_);
}

StationXmlReader::Got StationXmlReader::network_child() {
  XmlElement child;
  if (!child.read(xml_)) return failed();
  if (child.name == "Description") {
    now_.network.description = child.text;
  } else if (child.name == "Comment") {
    now_.network.comments.push_back(child.text_of("Value"));
    child.without_use(
        [this](const std::string &path) { unplaced_.add("Network/" + path); });
  } else if (!is_of_file(child.name)) {
    unplaced_.add("Network/" + child.name);
  }
  return Got::kRecord;
}

StationXmlReader::Got StationXmlReader::station_child() {
  XmlElement child;
  if (!child.read(xml_)) return failed();
  Station &station = now_.station;
  try {
    if (child.name == "Latitude") {
      station.lat = own_number(child);
    } else if (child.name == "Longitude") {
      station.lon = own_number(child);
    } else if (child.name == "Elevation") {
      station.elevation = own_number(child) * kMetre;
    } else if (child.name == "Site") {
      station.name = child.text_of("Name");
      child.without_use(
          [this](const std::string &path) { unplaced_.add("Station/" + path); });
    } else if (!is_of_file(child.name)) {
      unplaced_.add("Station/" + child.name);
    }
  } catch (const ValueFault &fault) {
    if (station_fault_.empty()) station_fault_ = fault.cause;
  }
  return Got::kRecord;
}

StationXmlReader::Got StationXmlReader::read_channel(StationItem &item, bool &given) {
  XmlElement element;
  if (!element.read(xml_)) return failed();
  now_.channel = Channel();
  Channel &channel = now_.channel;
  channel.code = trimmed(element.attribute("code"));
  channel.location = location_code(element.attribute("locationCode"));
  if (element.children.empty() && element.attribute("startDate").empty()) {
    unplaced_.add("a channel without dates, coordinates and sample rate");
    return Got::kRecord;
  }
  try {
    if (channel.code.empty()) throw ValueFault{element.line, "it has no code"};
    fill_channel(element);
  } catch (const ValueFault &fault) {
    return refuse(fault.line, "channel " + channel.code.substr(0, 40) + " of station " +
                                  now_.station.code.substr(0, 40) +
                                  " is left out: " + fault.cause);
  }
  count_attributes("Channel", element.attributes);
  element.without_use([this](const std::string &path) { unplaced_.add(path); });
  give(item, StationItem::Kind::kChannel, given);
  line_ = element.line;
  return Got::kRecord;
}

void StationXmlReader::fill_channel(const XmlElement &element) {
  Channel &channel = now_.channel;
  channel.epoch = epoch_of(element.attributes, element.line);
  if (channel.epoch.start == kNoTime) {
    channel.epoch.start = now_.station.epoch.start;
    if (channel.epoch.end == kNoTime) channel.epoch.end = now_.station.epoch.end;
  }
  channel.lat = number_of(element, "Latitude", now_.station.lat);
  channel.lon = number_of(element, "Longitude", now_.station.lon);
  check_place(channel.lat, channel.lon, element.line);
  channel.elevation = element.find("Elevation") == nullptr
                          ? now_.station.elevation
                          : distance_of(element, "Elevation");
  channel.depth = distance_of(element, "Depth");
  channel.azimuth = number_of(element, "Azimuth", -999.0);
  channel.dip = number_of(element, "Dip", -999.0);
  if (channel.dip != -999.0 && !(channel.dip >= -90.0 && channel.dip <= 90.0)) {
    throw ValueFault{element.line, "the dip is not between -90 and 90"};
  }
  channel.samprate = samprate_of(element);
  channel.description = element.text_of("Description");
  read_sensor(element, channel);
  if (const XmlElement *response = element.find("Response")) {
    read_response(*response, channel, unplaced_);
  }
}

/* Attributes that have no place; "open" is what needs no word. */
void StationXmlReader::count_attributes(const std::string &kind,
                                        const XmlAttributes &attributes) {
  static constexpr std::array<std::string_view, 4> kPlaced{"code", "startDate",
                                                           "endDate", "locationCode"};
  for (const auto &[name, value] : attributes) {
    if (std::find(kPlaced.begin(), kPlaced.end(), name) != kPlaced.end() ||
        value == "open") {
      continue;
    }
    unplaced_.add(kind + " " + name);
  }
}

StationXmlReader::Got StationXmlReader::refuse(std::int64_t line,
                                               const std::string &cause) {
  line_ = line;
  problem_ = cause;
  return Got::kRefused;
}

StationXmlReader::Got StationXmlReader::failed() {
  problem_ = xml_.problem();
  line_ = xml_.line();
  return Got::kFailed;
}

}  // namespace ksutil::exchange
