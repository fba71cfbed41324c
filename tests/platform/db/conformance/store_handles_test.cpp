/* Programs know a database by its Dbptr alone: what the functions of db.h promise has to
 * hold whatever is behind the handle. */
#include <unistd.h>

#include <set>

#include "platform/db/access.h"
#include "platform/db/values.h"
#include "platform/stock/owners.h"
#include "tests/platform/db/conformance/suites.h"

namespace ksutil::db::conformance {
namespace {

using ksutil::test::OpenDatabase;
using ksutil::test::taken_messages;

long count_of(Dbptr table) {
  long count = -1;
  EXPECT_EQ(dbquery(table, dbq_record_count, &count), 0) << taken_messages();
  return count;
}

TEST_P(StoreHandles, FieldsComeBackAsTheyWerePut) {
  const OpenDatabase db(name(), "r+");
  const Dbptr origin = db.at("origin");
  const long record = add_values(
      origin,
      {{"orid", 7}, {"lat", -35.5}, {"time", 1438387381.59}, {"auth", "it's \\me"}});
  ASSERT_EQ(record, 0) << taken_messages();
  const OpenDatabase other(name(), "r");
  long orid = 0, evid = 0;
  double lat = 0, depth = 0, time = 0, lddate = 0;
  std::string auth, algorithm;
  const Dbptr row = other.at("origin", 0);
  ASSERT_EQ(count_of(other.at("origin")), 1);
  ASSERT_EQ(get_values(row, {{"orid", orid},
                             {"evid", evid},
                             {"lat", lat},
                             {"depth", depth},
                             {"time", time},
                             {"auth", auth},
                             {"algorithm", algorithm},
                             {"lddate", lddate}}),
            0);
  EXPECT_EQ(orid, 7);
  EXPECT_EQ(evid, -1) << "the null";
  EXPECT_EQ(lat, -35.5);
  EXPECT_EQ(depth, -999.0) << "the null";
  EXPECT_EQ(time, 1438387381.59);
  EXPECT_EQ(auth, "it's \\me");
  EXPECT_EQ(algorithm, "-");
  EXPECT_GT(lddate, 1.7e9);
  EXPECT_GT(dfiletime(other.at("origin")), 1.7e9);
}

TEST_P(StoreHandles, WhatDoesNotFitIsRefusedAndTheRowStays) {
  const OpenDatabase db(name(), "r+");
  const Dbptr origin = db.at("origin");
  ASSERT_EQ(add_values(origin, {{"orid", 1}, {"lat", 1.0}}), 0);
  Dbptr row = db.at("origin", 0);
  EXPECT_EQ(put_values(row, {{"lat", 2.0}, {"auth", std::string(16, 'x')}}), -1);
  EXPECT_EQ(put_values(row, {{"lat", 2.0}, {"orid", 123456789}}), -1);
  EXPECT_EQ(put_values(row, {{"lat", 2.0}, {"depth", 1e9}}), -1);
  EXPECT_EQ(put_values(row, {{"lat", 2.0}, {"auth", "a\nb"}}), -1);
  EXPECT_EQ(dbput(row, "short"), -1);
  EXPECT_EQ(dbadd(origin, "short"), -1);
  EXPECT_EQ(put_values(db.at("origin", 1), {{"lat", 2.0}}), -1);
  EXPECT_NE(taken_messages(), "");
  double lat = 0;
  EXPECT_EQ(get_values(row, {{"lat", lat}}), 0);
  EXPECT_EQ(lat, 1.0);
  EXPECT_EQ(count_of(origin), 1);
}

TEST_P(StoreHandles, FieldsThatAreNotNamedKeepWhatOthersHaveWritten) {
  const OpenDatabase mine(name(), "r+"), theirs(name(), "r+");
  ASSERT_EQ(add_values(mine.at("origin"), {{"orid", 1}, {"nass", 0}, {"ndef", 0}}), 0);
  ASSERT_EQ(count_of(theirs.at("origin")), 1);
  for (long i = 1; i <= 10; i++) {
    EXPECT_EQ(put_values(mine.at("origin", 0), {{"nass", i}}), 0);
    EXPECT_EQ(put_values(theirs.at("origin", 0), {{"ndef", 2 * i}}), 0);
  }
  const OpenDatabase fresh(name(), "r");
  long nass = 0, ndef = 0;
  ASSERT_EQ(get_values(fresh.at("origin", 0), {{"nass", nass}, {"ndef", ndef}}), 0);
  EXPECT_EQ(nass, 10);
  EXPECT_EQ(ndef, 20);
}

TEST_P(StoreHandles, MatchesAndViewsFollowTheTable) {
  const OpenDatabase writer(name(), "r+"), reader(name(), "r");
  for (long i = 0; i < 30; i++) {
    ASSERT_EQ(add_values(writer.at("origin"),
                         {{"orid", i}, {"evid", i % 3}, {"depth", 10.0 * double(i)}}),
              i);
  }
  for (long i = 0; i < 3; i++) {
    ASSERT_EQ(add_values(writer.at("event"), {{"evid", i}}), i);
  }
  Tbl *kpattern = nullptr, *tpattern = nullptr;
  Hook *hook = nullptr;
  const auto matches = [&](long event) {
    Tbl *records = nullptr;
    const long found = dbmatches(reader.at("event", event), reader.at("origin"),
                                 &kpattern, &tpattern, &hook, &records);
    freetbl(records, nullptr);
    return found;
  };
  ASSERT_EQ(count_of(reader.at("event")), 3);
  EXPECT_EQ(matches(1), 10) << taken_messages();
  ASSERT_EQ(put_values(writer.at("origin", 0), {{"evid", 1}}), 0);
  ASSERT_EQ(add_values(writer.at("origin"), {{"orid", 30}, {"evid", 1}}), 30);
  EXPECT_EQ(matches(1), 12);
  EXPECT_EQ(matches(0), 9);
  freetbl(kpattern, std::free);
  freetbl(tpattern, std::free);
  free_hook(&hook);

  EXPECT_EQ(count_of(dbsubset(reader.at("origin"), "depth > 195.0")), 10);
  EXPECT_EQ(count_of(dbjoin(reader.at("event"), reader.at("origin"), nullptr, nullptr)),
            31);
}

TEST_P(StoreHandles, NoIdIsGivenTwice) {
  constexpr int kProcesses = 4;
  constexpr long kIds = 20;
  std::vector<pid_t> children;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  {
    const OpenDatabase db(name(), "r+");
    ASSERT_GE(add_values(db.at("origin"), {{"orid", 100}}), 0);
    ASSERT_EQ(dbnextid(db, "orid"), 101) << taken_messages();
  }
  for (int i = 0; i < kProcesses; i++) {
    children.push_back(start_process([&] {
      Dbptr db;
      if (dbopen_noshare(name().c_str(), "r+", &db) != 0) return false;
      bool good = true;
      for (long n = 0; n < kIds && good; n++) {
        const long id = n % 5 == 0 ? reserve_ids(db, "orid", 3) : dbnextid(db, "orid");
        good = id > 0 && ::write(ends[1], &id, sizeof id) == sizeof id;
        if (n % 5 == 0 && good) {
          for (long more = id + 1; more < id + 3; more++) {
            good = good && ::write(ends[1], &more, sizeof more) == sizeof more;
          }
        }
      }
      dbclose(db);
      return good;
    }));
  }
  close(ends[1]);
  std::set<long> ids;
  long id = 0, given = 0;
  while (::read(ends[0], &id, sizeof id) == sizeof id) {
    given++;
    EXPECT_TRUE(ids.insert(id).second) << id << " was given twice";
    EXPECT_GT(id, 101);
  }
  close(ends[0]);
  for (const pid_t child : children) EXPECT_TRUE(ended_well(child));
  EXPECT_EQ(given, kProcesses * (kIds + 2 * (kIds / 5)));
  EXPECT_EQ(*ids.rbegin(), 101 + given) << "ids were left out";
}

}  // namespace
}  // namespace ksutil::db::conformance
