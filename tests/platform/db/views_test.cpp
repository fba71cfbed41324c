/* Views answer what an analyst asks of a database: a join that loses a row is a station
 * missing from a bulletin, one that invents a row counts an amplitude twice. */
#include <algorithm>
#include <atomic>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "platform/db/access.h"
#include "platform/db/store/internal/flat_files.h"
#include "platform/db/view_rows.h"
#include "tests/platform/db/api_test_support.h"
#include "tests/support/rows.h"

namespace ksutil::db::test {
namespace {

constexpr double kFirstEpoch = 1.3e9, kOpenEnd = 9999999999.999;
using ksutil::test::kEndOfArguments;

long count(Dbptr view) {
  long records = -1;
  EXPECT_EQ(dbquery(view, dbq_record_count, &records), 0) << messages();
  return records;
}

long unreadable(Dbptr view) {
  long records = -1;
  EXPECT_EQ(dbquery(view, dbq_unreadable_count, &records), 0) << messages();
  return records;
}

Dbptr at(Dbptr view, long record) {
  view.record = record;
  return view;
}

/* The record numbers of each record of a view, table by table. */
std::vector<std::vector<long>> tuples(Dbptr view) {
  std::vector<std::vector<long>> list;
  for (long i = 0; i < count(view); ++i) {
    std::vector<Dbptr> parts;
    EXPECT_TRUE(view_parts(at(view, i), parts));
    list.emplace_back();
    for (const Dbptr &part : parts) list.back().push_back(part.record);
  }
  return list;
}

struct Waveform {
  std::string sta, chan;
  double time, endtime;
};
struct Arrival {
  std::string sta, chan;
  double time;
  long arid;
};

class Views : public testing::Test {
 protected:
  Views() {
    std::mt19937 random(11);
    const auto below = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
    const std::vector<const char *> stations = {"AAK", "BRVK", "-"};
    const std::vector<const char *> channels = {"BHZ", "BHN"};
    std::vector<std::string> rows;
    for (int i = 0; i < 60; ++i) {
      Waveform w{stations[below(3)], channels[below(2)], kFirstEpoch + below(50), 0.0};
      w.endtime = below(8) == 0 ? kOpenEnd : w.time + below(12) - 1.0;
      waveforms.push_back(w);
      rows.push_back(RowMaker("wfdisc")
                         .set("sta", w.sta)
                         .set("chan", w.chan)
                         .set("time", w.time)
                         .set("endtime", w.endtime)
                         .set("wfid", i + 1L)
                         .text());
    }
    files.write("wfdisc", rows);
    rows.clear();
    for (int i = 0; i < 40; ++i) {
      const Arrival a{stations[below(3)], channels[below(2)], kFirstEpoch + below(60),
                      static_cast<long>(below(12)) - 1};
      arrivals.push_back(a);
      rows.push_back(RowMaker("arrival")
                         .set("sta", a.sta)
                         .set("chan", a.chan)
                         .set("time", a.time)
                         .set("arid", a.arid)
                         .text());
    }
    files.write("arrival", rows);
    rows.clear();
    for (int i = 0; i < 50; ++i) {
      assocs.emplace_back(static_cast<long>(below(12)) - 1, below(4));
      rows.push_back(RowMaker("assoc")
                         .set("arid", assocs.back().first)
                         .set("orid", assocs.back().second)
                         .set("sta", std::string("QQQ"))
                         .text());
    }
    files.write("assoc", rows);
    rows.clear();
    for (long orid = 0; orid < 3; ++orid) {
      rows.push_back(
          RowMaker("origin").set("orid", orid).set("time", kFirstEpoch).text());
    }
    files.write("origin", rows);
  }

