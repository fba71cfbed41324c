/* Matches join the tables of the network's database: a row missed here is an arrival
 * without its station, a row too many an amplitude with another station's calibration. */
#include <cmath>
#include <functional>
#include <limits>
#include <random>

#include "platform/clock/clock.h"
#include "platform/db/access.h"
#include "tests/platform/db/api_test_support.h"

namespace ksutil::db::test {
namespace {

constexpr double kNoStart = -9999999999.999, kNoEnd = 9999999999.999;
constexpr double kDay = 86400.0, kEpoch = 1.3e9;

/* What the tables of the cases have in common; each takes the fields that it has. */
struct Values {
  long id = -1;
  std::string sta, chan;
  double time = kNoStart, endtime = kNoEnd, lat = -999.0;
  long ondate = -1, offdate = -1;
};

std::string row_text(const char *table, const char *id, const Values &values) {
  RowMaker row(table);
  row.set(id, values.id);
  if (row.has("sta")) row.set("sta", values.sta);
  if (row.has("chan")) row.set("chan", values.chan);
  if (row.has("time")) row.set("time", values.time);
  if (row.has("endtime")) row.set("endtime", values.endtime);
  if (row.has("ondate")) row.set("ondate", values.ondate);
  if (row.has("offdate")) row.set("offdate", values.offdate);
  if (row.has("lat")) row.set("lat", values.lat);
  return row.text();
}

bool inside(double value, double low, double high) {
  return low <= value && value <= high;
}
double start_of(double time) {
  return time == kNoStart ? -std::numeric_limits<double>::infinity() : time;
}
double end_of(double time) {
  return time == kNoEnd ? std::numeric_limits<double>::infinity() : time;
}
bool has_time(const Values &v) { return v.time != kNoStart; }
bool in_order(const Values &v) { return start_of(v.time) <= end_of(v.endtime); }
bool in_epoch(const Values &v, const Values &site) {
  const double day = yearday(v.time);
  return inside(day, site.ondate < 0 ? 0.0 : static_cast<double>(site.ondate),
                site.offdate < 0 ? 9e6 : static_cast<double>(site.offdate));
}
bool same_site(const Values &a, const Values &b) {
  return a.sta != "-" && a.sta == b.sta;
}

struct MatchCase {
  const char *name, *key_table, *key_id, *table, *table_id;
  std::vector<const char *> kpattern, tpattern;
  std::function<bool(const Values &key, const Values &row)> match;
};

class Matches : public testing::TestWithParam<MatchCase> {
 protected:
  std::size_t below(std::size_t n) {
    return static_cast<std::size_t>(random_() % static_cast<unsigned>(n));
  }

  /* Few different values, so that equal ends and shared keys are common. */
  Values some_values() {
    static const char *const kStations[] = {"AAK", "BRVK", "KURK", "-"};
    Values v;
    v.id = static_cast<long>(below(9)) - 1;
    v.sta = kStations[below(4)];
    v.chan = below(2) == 0 ? "BHZ" : "BHN";
    v.lat = static_cast<double>(below(8));
    if (below(8) != 0) v.time = kEpoch + 600.0 * static_cast<double>(below(400));
    if (below(4) != 0) {
      v.endtime = kEpoch + 600.0 * static_cast<double>(below(400));
      if (below(3) != 0 && has_time(v)) v.endtime = v.time + 1800.0;
    }
    if (below(6) != 0)
      v.ondate = yearday(kEpoch + kDay * static_cast<double>(below(4)));
    if (below(2) != 0) {
      v.offdate = yearday(kEpoch + kDay * static_cast<double>(3 + below(3)));
      if (v.ondate > v.offdate) v.offdate = v.ondate;
    }
    return v;
  }

  void write() {
    std::vector<std::string> texts;
    for (const Values &row : rows_) {
      texts.push_back(row_text(GetParam().table, GetParam().table_id, row));
    }
    database_.write(GetParam().table, texts);
  }

  void expect_matches(const Handle &handle) {
    const MatchCase &c = GetParam();
    const Dbptr key = handle.at(c.key_table, dbSCRATCH);
    for (int i = 0; i < 25; ++i) {
      const Values values = some_values();
      ASSERT_TRUE(set_scratch(key, row_text(c.key_table, c.key_id, values)));
      std::vector<long> expected;
      for (std::size_t row = 0; row < rows_.size(); ++row) {
        if (c.match(values, rows_[row])) expected.push_back(static_cast<long>(row));
      }
      ASSERT_EQ(matches(key, handle.at(c.table), kpattern_, tpattern_, hook_), expected)
          << row_text(c.key_table, c.key_id, values) << messages();
    }
  }

