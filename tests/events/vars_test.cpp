/* A key that finds the wrong rows adds the detections of another station, or the site of
 * another year, to an event, and nothing in the picture shows it. */
#include "events/vars.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <vector>

#include "platform/stock/memory.h"
#include "tests/support/rows.h"

using testing::ElementsAre;

namespace {

constexpr double kTime = 1e9;  // 2001-09-09, day 252
constexpr double kOpen = 9999999999.999;
using ksutil::test::kEndOfArguments;

/* Two earthquakes, the second long after the first, and what belongs to each. */
class Keys : public testing::Test {
 protected:
  Keys() {
    for (const long n : {1, 2}) {
      const char *const sta = n == 1 ? "AAA" : "BBB";
      const double time = kTime + 1e5 * static_cast<double>(n - 1);
      dbaddv(at("origin"), "orid", 10 * n, "evid", n, "time", time, kEndOfArguments);
      dbaddv(at("arrival"), "arid", 40 * n, "sta", sta, "chan", "BHZ", "time",
             time + 20.0, kEndOfArguments);
      for (const char *table : {"wfdisc", "wfmeas"}) {
        dbaddv(at(table), "sta", sta, "chan", "BHZ", "time", time, "endtime",
               time + 100.0, kEndOfArguments);
      }
      dbaddv(at("calibration"), "sta", sta, "chan", "BHZ", "time", time - 1e6,
             "endtime", n == 1 ? kOpen : time - 1e5, kEndOfArguments);
    }
    for (const double after : {-10.5, -10.0, 50.0, 1800.0, 1800.5}) {
      dbaddv(at("detection"), "sta", after == 50.0 ? "BBB" : "AAA", "chan", "BHZ",
             "time", kTime + after, kEndOfArguments);
    }
    dbaddv(at("site"), "sta", "AAA", "ondate", 2001001L, "offdate", 2001251L,
           kEndOfArguments);
    dbaddv(at("site"), "sta", "AAA", "ondate", 2001252L, "offdate", -1L,
           kEndOfArguments);
    dbaddv(at("site"), "sta", "BBB", "ondate", 2001252L, "offdate", -1L,
           kEndOfArguments);
  }
  ~Keys() override { dbclose(db_); }

  Dbptr at(const char *table, const char *record = "") {
    return dblookup(db_, "", table, "", record);
  }

  /* The rows of the table that a record matches. */
  std::vector<long> found(EVMatch EVVars::*key, Dbptr record, const char *table) {
    EVMatch &match = vars_.*key;
    Tbl *rows = nullptr;
    dbmatches(record, at(table), &match.kpattern, &match.tpattern, &match.hook, &rows);
    std::vector<long> records;
    for (long i = 0; i < counttbl(rows); i++) {
      records.push_back(reinterpret_cast<long>(gettbl(rows, i)));
    }
    freetbl(rows, nullptr);
    return records;
  }

  /* A scratch wfdisc that stands for a station, a channel and a span. */
  Dbptr span(double tstart, double tend) {
    const Dbptr scratch = at("wfdisc", "dbSCRATCH");
    dbputv(scratch, "sta", "AAA", "chan", "BHZ", "time", tstart, "endtime", tend,
           kEndOfArguments);
    return scratch;
  }

  EVVars vars_;
  Dbptr db_ = dbtmp("css3.0");
};

}  // namespace

/* The library reads by the other keys, and its own tests would show a wrong one. */
TEST_F(Keys, ForProgramsFindTheRowsOfASpanOrATime) {
  EXPECT_THAT(found(&EVVars::detection_origin, at("origin", "0"), "detection"),
              ElementsAre(1, 2, 3));
  const Dbptr key = span(kTime - 10.0, kTime + 100.0);
  EXPECT_THAT(found(&EVVars::detection_window, key, "detection"), ElementsAre(1, 2));
  EXPECT_THAT(found(&EVVars::detection_stachan, key, "detection"), ElementsAre(1));
  const Dbptr arrival = at("arrival", "0");
  EXPECT_THAT(found(&EVVars::wfmeas_stachan, arrival, "wfmeas"), ElementsAre(0));
  EXPECT_THAT(found(&EVVars::site_sta, arrival, "site"), ElementsAre(1));
  EXPECT_THAT(found(&EVVars::site_sta, at("detection", "2"), "site"), ElementsAre(2));
  EXPECT_THAT(found(&EVVars::calibration_stachan, at("wfdisc", "0"), "calibration"),
              ElementsAre(0));
  EXPECT_THAT(found(&EVVars::calibration_stachan, at("wfdisc", "1"), "calibration"),
              ElementsAre());
}

TEST_F(Keys, CopiesShareNothing) {
  EXPECT_THAT(found(&EVVars::arrival_sta, span(kTime, kTime + 100.0), "arrival"),
              ElementsAre(0));
  EVMatch &original = vars_.arrival_sta;
  EVMatch copy = original;
  EXPECT_NE(copy.kpattern, original.kpattern);
  EXPECT_STREQ(static_cast<char *>(gettbl(copy.kpattern, 1)), "time::endtime");
  EXPECT_EQ(copy.hook, nullptr) << "two owners would free it";
  EVMatch &same = original;
  original = same;
  EXPECT_STREQ(static_cast<char *>(gettbl(original.tpattern, 1)), "time");
}

/* A key without its fields would match by others.  Ten allocations make one. */
TEST(EVMatch, IsWholeOrThrows) {
  const EVMatch model({"sta", "time"}, {"sta", "ondate"});
  for (int n = 1; n <= 10; n++) {
    ks_test_fail_alloc(n);
    EXPECT_THROW(EVMatch({"sta", "time"}, {"sta", "ondate"}), std::bad_alloc) << n;
    ks_test_fail_alloc(n);
    EXPECT_THROW(EVMatch{model}, std::bad_alloc) << n;
  }
  ks_test_fail_alloc(0);
}
