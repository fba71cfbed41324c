/* People locate and measure earthquakes with what this program extracts, draws and picks. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <string>

#include "formats/kssac.h"
#include "platform/trace/miniseed.h"
#include "tests/support/rows.h"
#include "tests/tools/scratch.h"

namespace ksutil::tools {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kKswave = KSWAVE_PROGRAM;
const std::string kMlr = " " KSUTIL_SOURCE_DIR "/data/mlr/mlr";
constexpr double kOrigin = 1400000000.0;

/* Stations 2 and 5 degrees east of an event, with a strong onset 100 s into the files. */
class Kswave : public testing::Test {
 protected:
  void SetUp() override {
    folder_.write("db", "schema css3.0\n");
    std::string wfdisc, site;
    for (const auto &[sta, lon] : {std::pair("AA", 2.0), std::pair("BB", 5.0)}) {
      wfdisc += written(sta, "BHZ", samples());
      site += test::RowMaker("site")
                  .set("sta", std::string(sta))
                  .set("ondate", 2000001L)
                  .set("lat", 0.0)
                  .set("lon", lon)
                  .set("elev", 0.0)
                  .text();
    }
    folder_.write("db.wfdisc", wfdisc);
    folder_.write("db.site", site);
    folder_.write("db.event",
                  test::RowMaker("event").set("evid", 3L).set("prefor", 5L).text());
    folder_.write("db.origin", test::RowMaker("origin")
                                   .set("lat", 0.0)
                                   .set("lon", 0.0)
                                   .set("depth", 10.0)
                                   .set("time", kOrigin)
                                   .set("orid", 5L)
                                   .set("evid", 3L)
                                   .text());
    folder_.write("db.arrival", test::RowMaker("arrival")
                                    .set("sta", std::string("AA"))
                                    .set("time", kOrigin + 35)
                                    .set("arid", 9L)
                                    .set("auth", std::string("me"))
                                    .text());
    folder_.write("db.assoc", test::RowMaker("assoc")
                                  .set("arid", 9L)
                                  .set("orid", 5L)
                                  .set("sta", std::string("AA"))
                                  .set("phase", std::string("Pg"))
                                  .text());
  }

  static std::vector<double> samples() {
    std::mt19937 random(3);
    std::normal_distribution<double> noise(0.0, 10.0);
    std::vector<double> values;
    for (int i = 0; i < 4000; ++i) {
      const double signal = i < 2000 ? 0.0 : 500.0 * std::cos(0.9 * (i - 2000));
      values.push_back(noise(random) + signal);
    }
    return values;
  }

  /* Writes the file of a channel: its row of wfdisc. */
  std::string written(const std::string &sta, const std::string &chan,
                      const std::vector<double> &values) {
    std::string bytes;
    for (const double value : values) {
      const auto bits = static_cast<std::uint32_t>(std::lround(value));
      for (const int shift : {24, 16, 8, 0}) {
        bytes += static_cast<char>(bits >> shift & 255);
      }
    }
    const std::string file = sta + "." + chan;
    folder_.write(file, bytes);
    return test::RowMaker("wfdisc")
        .set("sta", sta)
        .set("chan", chan)
        .set("time", kOrigin)
        .set("nsamp", static_cast<long>(values.size()))
        .set("samprate", 20.0)
        .set("datatype", std::string("s4"))
        .set("dir", std::string("."))
        .set("dfile", file)
        .set("foff", 0L)
        .text();
  }

  ProgramRun run(const std::string &arguments) {
    return run_program("cd " + folder_.path() + " && " + kKswave + " " + arguments);
  }
  std::string picture(const std::string &arguments) {
    const ProgramRun drawn = run(arguments + " -o p.svg db");
    EXPECT_EQ(drawn.code, 0) << drawn.errors;
    return read_text(folder_ / "p.svg");
  }

  ScratchFolder folder_;
};

