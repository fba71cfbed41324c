/* A data set joins rows of six tables with samples of files; the wrong epoch, a lost gap or
 * the wrong one of two overlapping rows gives seismograms that look right and are not. */
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdint>
#include <filesystem>
#include <numbers>
#include <string>
#include <vector>

#include "formats/kssac.h"
#include "objects/ksvector2.h"
#include "platform/clock/clock.h"
#include "platform/stock/owners.h"
#include "platform/trace/miniseed.h"
#include "platform/trace/segment.h"
#include "tests/support/folder.h"
#include "tests/support/rows.h"
#include "waveforms/ksdsseis.h"
#include "waveforms/response.h"

namespace {

using namespace ksutil;
using test::RowMaker;

const double kTime = 1274313600.0;  // 2010-05-20

struct CloseSet {
  void operator()(ksdsseis *set) const { ksdsseis_close(set); }
};
using SetPtr = std::unique_ptr<ksdsseis, CloseSet>;

struct FreeVector {
  void operator()(ksvector2 *vector) const { ksvector2_free_vector(vector); }
};
using VectorPtr = std::unique_ptr<ksvector2, FreeVector>;

class DataSet : public testing::Test {
 protected:
  void SetUp() override { folder_.write("db", "schema css3.0\n"); }
  void TearDown() override {
    ksvector2_free_tag("");
    test::taken_messages();
  }

  void add(const char *table, const RowMaker &row) {
    std::ofstream(folder_ / ("db." + std::string(table)), std::ios::app) << row.text();
  }
  /* A row of wfdisc over counts first, first + 1, ..., big-endian. */
  void add_waveform(const char *sta, const char *chan, double time, int nsamp,
                    int first, double lddate, double samprate = 10.0) {
    std::string bytes;
    for (int i = 0; i < nsamp; ++i) {
      const auto value = static_cast<std::uint32_t>(first + i);
      for (const int shift : {24, 16, 8, 0}) {
        bytes += static_cast<char>(value >> shift & 255);
      }
    }
    const std::string file = "w" + std::to_string(++files_);
    folder_.write(file, bytes);
    add("wfdisc", RowMaker("wfdisc")
                      .set("sta", std::string(sta))
                      .set("chan", std::string(chan))
                      .set("time", time)
                      .set("nsamp", static_cast<long>(nsamp))
                      .set("samprate", samprate)
                      .set("calib", calib_)
                      .set("calper", 1.0)
                      .set("datatype", std::string("s4"))
                      .set("dir", std::string("."))
                      .set("dfile", file)
                      .set("foff", 0L)
                      .set("lddate", lddate));
  }
  void add_sitechan(const char *chan, long ondate, long offdate, double hang,
                    double vang) {
    add("sitechan", RowMaker("sitechan")
                        .set("sta", std::string("ABC"))
                        .set("chan", std::string(chan))
                        .set("ondate", ondate)
                        .set("offdate", offdate)
                        .set("edepth", 0.1)
                        .set("hang", hang)
                        .set("vang", vang));
  }
  void add_sensor(double time, double endtime, long inid) {
    add("sensor", RowMaker("sensor")
                      .set("sta", std::string("ABC"))
                      .set("chan", std::string("BHZ"))
                      .set("time", time)
                      .set("endtime", endtime)
                      .set("inid", inid)
                      .set("calratio", 1.0)
                      .set("tshift", -0.25)
                      .set("calper", 1.0));
  }
  void add_instrument(long inid, const char *instype, const std::string &dfile,
                      const char *rsptype) {
    add("instrument", RowMaker("instrument")
                          .set("inid", inid)
                          .set("instype", std::string(instype))
                          .set("band", std::string("b"))
                          .set("samprate", 10.0)
                          .set("dir", std::string("rsp"))
                          .set("dfile", dfile)
                          .set("rsptype", std::string(rsptype)));
  }
  SetPtr open(const char *sta = nullptr, const char *chan = nullptr, double tstart = 0,
              double tend = 0) {
    if (!db_) db_ = std::make_unique<test::OpenDatabase>(folder_ / "db", "r");
    return SetPtr(ksdsseis_open(*db_, sta, chan, tstart, tend));
  }
  /* The samples of a new vector, which is freed. */
  static std::vector<double> values(ksvector2 *made) {
    const VectorPtr vector(made);
    if (vector == nullptr) return {};
    return {vector->data, vector->data + vector->npts};
  }

