#include "formats/exchange/stationxml/stationxml_format.h"

#include <array>

#include "formats/exchange/stationxml/stationxml_reader.h"
#include "formats/exchange/stationxml/stationxml_writer.h"

namespace ksutil::exchange {
namespace {

bool is_stationxml(const Beginning &beginning) {
  return beginning.root == "fdsnstationxml";
}

std::unique_ptr<StationReader> open_stationxml(Input &input, std::string &problem) {
  auto reader = std::make_unique<StationXmlReader>(input);
  if (!reader->begin(problem)) return nullptr;
  return reader;
}

std::unique_ptr<StationWriter> write_stationxml(TextSink &sink) {
  return std::make_unique<StationXmlWriter>(sink);
}

constexpr std::array<Mapping, 21> kMappings{{
    {"Network code", "network.net, affiliation.net, seedcode.net"},
    {"Network/Description", "network.netname"},
    {"Network/Comment/Value", "remark, under network.commid"},
    {"Station code", "site.sta, affiliation.sta, sitechan.sta, seedcode.seedsta"},
    {"Station startDate, endDate", "site.ondate, site.offdate"},
    {"Station/Latitude, Longitude, Elevation", "site.lat, site.lon, site.elev"},
    {"Station/Site/Name", "site.staname"},
    {"Channel code, locationCode", "sitechan.chan, seedcode.seedchan, seedcode.loc"},
    {"Channel startDate, endDate",
     "sensor.time, sensor.endtime, sitechan.ondate, sitechan.offdate"},
    {"Channel/Description", "sitechan.descrip"},
    {"Channel/Depth", "sitechan.edepth"},
    {"Channel/Azimuth", "sitechan.hang"},
    {"Channel/Dip", "sitechan.vang"},
    {"Channel/SampleRate, SampleRateRatio", "instrument.samprate"},
    {"Channel/Sensor/Description, else Type", "instrument.insname"},
    {"Channel/Sensor/Model", "instrument.instype"},
    {"InstrumentSensitivity/Value, InputUnits", "instrument.ncalib"},
    {"InstrumentSensitivity/Frequency", "instrument.ncalper, sensor.calper"},
    {"Response", "the file that instrument.dir and instrument.dfile name"},
    {"Stage: PolesZeros, Coefficients, FIR, ResponseList",
     "the groups of the response file; instrument.rsptype"},
    {"Stage/Decimation, StageGain", "the response file"},
}};

}  // namespace

const Format kStationXmlFormat{.word = "stationxml",
                               .name = "StationXML 1.0 to 1.2",
                               .recognise = is_stationxml,
                               .mappings = kMappings,
                               .open_station_reader = open_stationxml,
                               .open_station_writer = write_stationxml};

}  // namespace ksutil::exchange