TEST_F(Kswave, ListsChannelsWithNulls) {
  const auto rows = nlohmann::json::parse(run("list --json db").output);
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[1]["sta"], "BB");
  EXPECT_EQ(rows[1]["lon"], 5);
  EXPECT_EQ(rows[1]["nsamp"], 4000);
  EXPECT_TRUE(rows[1]["hang"].is_null());
  EXPECT_TRUE(rows[1]["calib"].is_null());
  EXPECT_EQ(rows[1]["missing"], "sitechan, sensor, seedcode, calib");
  EXPECT_EQ(run("list --sta A. --csv db").output.find("\nBB"), std::string::npos);
  const ProgramRun none = run("list --sta A db");
  EXPECT_EQ(none.code, 1);
  EXPECT_THAT(none.errors, HasSubstr("no waveforms of these channels and times in db"));
  EXPECT_THAT(picture("list"), HasSubstr("BB.BHZ"));
}

TEST_F(Kswave, ExtractsAWindowInEachFormat) {
  const std::string window = "--sta AA --start 1400000010 --end 1400000012 ";
  const std::string stem = "./AA.BHZ.2014133.165330";
  EXPECT_EQ(run("get " + window + "--orid 5 db").output, stem + ".000.sac\n");
  KSSac *const kssac = kssac_read_from_file_kssac(
      (folder_ / (stem + ".000.sac")).c_str(), nullptr, nullptr);
  ASSERT_NE(kssac, nullptr);
  std::int64_t npts = 0, evid = 0;
  double distance = 0;
  kssac_gethdr_kssac(kssac, "NPTS", &npts, "NEVID", &evid, "GCARC", &distance,
                     test::kEndOfArguments);
  kssac_free_kssac(kssac);
  EXPECT_EQ(npts, 41);
  EXPECT_EQ(evid, 3);
  EXPECT_NEAR(distance, 2.0, 1e-4);
  const ProgramRun again = run("get " + window + "db");
  EXPECT_EQ(again.code, 1);
  EXPECT_THAT(again.errors, HasSubstr("is there already"));
  EXPECT_EQ(run("get --force -q " + window + "db").output, "");
  EXPECT_EQ(run("get --format text " + window + "db").output, stem + ".000.txt\n");
  const std::string text = read_text(folder_ / (stem + ".000.txt"));
  EXPECT_THAT(text, HasSubstr("# AA.BHZ 20 Hz, counts\n2014-05-13T16:53:30.000Z "));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 42);
}

/* The extract and its rows are read as a database of their own, in place of the first one. */
TEST_F(Kswave, ExtractsIntoAnotherDatabase) {
  if (!miniseed_available()) GTEST_SKIP();
  std::filesystem::create_directory(folder_ / "new");
  folder_.write("new/db2", "schema css3.0\n");
  const ProgramRun got =
      run("get --start 1400000010 --format mseed --dir new --into new/db2 db");
  ASSERT_EQ(got.code, 0) << got.errors;
  EXPECT_THAT(got.output, HasSubstr("new/BB.BHZ.2014133.165330.000.mseed\n"));
  ASSERT_EQ(run("get --start 1400000010 --format text -q db").code, 0);
  ASSERT_EQ(run("get --format text -q --dir new new/db2").code, 0);
  const std::string name = "AA.BHZ.2014133.165330.000.txt";
  EXPECT_EQ(read_text(folder_ / name), read_text(folder_ / ("new/" + name)));
  EXPECT_EQ(
      run("get --format mseed --start 1400000010 --dir new --into new/db2 db").code, 1);
  const std::string rows = read_text(folder_ / "new/db2.wfdisc");
  EXPECT_EQ(std::count(rows.begin(), rows.end(), '\n'), 2);
  EXPECT_EQ(run("get --into new/db2 db").code, 2);
  EXPECT_EQ(run("get --into new/db2 --format mseed --motion V db").code, 2);
}

