/* An import of stations must find again what is there, keep its ids, and never leave a row
 * whose response file is missing or is another instrument's. */
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <numbers>

#include "formats/exchange/stations/station_rows.h"
#include "platform/clock/clock.h"
#include "platform/stock/files.h"
#include "tests/formats/exchange/station_fixture.h"

namespace ksutil::exchange {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kFirst[] = "2010-03-04T05:06:07", kChange[] = "2012-06-01T12:00:00";

std::size_t files_in(const std::string &folder) {
  std::size_t count = 0;
  std::error_code error;
  for (std::filesystem::directory_iterator file(folder, error), end; file != end;
       file.increment(error)) {
    count++;
  }
  return count;
}

TEST(Ncalib, IsDisplacementForACountAtThePeriodOfCalibration) {
  const double omega = 2.0 * std::numbers::pi * 0.02;
  EXPECT_NEAR(ncalib_of(4.88233e8, 0.02, "M/S"), 1e9 / (4.88233e8 * omega), 1e-9);
  EXPECT_DOUBLE_EQ(ncalib_of(2e9, 5.0, "M"), 0.5);
  EXPECT_DOUBLE_EQ(ncalib_of(2.0, 5.0, "NM"), 0.5);
  EXPECT_NEAR(ncalib_of(1e6, 0.02, "M/S**2"), 1e3 / (omega * omega), 1e-6);
  EXPECT_EQ(ncalib_of(1e6, 0.02, "PA"), 0.0);
  EXPECT_EQ(ncalib_of(1e6, 0.0, "M/S"), 0.0);
  EXPECT_EQ(ncalib_of(0.0, 1.0, "M/S"), 0.0);
  EXPECT_NEAR(sensitivity_of(ncalib_of(3e8, 2.5, "M/S"), 2.5, "M/S"), 3e8, 1e-3);
  EXPECT_DOUBLE_EQ(frequency_of(33.333333), 0.03);
}

class StationImport : public testing::TestWithParam<const char *> {
 protected:
  const StationDatabase database_{GetParam()};
};
INSTANTIATE_TEST_SUITE_P(Schemas, StationImport, testing::Values("css3.0", "kbcore"));

constexpr char kTextChannel[] =
    "#Network|Station|Location|Channel|Latitude|Longitude|Elevation|Depth|Azimuth|Dip|"
    "SensorDescription|Scale|ScaleFreq|ScaleUnits|SampleRate|StartTime|EndTime\n"
    "AK|BWN||LHZ|64.1732|-149.2991|356|1.5|0|-90||4.98E8|0.03|M/S|1|"
    "2010-07-23T00:00:00|\n";

/* The text of channels names a network, and rows of seedcode refer to it. */
TEST_P(StationImport, EachNetworkThatIsNamedHasARow) {
  database_.import(kTextChannel);
  EXPECT_THAT(database_.column("network", "net"), ElementsAre("AK"));
  {
    Dbptr db;
    ASSERT_GE(dbopen(database_.name().c_str(), "r+", &db), 0);
    ASSERT_GE(dbaddv(dblookup(db, "", "affiliation", "", ""), "net", "QQ", "sta", "OLD",
                     (char *)nullptr),
              0);
    dbclose(db);
  }
  const auto result = database_.import(station_xml(channel_xml(kFirst, "")));
  EXPECT_EQ(result.counts.networks.added, 2);
  EXPECT_THAT(database_.column("network", "net"),
              testing::UnorderedElementsAre("AK", "QQ", "XX"));
}

/* The row that waveforms without coordinates have left is the station's, not another
 * epoch beside it. */
TEST_P(StationImport, APlaceIsFilledIntoTheRowThatLacksIt) {
  Dbptr db;
  ASSERT_GE(dbopen(database_.name().c_str(), "r+", &db), 0);
  for (const char *sta : {"BWN", "RJOB"}) {
    ASSERT_GE(dbaddv(dblookup(db, "", "site", "", ""), "sta", sta, "ondate", 2015001L,
                     (char *)nullptr),
              0);
  }
  dbclose(db);
  database_.import(kTextChannel);
  database_.import(station_xml(channel_xml(kFirst, "")));
  EXPECT_THAT(database_.column("site", "ondate"), ElementsAre("2010204", "2010063"));
  EXPECT_THAT(database_.column("site", "lat"),
              ElementsAre(testing::StartsWith("64.1732"), testing::StartsWith("47.5")));
}

/* As `kssac to-db` and imports of waveforms leave a channel: its codes and first day.
 * Returns the chanid. */
long add_bare_channel(const StationDatabase &database, long ondate) {
  Dbptr db;
  EXPECT_GE(dbopen(database.name().c_str(), "r+", &db), 0);
  const long chanid = dbnextid(db, "chanid");
  EXPECT_GE(dbaddv(dblookup(db, "", "sitechan", "", ""), "sta", "RJOB", "chan", "HHZ10",
                   "ondate", ondate, "chanid", chanid, "ctype", "n", (char *)nullptr),
            0);
  dbclose(db);
  return chanid;
}

/* A row without orientation that begins later would hide the one of the stations from all
 * waveforms of its time. */
TEST_P(StationImport, AChannelOfWaveformsIsTakenOverByTheRunOfItsDay) {
  ASSERT_EQ(add_bare_channel(database_, 2011001), 1);
  Dbptr db;
  ASSERT_GE(dbopen(database_.name().c_str(), "r+", &db), 0);
  for (const int day : {2011001, 2015001}) {
    for (const char *table : {"wfdisc", "arrival", "calibration"}) {
      ASSERT_GE(dbaddv(dblookup(db, "", table, "", ""), "sta", "RJOB", "chan", "HHZ10",
                       "time", yearday_epoch(day), "chanid", 1L, (char *)nullptr),
                0);
    }
  }
  dbclose(db);
  const std::string turned =
      replaced(channel_xml(kChange, "", "3000"), "<Dip>-90", "<Dip>-85");
  const std::string text = station_xml(channel_xml(kFirst, kChange) + turned);
  database_.import(text);
  EXPECT_THAT(database_.column("sitechan", "chanid"), ElementsAre("1", "2"));
  EXPECT_THAT(database_.column("sitechan", "ondate"),
              ElementsAre("2010063", "2012153"));
  EXPECT_THAT(database_.column("sitechan", "offdate"), ElementsAre("2012153", "-1"));
  EXPECT_THAT(database_.column("sitechan", "vang"), ElementsAre("0.0", "5.0"));
  for (const char *table : {"wfdisc", "arrival", "calibration"}) {
    EXPECT_THAT(database_.column(table, "chanid"), ElementsAre("1", "2")) << table;
  }
  const std::string before = database_.rows();
  EXPECT_EQ(database_.import(text).counts.channels.unchanged, 2);
  EXPECT_EQ(database_.rows(), before);
}

TEST_P(StationImport, AChannelOfWaveformsOutsideOfTheRunOrOfASensorStays) {
  add_bare_channel(database_, 2009001);
  database_.import(station_xml(channel_xml(kFirst, kChange)));
  EXPECT_THAT(database_.column("sitechan", "ondate"),
              ElementsAre("2009001", "2010063"));
  const long chanid = add_bare_channel(database_, 2015001);
  Dbptr db;
  ASSERT_GE(dbopen(database_.name().c_str(), "r+", &db), 0);
  ASSERT_GE(
      dbaddv(dblookup(db, "", "sensor", "", ""), "sta", "RJOB", "chan", "HHZ10", "time",
             yearday_epoch(2015001), "chanid", chanid, "inid", 1L, (char *)nullptr),
      0);
  dbclose(db);
  database_.import(station_xml(
      replaced(channel_xml("2013-01-01T00:00:00", ""), "<Dip>-90", "<Dip>-85")));
  EXPECT_THAT(database_.column("sitechan", "ondate"),
              ElementsAre("2009001", "2010063", "2015001", "2013001"));
}

TEST_P(StationImport, FillsEachTable) {
  const auto result = database_.import(station_xml(channel_xml(kFirst, "")));
  ASSERT_EQ(result.imported, StationsImported::kYes);
  EXPECT_THAT(result.refused, IsEmpty());
  EXPECT_EQ(result.counts.channels.added, 1);
  const auto column = [this](const char *table, const char *field) {
    const auto values = database_.column(table, field);
    return values.size() == 1 ? values[0] : std::to_string(values.size()) + " rows";
  };
  EXPECT_EQ(column("site", "ondate"), "2010063");
  EXPECT_EQ(column("site", "offdate"), "-1");
  EXPECT_EQ(column("site", "elev"), "0.8600");
  EXPECT_EQ(column("site", "staname"), "Jochberg");
  EXPECT_EQ(column("sitechan", "chan"), "HHZ10");
  EXPECT_EQ(column("sitechan", "vang"), "0.0") << "a dip of -90 is up";
  EXPECT_EQ(column("sitechan", "edepth"), "0.0025");
  EXPECT_EQ(column("seedcode", "loc"), "10");
  EXPECT_EQ(column("sensor", "chanid"), column("sitechan", "chanid"));
  EXPECT_EQ(column("sensor", "inid"), column("instrument", "inid"));
  EXPECT_EQ(column("sensor", "time"), "1267679167.00000");
  EXPECT_EQ(column("sensor", "calper"), "2.000000");
  EXPECT_EQ(column("instrument", "ncalib"), "0.530516");  // 1e9 / (6e8 pi)
  EXPECT_EQ(column("instrument", "instype"), "BB-120");
  EXPECT_EQ(column("instrument", "rsptype"), "pazfir");
  EXPECT_EQ(column("network", "netname"), "Test network");
  EXPECT_EQ(column("remark", "remark"), "A first comment");
  EXPECT_EQ(column("network", "commid"), column("remark", "commid"));
  EXPECT_EQ(column("affiliation", "net"), "XX");

  Response response;
  std::string problem;
  ASSERT_TRUE(read_response_file(
      database_.path("response/" + column("instrument", "dfile")), response, problem))
      << problem;
  const StationsRead read = read_stations(station_xml(channel_xml(kFirst, "")));
  const auto &original = *read.items.back().channel.response;
  EXPECT_EQ(response.stages.size(), original.stages.size());
  EXPECT_NEAR(std::abs(response.evaluate(3.0) / original.evaluate(3.0) - 1.0), 0.0,
              1e-12);
}

TEST_P(StationImport, OfTheSameAgainChangesNothing) {
  const std::string text =
      station_xml(channel_xml(kFirst, kChange) + channel_xml(kChange, "", "3000"));
  database_.import(text);
  const std::string before = database_.rows();
  const auto again = database_.import(text);
  EXPECT_EQ(again.counts.networks.unchanged, 1);
  EXPECT_EQ(again.counts.stations.unchanged, 1);
  EXPECT_EQ(again.counts.channels.unchanged, 2);
  EXPECT_EQ(database_.rows(), before);
  EXPECT_EQ(files_in(database_.path("response")), 2u);
}

TEST_P(StationImport, ClosesAnEpochInPlaceAndAddsTheNext) {
  database_.import(station_xml(channel_xml(kFirst, "")));
  const auto chanids = database_.column("sitechan", "chanid");
  /* The second epoch has the same place and orientation: it shares the row of sitechan. */
  const auto result = database_.import(
      station_xml(channel_xml(kFirst, kChange) + channel_xml(kChange, "", "3000")));
  EXPECT_EQ(result.counts.channels.updated, 1);
  EXPECT_EQ(result.counts.channels.added, 1);
  EXPECT_EQ(database_.column("sitechan", "chanid"), chanids);
  EXPECT_THAT(database_.column("sensor", "endtime"),
              ElementsAre("1338552000.00000", "9999999999.99900"));
  EXPECT_EQ(database_.column("instrument", "inid").size(), 2u);
  /* Another orientation needs a row of its own; the first one ends on its last day. */
  database_.import(
      station_xml(channel_xml(kFirst, kChange) +
                  replaced(channel_xml(kChange, "", "3000"), "<Dip>-90", "<Dip>-85")));
  EXPECT_THAT(database_.column("sitechan", "offdate"), ElementsAre("2012153", "-1"));
  EXPECT_THAT(database_.column("sitechan", "vang"), ElementsAre("0.0", "5.0"));
  const auto ids = database_.column("sitechan", "chanid");
  EXPECT_EQ(database_.column("sensor", "chanid"), ids);
}

/* A sensor that was turned for a day and back has three rows; one that was turned on its
 * first day has one, of the later orientation. */
TEST_P(StationImport, OrientationsOfFewDaysOrHoursKeepToTheirRows) {
  const auto turned = [](const std::string &channel) {
    return replaced(channel, "<Dip>-90", "<Dip>-85");
  };
  const std::string text = station_xml(
      channel_xml("2010-03-04T05:00:00", "2010-03-05T06:00:00") +
      turned(channel_xml("2010-03-05T06:00:00", "2010-03-06T07:00:00")) +
      channel_xml("2010-03-06T07:00:00", "2012-01-01T00:00:00") +
      turned(channel_xml("2012-01-01T00:00:00", "2012-01-01T10:00:00", "3000")) +
      channel_xml("2012-01-01T10:00:00", ""));
  database_.import(text);
  EXPECT_THAT(database_.column("sitechan", "ondate"),
              ElementsAre("2010063", "2010064", "2010065", "2012001"));
  EXPECT_THAT(database_.column("sitechan", "vang"),
              ElementsAre("0.0", "5.0", "0.0", "0.0"));
  EXPECT_EQ(database_.column("sensor", "time").size(), 5u);
  const std::string before = database_.rows();
  const auto again = database_.import(text);
  EXPECT_EQ(again.counts.channels.unchanged, 5);
  EXPECT_EQ(database_.rows(), before);
}

TEST_P(StationImport, KeepsWhatTheInputDoesNotTellOf) {
  database_.import(
      station_xml(channel_xml(kFirst, kChange) + channel_xml(kChange, "", "3000")));
  /* One epoch alone, moved: the other keeps its part of the row that they share. */
  const auto result = database_.import(
      replaced(station_xml(channel_xml(kChange, "2015-01-01T00:00:00", "3000")), "47.5",
               "47.6"));
  EXPECT_EQ(result.counts.stations.updated, 1);
  EXPECT_EQ(database_.column("site", "lat").size(), 1u);
  EXPECT_THAT(database_.column("site", "lat")[0], HasSubstr("47.6000"));
  EXPECT_THAT(database_.column("sitechan", "ondate"), ElementsAre("2010063"));
  EXPECT_THAT(database_.column("sitechan", "offdate"), ElementsAre("2014365"));
  EXPECT_EQ(database_.column("sensor", "time").size(), 2u);
  /* Text of the FDSN service knows no response: the files stay. */
  const auto files = database_.column("instrument", "dfile");
  database_.import(
      "#Network|Station|Location|Channel|Latitude|Longitude|Elevation|Depth|Azimuth|"
      "Dip|"
      "SensorDescription|Scale|ScaleFreq|ScaleUnits|SampleRate|StartTime|EndTime\n"
      "XX|RJOB|10|HHZ|47.6|12.25|860|2.5|0|-90|Broadband, 120 s|6e8|0.5|M/S|100|" +
      std::string(kFirst) + "|" + kChange + "\n");
  EXPECT_EQ(database_.column("instrument", "dfile"), files);
  EXPECT_EQ(database_.column("site", "staname"), std::vector<std::string>{"Jochberg"});
}

TEST_P(StationImport, HyphensAreABlankLocation) {
  for (const char *hyphens : {"--", "-"}) {
    database_.import(replaced(station_xml(channel_xml(kFirst, "")), "\"10\"",
                              "\"" + std::string(hyphens) + "\""));
    EXPECT_THAT(database_.column("sitechan", "chan"), ElementsAre("HHZ"));
  }
}

TEST_P(StationImport, TakesCodesFromSeedcode) {
  const std::string xml = station_xml(channel_xml(kFirst, ""));
  database_.import(xml);
  /* The same codes far away in another network are another station. */
  const std::string elsewhere =
      replaced(replaced(station_xml(channel_xml(kFirst, ""), "YY"), "<Latitude>47.5",
                        "<Latitude>-20"),
               "<Latitude>47.5", "<Latitude>-20");
  const auto refused = database_.import(elsewhere);
  EXPECT_THAT(refused.refused,
              ElementsAre(HasSubstr("is in use for a station of network XX"),
                          HasSubstr("another place")));
  EXPECT_EQ(database_.column("site", "sta").size(), 1u);
  /* A row of seedcode gives it another code. */
  Dbptr db;
  ASSERT_EQ(dbopen_noshare(database_.name().c_str(), "r+", &db), 0);
  ASSERT_GE(dbaddv(dblookup(db, "", "seedcode", "", ""), "sta", "RJOB2", "chan",
                   "HHZ_1", "net", "YY", "seedsta", "RJOB", "seedchan", "HHZ", "loc",
                   "10", "lddate", 1e9, (char *)nullptr),
            0);
  dbclose(db);
  EXPECT_THAT(database_.import(elsewhere).refused, IsEmpty());
  EXPECT_THAT(database_.column("site", "sta"), ElementsAre("RJOB", "RJOB2"));
  EXPECT_THAT(database_.column("sitechan", "chan"), ElementsAre("HHZ10", "HHZ_1"));
}

TEST_P(StationImport, RefusesWhatDoesNotFitAndUnderStrictEverything) {
  std::string text = station_xml(channel_xml(kFirst, ""));
  text = replaced(text, "<SampleRate>100", "<SampleRate>1e9");
  EXPECT_THAT(database_.import(text).refused,
              ElementsAre(HasSubstr("instrument.samprate cannot hold")));
  EXPECT_EQ(database_.column("site", "sta").size(), 1u);
  EXPECT_EQ(database_.column("sitechan", "chan").size(), 0u);
  const std::string before = database_.rows();
  /* The null of the tables, and what would end a row. */
  for (const char *code : {"code=\"-\"", "code=\"A&#10;B\""}) {
    const auto refused = database_.import(
        replaced(station_xml(channel_xml(kFirst, "")), "code=\"RJOB\"", code));
    ASSERT_FALSE(refused.refused.empty());
    EXPECT_THAT(refused.refused[0], HasSubstr("cannot be the key of a row"));
    EXPECT_EQ(database_.rows(), before);
  }
  text = replaced(station_xml(channel_xml(kFirst, "")), "code=\"RJOB\"",
                  "code=\"RJOBERG\"");
  const auto strict = database_.import(text, {.dry_run = false, .strict = true});
  EXPECT_EQ(strict.imported, StationsImported::kStrict);
  EXPECT_THAT(strict.refused[0], HasSubstr("too long for site.sta"));
  EXPECT_EQ(database_.rows(), before);
}

TEST_P(StationImport, OfAnEpochTwiceTakesTheLastAndRefusesWhatContradictsIt) {
  const std::string first = channel_xml(kFirst, kChange);
  const auto same = database_.import(station_xml(first + first));
  EXPECT_THAT(same.refused, IsEmpty());
  EXPECT_EQ(same.counts.channels.added, 1);
  EXPECT_EQ(same.counts.channels.unchanged, 1);
  const std::string before = database_.rows();
  const auto other =
      database_.import(station_xml(channel_xml(kFirst, kChange, "3000") + first));
  EXPECT_EQ(other.refused.size(), 1u);
  EXPECT_EQ(other.counts.channels.unchanged, 1);
  EXPECT_EQ(database_.rows(), before);
}

TEST_P(StationImport, ShowsWithoutDoing) {
  const auto dry = database_.import(station_xml(channel_xml(kFirst, "")),
                                    {.dry_run = true, .strict = false});
  EXPECT_EQ(dry.imported, StationsImported::kYes);
  EXPECT_EQ(dry.counts.channels.added, 1);
  EXPECT_EQ(database_.rows(), "");
  EXPECT_FALSE(std::filesystem::exists(database_.path("response")));
}

TEST_P(StationImport, SharesInstrumentsThatAgree) {
  const std::string channel = channel_xml(kFirst, "");
  database_.import(station_xml(channel + replaced(channel, "\"10\"", "\"20\"")));
  EXPECT_EQ(database_.column("instrument", "inid").size(), 1u);
  EXPECT_THAT(database_.column("sensor", "inid"), ElementsAre("1", "1"));
  EXPECT_EQ(files_in(database_.path("response")), 1u);
}

TEST(StationImportFiles, KeepToTheirFolderAndToTheirContent) {
  const StationDatabase database;
  const std::string text = replaced(station_xml(channel_xml(kFirst, "")),
                                    "Broadband, 120 s", "../../../etc/passwd \\ %n");
  /* Somebody else's file has the name already. */
  {
    const StationDatabase probe;
    probe.import(text);
    std::filesystem::create_directory(database.path("response"));
    database.folder().write("response/" + probe.column("instrument", "dfile")[0],
                            "mine");
  }
  database.import(text);
  const std::string name = database.column("instrument", "dfile")[0];
  EXPECT_THAT(name, testing::EndsWith("-2"));
  EXPECT_EQ(name.find('/'), name.npos);
  EXPECT_EQ(name.find(".."), name.npos);
  EXPECT_EQ(files_in(database.path("response")), 2u);
  EXPECT_EQ(
      tools::read_text(database.path("response/" + name.substr(0, name.size() - 2))),
      "mine");
  database.import(text);
  EXPECT_EQ(database.column("instrument", "dfile")[0], name);
  EXPECT_EQ(files_in(database.path("response")), 2u);
}

/* The disk is full when the rows are written: neither rows nor files stay. */
TEST(StationImportFiles, GoWhenTheImportFails) {
  const StationDatabase database;
  FileCalls calls = system_file_calls();
  calls.pwrite = [](int, const void *, std::size_t, off_t) -> ssize_t {
    errno = ENOSPC;
    return -1;
  };
  {
    const ScopedFileCalls full(calls);
    const auto result = database.import(station_xml(channel_xml(kFirst, "")));
    EXPECT_EQ(result.imported, StationsImported::kFailed);
  }
  elog_clear_register(0);
  EXPECT_EQ(database.rows(), "");
  EXPECT_FALSE(std::filesystem::exists(database.path("response")));
}

TEST(StationImportProgram, TakesStationsWithTheCommandForEvents) {
  const tools::ScratchFolder folder;
  const std::string file =
      folder.write("stations.xml", station_xml(channel_xml(kFirst, "")));
  const std::string import = std::string(KSDB_PROGRAM) + " import --create css3.0 " +
                             file + " " + (folder / "db");
  const tools::ProgramRun run = tools::run_program(import);
  EXPECT_EQ(run.code, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("channels: 1 added, 0 updated, 0 unchanged"));
  const tools::ProgramRun verify =
      tools::run_program(std::string(KSDB_PROGRAM) + " verify " + (folder / "db"));
  EXPECT_EQ(verify.code, 0) << verify.output;
}

}  // namespace
}  // namespace ksutil::exchange