  test::TempFolder folder_;
  std::unique_ptr<test::OpenDatabase> db_;
  int files_ = 0;
  double calib_ = 0.5;
};

TEST_F(DataSet, PatternsMatchWholeCodesAndWindowsCutRows) {
  add_waveform("ABC", "BHZ", kTime, 100, 0, 1);
  add_waveform("ABCD", "BHZ", kTime, 100, 0, 1);
  add_waveform("ABC", "BHN", kTime + 50, 100, 0, 1);
  add_waveform("ABC", "LHZ", kTime, 100, 0, 1);
  EXPECT_EQ(ksdsseis_count(open().get()), 4);
  EXPECT_EQ(ksdsseis_count(open("ABC").get()), 3);
  EXPECT_EQ(ksdsseis_count(open("ABC|X", "BH.").get()), 2);
  EXPECT_EQ(ksdsseis_count(open("B").get()), 0);
  const SetPtr set = open("ABC", nullptr, kTime + 2, kTime + 3);
  ASSERT_EQ(ksdsseis_count(set.get()), 2);
  const int bhz = ksdsseis_find(set.get(), "ABC", "BHZ");
  ASSERT_EQ(bhz, 0);
  const ksdsseis_channel &channel = *ksdsseis_describe(set.get(), bhz);
  EXPECT_EQ(channel.time, kTime + 2);
  EXPECT_EQ(channel.endtime, kTime + 3);
  EXPECT_EQ(channel.nsamp, 11);
  const std::vector<double> read = values(ksdsseis_read(set.get(), bhz, nullptr));
  ASSERT_EQ(read.size(), 11U);
  EXPECT_EQ(read.front(), 20);
  EXPECT_EQ(ksdsseis_find(set.get(), "ABC", "BHN"), -1);
  EXPECT_EQ(open("(", nullptr), nullptr);
  EXPECT_NE(test::taken_messages().find("ksdsseis_open: Pattern '(': "),
            std::string::npos);
  EXPECT_EQ(open("A\" == \"A", nullptr), nullptr);
  EXPECT_EQ(open(nullptr, nullptr, 2, 1), nullptr);
}

/* Channels moved from one epoch to the next; a day is meant to its end. */
TEST_F(DataSet, EachRowIsOfTheEpochThatHolds) {
  add_waveform("ABC", "BHZ", kTime, 100, 0, 1);
  add_waveform("ABC", "BHZ", kTime + 86400.0, 100, 0, 1);
  for (const auto &[ondate, offdate, lat] :
       {std::tuple(2000001L, 2010140L, 10.0), std::tuple(2010141L, -1L, 20.0)}) {
    add("site", RowMaker("site")
                    .set("sta", std::string("ABC"))
                    .set("ondate", ondate)
                    .set("offdate", offdate)
                    .set("lat", lat)
                    .set("lon", 30.0)
                    .set("elev", 0.25));
  }
  add_sitechan("BHZ", 2000001, 2010140, 0.0, 180.0);
  add_sitechan("BHZ", 2010141, 2286324, 0.0, 0.0);
  add_sensor(0, kTime + 80000, 5);
  add_sensor(kTime + 80000, 9999999999.999, 6);
  std::filesystem::create_directory(folder_ / "rsp");
  folder_.write("rsp/new", "theoretical 1 instrument paz me\n1\n0\n0\n");
  add_instrument(5, "OLD", "old", "paz");
  add_instrument(6, "NEW", "new", "paz");
  add("seedcode", RowMaker("seedcode")
                      .set("sta", std::string("ABC"))
                      .set("chan", std::string("BHZ"))
                      .set("net", std::string("XX"))
                      .set("seedsta", std::string("ABCX"))
                      .set("seedchan", std::string("HHZ"))
                      .set("loc", std::string("00")));
  {
    const SetPtr set = open();
    ASSERT_EQ(ksdsseis_count(set.get()), 1);
    const ksdsseis_channel &old = *ksdsseis_describe(set.get(), 0);
    EXPECT_EQ(old.lat, 10);
    EXPECT_EQ(old.vang, 180);
    EXPECT_STREQ(old.instype, "OLD");
    EXPECT_EQ(old.missing, KSDSSEIS_NO_RESPONSE);  // named, but not there
    EXPECT_STREQ(old.missing_text, "response");
    EXPECT_STREQ(old.net, "XX");
    EXPECT_STREQ(old.seedchan, "HHZ");
  }
  const SetPtr set = open(nullptr, nullptr, kTime + 86400, kTime + 90000);
  const ksdsseis_channel &now = *ksdsseis_describe(set.get(), 0);
  EXPECT_EQ(now.lat, 20);
  EXPECT_EQ(now.vang, 0);
  EXPECT_EQ(now.edepth, 0.1);
  EXPECT_EQ(now.tshift, -0.25);
  EXPECT_EQ(now.time, kTime + 86400.0);  // as recorded
  EXPECT_STREQ(now.instype, "NEW");
  EXPECT_EQ(std::string(now.response), folder_ / "rsp/new");
  EXPECT_EQ(now.missing, 0);
}

TEST_F(DataSet, MissingMetadataIsToldAndNotFatal) {
  add_waveform("ABC", "BHZ", kTime, 10, 0, 1);
  const SetPtr set = open();
  ASSERT_NE(set, nullptr);
  const ksdsseis_channel &channel = *ksdsseis_describe(set.get(), 0);
  EXPECT_STREQ(channel.missing_text, "site, sitechan, sensor, seedcode");
  EXPECT_EQ(channel.missing, 63);
  EXPECT_EQ(channel.lat, -999);
  EXPECT_EQ(channel.hang, -1);
  EXPECT_EQ(channel.calib, 0.5);
  EXPECT_EQ(values(ksdsseis_read(set.get(), 0, nullptr)).size(), 10U);
  EXPECT_EQ(test::taken_messages(), "");
  EXPECT_EQ(ksdsseis_response(set.get(), 0, "V", 0.1, 1, 10, nullptr), nullptr);
  EXPECT_NE(
      test::taken_messages().find("ksdsseis_response: ABC BHZ has no response file."),
      std::string::npos);
}

/* The row in the middle of the file was loaded last: it lies on top; what nobody has is a
 * gap. */
TEST_F(DataSet, OverlapsGoToTheLaterLoadDate) {
  add_waveform("ABC", "BHZ", kTime, 10, 100, 2);        // 0 ... 9
  add_waveform("ABC", "BHZ", kTime + 0.5, 10, 200, 3);  // 5 ... 14
  add_waveform("ABC", "BHZ", kTime + 1.2, 10, 300, 1);  // 12 ... 21
  add_waveform("ABC", "BHZ", kTime + 2.5, 2, 400, 1);   // 25, 26
  const SetPtr set = open();
  const VectorPtr vector(ksdsseis_read(set.get(), 0, nullptr));
  ASSERT_NE(vector, nullptr);
  const std::vector<double> read(vector->data, vector->data + vector->npts);
  ASSERT_EQ(read.size(), 27U);
  EXPECT_EQ(vector->time, kTime);
  EXPECT_STREQ(vector->name, "ABC.BHZ");
  for (const auto &[at, value] : std::vector<std::pair<std::size_t, double>>{
           {0, 100}, {4, 104}, {5, 200}, {14, 209}, {15, 303}, {21, 309}, {25, 400}}) {
    EXPECT_EQ(read[at], value) << at;
  }
  for (const std::size_t at : {22U, 23U, 24U}) EXPECT_GT(read[at], 1e30);
  std::vector<Segment> segments;
  ASSERT_EQ(ksdsseis_read_segments(set.get(), 0, segments), 0);
  ASSERT_EQ(segments.size(), 4U);
  EXPECT_EQ(segments[1].size(), 10U);
  EXPECT_EQ(std::get<Segment::Counts>(segments[1].samples)[0], 200);
  double time = 0, endtime = 0;
  ASSERT_EQ(ksdsseis_get_segment(set.get(), 0, 3, &time, &endtime, nullptr), 0);
  EXPECT_NEAR(time, kTime + 2.5, 1e-6);
  EXPECT_NEAR(endtime, kTime + 2.6, 1e-6);
  EXPECT_EQ(ksdsseis_get_segment(set.get(), 0, 4, &time, nullptr, nullptr), -1);
}

/* A file that is gone costs its own samples; rows may promise what no memory holds. */
TEST_F(DataSet, DamageIsPassedOverAndHugeRequestsAreRefused) {
  add_waveform("ABC", "BHZ", kTime, 10, 0, 1);
  add_waveform("ABC", "BHZ", kTime + 2, 10, 50, 1);
  add_waveform("ABC", "LHZ", kTime, 10, 0, 1);
  add_waveform("ABC", "LHZ", kTime + 1e8, 10, 0, 1);
  add_waveform("ABC", "XXZ", kTime, 10, 0, 1, -5.0);
  add_waveform("ABC", "MHZ", kTime, 10, 0, 1);
  add_waveform("ABC", "MHZ", kTime + 1, 30, 0, 1, 20.0);
  std::filesystem::remove(folder_ / "w1");
  const SetPtr set = open();
  EXPECT_EQ(ksdsseis_count(set.get()), 3);
  EXPECT_EQ(ksdsseis_unusable(set.get()), 1);
  EXPECT_EQ(values(ksdsseis_read(set.get(), 0, nullptr)).front(), 50);
  EXPECT_NE(test::taken_messages().find("w1"), std::string::npos);
  char tag[KS_TAG_SIZE] = "x";
  EXPECT_EQ(ksdsseis_read(set.get(), 1, tag), nullptr);
  EXPECT_STREQ(tag, "");
  EXPECT_NE(test::taken_messages().find(
                "ABC LHZ has 1000000010 samples from the first to the last, too many"),
            std::string::npos);
  EXPECT_EQ(ksdsseis_describe(set.get(), 2)->missing & KSDSSEIS_OTHER_SAMPRATE,
            KSDSSEIS_OTHER_SAMPRATE);
  EXPECT_EQ(values(ksdsseis_read(set.get(), 2, nullptr)).size(), 30U);
  Tbl *tags = nullptr;
  EXPECT_EQ(ksdsseis_read_all(set.get(), &tags), 2);
  const TblOfTexts owned(tags);
  EXPECT_EQ(counttbl(tags), 3);
  for_each<const char>(tags, [](const char *each) { ksvector2_free(each); });
  EXPECT_EQ(ksdsseis_read(set.get(), 7, nullptr), nullptr);
  EXPECT_EQ(ksdsseis_read(nullptr, 0, nullptr), nullptr);
}

TEST_F(DataSet, NamesOfFilesTurnAtMidnightWithTheirTimes) {
  add_waveform("ABC", "BHZ", kTime - 0.0004, 10, 100, 1);
  Tbl *list = nullptr;
  ASSERT_EQ(ksdsseis_write_sac(open().get(), 0, folder_.path().c_str(), dbinvalid(), 0,
                               &list),
            1);
  const TblOfTexts owned(list);
  EXPECT_EQ(std::string(static_cast<const char *>(gettbl(list, 0))),
            folder_ / "ABC.BHZ.2010140.000000.000.sac");
}

TEST_F(DataSet, SacFilesHoldEachStretch) {
  add_waveform("ABC", "BHZ", kTime, 10, 100, 1);
  add_waveform("ABC", "BHZ", kTime + 2, 10, 200, 1);
  add_sitechan("BHZ", 2000001, -1, 45.0, 90.0);
  const SetPtr set = open();
  Tbl *list = nullptr;
  ASSERT_EQ(
      ksdsseis_write_sac(set.get(), -1, folder_.path().c_str(), dbinvalid(), 0, &list),
      2)
      << test::taken_messages();
  const TblOfTexts owned(list);
  const char *const path = static_cast<const char *>(gettbl(list, 1));
  EXPECT_EQ(std::string(path), folder_ / "ABC.BHZ.2010140.000002.000.sac");
  KSSac *const kssac = kssac_read_from_file_kssac(path, nullptr, nullptr);
  ASSERT_NE(kssac, nullptr);
  Segment segment;
  ASSERT_EQ(kssac_get_segment_kssac(kssac, segment), 0);
  EXPECT_EQ(segment.sta, "ABC");
  EXPECT_EQ(segment.time, kTime + 2);
  EXPECT_EQ(segment.size(), 10U);
  EXPECT_EQ(std::get<Segment::Floats>(segment.samples)[9], 209);
  double azimuth = 0, latitude = 0;
  kssac_gethdr_kssac(kssac, "CMPAZ", &azimuth, "STLA", &latitude,
                     static_cast<char *>(nullptr));
  EXPECT_EQ(azimuth, 45);
  EXPECT_EQ(latitude, -12345);
  kssac_free_kssac(kssac);
  EXPECT_EQ(
      ksdsseis_write_sac(set.get(), 0, folder_.path().c_str(), dbinvalid(), 0, nullptr),
      -1);
  EXPECT_NE(test::taken_messages().find("is there already"), std::string::npos);
  EXPECT_EQ(
      ksdsseis_write_sac(set.get(), 0, folder_.path().c_str(), dbinvalid(), 1, nullptr),
      2);
}

/* Two stretches, and a calibration that changes within one of them. */
TEST_F(DataSet, MiniseedFilesHaveRowsOfTheirOwn) {
  if (!miniseed_available()) GTEST_SKIP();
  add_waveform("ABC", "BHZ", kTime, 1000, 100, 1);
  calib_ = 0.25;
  add_waveform("ABC", "BHZ", kTime + 50, 1000, 5000, 2);  // over half of the first
  add_waveform("ABC", "BHZ", kTime + 200.5, 10, -7, 1);
  std::filesystem::create_directories(folder_ / "to/seed");
  folder_.write("to/new", "schema css3.0\n");
  folder_.write("to/new.sitechan", test::RowMaker("sitechan")
                                       .set("sta", std::string("ABC"))
                                       .set("chan", std::string("BHZ"))
                                       .set("ondate", 2010001L)
                                       .set("chanid", 17L)
                                       .text());
  const std::string dir = folder_ / "to/seed";
  {
    const SetPtr set = open();
    const test::OpenDatabase to(folder_ / "to/new", "r+");
    EXPECT_EQ(ksdsseis_write_miniseed(set.get(), -1, dir.c_str(), to, 1, nullptr), -1);
    EXPECT_EQ(ksdsseis_write_miniseed(set.get(), -1, dir.c_str(), *db_, 0, nullptr),
              -1);
    EXPECT_TRUE(std::filesystem::is_empty(dir));
    Tbl *list = nullptr;
    ASSERT_EQ(ksdsseis_write_miniseed(set.get(), -1, dir.c_str(), to, 0, &list), 1)
        << test::taken_messages();
    const TblOfTexts owned(list);
    EXPECT_EQ(std::string(static_cast<const char *>(gettbl(list, 0))),
              dir + "/ABC.BHZ.2010140.000000.000.mseed");
    EXPECT_EQ(ksdsseis_write_miniseed(set.get(), -1, dir.c_str(), to, 0, nullptr), -1);
    EXPECT_NE(test::taken_messages().find("is there already"), std::string::npos);
    long rows = 0;
    dbquery(to.at("wfdisc"), dbq_record_count, &rows);
    EXPECT_EQ(rows, 3);
    for (const auto &[record, nsamp, calib] :
         {std::tuple(0L, 500L, 0.5), std::tuple(1L, 1000L, 0.25),
          std::tuple(2L, 10L, 0.25)}) {
      long found = 0, wfid = 0, chanid = 0;
      double factor = 0;
      char place[64] = "";
      ASSERT_EQ(
          dbgetv(to.at("wfdisc", record), "nsamp", &found, "calib", &factor, "wfid",
                 &wfid, "chanid", &chanid, "dir", place, test::kEndOfArguments),
          0);
      EXPECT_EQ(found, nsamp);
      EXPECT_EQ(factor, calib);
      EXPECT_EQ(wfid, record + 1);
      EXPECT_EQ(chanid, 17);
      EXPECT_STREQ(place, "seed");
    }
  }
  const std::vector<double> before = values(ksdsseis_read(open().get(), 0, nullptr));
  const test::OpenDatabase made(folder_ / "to/new", "r");
  const SetPtr copy(ksdsseis_open(made, nullptr, nullptr, 0, 0));
  EXPECT_EQ(values(ksdsseis_read(copy.get(), 0, nullptr)), before);
  EXPECT_EQ(before.size(), 2015U);
}

TEST_F(DataSet, MiniseedFilesGoAgainWhenTheirRowsCannotBeAdded) {
  if (!miniseed_available()) GTEST_SKIP();
  add_waveform("ABC", "BHZ", kTime, 100, 0, 1);
  add_waveform("ABC", "BHN", kTime, 100, 0, 1);
  folder_.write("to", "schema css3.0\n");
  const SetPtr set = open();
  const test::OpenDatabase to(folder_ / "to", "r+");
  const auto refuse = [&](const std::string &dir, const char *why) {
    std::filesystem::create_directories(dir);
    Tbl *list = nullptr;
    EXPECT_EQ(ksdsseis_write_miniseed(set.get(), -1, dir.c_str(), to, 0, &list), -1);
    const TblOfTexts owned(list);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(counttbl(list), 0);
    const std::string messages = test::taken_messages();
    EXPECT_NE(messages.find("does not fit wfdisc"), std::string::npos) << messages;
    EXPECT_NE(messages.find(why), std::string::npos) << messages;
    EXPECT_NE(messages.find("the files are removed"), std::string::npos) << messages;
    EXPECT_TRUE(std::filesystem::is_empty(dir));
  };
  refuse(folder_ / std::string(70, 'x') + "/seed", "longer than the 64 characters");
  refuse(folder_ / "-", "is the null of dir");
  refuse(folder_ / "blank ", "ends with a blank");
  long rows = -1;
  dbquery(to.at("wfdisc"), dbq_record_count, &rows);
  EXPECT_EQ(rows, 0);
}

class DataSetResponse : public DataSet {
 protected:
  SetPtr open_with(const std::string &response, const char *rsptype) {
    add_waveform("ABC", "BHZ", kTime, 4000, 0, 1, 100.0);
    add_sensor(0, 9999999999.999, 5);
    std::filesystem::create_directory(folder_ / "rsp");
    folder_.write("rsp/r", response);
    add_instrument(5, "S", "r", rsptype);
    return open();
  }
};

/* A plain file is relative: a count is calib (0.5 nm) at calper (1 s), whatever the file is
 * normalised to.  Velocity there is displacement times 2 pi f. */
TEST_F(DataSetResponse, PlainFilesAreScaledByCalib) {
  const SetPtr set = open_with(
      "theoretical 1 instrument fap me\n3\n0.1 70 0\n1 7 90\n10 0.7 180\n", "fap");
  const VectorPtr vector(ksdsseis_response(set.get(), 0, "D", 0.1, 10, 3, nullptr));
  ASSERT_NE(vector, nullptr) << test::taken_messages();
  EXPECT_NEAR(vector->data[4], 2e9, 1);  // at 1 Hz: 2 counts a nm
  EXPECT_NEAR(vector->data[5], 90, 1e-9);
  EXPECT_NEAR(vector->data[1], 2e10, 10);
  const VectorPtr velocity(ksdsseis_response(set.get(), 0, "V", 0.5, 1, 2, nullptr));
  EXPECT_NEAR(velocity->data[4], 2e9 / (2 * std::numbers::pi), 1);
  EXPECT_NEAR(velocity->data[5], 0, 1e-9);
  EXPECT_EQ(ksdsseis_response(set.get(), 0, "X", 0.5, 1, 2, nullptr), nullptr);
  EXPECT_EQ(ksdsseis_response(set.get(), 0, "D", 0, 1, 2, nullptr), nullptr);
  EXPECT_EQ(ksdsseis_response(set.get(), 0, "D", 1, 2, 2000000, nullptr), nullptr);
}

/* A pole-zero file in metres is absolute.  A displacement pulse is put through an instrument
 * of velocity by hand (its derivative), and comes back as each kind of motion. */
TEST_F(DataSetResponse, MotionComesBackFromAbsoluteResponses) {
  const double gain = 3e8;
  const SetPtr set = open_with("ZEROS 1\nPOLES 0\nCONSTANT 3e8\n", "paz");
  const auto shape = [](double t, int derivative) {
    const double x = (t - 20.0) / 0.7, s = 0.7;
    const double g = 1e-6 * std::exp(-x * x / 2);
    if (derivative == 0) return g;
    return derivative == 1 ? -x / s * g : (x * x - 1) / (s * s) * g;
  };
  for (const int derivative : {0, 1, 2}) {
    ksvector2 *vector = nullptr;
    char tag[KS_TAG_SIZE];
    vector = ksdsseis_read(set.get(), 0, tag);
    ASSERT_NE(vector, nullptr);
    for (int i = 0; i < vector->npts; ++i) vector->data[i] = gain * shape(i * 0.01, 1);
    const double corners[] = {0.002, 0.004, 20, 40};
    static const char *const kTypes[] = {"D", "V", "A"};
    ASSERT_EQ(ksdsseis_deconvolve(set.get(), 0, tag, kTypes[derivative], corners, 0), 0)
        << test::taken_messages();
    double worst = 0, largest = 0;
    for (int i = 0; i < vector->npts; ++i) {
      /* Displacement without its lowest frequencies sinks by its mean. */
      worst = std::max(worst, std::abs(vector->data[i] - shape(i * 0.01, derivative)));
      largest = std::max(largest, std::abs(shape(i * 0.01, derivative)));
    }
    EXPECT_LT(worst, (derivative == 0 ? 0.06 : 1e-3) * largest) << derivative;
    char resampled[KS_TAG_SIZE];
    const ksvector2 *const slow = ksdsseis_resample(tag, 20, "slow", resampled);
    ASSERT_NE(slow, nullptr);
    EXPECT_EQ(slow->npts, 800);
    EXPECT_NEAR(slow->data[402], vector->data[2010], 0.01 * largest);
    ksvector2_free(resampled);
    ksvector2_free(tag);
  }
  char tag[KS_TAG_SIZE];
  ASSERT_NE(ksdsseis_read(set.get(), 0, tag), nullptr);
  const double wrong[] = {4, 3, 2, 1};
  EXPECT_EQ(ksdsseis_deconvolve(set.get(), 0, tag, "V", wrong, 0), -1);
  EXPECT_EQ(ksdsseis_deconvolve(set.get(), 0, "nothing", "V", nullptr, 0), -1);
  ksvector2_free(tag);
}

/* North, east and a vertical that points down; one begins later. */
TEST_F(DataSet, RotationOverTheCommonTime) {
  add_waveform("ABC", "BHE", kTime + 0.5, 100, 0, 1);
  add_waveform("ABC", "BHN", kTime, 100, 0, 1);
  add_waveform("ABC", "BHZ", kTime, 100, 0, 1);
  add_sitechan("BHE", 2000001, -1, 90.0, 90.0);
  add_sitechan("BHN", 2000001, -1, 0.0, 90.0);
  add_sitechan("BHZ", 2000001, -1, 0.0, 180.0);
  const SetPtr set = open();
  char tags[3][KS_TAG_SIZE], made[3][KS_TAG_SIZE] = {};
  const char *pointers[3];
  const int channels[] = {0, 1, 2};
  for (int i = 0; i < 3; ++i) {
    ASSERT_NE(ksdsseis_read(set.get(), i, tags[i]), nullptr);
    pointers[i] = tags[i];
  }
  ASSERT_EQ(ksdsseis_rotate_zrt(set.get(), channels, pointers, 180.0, made), 0)
      << test::taken_messages();
  const ksvector2 *const z = ksvector2_get_vector(made[0]);
  const ksvector2 *const r = ksvector2_get_vector(made[1]);
  const ksvector2 *const t = ksvector2_get_vector(made[2]);
  EXPECT_EQ(z->npts, 95);
  EXPECT_EQ(z->time, kTime + 0.5);
  EXPECT_NEAR(z->data[1], -6, 1e-9);  // the sixth sample, upside down
  EXPECT_NEAR(r->data[1], 6, 1e-9);   // the event in the south: R is north
  EXPECT_NEAR(t->data[1], 1, 1e-9);   // and T is east
  const int twice[] = {0, 0, 2};
  EXPECT_EQ(ksdsseis_rotate_zrt(set.get(), twice, pointers, 180.0, made), -1);
  EXPECT_NE(test::taken_messages().find("lie in a plane"), std::string::npos);
  for (int i = 0; i < 3; ++i) {
    ksvector2_free(tags[i]);
    ksvector2_free(made[i]);
  }
}

/* The database in the tree, decoded by hand: 9 rows, their sums in data/README. */
TEST(DataSetOfTree, SamplesAreThoseOfTheFile) {
  const test::OpenDatabase db(KSUTIL_SOURCE_DIR "/data/mlr/mlr", "r");
  const SetPtr set(ksdsseis_open(db, "MLR", nullptr, 0, 0));
  ASSERT_GT(ksdsseis_count(set.get()), 0);
  const std::string bytes = test::read_file(KSUTIL_SOURCE_DIR "/data/mlr/mlr.w");
  std::vector<Segment> segments;
  ASSERT_EQ(ksdsseis_read_segments(set.get(), 0, segments), 0);
  Dbptr rows = db.at("wfdisc");
  long count = 0;
  dbquery(rows, dbq_record_count, &count);
  std::size_t compared = 0;
  for (rows.record = 0; rows.record < count; ++rows.record) {
    double time = 0;
    long foff = 0, nsamp = 0;
    char chan[16] = "";
    ASSERT_EQ(dbgetv(rows, "time", &time, "foff", &foff, "nsamp", &nsamp, "chan", chan,
                     test::kEndOfArguments),
              0);
    for (const Segment &segment : segments) {
      if (segment.time != time || segment.chan != chan) continue;
      const auto counts = std::get<Segment::Counts>(segment.samples);
      ASSERT_EQ(counts.size(), static_cast<std::size_t>(nsamp));
      for (std::size_t i = 0; i < counts.size(); ++i) {
        std::uint32_t value = 0;
        for (std::size_t j = 0; j < 4; ++j) {
          value = value << 8 | static_cast<unsigned char>(
                                   bytes[static_cast<std::size_t>(foff) + 4 * i + j]);
        }
        ASSERT_EQ(counts[i], static_cast<std::int32_t>(value));
      }
      ++compared;
    }
  }
  EXPECT_EQ(compared, segments.size());
}

}  // namespace