/* Names with all codes are shortened to what dfile holds: rows and imports need that. */
TEST_F(Kswave, ExtractsChannelsWithNetworkAndLocation) {
  if (!miniseed_available()) GTEST_SKIP();
  folder_.write("db.seedcode", test::RowMaker("seedcode")
                                   .set("sta", std::string("AA"))
                                   .set("chan", std::string("BHZ"))
                                   .set("net", std::string("NL"))
                                   .set("seedsta", std::string("HGN"))
                                   .set("seedchan", std::string("BHZ"))
                                   .set("loc", std::string("00"))
                                   .text());
  std::filesystem::create_directory(folder_ / "new");
  folder_.write("new/db2", "schema css3.0\n");
  const std::string get = "get --sta AA --start 1400000010 --dir new ";
  ProgramRun got = run(get + "--format mseed --into new/db2 db");
  ASSERT_EQ(got.code, 0) << got.errors;
  EXPECT_EQ(got.output, "new/NL.HGN.00.BHZ.14133107dao.mseed\n");
  got = run(get + "--format sac db");
  ASSERT_EQ(got.code, 0) << got.errors;
  EXPECT_EQ(got.output, "new/NL.HGN.00.BHZ.2014133165330.sac\n");
  got = run_program("cd " + folder_.path() +
                    " && " KSDB_PROGRAM " import --create css3.0 new db3");
  EXPECT_EQ(got.code, 0) << got.errors;
  EXPECT_THAT(got.output, HasSubstr("2 added"));
}

/* SAC states displacement and velocity in nm; the same samples in text are in m/s. */
TEST_F(Kswave, ExtractsGroundMotionWithItsUnit) {
  const std::string motion =
      "get --motion V --corners 0.02,0.05,10,15 --chan BHZ "
      "--start 2010-05-20T00:01 --end 2010-05-20T00:02 -q ";
  for (const char *const format : {"sac", "text"}) {
    const ProgramRun got = run(motion + "--format " + format + kMlr);
    ASSERT_EQ(got.code, 0) << got.errors;
  }
  std::string sac, text;
  for (const auto &entry : std::filesystem::directory_iterator(folder_.path())) {
    const std::string extension = entry.path().extension();
    if (extension == ".sac") sac = entry.path();
    if (extension == ".txt") text = read_text(entry.path());
  }
  KSSac *const kssac = kssac_read_from_file_kssac(sac.c_str(), nullptr, nullptr);
  ASSERT_NE(kssac, nullptr);
  std::int64_t idep = 0;
  double least = 0, greatest = 0;
  kssac_gethdr_kssac(kssac, "IDEP", &idep, "DEPMIN", &least, "DEPMAX", &greatest,
                     test::kEndOfArguments);
  kssac_free_kssac(kssac);
  EXPECT_EQ(idep, 7);  // velocity
  EXPECT_THAT(text, HasSubstr(" Hz, velocity (m/s)\n"));
  double low = 0, high = 0;
  std::istringstream lines(text.substr(text.find('\n')));
  for (std::string time, value; lines >> time >> value;) {
    low = std::min(low, std::stod(value));
    high = std::max(high, std::stod(value));
  }
  EXPECT_GT(high, 0.0);
  EXPECT_NEAR(greatest / (1e9 * high), 1.0, 1e-5);
  EXPECT_NEAR(least / (1e9 * low), 1.0, 1e-5);
  const ProgramRun none = run("get --motion V db");
  EXPECT_EQ(none.code, 1);
  EXPECT_THAT(none.errors, HasSubstr("AA BHZ has no response file"));
}

/* The event is west of the station, so that radial motion is east and transverse motion
 * south.  The clock of the vertical component was half a second slow. */
