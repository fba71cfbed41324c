/* Values go into the rows that other agencies read; one that is cut or half written is a
 * wrong earthquake, and a write through a stale copy undoes a colleague's. */
#include <array>
#include <limits>
#include <tuple>
#include <type_traits>

#include "platform/clock/clock.h"
#include "platform/db/values.h"
#include "tests/platform/db/api_test_support.h"

namespace ksutil::db::test {
namespace {

using testing::HasSubstr;

std::string text_of(Dbptr record) {
  std::array<char, 1024> text{};
  return dbget(record, text.data()) == 0 ? text.data() : "error: " + messages();
}

TEST(FieldValues, ComeBackAsWritten) {
  const Handle db(dbtmp("css3.0"));
  const long record =
      dbaddv(db.at("origin"), "lat", 47.25, "lon", -120.5, "orid", 12L, "time",
             1300000000.25, "auth", "net:me", "lddate", 1400000000.0, (char *)nullptr);
  ASSERT_EQ(record, 0) << messages();
  double lat, time, lddate;
  long orid, evid, jdate;
  char auth[16];
  ASSERT_EQ(dbgetv(db.at("origin", 0), "origin.lat", &lat, "time", &time, "orid", &orid,
                   "evid", &evid, "auth", auth, "lddate", &lddate, "jdate", &jdate,
                   (char *)nullptr),
            0)
      << messages();
  EXPECT_EQ(lat, 47.25);
  EXPECT_EQ(time, 1300000000.25);
  EXPECT_EQ(lddate, 1400000000.0);
  EXPECT_EQ(orid, 12);
  EXPECT_EQ(evid, -1);
  EXPECT_EQ(jdate, -1);
  EXPECT_STREQ(auth, "net:me");
}

/* The compiler sees what the variadic functions cannot: an int is an integer, and none of
 * these would compile. */
static_assert(!std::is_constructible_v<FieldValue, const char *, bool>);
static_assert(!std::is_constructible_v<FieldValue, const char *, char>);
static_assert(!std::is_constructible_v<FieldValue, const char *, void *>);
static_assert(!std::is_constructible_v<FieldValue, const char *, std::nullptr_t>);
static_assert(!std::is_constructible_v<FieldResult, const char *, int &>);
static_assert(!std::is_constructible_v<FieldResult, const char *, float &>);

TEST(TypedValues, AreWrittenAndReadByTheirTypes) {
  const Handle db(dbtmp("css3.0"));
  Dbptr origin = db.at("origin");
  const std::string auth = "net:me";
  origin.record =
      add_values(origin, {{"orid", 7}, {"lat", 35.5}, {"depth", 8}, {"auth", auth}});
  ASSERT_EQ(origin.record, 0) << messages();
  EXPECT_EQ(put_values(origin, {{"evid", 3UL}, {"time", 1000}, {"dtype", "f"}}), 0);
  long orid = 0;
  double depth = 0.0, time = 0.0, lddate = 0.0, evid = 0.0;
  std::string text, dtype;
  ASSERT_EQ(get_values(origin, {{"orid", orid},
                                {"origin.depth", depth},
                                {"time", time},
                                {"lddate", lddate},
                                {"evid", evid},
                                {"auth", text},
                                {"dtype", dtype}}),
            0)
      << messages();
  EXPECT_EQ(std::tuple(orid, depth, time, evid, text, dtype),
            std::tuple(7, 8.0, 1000.0, 3.0, "net:me", "f"));
  EXPECT_GT(lddate, 1.6e9);
}

TEST(TypedValues, OfAnotherTypeThanTheFieldAreErrorsThatChangeNothing) {
  const Handle db(dbtmp("css3.0"));
  Dbptr origin = db.at("origin");
  origin.record = add_values(origin, {{"orid", 7}});
  const std::string before = text_of(origin);
  const struct {
    FieldValue value;
    const char *message;
  } cases[] = {{{"evid", 1.0}, "origin.evid holds an integer, not a real number"},
               {{"lat", "35"}, "origin.lat holds a real number, not a text"},
               {{"auth", 5}, "origin.auth holds a text, not an integer"},
               {{"nosuch", 5}, "origin has no field 'nosuch'"},
               {{"evid", 123456789L}, "does not fit its 8 characters"},
               {{"evid", ~0UL}, "origin.evid holds an integer"}};
  for (const auto &c : cases) {
    EXPECT_EQ(put_values(origin, {{"lat", 1.0}, c.value}), -1);
    EXPECT_THAT(messages(), HasSubstr(c.message));
    EXPECT_EQ(add_values(origin, {c.value}), -1);
    messages();
  }
  EXPECT_EQ(text_of(origin), before);
  long orid = -5;
  std::string lat = "as it was";
  EXPECT_EQ(get_values(origin, {{"orid", orid}, {"lat", lat}}), -1);
  EXPECT_THAT(messages(), HasSubstr("origin.lat holds a real number, not a text"));
  EXPECT_EQ(orid, -5);
}

TEST(FieldValues, HoldPointers) {
  const Handle db(dbtmp("trace"));
  float samples[3] = {1, 2, 3};
  ASSERT_EQ(dbaddv(db.at("trace"), "data", samples, (char *)nullptr), 0) << messages();
  void *data = nullptr;
  ASSERT_EQ(dbgetv(db.at("trace", 0), "data", &data, (char *)nullptr), 0);
  EXPECT_EQ(data, samples);
  ASSERT_EQ(dbgetv(db.at("trace", dbNULL), "data", &data, (char *)nullptr), 0);
  EXPECT_EQ(data, nullptr);
}

TEST(FieldValues, AreReadAllOrNone) {
  TestDatabase database;
  std::string broken = RowMaker("origin").set("orid", 7L).text();
  broken.replace(0, 9, "  no-lat ");
  database.write("origin", {broken});
  const Handle db(database.name(), "r");
  long orid = 99;
  double lat = 99.0;
  EXPECT_EQ(dbgetv(db.at("origin", 0), "orid", &orid, "foo", &lat, (char *)nullptr),
            -1);
  EXPECT_THAT(messages(), HasSubstr("dbgetv: origin has no field 'foo'.\n"));
  EXPECT_EQ(dbgetv(db.at("origin", 0), "orid", &orid, "lat", &lat, (char *)nullptr),
            -1);
  EXPECT_THAT(messages(), HasSubstr("origin.lat: 'no-lat' cannot be read"));
  EXPECT_EQ(dbgetv(db.at("origin", 1), "orid", &orid, (char *)nullptr), -1);
  EXPECT_THAT(messages(), HasSubstr("origin has no record 1, only 1 records"));
  EXPECT_EQ(dbgetv(db.at("origin"), "orid", &orid, (char *)nullptr), -1);
  EXPECT_THAT(messages(), HasSubstr("no record of origin is chosen"));
  EXPECT_EQ(orid, 99);
  EXPECT_EQ(lat, 99.0);
}

TEST(FieldValues, ThatDoNotFitChangeNothing) {
  const Handle db(dbtmp("css3.0"));
  ASSERT_EQ(dbadd(db.at("origin"), nullptr), 0);
  for (const long record : {0L, long{dbSCRATCH}}) {
    const Dbptr origin = db.at("origin", record);
    const std::string before = text_of(origin);
    EXPECT_EQ(dbputv(origin, "orid", 5L, "lat", 1234567.0, (char *)nullptr), -1);
    EXPECT_THAT(messages(),
                HasSubstr("dbputv: origin.lat: 1234567.0 does not fit its 9 "
                          "characters.\n"));
    EXPECT_EQ(dbputv(origin, "auth", "an author of many words", (char *)nullptr), -1);
    EXPECT_THAT(messages(),
                HasSubstr("dbputv: origin.auth: 'an author of many words' does not fit "
                          "its 15 characters.\n"));
    EXPECT_EQ(dbputv(origin, "orid", 123456789L, (char *)nullptr), -1);
    EXPECT_EQ(dbputv(origin, "orid", 5L, "auth", "two\nlines", (char *)nullptr), -1);
    EXPECT_EQ(dbputv(origin, "lat", std::numeric_limits<double>::quiet_NaN(),
                     (char *)nullptr),
              -1);
    EXPECT_EQ(dbputv(origin, "orid", 5L, "nosuch", 1L, (char *)nullptr), -1);
    EXPECT_THAT(messages(), HasSubstr("dbputv: origin has no field 'nosuch'.\n"));
    EXPECT_EQ(text_of(origin), before);
  }
  EXPECT_EQ(dbaddv(db.at("origin"), "lat", 1e9, (char *)nullptr), -1);
  long count;
  EXPECT_EQ(dbquery(db.at("origin"), dbq_record_count, &count), 0);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(dbputv(db.at("origin", dbNULL), "orid", 5L, (char *)nullptr), -1);
  messages();
}

TEST(FieldValues, LeaveWhatAnotherProgramHasWrittenMeanwhile) {
  TestDatabase database;
  database.write("origin", {RowMaker("origin").set("orid", 1L).text()});
  const Handle db(database.name(), "r+");
  long evid;
  ASSERT_EQ(dbgetv(db.at("origin", 0), "evid", &evid, (char *)nullptr), 0);
  database.write("origin", {RowMaker("origin")
                                .set("orid", 1L)
                                .set("auth", std::string("colleague"))
                                .text()});
  ASSERT_EQ(dbputv(db.at("origin", 0), "evid", 3L, (char *)nullptr), 0) << messages();
  EXPECT_EQ(text_of(db.at("origin", 0)), RowMaker("origin")
                                             .set("orid", 1L)
                                             .set("auth", std::string("colleague"))
                                             .set("evid", 3L)
                                             .text());
}

TEST(LoadDates, AreSetOnAppendedRowsOnly) {
  const Handle db(dbtmp("css3.0"));
  set_clock([] { return 1500000000.0; });
  ASSERT_EQ(dbaddv(db.at("event"), "evid", 1L, (char *)nullptr), 0);
  double lddate = 0.0;
  EXPECT_EQ(dbgetv(db.at("event", 0), "lddate", &lddate, (char *)nullptr), 0);
  EXPECT_EQ(lddate, 1500000000.0);
  set_clock(nullptr);
  const Dbptr scratch = db.at("event", dbSCRATCH);
  ASSERT_EQ(dbputv(scratch, "evid", 2L, (char *)nullptr), 0);
  EXPECT_EQ(text_of(scratch), RowMaker("event").set("evid", 2L).text());
}

TEST(Records, AreCopiedThroughTheScratchRecord) {
  const Handle db(dbtmp("css3.0"));
  const std::string null = RowMaker("event").text();
  EXPECT_EQ(text_of(db.at("event", dbNULL)), null);
  EXPECT_EQ(text_of(db.at("event", dbSCRATCH)), null);
  const std::string first = RowMaker("event").set("evid", 4L).text();
  ASSERT_EQ(dbadd(db.at("event"), first.c_str()), 0) << messages();
  ASSERT_EQ(dbget(db.at("event", 0), nullptr), 0);
  EXPECT_EQ(text_of(db.at("event", dbSCRATCH)), first);
  ASSERT_EQ(dbadd(db.at("event"), nullptr), 1);
  EXPECT_EQ(text_of(db.at("event", 1)), first);
  ASSERT_EQ(dbget(db.at("event", dbNULL), nullptr), 0);
  ASSERT_EQ(dbput(db.at("event", 1), nullptr), 0);
  EXPECT_EQ(text_of(db.at("event", 1)), null);
}

TEST(Records, OfAnotherLengthAreRefused) {
  const Handle db(dbtmp("css3.0"));
  const std::string row = RowMaker("event").text();
  ASSERT_EQ(dbadd(db.at("event"), row.substr(0, row.size() - 1).c_str()), 0);
  EXPECT_EQ(text_of(db.at("event", 0)), row);
  std::string two_lines = row;
  two_lines[20] = '\n';
  for (const std::string &wrong :
       {row.substr(1), row + row, two_lines, std::string()}) {
    EXPECT_EQ(dbadd(db.at("event"), wrong.c_str()), -1);
    EXPECT_EQ(dbput(db.at("event", 0), wrong.c_str()), -1);
    EXPECT_EQ(dbput(db.at("event", dbSCRATCH), wrong.c_str()), -1);
  }
  EXPECT_THAT(messages(),
              HasSubstr("are not a record of event, which is one line of 76"));
  EXPECT_EQ(text_of(db.at("event", 0)), row);
}

TEST(Records, AreReadAndWrittenFieldByField) {
  const Handle db(dbtmp("css3.0"));
  ASSERT_EQ(dbaddv(db.at("event"), "evid", 4L, "evname", "a quarry", (char *)nullptr),
            0);
  const Dbptr name = dblookup(db, nullptr, "event", "evname", "0");
  EXPECT_EQ(text_of(name), "a quarry");
  ASSERT_EQ(dbput(name, "a mine"), 0) << messages();
  EXPECT_EQ(text_of(name), "a mine");
  const Dbptr evid = dblookup(db, nullptr, "event", "evid", "0");
  ASSERT_EQ(dbput(evid, "77"), 0) << messages();
  EXPECT_EQ(text_of(evid), "      77");
  EXPECT_EQ(dbput(evid, "none"), -1);
  EXPECT_EQ(dbput(name, "a name of more than fifteen letters"), -1);
  EXPECT_EQ(text_of(evid), "      77");
  messages();
}

TEST(ReadOnlyHandles, RefuseEveryWrite) {
  TestDatabase database;
  const std::string row = RowMaker("event").text();
  database.write("event", {row});
  const Handle db(database.name(), "r");
  EXPECT_EQ(dbputv(db.at("event", 0), "evid", 4L, (char *)nullptr), -1);
  EXPECT_EQ(dbput(db.at("event", 0), row.c_str()), -1);
  EXPECT_EQ(dbadd(db.at("event"), row.c_str()), -1);
  EXPECT_EQ(dbaddv(db.at("event"), "evid", 4L, (char *)nullptr), -1);
  EXPECT_EQ(dbnextid(db, "evid"), -1);
  EXPECT_THAT(messages(), HasSubstr("the database is open for reading only"));
  EXPECT_EQ(dbputv(db.at("event", dbSCRATCH), "evid", 4L, (char *)nullptr), 0);
}

}  // namespace
}  // namespace ksutil::db::test
