/* Stations: the records of networks, stations and channels, and what reads and writes them.
 *
 * A StationItem gives one network, station or channel at a time, and with it the network and
 * the station that it belongs to, so that memory does not grow with the input.
 * A value that the input does not give keeps its null: -999.0 for numbers unless another is
 * named, "" for texts, kNoTime for times; an epoch whose end is kNoTime is open.  Texts are
 * UTF-8.  Elevations and depths are in km. */
#ifndef KSUTIL_FORMATS_EXCHANGE_STATIONS_STATIONS_H
#define KSUTIL_FORMATS_EXCHANGE_STATIONS_STATIONS_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "formats/exchange/reader.h"
#include "formats/exchange/records.h"

namespace ksutil {
struct Response;  // waveforms/response.h
}

namespace ksutil::exchange {

struct Epoch {
  double start = kNoTime, end = kNoTime;
  bool operator==(const Epoch &) const = default;
};

/* Rows of network and remark. */
struct Network {
  std::string code;  // "" when the source names none
  std::string description;
  Epoch epoch;
  std::vector<std::string> comments;
};

/* A row of site. */
struct Station {
  std::string code, name;
  Epoch epoch;
  double lat = -999.0, lon = -999.0;  // degrees
  double elevation = -999.0;
  /* The input names channels only: place and epoch are those of a channel. */
  bool derived = false;
};

/* Rows of sitechan, sensor, instrument and seedcode. */
struct Channel {
  std::string location, code;
  std::string description;   // of the channel
  std::string sensor;        // what the sensor is
  std::string sensor_model;  // a short name of it
  Epoch epoch;
  double lat = -999.0, lon = -999.0, elevation = -999.0;
  double depth = -999.0;    // below the surface at `elevation`
  double azimuth = -999.0;  // degrees from north
  double dip = -999.0;      // degrees downwards from horizontal: -90 up
  double samprate = -1.0;   // Hz
  /* Output units for an input unit at a frequency in Hz; 0: not given. */
  double sensitivity = 0.0, sensitivity_frequency = 0.0;
  std::string input_unit, output_unit;
  std::shared_ptr<const Response> response;  // null: not given
  bool operator==(const Channel &) const = default;
};

struct StationItem {
  enum class Kind { kNetwork, kStation, kChannel };
  Kind kind = Kind::kNetwork;  // what is new; the records below it are left over
  Network network;
  Station station;
  Channel channel;
};

class StationReader {
 public:
  virtual ~StationReader() = default;

  /* As of Reader: kRefused concerns only the record at line(). */
  using Got = Reader::Got;
  virtual Got next(StationItem &item) = 0;

  virtual std::int64_t line() const = 0;
  virtual const std::string &problem() const = 0;
  virtual std::vector<Unplaced> without_place() const { return {}; }
};

class StationWriter {
 public:
  virtual ~StationWriter() = default;

  /* What stands before the first item, an item, and what stands after the last one.  The
   * items come as readers give them: networks, each with its stations, each with its
   * channels.  False when the sink does not take it. */
  virtual bool begin() = 0;
  virtual bool put(const StationItem &item) = 0;
  virtual bool end() = 0;

  /* Values of the items that the format has no place for. */
  virtual std::vector<Unplaced> without_place() const { return {}; }
  /* The stations of which the text says nothing. */
  virtual std::int64_t stations_left_out() const { return 0; }
};

}  // namespace ksutil::exchange
#endif
