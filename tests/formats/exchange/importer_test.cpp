/* An import that repeats itself must not repeat the events, and a revision must not cost
 * the ids that other rows refer to. */
#include "formats/exchange/import/importer.h"

#include "formats/exchange/import/event_rows.h"
#include "formats/exchange/import/record_bytes.h"
#include "tests/formats/exchange/importer_fixture.h"
#include "tests/support/rows.h"

namespace ksutil::exchange {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using tools::OpenDatabase;

TEST_F(ImporterTest, AddsRowsOnceAndRepeatsNothing) {
  EXPECT_EQ(import({event_at("b", 1.1e9), event_at("a", 1e9)}).added, 2);
  const Values b = values(1);
  EXPECT_EQ(b.ml, 4.5);
  EXPECT_EQ(b.magtype, "Ml");
  EXPECT_EQ(b.etype, "eq");
  EXPECT_EQ(b.sdobs, 0.5);
  EXPECT_THAT(table("remark"), HasSubstr("place: 10km N of b"));
  EXPECT_THAT(table("remark"), HasSubstr("gap: 161"));

  const std::string before = all_tables();
  EXPECT_EQ(import({event_at("a", 1e9), event_at("b", 1.1e9)}).unchanged, 2);
  EXPECT_EQ(all_tables(), before);
  /* The counters have moved, so that no other program gets an id twice. */
  const OpenDatabase database(name_, "r+");
  EXPECT_EQ(dbnextid(database.get(), "evid"), 3);
  EXPECT_EQ(dbnextid(database.get(), "commid"), 5);
}

TEST_F(ImporterTest, OfSeveralRevisionsInOneFileTheLatestCounts) {
  Event first = event_at("a", 1e9), last = first, tie = first;
  last.updated += 10.0;
  last.origins[0].magnitudes[0].value = 5.5;
  tie.origins[0].magnitudes[0].value = 5.0;
  for (const auto &order : {std::vector{first, last, tie}, {last, tie, first}}) {
    const Result result = run(order);
    const ImportCounts &counts = result.counts;
    EXPECT_EQ(result.superseded, 2);
    EXPECT_EQ(counts.added + counts.unchanged + counts.updated, 1);
    EXPECT_EQ(values(0).magnitude, 5.5);
    const std::string before = all_tables();
    EXPECT_EQ(run(order).counts.unchanged, 1);
    EXPECT_EQ(all_tables(), before);
  }
}

TEST_F(ImporterTest, RevisesInPlaceAndKeepsIds) {
  import({event_at("a", 1e9), event_at("b", 1.1e9)});
  const Values before = values(0);
  Event revised = event_at("a", 1e9);
  revised.updated += 500.0;
  revised.place = "elsewhere";
  revised.origins[0].rms = 0.75;
  revised.origins[0].magnitudes[0].value = 5.25;
  revised.origins[0].magnitudes[0].type = "mww";
  EXPECT_EQ(import({revised}).updated, 1);
  const Values after = values(0);
  EXPECT_EQ(after.evid, before.evid);
  EXPECT_EQ(after.orid, before.orid);
  EXPECT_EQ(after.magid, before.magid);
  EXPECT_EQ(after.magnitude, 5.25);
  EXPECT_EQ(after.ml, -999.0);
  EXPECT_EQ(after.sdobs, 0.75);
  EXPECT_EQ(values(1).magnitude, 4.5);
  EXPECT_THAT(table("remark"), HasSubstr("place: elsewhere "));
  EXPECT_THAT(table("remark"), testing::Not(HasSubstr("N of a")));

  const std::string kept = all_tables();
  EXPECT_EQ(import({event_at("a", 1e9)}).older, 1);
  EXPECT_EQ(all_tables(), kept);
}

TEST_F(ImporterTest, KeepsEarlierSolutionsWhenAsked) {
  import({event_at("a", 1e9)});
  Event revised = event_at("a", 1e9);
  ImportOptions keep;
  keep.keep_origins = true;
  EXPECT_EQ(import({revised}, keep).unchanged, 1);
  revised.updated += 5.0;
  EXPECT_EQ(import({revised}, keep).kept, 0) << "the same solution, loaded later";
  revised.updated += 5.0;
  revised.origins[0].depth = 33.0;
  const ImportCounts counts = import({revised}, keep);
  EXPECT_EQ(counts.updated, 1);
  EXPECT_EQ(counts.kept, 1);
  EXPECT_EQ(rows("event"), 1);
  EXPECT_EQ(rows("origin"), 2);
  EXPECT_EQ(rows("netmag"), 2);
  const OpenDatabase database(name_, "r");
  Dbptr event = database.table("event"), origin = database.table("origin");
  event.record = 0;
  origin.record = 1;
  long prefor = 0, orid = 0, evid = 0;
  double depth = 0.0;
  dbgetv(event, "prefor", &prefor, static_cast<char *>(nullptr));
  dbgetv(origin, "orid", &orid, "evid", &evid, "depth", &depth,
         static_cast<char *>(nullptr));
  EXPECT_EQ(prefor, orid);
  EXPECT_EQ(evid, 1);
  EXPECT_EQ(depth, 33.0);
  const std::string before = all_tables();
  EXPECT_EQ(import({revised}, keep).unchanged, 1);
  EXPECT_EQ(all_tables(), before);
}

TEST_F(ImporterTest, AddsTheMagnitudeThatComesLater) {
  Event bare = event_at("a", 1e9);
  bare.origins[0].magnitudes.clear();
  import({bare});
  EXPECT_EQ(table("netmag"), "");
  Event revised = event_at("a", 1e9);
  revised.updated += 1.0;
  EXPECT_EQ(import({revised}).updated, 1);
  EXPECT_EQ(values(0).magnitude, 4.5);
}

TEST_F(ImporterTest, LeavesCommentsOfOthersAlone) {
  import({event_at("a", 1e9)});
  {
    const OpenDatabase database(name_, "r+");
    Dbptr remark = database.table("remark");
    ASSERT_GE(dbaddv(remark, "commid", 1L, "lineno", 7L, "remark", "felt widely",
                     static_cast<char *>(nullptr)),
              0);
    remark.record = 0;
    ASSERT_EQ(dbputv(remark, "remark", "an analyst's", static_cast<char *>(nullptr)),
              0);
  }
  Event revised = event_at("a", 1e9);
  revised.updated += 1.0;
  import({revised});
  const std::string remarks = table("remark");
  for (const char *text :
       {"an analyst's", "felt widely", "place: 10km N of a", "gap:"}) {
    EXPECT_THAT(remarks, HasSubstr(text));
  }
}

/* Earlier versions kept the text id in event.evname alone. */
TEST_F(ImporterTest, RecognisesDatabasesWithoutPublicIds) {
  const std::string long_id = "official20110311054624120_30";
  import({event_at("a", 1e9), event_at(long_id, 1.1e9)});
  const std::string public_ids = table("publicid");
  std::filesystem::remove(name_ + ".publicid");
  EXPECT_EQ(import({event_at("a", 1e9), event_at(long_id, 1.1e9)}).unchanged, 2);
  EXPECT_EQ(rows("event"), 2);
  EXPECT_EQ(table("publicid"), public_ids);
  {
    /* From then on the name is free for a name. */
    const OpenDatabase database(name_, "r+");
    Dbptr event = database.table("event");
    event.record = 0;
    ASSERT_EQ(dbputv(event, "evname", "Tohoku", static_cast<char *>(nullptr)), 0);
  }
  Event revised = event_at("a", 1e9);
  revised.updated += 1.0;
  EXPECT_EQ(import({revised, event_at("Tohoku", 1.2e9)}).added, 1);
  EXPECT_EQ(rows("event"), 3);
}

TEST_F(ImporterTest, HealsOriginsThatLostTheirEvents) {
  import({event_at("a", 1e9), event_at("b", 1.1e9)});
  const std::string origins = table("origin"), netmags = table("netmag");
  std::filesystem::remove(name_ + ".event");
  std::filesystem::remove(name_ + ".publicid");
  const ImportCounts counts =
      import({event_at("b", 1.1e9), event_at("a", 1e9), event_at("c", 1.2e9)});
  EXPECT_EQ(counts.added, 3);
  EXPECT_EQ(counts.healed, 2);
  EXPECT_EQ(rows("origin"), 3);
  EXPECT_EQ(table("origin").substr(0, origins.size()), origins);
  EXPECT_EQ(table("netmag").substr(0, netmags.size()), netmags);
  EXPECT_EQ(values(0).evid, 1);
}

/* ksdb verify --fix gives such origins rows of event that say nothing but their ids. */
TEST_F(ImporterTest, TakesUpEventsThatWereMadeUpForOrigins) {
  import({event_at("a", 1e9), event_at("b", 1.1e9)});
  std::filesystem::remove(name_ + ".publicid");
  Dbptr db;
  ASSERT_EQ(dbopen_noshare(name_.c_str(), "r+", &db), 0);
  Dbptr row = dblookup(db, "", "event", "", "");
  for (row.record = 0; row.record < 2; ++row.record) {
    ASSERT_EQ(dbputv(row, "evname", "-", test::kEndOfArguments), 0);
  }
  dbclose(db);
  const ImportCounts counts = import({event_at("b", 1.1e9), event_at("a", 1e9)});
  EXPECT_EQ(counts.healed, 2);
  EXPECT_EQ(rows("event"), 2);
  EXPECT_EQ(rows("origin"), 2);
  EXPECT_EQ(import({event_at("a", 1e9), event_at("b", 1.1e9)}).unchanged, 2);
}

TEST_F(ImporterTest, RefusesOneEventForAValueThatDoesNotFit) {
  Event early = event_at("early", -1.1e10);
  early.updated = 0.0;
  early.line = 7;
  const std::vector<Event> events{early, event_at("a", 1e9), event_at("b", 1.1e9)};
  ImportOptions options;
  options.strict = true;
  EXPECT_EQ(run(events, options).imported, Imported::kStrict);
  EXPECT_EQ(table("event") + table("origin") + table("lastid"), "");
  const Result result = run(events);
  EXPECT_EQ(result.counts.added, 2);
  EXPECT_EQ(result.counts.refused, 1);
  EXPECT_THAT(result.refused,
              ElementsAre(HasSubstr("7: origin.time cannot hold 1621")));
  EXPECT_EQ(values(1).evid, 2) << "a refused event takes no id";
}

TEST_F(ImporterTest, DryRunCountsAndChangesNothing) {
  import({event_at("a", 1e9)});
  const std::string before = all_tables();
  Event revised = event_at("a", 1e9);
  revised.updated += 1.0;
  ImportOptions options;
  options.dry_run = true;
  const ImportCounts counts = import({revised, event_at("b", 1.1e9)}, options);
  EXPECT_EQ(counts.added, 1);
  EXPECT_EQ(counts.updated, 1);
  EXPECT_EQ(all_tables(), before);
}

TEST(EventName, KeepsShortIdsAndTellsLongOnesApart) {
  EXPECT_EQ(event_name("us700063vr", 15), "us700063vr");
  const std::string one = event_name("official20110311054624120_30", 15),
                    other = event_name("official20110311054624120_31", 15);
  EXPECT_EQ(one.size(), 15U);
  EXPECT_EQ(one.substr(0, 9), "official~");
  EXPECT_NE(one, other);
}

}  // namespace
}  // namespace ksutil::exchange
