/* The readers are shared with ksvector, and tested there; here, that what they give arrives,
 * and that a failure leaves no vector behind. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include "objects/ksvector2_support.h"
#include "platform/pf/pf.h"
#include "platform/stock/bytes.h"
#include "platform/trace/trace.h"
#include "tests/support/folder.h"

namespace {

using ksutil::vector2::row;
using testing::ElementsAre;
using testing::HasSubstr;

class Ksvector2Readers : public Ksvector2Test {
 protected:
  std::string file(const std::string &text) const {
    return folder_.write("file", text);
  }
  static int vectors() {
    int count = 0;
    long bytes = 0;
    ksvector2_get_heap_size(nullptr, nullptr, &count, &bytes);
    return count;
  }
  static std::vector<double> point(const ksvector2 &vector, int i) {
    return {row(vector, i), row(vector, i) + vector.ny + 1};
  }

  const ksutil::test::TempFolder folder_;
  char tag_[KS_TAG_SIZE] = "stale";
  int status_ = 99;
};

TEST_F(Ksvector2Readers, Responses) {
  const std::string path =
      file("# c\ntheoretical 1 inst fap x\n3\n1 2 3\n4 5\n6 7 8\n");
  const ksvector2 *const vector =
      ksvector2_create_response_fap(path.c_str(), "resp", tag_, &status_);
  ASSERT_NE(vector, nullptr);
  EXPECT_EQ(status_, 0);
  EXPECT_EQ(ksvector2_get_vector(tag_), vector);
  EXPECT_STREQ(vector->name, "resp");
  EXPECT_EQ(vector->npts, 2);
  EXPECT_THAT(point(*vector, 1), ElementsAre(6, 7, 8));
  EXPECT_EQ(
      ksvector2_create_response_fap(file("a b c d\n").c_str(), nullptr, tag_, &status_),
      nullptr);
  EXPECT_STREQ(tag_, "");
  EXPECT_EQ(status_, 1);
  EXPECT_THAT(taken_messages(),
              HasSubstr("ksvector2_create_response_fap: cannot parse"));
}

TEST_F(Ksvector2Readers, TablesOfParameterFiles) {
  Pf *pf = nullptr;
  ASSERT_EQ(pfcompile("good &Tbl{\n1 2 3\n4 5 6\n}\nbad &Tbl{\n1 2\n3\n}\n", &pf), 0);
  const ksvector2 *const vector =
      ksvector2_create_from_pf(pf, "good", nullptr, tag_, &status_);
  ASSERT_NE(vector, nullptr);
  EXPECT_THAT(point(*vector, 1), ElementsAre(4, 5, 6));
  EXPECT_EQ(ksvector2_create_from_pf(pf, "bad", nullptr, tag_, &status_), nullptr);
  EXPECT_EQ(status_, 1);
  EXPECT_EQ(vectors(), 1);
  EXPECT_EQ(taken_messages(),
            "ksvector2_create_from_pf: sscanf(3) error - no y value.\n");
  pffree(pf);
}

TEST_F(Ksvector2Readers, TextTablesBeyondTheFirstCapacity) {
  std::string text = "header\n";
  for (int i = 0; i < 150; ++i) {
    text += std::to_string(i) + ",L" + std::to_string(i) + ",0.5\n";
  }
  const int ycol = 2;
  const ksvector2 *const vector =
      ksvector2_read(file(text).c_str(), nullptr, 1, 0, 1, &ycol, 1, tag_);
  ASSERT_NE(vector, nullptr);
  EXPECT_EQ(vector->npts, 150);
  EXPECT_THAT(point(*vector, 149), ElementsAre(149, 0.5));
  EXPECT_STREQ(vector->labels[149], "L149");
  EXPECT_EQ(ksvector2_read("/nonexistent", nullptr, 0, 0, 0, nullptr, -1, tag_),
            nullptr);
  EXPECT_THAT(taken_messages(),
              HasSubstr("ksvector2_read: fopen(/nonexistent) error.\n"));
  for (const long nth : {1, 3, 4}) {  // the record, the labels, the first label
    ks_test_fail_alloc(nth);
    EXPECT_EQ(ksvector2_read(file(text).c_str(), nullptr, 1, 0, 1, &ycol, 1, tag_),
              nullptr)
        << nth;
  }
  EXPECT_EQ(vectors(), 1);
}

TEST_F(Ksvector2Readers, TraceBlobs) {
  Dbptr scratch = trnew();
  Dbptr record = dblookup(scratch, "", "trace", "", "dbSCRATCH");
  long size = 0;
  dbquery(record, dbq_record_size, &size);
  dbputv(record, "time", 7.0, "samprate", 2.0, "nsamp", 2L, (char *)nullptr);
  std::string text(static_cast<std::size_t>(size) + 1, '\0');
  dbget(record, text.data());
  text.pop_back();
  const int counts[2] = {static_cast<int>(size), 2};
  const float samples[2] = {1.5F, -2};
  char header[8], data[8];
  hi2mi(counts, header, 2);
  hf2mf(samples, data, 2);
  const std::string trace = std::string(header, 8) + text + std::string(data, 8);
  Dbptr rows = dbinvalid();
  ASSERT_EQ(ksvector2_read_from_trblob(file(trace + trace).c_str(), &rows, tag_), 0)
      << taken_messages();
  EXPECT_EQ(vectors(), 2);
  const ksvector2 *const vector = ksvector2_get_vector(tag_);
  EXPECT_EQ(vector->time, 7);
  EXPECT_THAT(std::vector(vector->data, vector->data + 2), ElementsAre(1.5, -2));
  const std::string cut = (trace + trace).substr(0, 2 * trace.size() - 3);
  EXPECT_EQ(ksvector2_read_from_trblob(file(cut).c_str(), &rows, tag_), -1);
  EXPECT_EQ(vectors(), 3);
  trdestroy(&rows);
  trdestroy(&scratch);
}

}  // namespace