  TestDatabase files;
  Handle db{files.name(), "r"};
  std::vector<Waveform> waveforms;
  std::vector<Arrival> arrivals;
  std::vector<std::pair<long, long>> assocs;  // arid, orid
};

TEST_F(Views, JoinByRangesGivesEveryOverlapOnce) {
  std::vector<std::vector<long>> expected;
  for (std::size_t a = 0; a < arrivals.size(); ++a) {
    for (std::size_t w = 0; w < waveforms.size(); ++w) {
      const Arrival &arrival = arrivals[a];
      const Waveform &waveform = waveforms[w];
      if (arrival.sta != "-" && arrival.sta == waveform.sta &&
          arrival.chan == waveform.chan && waveform.time <= arrival.time &&
          arrival.time <= waveform.endtime) {
        expected.push_back({static_cast<long>(a), static_cast<long>(w)});
      }
    }
  }
  ASSERT_GT(expected.size(), 20U);
  const Dbptr natural = dbjoin(db.at("arrival"), db.at("wfdisc"), nullptr, nullptr);
  EXPECT_EQ(tuples(natural), expected) << messages();
  Pattern lkeys({"sta", "chan", "time"}), rkeys({"sta", "chan", "time::endtime"});
  const Dbptr given =
      dbjoin(db.at("arrival"), db.at("wfdisc"), *lkeys.list(), *rkeys.list());
  EXPECT_EQ(tuples(given), expected);

  /* The same from the other side, sorted back into the order of arrivals. */
  const Dbptr turned =
      dbjoin(db.at("wfdisc"), db.at("arrival"), *rkeys.list(), *lkeys.list());
  std::vector<std::vector<long>> back = tuples(turned);
  for (std::vector<long> &tuple : back) std::reverse(tuple.begin(), tuple.end());
  std::sort(back.begin(), back.end());
  EXPECT_EQ(back, expected);
}

TEST_F(Views, JoinsOfJoinsFindTheTableThatSharesAKey) {
  std::vector<std::vector<long>> expected;
  for (long o = 0; o < 3; ++o) {
    for (std::size_t s = 0; s < assocs.size(); ++s) {
      for (std::size_t a = 0; a < arrivals.size(); ++a) {
        if (assocs[s].second == o && assocs[s].first >= 0 &&
            arrivals[a].arid == assocs[s].first) {
          expected.push_back({o, static_cast<long>(s), static_cast<long>(a)});
        }
      }
    }
  }
  ASSERT_GT(expected.size(), 20U);
  const Dbptr located = dbjoin(db.at("origin"), db.at("assoc"), nullptr, nullptr);
  const Dbptr view = dbjoin(located, db.at("arrival"), nullptr, nullptr);
  EXPECT_EQ(tuples(view), expected) << messages();
  dbfree_view(located);

  /* A bare name is the first table's that has it; any other is told by its table. */
  const auto tuple = expected.front();
  char sta[16], of_arrival[16];
  long arid = 0;
  double time = 0.0;
  ASSERT_EQ(dbgetv(at(view, 0), "sta", sta, "arrival.sta", of_arrival, "arrival.time",
                   &time, "arid", &arid, kEndOfArguments),
            0)
      << messages();
  const Arrival &arrival = arrivals[static_cast<std::size_t>(tuple[2])];
  EXPECT_STREQ(sta, "QQQ");
  EXPECT_STREQ(of_arrival, arrival.sta.c_str());
  EXPECT_EQ(time, arrival.time);
  EXPECT_EQ(arid, arrival.arid);
  Tbl *fields = nullptr;
  ASSERT_EQ(dbquery(view, dbq_fields, &fields), 0);
  for (long i = 0; i < counttbl(fields); ++i) {
    const Dbptr field = dblookup(view, nullptr, nullptr,
                                 static_cast<const char *>(gettbl(fields, i)), nullptr);
    EXPECT_EQ(field.field, i);
  }
}

TEST_F(Views, SubsetsOfViewsKeepWhatIsTrue) {
  const Dbptr joined = dbjoin(db.at("assoc"), db.at("arrival"), nullptr, nullptr);
  std::vector<std::vector<long>> expected = tuples(joined);
  std::erase_if(expected, [&](const std::vector<long> &tuple) {
    return !(assocs[static_cast<std::size_t>(tuple[0])].second == 1 &&
             arrivals[static_cast<std::size_t>(tuple[1])].chan == "BHZ");
  });
  const Dbptr first = dbsubset(joined, "orid == 1");
  EXPECT_EQ(tuples(dbsubset(first, "arrival.chan == \"BHZ\"")), expected) << messages();
  EXPECT_EQ(count(dbsubset(db.at("arrival"), "arid > 100")), 0);
  long found = 0;
  for (const Arrival &arrival : arrivals)
    found += arrival.arid < 5 && arrival.arid >= 0;
  EXPECT_EQ(count(dbsubset(db.at("arrival"), "arid < 5")), found)
      << "a null is less than nothing";

  int truth = -1;
  const Dbptr record = at(first, 0);
  EXPECT_EQ(dbex_evalstr(record, "assoc.orid == 1", dbexBOOLEAN, &truth), 0);
  EXPECT_EQ(truth, 1);
  Pattern keys({"assoc.orid"}), rkeys({"orid"});
  HookHolder hook;
  EXPECT_THAT(matches(record, db.at("origin"), keys, rkeys, hook),
              testing::ElementsAre(1));
}

TEST_F(Views, SortIsStableBothWaysAndKeepsTheFirstOfEquals) {
  std::vector<long> order(arrivals.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = static_cast<long>(i);
  const auto key = [&](long i) {
    const Arrival &a = arrivals[static_cast<std::size_t>(i)];
    /* Null stations first. */
    return std::pair(a.sta == "-" ? std::string() : a.sta, -a.time);
  };
  std::stable_sort(order.begin(), order.end(),
                   [&](long a, long b) { return key(a) < key(b); });
  Pattern keys({"sta", "-time"});
  const auto numbers = [](Dbptr view) {
    std::vector<long> list;
    for (const auto &tuple : tuples(view)) list.push_back(tuple.front());
    return list;
  };
  EXPECT_EQ(numbers(dbsort(db.at("arrival"), *keys.list(), 0)), order) << messages();

  std::vector<long> unique = order;
  unique.erase(std::unique(unique.begin(), unique.end(),
                           [&](long a, long b) { return key(a) == key(b); }),
               unique.end());
  ASSERT_LT(unique.size(), order.size());
  EXPECT_EQ(numbers(dbsort(db.at("arrival"), *keys.list(), dbSORT_UNIQUE)), unique);
  std::sort(order.begin(), order.end());
  std::stable_sort(order.begin(), order.end(),
                   [&](long a, long b) { return key(b) < key(a); });
  EXPECT_EQ(numbers(dbsort(db.at("arrival"), *keys.list(), dbSORT_REVERSE)), order);
}

TEST_F(Views, GroupsCoverWhatWasGroupedWithoutGap) {
  Pattern keys({"sta", "chan"});
  const Dbptr sorted = dbsort(db.at("arrival"), *keys.list(), 0);
  const Dbptr groups = dbgroup(sorted, *keys.list());
  std::map<std::string, long> sizes;
  for (const Arrival &a : arrivals) ++sizes[a.sta + " " + a.chan];
  ASSERT_EQ(count(groups), static_cast<long>(sizes.size())) << messages();
  long next = 0;
  for (long i = 0; i < count(groups); ++i) {
    long start = -1, end = -1;
    ASSERT_EQ(dbget_range(at(groups, i), &start, &end), 0);
    EXPECT_EQ(start, next);
    char sta[16], chan[16];
    ASSERT_EQ(dbgetv(at(groups, i), "sta", sta, "chan", chan, kEndOfArguments), 0);
    EXPECT_EQ(end - start, sizes[std::string(sta) + " " + chan]) << sta << " " << chan;
    next = end;
  }
  EXPECT_EQ(next, static_cast<long>(arrivals.size()));
  long start = 0, end = 0;
  EXPECT_EQ(dbget_range(at(groups, count(groups)), &start, &end), -1);
  EXPECT_EQ(dbget_range(at(sorted, 0), &start, &end), -1);
}

TEST_F(Views, ReadValuesAsTheyAreNowAndLeaveOutWhatCannotBeRead) {
  const Dbptr view = dbsubset(db.at("origin"), "orid >= 1");
  files.write("origin", {RowMaker("origin").set("orid", 7L).text(),
                         RowMaker("origin").set("orid", 8L).text()});
  ASSERT_EQ(count(view), 2);
  long orid = 0;
  EXPECT_EQ(dbgetv(at(view, 0), "orid", &orid, kEndOfArguments), 0);
  EXPECT_EQ(orid, 8);
  EXPECT_EQ(dbgetv(at(view, 1), "orid", &orid, kEndOfArguments), -1)
      << "the row is gone";

  std::string damaged = RowMaker("origin").set("orid", 9L).text();
  damaged.replace(damaged.find(" 9 "), 3, " x ");
  files.write("origin", {damaged, RowMaker("origin").set("orid", 10L).text()});
  messages();
  Pattern keys({"orid"});
  EXPECT_EQ(count(dbsubset(db.at("origin"), "orid > 0")), 1);
  EXPECT_EQ(messages(),
            "dbsubset: 1 records of origin cannot be read and are left out.\n");
  EXPECT_EQ(count(dbsort(db.at("origin"), *keys.list(), 0)), 1);
  EXPECT_EQ(dbgroup(db.at("origin"), *keys.list()).table, dbINVALID);

  /* How many they are, also through views of views. */
  EXPECT_EQ(unreadable(db.at("origin")), 1);
  const Dbptr subset = dbsubset(db.at("origin"), "orid > 0");
  EXPECT_EQ(unreadable(subset), 1);
  EXPECT_EQ(unreadable(dbsort(subset, *keys.list(), 0)), 1);
  EXPECT_EQ(unreadable(dbgroup(subset, *keys.list())), 1);
  EXPECT_EQ(unreadable(dbjoin(subset, db.at("event"), nullptr, nullptr)), 1);
  EXPECT_EQ(unreadable(dbsubset(db.at("origin"), "depth < 700")), 0)
      << "what the expression asks for can be read";
}

TEST_F(Views, TakeTheirRecordsFromOneStateOfATable) {
  const std::string table = files.file("wfdisc");
  std::ofstream(table + ".short") << RowMaker("wfdisc").set("wfid", 1L).text();
  std::filesystem::copy_file(table, table + ".long");
  std::atomic<bool> enough = false;
  std::thread other([&] {
    for (bool is_short = true; !enough; is_short = !is_short) {
      std::filesystem::create_hard_link(table + (is_short ? ".short" : ".long"),
                                        table + ".next");
      std::filesystem::rename(table + ".next", table);
      std::this_thread::yield();
    }
  });
  const Dbptr wfdisc = dblookup(db, nullptr, "wfdisc", nullptr, nullptr);
  messages();
  std::string told;
  std::set<long> seen;
  for (int i = 0; i < 2000; ++i) {
    const Dbptr all = dbsubset(wfdisc, "wfid > 0");
    told += messages();
    /* An exchange at each opening is told as such. */
    if (all.table < 0) continue;
    EXPECT_EQ(unreadable(all), 0);
    seen.insert(count(all));
    dbfree_view(all);
  }
  enough = true;
  other.join();
  EXPECT_THAT(told, testing::Not(testing::HasSubstr("left out")));
  EXPECT_EQ(seen, std::set<long>({1, static_cast<long>(waveforms.size())}));
}

TEST_F(Views, RefuseWhatMakesNoSense) {
  const Dbptr origin = db.at("origin");
  messages();
  EXPECT_EQ(dbsubset(origin, "nosuch > 1").table, dbINVALID);
  EXPECT_THAT(messages(), testing::HasSubstr("dbsubset: Can't compile 'nosuch > 1'"));
  EXPECT_EQ(dbsort(origin, nullptr, 0).table, dbINVALID);
  EXPECT_EQ(dbjoin(origin, dbsubset(origin, "1"), nullptr, nullptr).table, dbINVALID);
  EXPECT_EQ(dbjoin(origin, db.at("lastid"), nullptr, nullptr).table, dbINVALID);
  EXPECT_THAT(messages(),
              testing::HasSubstr("dbjoin: origin and lastid share no key.\n"));
  const Dbptr view = dbsubset(origin, "orid >= 0");
  EXPECT_EQ(dbputv(at(view, 0), "orid", 5L, kEndOfArguments), -1);
  EXPECT_EQ(dbfree_view(view), 0);
  EXPECT_EQ(dbfree_view(view), -1);
  EXPECT_EQ(dbfree_view(origin), -1);
  long records = 0;
  EXPECT_EQ(dbquery(view, dbq_record_count, &records), -1);
}

/* Rows in an order of their own, far more than the store keeps in memory, and a program
 * that overwrites one of them meanwhile. */
TEST(ViewRowsOfALongTable, ShowEachRowOfASortedViewAndWhatIsOverwritten) {
  constexpr long kRows = 30000;
  const ScopedBlockBudget small(1 << 20);
  TestDatabase database;
  std::vector<std::string> rows;
  for (long i = 0; i < kRows; ++i) {
    rows.push_back(
        RowMaker("origin").set("orid", i).set("mbid", i * 7919 % kRows).text());
  }
  database.write("origin", rows);
  Dbptr db;
  ASSERT_EQ(dbopen_noshare(database.name().c_str(), "r", &db), 0) << messages();
  Tbl *const keys = newtbl(1);
  pushtbl(keys, const_cast<char *>("mbid"));
  const Dbptr sorted = dbsort(dblookup(db, "", "origin", "", ""), keys, 0);
  freetbl(keys, nullptr);
  ASSERT_GE(sorted.table, 0) << messages();
  ViewRows view(sorted);
  ASSERT_TRUE(view.good());
  ASSERT_EQ(view.count(), kRows);
  const IntegerColumn mbid(*Schema::load("css3.0")->find("origin"), "mbid");
  constexpr long kOverwritten = 29000;  // in the order of the view
  for (long i = 0; i < kRows; ++i) {
    const std::string_view *const found = view.read(i);
    ASSERT_NE(found, nullptr) << i;
    std::int64_t value = -1;
    ASSERT_TRUE(mbid.read(found[0], value));
    if (i != kOverwritten) {
      ASSERT_EQ(value, i);
    }
    if (i == 100) {
      Dbptr writer;
      ASSERT_EQ(dbopen_noshare(database.name().c_str(), "r+", &writer), 0);
      std::vector<Dbptr> parts;
      ASSERT_TRUE(view_parts(at(sorted, kOverwritten), parts));
      Dbptr row = dblookup(writer, "", "origin", "", "");
      row.record = parts.front().record;
      ASSERT_EQ(dbputv(row, "mbid", -7L, kEndOfArguments), 0) << messages();
      dbclose(writer);
    }
  }
  dbclose(db);
}

}  // namespace
}  // namespace ksutil::db::test