TEST_F(Kswave, RotatesResamplesAndCorrectsTheClock) {
  std::string wfdisc, sitechan;
  long chanid = 1;
  for (const auto &[chan, hang, vang, value] :
       {std::tuple("BHE", 90.0, 90.0, 30.0), std::tuple("BHN", 0.0, 90.0, -20.0),
        std::tuple("BHZ", 0.0, 0.0, 7.0)}) {
    wfdisc += written("BB", chan, std::vector<double>(400, value));
    sitechan += test::RowMaker("sitechan")
                    .set("sta", std::string("BB"))
                    .set("chan", std::string(chan))
                    .set("ondate", 2000001L)
                    .set("chanid", chanid++)
                    .set("hang", hang)
                    .set("vang", vang)
                    .text();
  }
  folder_.write("db.wfdisc", wfdisc);
  folder_.write("db.sitechan", sitechan);
  folder_.write("db.sensor", test::RowMaker("sensor")
                                 .set("sta", std::string("BB"))
                                 .set("chan", std::string("BHZ"))
                                 .set("time", 0.0)
                                 .set("tshift", 0.5)
                                 .text());
  const auto text_of = [&](const std::string &name) {
    return read_text(folder_ / (name + ".2014133.165320.000.txt"));
  };
  EXPECT_EQ(run("get --rotate --evid 3 --samprate 10 --format text -q db").code, 0);
  EXPECT_THAT(text_of("BB.BHR"), HasSubstr(" 10 Hz, counts\n"));
  const std::string middle = "2014-05-13T16:53:30.000Z ";
  const auto value_at = [&](const std::string &text) {
    const std::size_t at = text.find(middle);
    return at == text.npos ? NAN : std::stod(text.substr(at + middle.size()));
  };
  EXPECT_NEAR(value_at(text_of("BB.BHR")), 30.0, 0.01);
  EXPECT_NEAR(value_at(text_of("BB.BHT")), 20.0, 0.01);
  EXPECT_NEAR(value_at(text_of("BB.BHZ")), 7.0, 0.01);
  EXPECT_EQ(run("get --rotate --seaz 270 -q db").code, 0);
  KSSac *const kssac = kssac_read_from_file_kssac(
      (folder_ / "BB.BHT.2014133.165320.000.sac").c_str(), nullptr, nullptr);
  ASSERT_NE(kssac, nullptr);
  double hang = 0, vang = 0, mean = 0;
  kssac_gethdr_kssac(kssac, "CMPAZ", &hang, "CMPINC", &vang, "DEPMEN", &mean,
                     test::kEndOfArguments);
  kssac_free_kssac(kssac);
  EXPECT_EQ(hang, 180.0);
  EXPECT_EQ(vang, 90.0);
  EXPECT_NEAR(mean, 20.0, 1e-4);
  EXPECT_EQ(run("get --correct-clock --chan BHZ db").output,
            "./BB.BHZ.2014133.165320.500.sac\n");
  EXPECT_EQ(run("get --rotate db").code, 2);
  const ProgramRun two = run("get --rotate --seaz 0 --chan BH[EN] db");
  EXPECT_EQ(two.code, 1);
  EXPECT_THAT(two.errors, HasSubstr("BB.BH has 2 components"));
}

/* A file that is gone: the other channels are written, and the exit code tells. */
TEST_F(Kswave, DamageIsToldAndTheRestIsDone) {
  std::filesystem::remove(folder_ / "AA.BHZ");
  const ProgramRun got = run("get db");
  EXPECT_EQ(got.code, 1);
  EXPECT_EQ(got.output, "./BB.BHZ.2014133.165320.000.sac\n");
  EXPECT_THAT(got.errors, HasSubstr("AA.BHZ"));
  EXPECT_EQ(run("plot -o p.svg db").code, 1);
  EXPECT_THAT(read_text(folder_ / "p.svg"), HasSubstr("BB.BHZ"));
}