  std::mt19937 random_{7};
  TestDatabase database_;
  std::vector<Values> rows_;
  Pattern kpattern_{GetParam().kpattern}, tpattern_{GetParam().tpattern};
  HookHolder hook_;
};

TEST_P(Matches, AgreeWithEveryPairCompared) {
  write();
  const Handle handle(database_.name(), "r");
  for (int round = 0; round < 40; ++round) {
    SCOPED_TRACE(round);
    for (std::size_t i = below(25); i > 0; --i) rows_.push_back(some_values());
    if (below(3) == 0 && !rows_.empty()) rows_[below(rows_.size())] = some_values();
    if (below(8) == 0) rows_.resize(rows_.size() / 2);
    write();
    expect_matches(handle);
    if (HasFatalFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Patterns, Matches,
    testing::Values(
        MatchCase{"Id",
                  "event",
                  "evid",
                  "origin",
                  "evid",
                  {"evid"},
                  {"evid"},
                  [](const Values &k, const Values &r) {
                    return k.id != -1 && k.id == r.id;
                  }},
        MatchCase{"IdByExpression",
                  "event",
                  "evid",
                  "origin",
                  "orid",
                  {"evid+1"},
                  {"orid"},
                  [](const Values &k, const Values &r) {
                    return k.id != -1 && k.id + 1 == r.id;
                  }},
        MatchCase{"Texts",
                  "sitechan",
                  "chanid",
                  "arrival",
                  "arid",
                  {"sta", "chan"},
                  {"sta", "chan"},
                  [](const Values &k, const Values &r) {
                    return same_site(k, r) && k.chan == r.chan;
                  }},
        MatchCase{"TextAndExactTime",
                  "arrival",
                  "arid",
                  "wfdisc",
                  "wfid",
                  {"sta", "time"},
                  {"sta", "time"},
                  [](const Values &k, const Values &r) {
                    return same_site(k, r) && has_time(k) && k.time == r.time;
                  }},
        MatchCase{"PointInRange",
                  "arrival",
                  "arid",
                  "wfdisc",
                  "wfid",
                  {"sta", "chan", "time"},
                  {"sta", "chan", "time::endtime"},
                  [](const Values &k, const Values &r) {
                    return same_site(k, r) && k.chan == r.chan && has_time(k) &&
                           in_order(r) &&
                           inside(k.time, start_of(r.time), end_of(r.endtime));
                  }},
        MatchCase{"RangeAroundPoints",
                  "wfdisc",
                  "wfid",
                  "arrival",
                  "arid",
                  {"sta", "time::endtime"},
                  {"sta", "time"},
                  [](const Values &k, const Values &r) {
                    return same_site(k, r) && has_time(r) && in_order(k) &&
                           inside(r.time, start_of(k.time), end_of(k.endtime));
                  }},
        MatchCase{"OverlappingRanges",
                  "wfdisc",
                  "wfid",
                  "wfdisc",
                  "wfid",
                  {"sta", "chan", "time::endtime"},
                  {"sta", "chan", "time::endtime"},
                  [](const Values &k, const Values &r) {
                    return same_site(k, r) && k.chan == r.chan && in_order(k) &&
                           in_order(r) && start_of(k.time) <= end_of(r.endtime) &&
                           start_of(r.time) <= end_of(k.endtime);
                  }},
        MatchCase{"ExpressionRange",
                  "origin",
                  "orid",
                  "arrival",
                  "arid",
                  {"time-10.0::time+1800.0"},
                  {"time"},
                  [](const Values &k, const Values &r) {
                    /* A window around no time is open at both ends. */
                    return has_time(r) && (!has_time(k) || inside(r.time, k.time - 10.0,
                                                                  k.time + 1800.0));
                  }},
        MatchCase{"DayOfTime",
                  "arrival",
                  "arid",
                  "site",
                  "lat",
                  {"sta", "yearday(time)"},
                  {"sta", "ondate::offdate"},
                  [](const Values &k, const Values &r) {
                    return same_site(k, r) && has_time(k) && in_epoch(k, r);
                  }},
        MatchCase{"ExpressionOnTheTable",
                  "site",
                  "lat",
                  "arrival",
                  "arid",
                  {"sta", "ondate::offdate"},
                  {"sta", "yearday(time)"},
                  [](const Values &k, const Values &r) {
                    return same_site(k, r) && has_time(r) && in_epoch(r, k);
                  }},
        MatchCase{"TwoRanges",
                  "origin",
                  "orid",
                  "origin",
                  "orid",
                  {"time-3600.0::time+3600.0", "lat-1.0::lat+1.0"},
                  {"time", "lat"},
                  [](const Values &k, const Values &r) {
                    return has_time(r) && std::abs(r.lat - k.lat) <= 1.0 &&
                           (!has_time(k) || std::abs(r.time - k.time) <= 3600.0);
                  }}),
    [](const auto &of) { return of.param.name; });

std::string joined(Tbl *list) {
  std::string all;
  for (long i = 0; i < counttbl(list); ++i) {
    all += (i == 0 ? "" : " ") + std::string(static_cast<char *>(gettbl(list, i)));
  }
  return all;
}

struct NaturalCase {
  const char *key, *table, *kpattern, *tpattern;
};
class NaturalKeys : public testing::TestWithParam<NaturalCase> {};

TEST_P(NaturalKeys, FillInTheLists) {
  const NaturalCase &c = GetParam();
  const TestDatabase database;
  const Handle handle(database.name(), "r");
  Tbl *kpattern = nullptr, *tpattern = nullptr;
  HookHolder hook;
  EXPECT_EQ(dbmatches(handle.at(c.key, dbNULL), handle.at(c.table), &kpattern,
                      &tpattern, hook.hook(), nullptr),
            0)
      << messages();
  EXPECT_EQ(joined(kpattern), c.kpattern);
  EXPECT_EQ(joined(tpattern), c.tpattern);
  freetbl(kpattern, std::free);
  freetbl(tpattern, std::free);
}
INSTANTIATE_TEST_SUITE_P(
    Tables, NaturalKeys,
    testing::Values(
        NaturalCase{"event", "origin", "evid", "evid"},
        NaturalCase{"origin", "netmag", "orid", "orid"},
        NaturalCase{"origin", "mt", "orid", "orid"},
        NaturalCase{"netmag", "stamag", "magid", "magid"},
        NaturalCase{"assoc", "arrival", "arid", "arid"},
        NaturalCase{"arrival", "assoc", "arid", "arid"},
        NaturalCase{"origin", "assoc", "orid", "orid"},
        NaturalCase{"arrival", "site", "sta yearday(time)", "sta ondate::offdate"},
        NaturalCase{"arrival", "wfdisc", "sta chan time", "sta chan time::endtime"},
        NaturalCase{"wfdisc", "sensor", "sta chan time::endtime",
                    "sta chan time::endtime"},
        NaturalCase{"origin", "remark", "commid", "commid"}));

TEST(MatchFailures, LeaveAMessageAndNoList) {
  const TestDatabase database;
  const Handle handle(database.name(), "r");
  Tbl *const untouched = nullptr;
  const struct {
    std::vector<const char *> kpattern, tpattern;
    const char *message;
  } cases[] = {{{"sta"}, {"sta", "chan"}, "the patterns have 1 and 2 items"},
               {{"sta"}, {"time"}, "text with number"},
               {{"sta::chan"}, {"sta"}, "ranges are of numbers"},
               {{"nosuch"}, {"sta"}, "Can't compile pattern 'nosuch' over arrival"},
               {{""}, {"sta"}, "the pattern is empty"}};
  for (const auto &c : cases) {
    Pattern kpattern(c.kpattern), tpattern(c.tpattern);
    HookHolder hook;
    Tbl *records = untouched;
    EXPECT_EQ(dbmatches(handle.at("arrival", dbNULL), handle.at("wfdisc"),
                        kpattern.list(), tpattern.list(), hook.hook(), &records),
              -1);
    EXPECT_EQ(records, untouched);
    EXPECT_THAT(messages(), testing::HasSubstr(c.message));
  }
}

TEST(MatchHook, OutlivesItsDatabaseAndServesAnother) {
  TestDatabase first, second;
  const auto row = [](long evid) {
    return RowMaker("origin").set("evid", evid).set("orid", 1L).text();
  };
  first.write("origin", {row(1), row(2)});
  second.write("origin", {row(2), row(1)});
  Pattern evid({"evid"}), orid({"orid"});
  HookHolder hook;
  {
    const Handle handle(first.name(), "r");
    EXPECT_EQ(matches(handle.at("origin", 1), handle.at("origin"), evid, evid, hook),
              std::vector<long>{1});
  }
  const Handle handle(second.name(), "r");
  EXPECT_EQ(matches(handle.at("origin", 0), handle.at("origin"), evid, evid, hook),
            std::vector<long>{0});
  EXPECT_EQ(matches(handle.at("origin", 0), handle.at("origin"), orid, orid, hook),
            (std::vector<long>{0, 1}));
}

}  // namespace
}  // namespace ksutil::db::test
