/* A sample read with the wrong byte order, sign or offset is still a number: it looks like
 * noise, or like an earthquake.  And a row of another program must not be able to make a
 * reader allocate what no file holds, or wait for ever. */
#include "platform/trace/waveform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <set>

#include "platform/elog/elog.h"
#include "platform/stock/memory.h"
#include "tests/support/folder.h"
#include "tests/support/register.h"

namespace ksutil {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Waveform : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directory(directory_ + "/w");
    ASSERT_EQ(dbcreate((directory_ + "/db").c_str(), "css3.0"), 0);
    ASSERT_EQ(dbopen_noshare((directory_ + "/db").c_str(), "r+", &db_), 0);
    elog_clear_register(0);
  }
  void TearDown() override { dbclose(db_); }

  void write(const std::string &name, const std::string &bytes) const {
    std::ofstream(directory_ + "/" + name, std::ios::binary) << bytes;
  }
  Dbptr table() const { return dblookup(db_, "", "wfdisc", "", ""); }
  Dbptr record(long number) const {
    Dbptr row = table();
    row.record = number;
    return row;
  }
  /* A new row of station ABC, channel BHZ: from 1000 s on at 20 Hz. */
  Dbptr row(const char *datatype, long nsamp, long foff, const char *dir = "w",
            const char *dfile = "file") const {
    return record(dbaddv(table(), "sta", "ABC", "chan", "BHZ", "time", 1000.0,
                         "samprate", 20.0, "nsamp", nsamp, "datatype", datatype, "foff",
                         foff, "dir", dir, "dfile", dfile, (char *)nullptr));
  }

  const test::TempFolder folder_;
  const std::string directory_ = folder_.path();
  Dbptr db_ = dbinvalid();
};

std::vector<double> all_samples(Dbptr row) {
  WaveformSegment segment;
  std::vector<double> samples;
  EXPECT_TRUE(read_segment(row, segment));
  EXPECT_TRUE(read_samples(segment, 0, segment.nsamp, samples));
  return samples;
}

/* A name that does not fit dfile keeps its file out of every database; two channels or
 * times with one name overwrite each other. */
TEST(WaveformFileName, FitsDfileAndTellsChannelsAndTimesApart) {
  const double time = 1054174402.043;  // 2003-05-29T02:13:22.043, a day 149
  EXPECT_EQ(waveform_file_name("HGN.BHZ", time, "sac"),
            "HGN.BHZ.2003149.021322.043.sac");
  EXPECT_EQ(waveform_file_name("IU.ANMO.BHZ", time, "sac"),
            "IU.ANMO.BHZ.2003149021322043.sac");
  EXPECT_EQ(waveform_file_name("NL.HGN.00.BHZ", time - 0.043, "sac"),
            "NL.HGN.00.BHZ.2003149021322.sac");
  EXPECT_EQ(waveform_file_name("NL.HGN.00.BHZ", time, "mseed"),
            "NL.HGN.00.BHZ.0314904riez.mseed");
  EXPECT_EQ(waveform_file_name("NL.HGNX.00.BHZ", time, "mseed"),
            "NL.HGNX.00.BHZ.0314904riez.mseed");
  EXPECT_EQ(waveform_file_name("NL.HGNXX.00.BHZ", time, "mseed"),
            "NL.HGNXX.00.BHZ.0dga47yez.mseed");
  /* Beyond the codes of SEED, and before 1970, a number stands for all. */
  EXPECT_EQ(waveform_file_name("NL.STATION8.00.BHZ", time, "mseed"),
            "NL.STATION8..0gy3b14uqsy9d.mseed");
  EXPECT_EQ(waveform_file_name("NL.HGN.00.BHZ", -0.001, "mseed"),
            "NL.HGN.00.BH.3tszdw0siwh3q.mseed");

  std::set<std::string> names;
  std::size_t count = 0;
  for (const char *const channel :
       {"NL.HGN.00.BHZ", "NL.HGN.00.BHN", "NL.HGN.10.BHZ", "NR.HGN.00.BHZ",
        "NL.HGNXX.00.BHZ", "NL.STATION8.00.BHZ", "NL.STATION9.00.BHZ", "HGN.BHZ"}) {
    for (const double base : {-2.0, 0.0, 86400.0, time, 3155760000.0}) {
      for (const double step : {0.0, 0.001, 1.0, 60.0, 3600.0, 86399.0, 31536000.0}) {
        const std::string name = waveform_file_name(channel, base + step, "mseed");
        EXPECT_LE(name.size(), 32U) << name;
        names.insert(name);
        count++;
      }
    }
  }
  EXPECT_EQ(names.size(), count);
}

