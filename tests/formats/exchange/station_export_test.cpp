/* What is exported is read by others, and by the next import, which must find the same
 * rows: a station that comes back moved or with another response is worse than none. */
#include <gmock/gmock.h>

#include "formats/exchange/stations/station_source.h"
#include "tests/formats/exchange/station_fixture.h"
#include "tests/support/kept_text.h"

namespace ksutil::exchange {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Exported {
  std::string text;
  std::vector<std::string> faults, without_place;
};

Exported export_of(const StationDatabase &database, const char *word) {
  Exported exported;
  const auto store = db::open_store(database.name(), "r", 1 << 26);
  const auto source = StationSource::open(*store);
  test::KeptText sink;
  const auto writer = format_of_word(word)->open_station_writer(sink);
  EXPECT_TRUE(writer->begin());
  for (StationItem item; source->next(item);) EXPECT_TRUE(writer->put(item));
  EXPECT_TRUE(writer->end());
  exported.text = sink.text;
  for (const Unplaced &fault : source->faults().list()) {
    exported.faults.push_back(fault.name);
  }
  for (const Unplaced &left : writer->without_place()) {
    exported.without_place.push_back(left.name);
  }
  return exported;
}

/* Several epochs, two networks for a station, every kind of filter, texts that XML must
 * escape, a sensitivity of few digits in the table. */
std::string rich_stations() {
  const std::string first =
      channel_xml("2010-03-04T05:06:07.25", "2012-06-01T12:00:00");
  const std::string second =
      replaced(channel_xml("2012-06-01T12:00:00", "2014-01-01T00:00:00", "3000"),
               "Broadband, 120 s", "Tom &amp; Jerry's &lt;sensor&gt; | \xc3\xa9");
  const std::string turned = replaced(
      replaced(channel_xml("2014-02-01T00:00:00", ""), "<Dip>-90", "<Dip>12.5"),
      "<Azimuth>0", "<Azimuth>271.5");
  const std::string table = replaced(
      replaced(replaced(channel_xml("2010-03-04T05:06:07", ""), "\"10\"", "\"\""),
               "6.0E8", "7.654321E13"),
      "</Response>",
      "<Stage number=\"3\"><ResponseList><InputUnits><Name>counts</Name></InputUnits>"
      "<OutputUnits><Name>counts</Name></OutputUnits>"
      "<ResponseListElement><Frequency>0.1</Frequency><Amplitude>1</Amplitude>"
      "<Phase>270</Phase></ResponseListElement>"
      "<ResponseListElement><Frequency>10</Frequency><Amplitude>0.5</Amplitude>"
      "<Phase>-10</Phase></ResponseListElement></ResponseList>"
      "<StageGain><Value>1.25</Value><Frequency>1</Frequency></StageGain></Stage>"
      "<Stage "
      "number=\"4\"><StageGain><Value>2</Value><Frequency>0</Frequency></StageGain>"
      "</Stage></Response>");
  const std::string bare =
      "<Channel code=\"LOG\" locationCode=\"\" startDate=\"2011-01-01T00:00:00\">"
      "<Depth>0</Depth></Channel>";
  return replaced(station_xml(first + second + turned + table + bare), "</Network>",
                  "</Network><Network code=\"VV\"><Description/>"
                  "<Station code=\"RJOB\" startDate=\"2010-03-04T00:00:00\">"
                  "<Latitude>47.5</Latitude><Longitude>12.25</Longitude>"
                  "<Elevation>860</Elevation><Site><Name>Jochberg</Name></Site>"
                  "</Station></Network>");
}

class StationExport : public testing::TestWithParam<const char *> {};
INSTANTIATE_TEST_SUITE_P(Schemas, StationExport, testing::Values("css3.0", "kbcore"));

TEST_P(StationExport, OfStationXmlComesBackAsTheSameRows) {
  const StationDatabase database(GetParam()), again(GetParam());
  EXPECT_THAT(database.import(rich_stations()).refused, IsEmpty());
  EXPECT_EQ(database.column("affiliation", "net").size(), 2u);
  const Exported exported = export_of(database, "stationxml");
  EXPECT_THAT(exported.faults, IsEmpty());
  EXPECT_THAT(exported.without_place, IsEmpty());
  EXPECT_THAT(again.import(exported.text).refused, IsEmpty());
  EXPECT_EQ(again.rows(), database.rows());
  for (const std::string &file : database.column("instrument", "dfile")) {
    EXPECT_EQ(tools::read_text(again.path("response/" + file)),
              tools::read_text(database.path("response/" + file)));
  }
  /* And into the same database it brings nothing new. */
  const std::string before = database.rows();
  EXPECT_EQ(database.import(exported.text).counts.channels.unchanged, 5);
  EXPECT_EQ(database.rows(), before);
}

TEST_P(StationExport, OfTextComesBackAsTheSameRows) {
  const StationDatabase database(GetParam()), again(GetParam());
  database.import(
      "#Network|Station|Location|Channel|Latitude|Longitude|Elevation|Depth|Azimuth|"
      "Dip|"
      "SensorDescription|Scale|ScaleFreq|ScaleUnits|SampleRate|StartTime|EndTime\n"
      "AK|BWN||LHZ|64.1732|-149.2991|356.0|1.5|0.0|-90.0|Trillium "
      "120|4.98112E8|0.03|M/S|1|"
      "2010-07-23T00:00:00.5|2014-05-28T23:59:59\n"
      "AK|BWN|00|HNE|64.1732|-149.2991|356.0|0|90.0|0|Accelerometer|213979|1.7|M/"
      "S**2|200|"
      "2014-08-01T00:00:00|\n"
      "AK|BWN|00|HHN|64.1732|-149.2991|356.0|0|359.9|0.1||1.2E13|20|M/S|33.333|"
      "2014-08-01T00:00:00|\n");
  const std::string networks = export_of(database, "fdsn-network").text;
  const std::string stations = export_of(database, "fdsn-station").text;
  const std::string channels = export_of(database, "fdsn-channel").text;
  EXPECT_THAT(networks, testing::EndsWith("\nAK||||1\n"));
  EXPECT_THAT(stations,
              HasSubstr("\nAK|BWN|64.1732|-149.2991|356||2010-07-23T00:00:00|\n"));
  EXPECT_THAT(channels, HasSubstr("AK|BWN||LHZ|64.1732|-149.2991|356|1.5|0|-90|"));
  for (const std::string &text : {networks, stations, channels}) {
    EXPECT_THAT(again.import(text).refused, IsEmpty());
  }
  EXPECT_EQ(again.rows(), database.rows());
}

/* A line that the import refuses, or a station of which nothing was written and nothing was
 * said, is lost without anybody's notice. */
TEST(StationExportText, CountsWhatALevelLeavesOut) {
  StationItem item;
  item.network.code = "AK";
  item.network.description = "Alaska";
  item.station.code = "BWN";
  item.station.name = "Browne";
  item.station.lat = item.channel.lat = 64.0;
  item.station.lon = item.channel.lon = -149.0;
  item.channel.code = "LHZ";
  item.channel.dip = -180.0;
  item.channel.azimuth = 0.0;
  item.channel.sensor_model = "T120";
  const auto write = [&item](const char *word, std::int64_t &left_out) {
    test::KeptText sink;
    const auto writer = format_of_word(word)->open_station_writer(sink);
    EXPECT_TRUE(writer->begin());
    using enum StationItem::Kind;
    for (const StationItem::Kind kind : {kNetwork, kStation, kStation, kChannel}) {
      item.kind = kind;
      EXPECT_TRUE(writer->put(item));
    }
    EXPECT_TRUE(writer->end());
    left_out = writer->stations_left_out();
    std::string all;
    for (const Unplaced &left : writer->without_place()) {
      all += left.name + ": " + std::to_string(left.count) + "\n";
    }
    return std::pair(sink.text, all);
  };
  std::int64_t left_out = 0;
  const auto [channels, of_channels] = write("fdsn-channel", left_out);
  EXPECT_THAT(channels, HasSubstr("\nAK|BWN||LHZ|64|-149|||0|||"));
  EXPECT_EQ(of_channels,
            "names of networks: 1\nnames of stations: 2\nstations without channels: 1\n"
            "models of sensors: 1\na dip outside -90 to 90 degrees: 1\n");
  EXPECT_EQ(left_out, 1);
  EXPECT_THAT(read_stations(channels).refused, IsEmpty());
  EXPECT_EQ(write("fdsn-station", left_out).second, "names of networks: 1\n");
  EXPECT_EQ(write("fdsn-network", left_out).second, "");
  EXPECT_EQ(left_out, 0);

  item.station.lat = item.channel.lat = -999.0;
  const std::string unplaced = "a station without coordinates: 2\n";
  const auto [stations, of_stations] = write("fdsn-station", left_out);
  EXPECT_EQ(stations.find('\n'), stations.size() - 1)
      << "the heads of the columns alone";
  EXPECT_EQ(of_stations, "names of networks: 1\n" + unplaced);
  EXPECT_EQ(left_out, 2);
  EXPECT_THAT(write("fdsn-channel", left_out).second,
              HasSubstr(unplaced + "models of sensors: 1\n"
                                   "a channel of a station without coordinates: 1\n"));
  EXPECT_EQ(left_out, 2);
}

TEST(StationExportXml, IsWellFormedAndSaysWhatItLeavesOut) {
  const StationDatabase database;
  database.import(rich_stations());
  std::filesystem::remove_all(database.path("response"));
  const Exported exported = export_of(database, "stationxml");
  EXPECT_THAT(exported.faults, ElementsAre("a response file that cannot be read"));
  EXPECT_THAT(exported.text, HasSubstr("<InstrumentSensitivity>")) << "from ncalib";
  const std::string file = database.folder().write("out.xml", exported.text);
  EXPECT_EQ(tools::run_program("xmllint --noout " + file).code, 0);
  /* An empty database gives a text that is valid too. */
  const StationDatabase empty;
  EXPECT_THAT(export_of(empty, "stationxml").text, HasSubstr("<Network code=\"\""));
}

TEST(StationExportProgram, WritesStationsAndRefusesToSelectEvents) {
  const StationDatabase database;
  database.import(rich_stations());
  const std::string command =
      std::string(KSDB_PROGRAM) + " export " + database.name() + " ";
  const tools::ProgramRun run =
      tools::run_program(command + database.path("out.stationxml"));
  EXPECT_EQ(run.code, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("2 stations in"));
  EXPECT_THAT(tools::read_text(database.path("out.stationxml")), HasSubstr("Jochberg"));
  EXPECT_EQ(
      tools::run_program(command + "--format fdsn-station --after 2015-01-01").code, 2);
}

}  // namespace
}  // namespace ksutil::exchange
