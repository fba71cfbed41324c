/* StationXmlReader: reads the networks, stations and channels of a StationXML text.
 *
 * Tolerated are what published files have: no namespace or another prefix, versions 1.0 to
 * 1.2, channels without coordinates or dates (those of their station), channels without
 * anything but codes (left out, and counted), and elements of other namespaces.
 * A station or channel with a value that cannot be right is refused alone, a station with
 * its channels.  Memory is bounded by one channel: XmlElement::kMostElements. */
#ifndef KSUTIL_FORMATS_EXCHANGE_STATIONXML_STATIONXML_READER_H
#define KSUTIL_FORMATS_EXCHANGE_STATIONXML_STATIONXML_READER_H

#include <string>
#include <vector>

#include "formats/exchange/stations/stations.h"
#include "formats/exchange/stationxml/stationxml_values.h"
#include "formats/exchange/text/xml_reader.h"
#include "formats/exchange/unplaced.h"

namespace ksutil::exchange {

class StationXmlReader final : public StationReader {
 public:
  explicit StationXmlReader(Input &input) : xml_(input) {}

  /* Reads the root element; false, with the cause, when it is not one of StationXML. */
  bool begin(std::string &problem);

  Got next(StationItem &item) override;
  std::int64_t line() const override { return line_; }
  const std::string &problem() const override { return problem_; }
  std::vector<Unplaced> without_place() const override { return unplaced_.list(); }

 private:
  enum class Inside { kRoot, kNetwork, kStation };

  Got step(StationItem &item, bool &given);
  Got element(StationItem &item, bool &given);
  Got give(StationItem &item, StationItem::Kind kind, bool &given);
  void begin_network();
  void begin_station();
  Got finish_station(StationItem &item, bool &given);
  Got network_child();
  Got station_child();
  Got read_channel(StationItem &item, bool &given);
  void fill_channel(const XmlElement &element);
  void count_attributes(const std::string &kind, const XmlAttributes &attributes);
  Got refuse(std::int64_t line, const std::string &cause);
  Got failed();

  XmlReader xml_;
  Inside inside_ = Inside::kRoot;
  /* The token is still to be used: what stood before it was given first. */
  bool again_ = false;
  bool network_given_ = false, station_given_ = false;
  std::string station_fault_;  // why the station is refused
  std::int64_t network_line_ = 0, station_line_ = 0;
  StationItem now_;
  UnplacedCounts unplaced_;
  std::int64_t line_ = 0;
  std::string problem_;
};

}  // namespace ksutil::exchange
#endif