TEST_F(Waveform, ReadsEveryDataTypeFromItsOffset) {
  using namespace std::string_literals;
  struct Case {
    const char *datatype;
    std::string bytes;
    std::vector<double> samples;
  };
  const Case cases[] = {
      {"s4", "\x00\x01\x02\x03\xff\xff\xff\xfe"s, {66051, -2}},
      {"i4", "\x03\x02\x01\x00\xfe\xff\xff\xff"s, {66051, -2}},
      {"s3", "\x01\x02\x03\xff\xff\xfe\x80\x00\x00"s, {66051, -2, -8388608}},
      {"s2", "\x01\x02\xff\xfe"s, {258, -2}},
      {"i2", "\x02\x01\xfe\xff"s, {258, -2}},
      {"t4", "\x3f\x80\x00\x00\xc0\x20\x00\x00"s, {1.0, -2.5}},
      {"f4", "\x00\x00\x80\x3f\x00\x00\x20\xc0"s, {1.0, -2.5}},
      {"t8", "\x3f\xf8\x00\x00\x00\x00\x00\x00"s, {1.5}},
      {"f8", "\x00\x00\x00\x00\x00\x00\xf8\xbf"s, {-1.5}},
      {"c0", "         12\n        -34\n", {12, -34}},
      {"a0", "    1.2500e+02\n       -.5     ", {125, -0.5}},
      {"b0", "  3.141592653589793e+00\n", {3.141592653589793}},
  };
  for (const Case &c : cases) {
    write("w/file", "skipped" + c.bytes);
    const auto count = static_cast<long>(c.samples.size());
    EXPECT_EQ(all_samples(row(c.datatype, count, 7)), c.samples) << c.datatype;
    EXPECT_EQ(sample_size(c.datatype) * count, static_cast<long>(c.bytes.size()));
  }
  EXPECT_THAT(test::taken_messages(), IsEmpty());
}

TEST_F(Waveform, FindsTheFileFromTheTablesFolder) {
  write("here", std::string("\x00\x01", 2));
  write("w/there", std::string("\x00\x02", 2));
  EXPECT_THAT(all_samples(row("s2", 1, 0, "-", "here")), ElementsAre(1));
  EXPECT_THAT(all_samples(row("s2", 1, 0, "./", "here")), ElementsAre(1));
  EXPECT_THAT(all_samples(row("s2", 1, 0, "./w/", "there")), ElementsAre(2));
  EXPECT_THAT(all_samples(row("s2", 1, 0, "     w/", "  there")), ElementsAre(2));
  EXPECT_THAT(all_samples(row("s2", 1, 0, directory_.c_str(), "here")), ElementsAre(1));
}

TEST_F(Waveform, ReadsTheWfdiscPartOfAView) {
  write("w/file", std::string("\x00\x09", 2));
  row("s2", 1, 0);
  const Dbptr site = dblookup(db_, "", "site", "", "");
  ASSERT_GE(dbaddv(site, "sta", "ABC", "ondate", 1960001L, (char *)nullptr), 0);
  /* The station's table comes first, so that its fields hide those of the waveform. */
  Dbptr view = dbjoin(site, table(), nullptr, nullptr);
  view.record = 0;
  EXPECT_THAT(all_samples(view), ElementsAre(9));
  Dbptr alone = site;
  alone.record = 0;
  WaveformSegment segment;
  EXPECT_FALSE(read_segment(alone, segment));
  EXPECT_THAT(test::taken_messages(),
              HasSubstr("read_segment: The record has no row of wfdisc."));
}

TEST_F(Waveform, GivesAWindowAcrossChunksAndRoundsToFloats) {
  constexpr int kCount = 40000;
  std::string bytes;
  for (int i = 0; i < kCount; ++i) {
    bytes += {static_cast<char>(0x7f), static_cast<char>(i >> 16),
              static_cast<char>(i >> 8), static_cast<char>(i)};
  }
  write("w/file", bytes);
  WaveformSegment segment;
  ASSERT_TRUE(read_segment(row("s4", kCount, 0), segment));
  /* 16384 samples are 819.2 s: the window spans several chunks. */
  std::int64_t first;
  const std::int64_t count = samples_between(segment, 1000.01, 1000.0 + 1900.0, first);
  EXPECT_EQ(first, 1);
  EXPECT_EQ(count, 38000);
  std::vector<float> samples;
  ASSERT_TRUE(read_samples(segment, first, count, samples));
  ASSERT_EQ(samples.size(), 38000U);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    ASSERT_EQ(samples[i], static_cast<float>(0x7f000000 + 1 + static_cast<int>(i)));
  }
}

TEST_F(Waveform, DoublesBeyondFloatsAreInfinite) {
  using namespace std::string_literals;
  write("w/file", "\x7f\xe0\x00\x00\x00\x00\x00\x00\xff\xe0\x00\x00\x00\x00\x00\x00"s);
  WaveformSegment segment;
  ASSERT_TRUE(read_segment(row("t8", 2, 0), segment));
  std::vector<float> samples;
  ASSERT_TRUE(read_samples(segment, 0, 2, samples));
  EXPECT_THAT(samples, ElementsAre(INFINITY, -INFINITY));
}

