/* Waveforms of hours hang on the rows of a trace database: samples freed twice or never
 * crash or starve the program that holds them, and a gap that passes for data becomes the
 * largest earthquake ever recorded. */
#include "platform/trace/trace.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <vector>

#include "platform/elog/elog.h"
#include "platform/stock/memory.h"
#include "tests/support/rows.h"

namespace {

using ksutil::test::kEndOfArguments;

Dbptr rows_of(Dbptr trace) {
  return dblookup(trace, nullptr, "trace", nullptr, nullptr);
}

float *new_samples() { return static_cast<float *>(std::calloc(100, sizeof(float))); }

/* Address sanitizer tells of samples that are freed twice or leaked. */
TEST(Trdestroy, FreesTheSamplesOfAllRowsOnce) {
  Dbptr trace = trnew();
  ASSERT_GE(trace.database, 0);
  const Dbptr rows = rows_of(trace);
  float *const shared = new_samples();
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(dbaddv(rows, "sta", "KAA", "data", shared, kEndOfArguments), 2 * i);
    ASSERT_EQ(dbaddv(rows, "sta", "KAA", "data", new_samples(), kEndOfArguments),
              2 * i + 1);
  }
  ASSERT_EQ(dbaddv(rows, "sta", "NONE", kEndOfArguments), 6);
  Dbptr row = rows;
  row.record = 2;
  void *data = nullptr;
  ASSERT_EQ(dbgetv(row, "data", &data, kEndOfArguments), 0);
  EXPECT_EQ(data, shared);
  trdestroy(&trace);
  EXPECT_EQ(trace.database, dbINVALID);
  EXPECT_EQ(dbquery(rows, dbq_record_count, &row.record), -1) << "the database is open";
  trdestroy(&trace);
  trdestroy(nullptr);
  elog_clear_register(0);
}

TEST(Trdestroy, ClosesTheDatabaseWhenMemoryIsShort) {
  Dbptr trace = trnew();
  std::vector<float> samples(10);
  const Dbptr rows = rows_of(trace);
  ASSERT_EQ(dbaddv(rows, "data", samples.data(), kEndOfArguments), 0);
  elog_clear_register(0);
  ks_test_fail_alloc(1);
  trdestroy(&trace);
  ks_test_fail_alloc(0);
  EXPECT_EQ(elog_clear_register(0), 1);
  EXPECT_EQ(trace.database, dbINVALID);
}

TEST(Gaps, AreToldFromSamplesAndSurviveScaling) {
  std::vector<float> samples(4, 1e30F);
  trfill_gap(samples.data() + 1, 2);
  trfill_gap(samples.data(), 0);
  trfill_gap(samples.data(), -1);
  EXPECT_EQ((std::vector<int>{tr_isgap(samples[0]), tr_isgap(samples[1]),
                              tr_isgap(samples[2]), tr_isgap(samples[3])}),
            (std::vector<int>{0, 1, 1, 0}));
  EXPECT_TRUE(std::isfinite(samples[1]));
  EXPECT_GT(samples[1], 1e30F);
  for (const float scale : {0.001F, 1000.0F}) {
    EXPECT_EQ(tr_isgap(samples[1] * scale), 1);
    EXPECT_TRUE(std::isfinite(samples[1] * scale));
  }
  EXPECT_EQ(tr_isgap(std::numeric_limits<float>::quiet_NaN()), 0);
  EXPECT_EQ(tr_isgap(-samples[1]), 0);
}

}  // namespace
