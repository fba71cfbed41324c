/* A segment is what every reader of waveforms gives: a sample, a time or an owner lost here
 * is lost in every vector, plot and file that is made of it. */
#include "platform/trace/segment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "platform/trace/trace.h"
#include "tests/support/folder.h"
#include "tests/support/register.h"
#include "tests/support/rows.h"

namespace ksutil {
namespace {

using test::taken_messages;
using testing::ElementsAre;
using testing::HasSubstr;

using ksutil::test::kEndOfArguments;

class SegmentRows : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(dbcreate((folder_ / "db").c_str(), "css3.0"), 0);
    ASSERT_EQ(dbopen_noshare((folder_ / "db").c_str(), "r+", &db_), 0);
    taken_messages();
  }
  ~SegmentRows() override { dbclose(db_); }

  /* A row of 4 Hz from 1000 s on, 1.5 nm per count. */
  Dbptr row(const char *datatype, long nsamp, long foff) const {
    Dbptr row = dblookup(db_, "", "wfdisc", "", "");
    row.record = dbaddv(row, "sta", "ABC", "chan", "BHZ", "time", 1000.0, "samprate",
                        4.0, "nsamp", nsamp, "calib", 1.5, "datatype", datatype, "foff",
                        foff, "dir", ".", "dfile", "w", kEndOfArguments);
    return row;
  }

  test::TempFolder folder_;
  Dbptr db_ = dbinvalid();
};

std::vector<double> doubles(const Segment &segment) {
  std::vector<double> values(segment.size());
  segment.copy_to(values.data());
  return values;
}

/* The bytes are written out by hand, value by value. */
TEST_F(SegmentRows, KeepCountsAsCountsAndFloatsAsFloats) {
  using namespace std::string_literals;
  struct Case {
    const char *datatype;
    std::string bytes;
    std::vector<double> values;
    bool counts;
  };
  const Case cases[] = {
      {"s4", "\x7f\xff\xff\xff\xff\xff\xff\xfe"s, {2147483647, -2}, true},
      {"i4", "\x03\x02\x01\x00\xfe\xff\xff\xff"s, {66051, -2}, true},
      {"s3", "\x01\x02\x03\x80\x00\x00"s, {66051, -8388608}, true},
      {"s2", "\x01\x02\xff\xfe"s, {258, -2}, true},
      {"i2", "\x02\x01\xfe\xff"s, {258, -2}, true},
      {"t4", "\x3f\x80\x00\x00\xc0\x20\x00\x00"s, {1.0, -2.5}, false},
      {"f4", "\x00\x00\x80\x3f\x00\x00\x20\xc0"s, {1.0, -2.5}, false},
      {"f8", "\x00\x00\x00\x00\x00\x00\xf8\xbf"s, {-1.5}, false},
      {"c0", "         12\n        -34\n", {12, -34}, false},
  };
  for (const Case &c : cases) {
    folder_.write("w", "skipped" + c.bytes);
    Segment segment;
    ASSERT_TRUE(read_segment(row(c.datatype, static_cast<long>(c.values.size()), 7), 0,
                             0, segment))
        << c.datatype << taken_messages();
    EXPECT_EQ(doubles(segment), c.values) << c.datatype;
    EXPECT_EQ(std::holds_alternative<Segment::Counts>(segment.samples), c.counts);
    EXPECT_EQ(segment.sta + segment.chan, "ABCBHZ");
    EXPECT_EQ(std::tuple(segment.time, segment.samprate, segment.calib),
              std::tuple(1000.0, 4.0, 1.5));
  }
}

TEST_F(SegmentRows, GiveAWindowAndItsTime) {
  std::string bytes;
  for (int i = 0; i < 40000; ++i) {
    bytes += {'\0', static_cast<char>(i >> 16), static_cast<char>(i >> 8),
              static_cast<char>(i)};
  }
  folder_.write("w", bytes);
  Segment segment;
  ASSERT_TRUE(read_segment(row("s4", 40000, 0), 1250.0, 9999.5, segment));
  ASSERT_EQ(segment.size(), 34999U);
  EXPECT_EQ(segment.time, 1250.0);
  EXPECT_EQ(segment.endtime(), 9999.5);
  const std::vector<double> values = doubles(segment);
  for (std::size_t i = 0; i < values.size(); ++i) {
    ASSERT_EQ(values[i], 1000.0 + static_cast<double>(i));
  }
}

TEST_F(SegmentRows, OwnTheSamplesOfFilesInEveryCopy) {
  folder_.write("w", std::string("\x00\x05\x00\x06", 4));
  Segment copy;
  {
    Segment segment;
    ASSERT_TRUE(read_segment(row("s2", 2, 0), 0, 0, segment));
    copy = segment;
  }
  EXPECT_THAT(doubles(copy), ElementsAre(5, 6));
}

TEST_F(SegmentRows, StayAsTheyAreWhenThereIsNothingToRead) {
  folder_.write("w", std::string("\x00\x05\x00\x06", 4));
  Segment segment;
  segment.sta = "OLD";
  Dbptr site = dblookup(db_, "", "site", "", "");
  site.record = dbaddv(site, "sta", "ABC", "ondate", 1960001L, kEndOfArguments);
  struct Case {
    Dbptr row;
    double tstart, tend;
    const char *message;
  };
  const Case cases[] = {
      {row("s2", 3, 0), 0, 0, "read_samples: "},
      {row("sd", 2, 0), 0, 0, "w has no whole miniSEED record"},
      {row("s2", 2, 0), 1, 2, "read_segment: No samples from 1.00000 to 2.00000."},
      {site, 0, 0, "read_segment: The record has no wfdisc"},
  };
  for (const Case &c : cases) {
    EXPECT_FALSE(read_segment(c.row, c.tstart, c.tend, segment));
    EXPECT_THAT(taken_messages(), HasSubstr(c.message));
    EXPECT_EQ(segment.sta, "OLD");
  }
}

TEST(SegmentOfTrace, ShowsTheSamplesOfTheRowWithoutACopy) {
  Dbptr trace = trnew();
  auto *const data = static_cast<float *>(std::malloc(4 * sizeof(float)));
  for (int i = 0; i < 4; ++i) data[i] = static_cast<float>(i) + 0.5F;
  trfill_gap(data + 2, 1);
  Dbptr row = dblookup(trace, "", "trace", "", "");
  row.record = dbaddv(row, "sta", "ABC", "chan", "BHZ", "time", 10.0, "samprate", 2.0,
                      "nsamp", 4L, "data", static_cast<void *>(data), kEndOfArguments);
  Segment segment;
  ASSERT_TRUE(read_segment(row, 10.5, 11.5, segment)) << taken_messages();
  const auto floats = std::get<Segment::Floats>(segment.samples);
  EXPECT_EQ(floats.data(), data + 1);
  EXPECT_EQ(segment.owner, nullptr);
  EXPECT_EQ(segment.time, 10.5);
  EXPECT_EQ(segment.sta + segment.chan, "ABCBHZ");
  const std::vector<double> values = doubles(segment);
  EXPECT_EQ(values.size(), 3U);
  EXPECT_TRUE(is_gap_sample(values[1]));
  trdestroy(&trace);
}

}  // namespace
}  // namespace ksutil
