/* A series that begins a sample too early or late against its time moves every phase that
 * is picked on it. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "objects/ksvector2_support.h"
#include "platform/trace/trace.h"
#include "tests/support/folder.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class Ksvector2Waveform : public Ksvector2Test {
 protected:
  void SetUp() override {
    Ksvector2Test::SetUp();
    ASSERT_EQ(dbcreate((directory_ + "/db").c_str(), "css3.0"), 0);
    ASSERT_EQ(dbopen_noshare((directory_ + "/db").c_str(), "r+", &db_), 0);
  }
  void TearDown() override {
    dbclose(db_);
    Ksvector2Test::TearDown();
  }

  /* A row of 16-bit samples 1, 2, ... 8 at 4 Hz from 1000 s on. */
  Dbptr wfdisc_row(long nsamp = 8) const {
    std::ofstream file(directory_ + "/w", std::ios::binary);
    for (char i = 1; i <= 8; ++i) file << '\0' << i;
    file.close();
    Dbptr row = dblookup(db_, "", "wfdisc", "", "");
    row.record = dbaddv(row, "sta", "ABC", "chan", "BHZ", "time", 1000.0, "samprate",
                        4.0, "nsamp", nsamp, "datatype", "s2", "foff", 0L, "dir", ".",
                        "dfile", "w", (char *)nullptr);
    return row;
  }

  static std::vector<double> samples(const OwnedVector &series) {
    return {series->data, series->data + series->npts};
  }

  const ksutil::test::TempFolder folder_;
  const std::string directory_ = folder_.path();
  Dbptr db_ = dbinvalid();
  char tag_[KS_TAG_SIZE] = "stale";
};

TEST_F(Ksvector2Waveform, ReadsTheWindowOfARowOrAView) {
  const Dbptr row = wfdisc_row();
  const OwnedVector whole(ksvector2_create_tsamp_from_db(row, "w", tag_, 0, 0));
  ASSERT_NE(whole, nullptr);
  EXPECT_THAT(samples(whole), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
  EXPECT_EQ(ksvector2_get_vector(tag_), whole.get());
  EXPECT_EQ(whole->dt, 0.25);
  Dbptr view = dbsubset(dblookup(db_, "", "wfdisc", "", ""), "sta == 'ABC'");
  view.record = 0;
  const OwnedVector part(
      ksvector2_create_tsamp_from_db(view, nullptr, nullptr, 1000.3, 1001.0));
  ASSERT_NE(part, nullptr);
  EXPECT_THAT(samples(part), ElementsAre(3, 4, 5));
  EXPECT_EQ(part->time, 1000.5);
}

TEST_F(Ksvector2Waveform, ReadsTraceRowsWithTheirGaps) {
  Dbptr trace = trnew();
  auto *const data = static_cast<float *>(std::malloc(4 * sizeof(float)));
  for (int i = 0; i < 4; ++i) data[i] = 0.5F * static_cast<float>(i);
  trfill_gap(data + 1, 1);
  Dbptr row = dblookup(trace, "", "trace", "", "");
  row.record = dbaddv(row, "sta", "ABC", "time", 50.0, "samprate", 2.0, "nsamp", 4L,
                      "data", data, (char *)nullptr);
  const OwnedVector series(
      ksvector2_create_tsamp_from_db(row, nullptr, tag_, 50.5, 99));
  ASSERT_NE(series, nullptr);
  EXPECT_EQ(series->time, 50.5);
  EXPECT_EQ(ksvector2_fill(tag_, "value", -1, 0), 1);
  EXPECT_THAT(samples(series), ElementsAre(-1, 1, 1.5));
  dbputv(row, "data", static_cast<void *>(nullptr), (char *)nullptr);
  std::free(data);
  EXPECT_EQ(ksvector2_create_tsamp_from_db(row, nullptr, nullptr, 0, 0), nullptr);
  trdestroy(&trace);
}

TEST_F(Ksvector2Waveform, RefusesWhatIsNotThere) {
  const Dbptr row = wfdisc_row(99999999);
  EXPECT_EQ(ksvector2_create_tsamp_from_db(row, nullptr, tag_, 0, 0), nullptr);
  EXPECT_STREQ(tag_, "");
  EXPECT_EQ(ksvector2_create_tsamp_from_db(row, nullptr, tag_, 10, 20), nullptr);
  EXPECT_THAT(taken_messages(),
              HasSubstr("ksvector2_create_tsamp_from_db: No samples from "));
  EXPECT_EQ(ksvector2_create_tsamp_from_db(row, nullptr, tag_, NAN, 1001), nullptr);
  Dbptr site = dblookup(db_, "", "site", "", "");
  site.record = dbaddv(site, "sta", "ABC", (char *)nullptr);
  EXPECT_EQ(ksvector2_create_tsamp_from_db(site, nullptr, tag_, 0, 0), nullptr);
  EXPECT_THAT(taken_messages(), HasSubstr("has no wfdisc and no trace row.\n"));
}

}  // namespace