TEST_F(Waveform, WindowsMayLieAnywhere) {
  WaveformSegment segment;
  segment.time = 1000.0;
  segment.samprate = 20.0;
  segment.nsamp = 100;
  std::int64_t first;
  EXPECT_EQ(samples_between(segment, -1e300, 1e300, first), 100);
  EXPECT_EQ(samples_between(segment, 1000.1000004, 1000.15, first), 2);
  EXPECT_EQ(first, 2);
  EXPECT_EQ(samples_between(segment, 1005.0, 1006.0, first), 0);
  EXPECT_EQ(samples_between(segment, 900.0, 999.0, first), 0);
  EXPECT_EQ(samples_between(segment, NAN, 2000.0, first), 0);
  segment.nsamp = 0;
  EXPECT_EQ(samples_between(segment, 0.0, 2000.0, first), 0);
}

TEST_F(Waveform, RefusesWhatTheFileDoesNotHold) {
  write("w/file", "12345678");
  struct Case {
    const char *datatype;
    long nsamp, foff;
    const char *dfile, *message;
  };
  const Case cases[] = {
      {"s4", 3, 0, "file", "w/file has 8 bytes, the samples end at byte 12."},
      {"s4", 2, 1, "file", "the samples end at byte 9."},
      {"s4", 99999999, 0, "file", "the samples end at byte 399999996."},
      {"b0", 99999999, 2147483647, "file", "has 8 bytes"},
      {"g2", 2, 0, "file", "Data type 'g2' of"},
      {"e1", 2, 0, "file", "Data type 'e1' of"},
      {"s4", 1, 0, "none", "read_samples: open("},
      {"s4", 1, 0, "fifo", "fifo is not a regular file."},
      {"s4", 1, 0, "..", "is not a regular file."},
      {"c0", 1, 0, "text", "holds a sample that is not a number."},
  };
  ASSERT_EQ(::mkfifo((directory_ + "/w/fifo").c_str(), 0600), 0);
  write("w/text", "        one\n");
  for (const Case &c : cases) {
    WaveformSegment segment;
    ASSERT_TRUE(read_segment(row(c.datatype, c.nsamp, c.foff, "w", c.dfile), segment));
    std::vector<double> samples{1, 2};
    EXPECT_FALSE(read_samples(segment, 0, segment.nsamp, samples)) << c.message;
    EXPECT_THAT(samples, ElementsAre(1, 2));
    EXPECT_THAT(test::taken_messages(), HasSubstr(c.message));
  }
}

TEST_F(Waveform, RefusesRangesOutsideTheSegment) {
  write("w/file", "12345678");
  WaveformSegment segment;
  ASSERT_TRUE(read_segment(row("s4", 2, 0), segment));
  constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
  std::vector<float> samples;
  for (const auto &[first, count] : std::vector<std::pair<std::int64_t, std::int64_t>>{
           {-1, 1}, {0, 3}, {1, 2}, {2, 1}, {0, -1}, {kMost, kMost}, {1, kMost}}) {
    EXPECT_FALSE(read_samples(segment, first, count, samples)) << first << ' ' << count;
  }
  EXPECT_TRUE(read_samples(segment, 2, 0, samples));
  segment.nsamp = kMost;
  EXPECT_FALSE(read_samples(segment, kMost - 1, 1, samples));
  EXPECT_THAT(test::taken_messages(), HasSubstr("is out of range."));
}

TEST_F(Waveform, RefusesRowsThatSayTooLittle) {
  std::vector<char> good(1024);
  ASSERT_EQ(dbget(row("s4", 2, 0), good.data()), 0);
  struct Case {
    const char *field;
    const char *text;
  };
  for (const Case &c :
       {Case{"time", "-9999999999.99900"}, Case{"samprate", "0.0"},
        Case{"samprate", "-1.0000000"}, Case{"nsamp", "-1"}, Case{"datatype", "-"},
        Case{"dfile", "-"}, Case{"foff", "-4"}}) {
    Dbptr bad = record(dbadd(table(), good.data()));
    bad.field = dblookup(table(), "", "", c.field, "").field;
    ASSERT_EQ(dbput(bad, c.text), 0) << c.field;
    bad.field = dbALL;
    WaveformSegment segment;
    segment.sta = "kept";
    EXPECT_FALSE(read_segment(bad, segment)) << c.field;
    EXPECT_EQ(segment.sta, "kept");
    EXPECT_THAT(test::taken_messages(),
                HasSubstr(std::string("read_segment: ") + c.field));
  }
}

}  // namespace
}  // namespace ksutil
