#include "formats/exchange/stationxml/stationxml_writer.h"

#include <cmath>

#include "formats/exchange/stations/station_values.h"
#include "formats/exchange/stationxml/stationxml_response.h"
#include "formats/exchange/text/value_text.h"
#include "platform/clock/clock.h"

namespace ksutil::exchange {
namespace {

constexpr double kMetres = 1000.0;  // in a km

/* The schema excludes the pole itself. */
std::string latitude_text(double lat) {
  return number_text(lat < 90.0 ? lat : 89.999999);
}

}  // namespace

bool StationXmlWriter::begin() {
  xml_.declare();
  xml_.open("FDSNStationXML");
  xml_.attribute("xmlns", "http://www.fdsn.org/xml/station/1");
  xml_.attribute("schemaVersion", "1.2");
  xml_.element("Source", "ksutil");
  xml_.element("Created", utc_text(std::floor(std_now()), 0));
  return xml_.settle();
}

bool StationXmlWriter::put(const StationItem &item) {
  switch (item.kind) {
    case StationItem::Kind::kNetwork:
      close_network();
      put_network(item.network);
      break;
    case StationItem::Kind::kStation:
      close_station();
      put_station(item.station);
      break;
    case StationItem::Kind::kChannel:
      if (station_open_) {
        put_channel(item.station, item.channel);
      } else {
        unplaced_.add("a channel of a station without coordinates");
      }
      break;
  }
  return xml_.settle();
}

/* The schema wants at least one network. */
bool StationXmlWriter::end() {
  if (!any_) put_network(Network());
  close_network();
  xml_.close();
  return xml_.flush();
}

void StationXmlWriter::close_station() {
  if (station_open_) xml_.close();
  station_open_ = false;
}

void StationXmlWriter::close_network() {
  close_station();
  if (network_open_) xml_.close();
  network_open_ = false;
}

void StationXmlWriter::put_epoch(const Epoch &epoch) {
  if (epoch.start != kNoTime && is_writable_time(epoch.start)) {
    xml_.attribute("startDate", utc_text(epoch.start, 0));
  }
  if (epoch.end != kNoTime && is_writable_time(epoch.end)) {
    xml_.attribute("endDate", utc_text(epoch.end, 0));
  }
}

void StationXmlWriter::put_network(const Network &network) {
  xml_.open("Network");
  network_open_ = any_ = true;
  xml_.attribute("code", network.code);
  put_epoch(network.epoch);
  xml_.given("Description", network.description);
  for (const std::string &comment : network.comments) {
    xml_.open("Comment");
    xml_.element("Value", comment);
    xml_.close();
  }
}

void StationXmlWriter::put_distance(const char *name, double kilometres) {
  if (kilometres == -999.0) unplaced_.add("unknown depths and elevations, which are 0");
  xml_.element(name, kilometres == -999.0 ? "0" : scaled_text(kilometres, kMetres));
}

void StationXmlWriter::put_station(const Station &station) {
  if (!has_place(station.lat, station.lon)) {
    unplaced_.add("a station without coordinates");
    stations_left_out_++;
    return;
  }
  xml_.open("Station");
  station_open_ = true;
  xml_.attribute("code", station.code);
  put_epoch(station.epoch);
  xml_.element("Latitude", latitude_text(station.lat));
  xml_.element("Longitude", number_text(station.lon));
  put_distance("Elevation", station.elevation);
  xml_.open("Site");
  xml_.element("Name", station.name);
  xml_.close();
}

void StationXmlWriter::put_channel(const Station &station, const Channel &channel) {
  const bool own = has_place(channel.lat, channel.lon);
  xml_.open("Channel");
  xml_.attribute("code", channel.code);
  put_epoch(channel.epoch);
  xml_.attribute("locationCode", channel.location);
  xml_.given("Description", channel.description);
  xml_.element("Latitude", latitude_text(own ? channel.lat : station.lat));
  xml_.element("Longitude", number_text(own ? channel.lon : station.lon));
  put_distance("Elevation",
               channel.elevation != -999.0 ? channel.elevation : station.elevation);
  put_distance("Depth", channel.depth);
  if (channel.azimuth >= 0.0 && channel.azimuth <= 360.0) {
    xml_.element("Azimuth", number_text(std::fmod(channel.azimuth, 360.0)));
  } else if (channel.azimuth != -999.0) {
    unplaced_.add("an azimuth outside 0 to 360 degrees");
  }
  if (std::fabs(channel.dip) <= 90.0) {
    xml_.element("Dip", number_text(channel.dip));
  } else if (channel.dip != -999.0) {
    unplaced_.add("a dip outside -90 to 90 degrees");
  }
  if (channel.samprate >= 0.0)
    xml_.element("SampleRate", number_text(channel.samprate));
  if (!channel.sensor.empty() || !channel.sensor_model.empty()) {
    xml_.open("Sensor");
    xml_.given("Description", channel.sensor);
    xml_.given("Model", channel.sensor_model);
    xml_.close();
  }
  write_response(channel, xml_);
  xml_.close();
}

}  // namespace ksutil::exchange
