/* A station in the wrong place, or a response with a lost stage, spoils every result that is
 * computed from its waveforms; one bad record must cost that record alone. */
#include <gmock/gmock.h>

#include <cmath>
#include <complex>
#include <numbers>

#include "tests/formats/exchange/station_fixture.h"
#include "waveforms/response.h"

namespace ksutil::exchange {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Kind = StationItem::Kind;

const std::string kChannel =
    channel_xml("2010-03-04T05:06:07.5Z", "2599-12-31T23:59:59");

TEST(StationXmlReader, GivesValuesInTheUnitsOfTheRecords) {
  const StationsRead read = read_stations(station_xml(kChannel));
  ASSERT_TRUE(read.good) << read.problem;
  EXPECT_THAT(read.refused, IsEmpty());
  ASSERT_EQ(read.items.size(), 3u);
  EXPECT_EQ(read.items[0].network.description, "Test network");
  EXPECT_THAT(read.items[0].network.comments, ElementsAre("A first comment"));
  const StationItem &last = read.items[2];
  ASSERT_EQ(last.kind, Kind::kChannel);
  EXPECT_EQ(last.station.name, "Jochberg");
  EXPECT_DOUBLE_EQ(last.station.elevation, 0.86);
  EXPECT_EQ(last.channel.location, "10");
  EXPECT_DOUBLE_EQ(last.channel.depth, 0.0025);
  EXPECT_DOUBLE_EQ(last.channel.epoch.start, 1267679167.5);
  EXPECT_EQ(last.channel.epoch.end, kNoTime) << "2599 is not an end";
  EXPECT_EQ(last.channel.sensor, "Broadband, 120 s");
  EXPECT_EQ(last.channel.sensor_model, "BB-120");
  EXPECT_EQ(last.channel.input_unit, "M/S");
}

/* Hand arithmetic: at 10 Hz the seismometer gives 1500 s^2 / (s - p)(s - p*), the filter
 * (0.5 + 0.5 cos w) with its delay of one sample taken back, the digitizer 400000. */
TEST(StationXmlReader, KeepsEveryStageOfAResponse) {
  const StationsRead read = read_stations(station_xml(kChannel));
  ASSERT_EQ(read.items.size(), 3u);
  const auto &response = read.items[2].channel.response;
  ASSERT_NE(response, nullptr);
  ASSERT_EQ(response->stages.size(), 2u);
  EXPECT_EQ(std::get<CoefficientFilter>(response->stages[1].filter).numerators,
            (std::vector<double>{0.25, 0.5, 0.25}));
  const double omega = 2.0 * std::numbers::pi * 10.0;
  const std::complex<double> s(0.0, omega), pole(-0.037, 0.037);
  const std::complex<double> seismometer =
      1500.0 * s * s / ((s - pole) * (s - std::conj(pole)));
  const double filter = 0.5 + 0.5 * std::cos(omega / 200.0);
  EXPECT_NEAR(std::abs(response->evaluate(10.0)),
              std::abs(seismometer) * filter * 400000.0, 1.0);
}

TEST(StationXmlReader, TakesWhatPublishedFilesLack) {
  /* No namespace but a prefix, no version, no coordinates and dates of the channel. */
  std::string text = station_xml(
      "<Channel code=\"BHZ\"><SampleRateRatio><NumberSamples>1</NumberSamples>"
      "<NumberSeconds>10</NumberSeconds></SampleRateRatio></Channel>"
      "<Channel/><Channel code=\"BHN\" locationCode=\"00\"> </Channel>");
  text = replaced(text, " schemaVersion=\"1.1\"", "");
  text = replaced(text, " xmlns=\"http://www.fdsn.org/xml/station/1\"", "");
  const StationsRead read = read_stations(text);
  ASSERT_TRUE(read.good) << read.problem;
  const auto channels = of_kind(read, Kind::kChannel);
  ASSERT_EQ(channels.size(), 1u);
  EXPECT_DOUBLE_EQ(channels[0].channel.lat, 47.5);
  EXPECT_DOUBLE_EQ(channels[0].channel.samprate, 0.1);
  EXPECT_DOUBLE_EQ(channels[0].channel.epoch.start, channels[0].station.epoch.start);
  EXPECT_THAT(read.without_place,
              ElementsAre("a channel without dates, coordinates and sample rate"));
}

TEST(StationXmlReader, RefusesOneRecordAlone) {
  const std::string good = channel_xml("2012-01-01T00:00:00", "");
  struct Case {
    const char *from, *to, *reason;
  };
  for (const Case &c :
       {Case{"<Latitude>47.5</Latitude><Longitude>12.25</Longitude><Elevation>860</"
             "Elevation>\n<Depth>",
             "<Latitude>97.5</Latitude><Longitude>12.25</Longitude><Depth>",
             "latitude"},
        Case{"<Dip>-90", "<Dip>-91", "dip"},
        Case{"<SampleRate>100", "<SampleRate>hundred", "'hundred' is not a number"},
        Case{"startDate=\"2011", "startDate=\"tomorrow 2011", "is not a time"},
        Case{"endDate=\"2011-06", "endDate=\"2010-06", "ends before it begins"},
        Case{"<Real>-0.037</Real>", "<Real></Real>", "Real '' is not a number"},
        Case{"<Factor>2", "<Factor>0", "Factor"},
        Case{"code=\"HHZ\"", "code=\"\"", "no code"}}) {
    const std::string bad = replaced(
        channel_xml("2011-01-01T00:00:00", "2011-06-01T00:00:00"), c.from, c.to);
    const StationsRead read = read_stations(station_xml(bad + good));
    EXPECT_TRUE(read.good) << read.problem;
    EXPECT_EQ(of_kind(read, Kind::kChannel).size(), 1u) << c.to;
    EXPECT_THAT(read.refused, ElementsAre(HasSubstr(c.reason)));
  }
  /* A station without a place goes with its channels. */
  const StationsRead read = read_stations(
      replaced(station_xml(good), "<Latitude>47.5</Latitude>", "<Vault>no</Vault>"));
  EXPECT_TRUE(read.good);
  EXPECT_EQ(read.items.size(), 1u);
  EXPECT_THAT(read.refused, ElementsAre(HasSubstr("6: station RJOB")));
}

TEST(StationXmlReader, LeavesOutResponsesThatHaveNoPlaceAsAWhole) {
  const std::string gain = "<StageGain><Value>1500";
  for (const std::string &stage :
       {replaced(kChannel, "<StageGain><Value>400000",
                 "<Polynomial><Coefficient>1</Coefficient></Polynomial>"
                 "<StageGain><Value>400000"),
        replaced(kChannel, "<InputSampleRate>", "<Rate>")}) {
    std::string text = station_xml(stage);
    if (text.find("<Rate>") != text.npos) {
      const std::size_t from = text.find("<Decimation>");
      text.erase(from, text.find("</Decimation>") + 13 - from);
    }
    const StationsRead read = read_stations(text);
    ASSERT_TRUE(read.good) << read.problem;
    const auto channels = of_kind(read, Kind::kChannel);
    ASSERT_EQ(channels.size(), 1u);
    EXPECT_EQ(channels[0].channel.response, nullptr);
    EXPECT_EQ(channels[0].channel.sensitivity, 6e8);
    EXPECT_THAT(read.without_place, ElementsAre(HasSubstr("a response with a")));
  }
}

TEST(StationXmlReader, EndsAtFaultsOfTheTextWithFileAndLine) {
  const std::string text = station_xml(kChannel);
  const StationsRead cut = read_stations(text.substr(0, text.size() - 60));
  EXPECT_FALSE(cut.good);
  EXPECT_THAT(cut.problem, HasSubstr("stations:"));
  EXPECT_EQ(of_kind(cut, Kind::kStation).size(), 1u) << "what came before is given";
  EXPECT_THAT(read_stations(replaced(text, "1.1\"", "2.0\"")).problem,
              HasSubstr("StationXML 2.0"));
  std::string coefficients;
  for (int i = 0; i < 60000; i++) coefficients += "<Denominator>1</Denominator>";
  EXPECT_THAT(
      read_stations(station_xml("<Channel code=\"HHZ\">" + coefficients + "</Channel>"))
          .problem,
      HasSubstr("more than"));
}

constexpr char kChannelText[] =
    "#Network | Station | Location | Channel | Latitude | Longitude | Elevation | "
    "Depth | "
    "Azimuth | Dip | SensorDescription | Scale | ScaleFreq | ScaleUnits | SampleRate | "
    "StartTime | EndTime\n"
    "AK|BWN|  |LHZ|64.1732|-149.2991|356.0|1.5|0.0|-90.0|Trillium "
    "120|4.98112E8|0.03|M/S|"
    "1.0|2010-07-23T00:00:00|2014-05-28T23:59:59\n"
    "AK|BWN|--|LHZ|64.1732|-149.2991|356.0|1.5|0.0|-90.0|Trillium 120|||M/S|"
    "1.0|2014-08-01T00:00:00\n"
    "AK|BWN|00|LHZ|64.1732|-349.2991|356.0|1.5|0.0|-90.0|x|||M/"
    "S|1.0|2014-08-01T00:00:00|\n"
    "AK|BWN|00|LHZ|64.1732|149|1|1|0|0|x|y|z|M/S|1.0|2014-08-01T00:00:00|\n"
    "AK|BWN|00|LHZ|64|149|1|1|0|0|a|b|1|1|M/S|1.0|2014-08-01T00:00:00||\n";

TEST(FdsnStationReader, GivesChannelsWithTheStationsThatTheyTellOf) {
  const StationsRead read = read_stations(kChannelText);
  ASSERT_TRUE(read.good) << read.problem;
  const auto stations = of_kind(read, Kind::kStation);
  const auto channels = of_kind(read, Kind::kChannel);
  EXPECT_EQ(of_kind(read, Kind::kNetwork).size(), 1u);
  ASSERT_EQ(stations.size(), 2u);
  EXPECT_TRUE(stations[0].station.derived);
  ASSERT_EQ(channels.size(), 2u);
  EXPECT_EQ(channels[1].channel.location, "") << "two hyphens are blank";
  EXPECT_EQ(channels[1].channel.epoch.end, kNoTime);
  EXPECT_DOUBLE_EQ(channels[0].channel.elevation, 0.356);
  EXPECT_DOUBLE_EQ(channels[0].channel.sensitivity, 4.98112e8);
  EXPECT_EQ(channels[1].channel.sensitivity, 0.0);
  EXPECT_THAT(read.refused,
              ElementsAre(HasSubstr("4: the longitude"), HasSubstr("5: scale 'y'"),
                          HasSubstr("6: there are more values than the 17 columns")));
}

TEST(FdsnStationReader, TellsLevelsApartAndTakesColumnsInAnyOrder) {
  const StationsRead stations = read_stations(
      "#Network|Station|Longitude|Latitude|Vault|SiteName|StartTime|EndTime\r\n"
      "IU|ANMO|-106.4572|34.94591|deep|Albuquerque, New "
      "Mexico|1989-08-29T00:00:00|\r\n");
  ASSERT_EQ(stations.items.size(), 2u) << stations.problem;
  EXPECT_DOUBLE_EQ(stations.items[1].station.lat, 34.94591);
  EXPECT_EQ(stations.items[1].station.elevation, -999.0);
  EXPECT_THAT(stations.without_place, ElementsAre("column vault"));
  const StationsRead networks = read_stations(
      "#Network | Description | StartTime | EndTime | TotalStations\n"
      "IU|Global network|1988-01-01T00:00:00||276\nXA||1999-01-01T00:00:00||\n");
  ASSERT_EQ(networks.items.size(), 2u) << networks.problem;
  EXPECT_EQ(networks.items[0].network.description, "Global network");
  EXPECT_THAT(read_stations("#Network|Station|Latitude|SiteName\n").problem,
              HasSubstr("there is no column longitude"));
}

TEST(StationFormats, AreNotReadAsEvents) {
  const tools::ScratchFolder folder;
  std::string problem;
  const auto input = Input::open(folder.write("stations", kChannelText), problem);
  EXPECT_EQ(open_reader(*input, recognise(input->head()), problem), nullptr);
  EXPECT_THAT(problem, HasSubstr("does not hold events"));
}

}  // namespace
}  // namespace ksutil::exchange