TEST_F(Kswave, DrawsPicksTheoryAndSections) {
  const std::string traces = picture("plot --evid 3 --common");
  EXPECT_THAT(traces, HasSubstr(">Pg<"));
  EXPECT_THAT(traces, HasSubstr(">Pn?<"));
  EXPECT_THAT(traces, HasSubstr("orid 5"));
  const std::string section = picture("plot --section --orid 5 --filter 1,5");
  EXPECT_THAT(section, HasSubstr("distance (degrees)"));
  EXPECT_THAT(section, HasSubstr(">picks<"));
  const std::string day = picture("plot --day --line 1 --sta AA");
  EXPECT_THAT(day, HasSubstr(">2014-05-13 16:53<"));
  EXPECT_THAT(day, HasSubstr(">16:56<"));
  EXPECT_EQ(run("plot --section -o p.svg db").code, 2);
  EXPECT_EQ(run("plot --evid 4 -o p.svg db").code, 1);
  EXPECT_EQ(run("plot --day -o p.svg db").code, 1);
  EXPECT_EQ(run("plot --filter 5,1 -o p.svg db").code, 2);
  EXPECT_EQ(run("plot --line 0 -o p.svg db").code, 2);
}

/* An event or its picks that cannot be read are not told as, or drawn like, none. */
TEST_F(Kswave, EventsThatCannotBeReadAreNotMissing) {
  for (const auto &[table, choice] :
       {std::pair("assoc", "--orid 5"), std::pair("arrival", "--orid 5"),
        std::pair("event", "--evid 3"), std::pair("origin", "--orid 5")}) {
    const std::string path = folder_ / (std::string("db.") + table);
    const std::string rows = read_text(path);
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    const ProgramRun drawn = run("plot -o p.svg db " + std::string(choice));
    EXPECT_EQ(drawn.code, 1) << table;
    EXPECT_THAT(drawn.errors, HasSubstr("not a regular file")) << table;
    EXPECT_THAT(drawn.errors, Not(HasSubstr("there is no"))) << table;
    std::filesystem::remove(path);
    folder_.write(std::string("db.") + table, rows);
  }
}

/* calib of 0.0633 nm at 1 s makes 2.5143e9 counts for a m/s. */
TEST_F(Kswave, ResponsesAndSpectra) {
  EXPECT_THAT(
      run("response --csv --fmin 1 --fmax 10 --count 2 --chan BHZ" + kMlr).output,
      HasSubstr("\nMLR,BHZ,1,2.514296e+09,"));
  const ProgramRun none = run("response db");
  EXPECT_EQ(none.code, 1);
  EXPECT_THAT(none.errors, HasSubstr("AA BHZ has no response file"));
  EXPECT_THAT(run("spectrum --csv --piece 10 db").output, HasSubstr("AA,BHZ,0.15625,"));
  EXPECT_EQ(run("spectrum --motion V -o p.svg" + kMlr).code, 0);
  EXPECT_EQ(run("response --fmin 5 --fmax 1" + kMlr).code, 1);
}

TEST_F(Kswave, PicksOnceAndOnlyWhenAsked) {
  const ProgramRun dry = run("pick --dry-run --csv db");
  EXPECT_EQ(dry.code, 0) << dry.errors;
  EXPECT_THAT(dry.output, HasSubstr("AA,BHZ,2014-05-13T16:55:"));
  EXPECT_EQ(read_text(folder_ / "db.arrival").find("kswave"), std::string::npos);
  const auto picks = nlohmann::json::parse(run("pick --phase P --json db").output);
  ASSERT_EQ(picks.size(), 2U);
  EXPECT_EQ(picks[0]["arid"], 10);  // above the one that is there
  EXPECT_EQ(run("pick --phase P --csv db").output, "sta,chan,time,ratio,arid\n");
  const std::string rows = read_text(folder_ / "db.arrival");
  EXPECT_EQ(std::count(rows.begin(), rows.end(), '\n'), 3);
  const test::OpenDatabase db(folder_ / "db", "r");
  double time = 0;
  char phase[16] = "";
  ASSERT_EQ(dbgetv(db.at("arrival", 1), "time", &time, "iphase", phase,
                   test::kEndOfArguments),
            0);
  EXPECT_NEAR(time, kOrigin + 100.0, 0.2);
  EXPECT_STREQ(phase, "P");
  EXPECT_EQ(run("pick --auth 'a b' db").code, 2);
  EXPECT_EQ(run("pick --ratio 0 db").code, 2);
}

}  // namespace
}  // namespace ksutil::tools
