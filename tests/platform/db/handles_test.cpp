/* Servers run for months and reopen their databases; a number that comes to mean another
 * database, or a read that shows yesterday's rows, misleads without a sign. */
#include <thread>

#include "platform/db/access.h"
#include "tests/platform/db/api_test_support.h"

namespace ksutil::db::test {
namespace {

using testing::HasSubstr;

long count_of(Dbptr table) {
  long count = -1;
  EXPECT_EQ(dbquery(table, dbq_record_count, &count), 0) << messages();
  return count;
}

TEST(Handles, AreNeverUsedAgain) {
  const Dbptr first = dbtmp("css3.0");
  ASSERT_EQ(dbclose(first), 0);
  const Handle second(dbtmp("css3.0"));
  EXPECT_NE(Dbptr(second).database, first.database);
  EXPECT_EQ(dbclose(first), -1);
  EXPECT_THAT(messages(), HasSubstr("dbclose: no open database"));

  Dbptr stale = second.at("event", dbSCRATCH);
  stale.database = first.database;
  long value = 0;
  Expression *expression = nullptr;
  HookHolder hook;
  Pattern evid({"evid"});
  EXPECT_EQ(dblookup(stale, nullptr, "event", nullptr, nullptr).table, dbINVALID);
  EXPECT_EQ(dbgetv(stale, "evid", &value, (char *)nullptr), -1);
  EXPECT_EQ(dbputv(stale, "evid", 1L, (char *)nullptr), -1);
  EXPECT_EQ(dbadd(stale, nullptr), -1);
  EXPECT_EQ(dbget(stale, nullptr), -1);
  EXPECT_EQ(dbquery(stale, dbq_record_count, &value), -1);
  EXPECT_EQ(dbnextid(stale, "evid"), -1);
  EXPECT_EQ(dbex_compile(stale, "evid", &expression, dbexINTEGER), -1);
  EXPECT_EQ(dbmatches(stale, second.at("event"), evid.list(), evid.list(), hook.hook(),
                      nullptr),
            -1);
  EXPECT_EQ(dbmatches(second.at("event", dbNULL), stale, evid.list(), evid.list(),
                      hook.hook(), nullptr),
            -1);
  EXPECT_EQ(table_snapshot(stale), nullptr);
  EXPECT_TRUE(record_text(stale).empty());
  EXPECT_THAT(messages(), HasSubstr("dbgetv: no open database"));
}

TEST(Handles, AreSharedByNameAndModeUnlessAskedNot) {
  TestDatabase database;
  database.write("event", {RowMaker("event").text()});
  const std::string name = database.name();
  Dbptr first, second, writing, own;
  ASSERT_EQ(dbopen(name.c_str(), "r", &first), 0) << messages();
  ASSERT_EQ(dbopen(name.c_str(), "r", &second), 0);
  ASSERT_EQ(dbopen(name.c_str(), "r+", &writing), 0);
  ASSERT_EQ(dbopen_noshare(name.c_str(), "r", &own), 0);
  EXPECT_EQ(first.database, second.database);
  EXPECT_NE(first.database, writing.database);
  EXPECT_NE(first.database, own.database);
  EXPECT_EQ(dbclose(first), 0);
  EXPECT_EQ(count_of(dblookup(second, nullptr, "event", nullptr, nullptr)), 1);
  EXPECT_EQ(dbclose(second), 0);
  EXPECT_EQ(dbclose(second), -1);
  ASSERT_EQ(dbopen(name.c_str(), "r", &second), 0);
  EXPECT_NE(first.database, second.database);
  for (const Dbptr db : {second, writing, own}) EXPECT_EQ(dbclose(db), 0);
  messages();
}

TEST(Handles, AreInvalidWhenThereIsNoDatabase) {
  Dbptr db = {1, 2, 3, 4};
  EXPECT_EQ(dbopen_noshare("/nonexistent/database", "r+", &db), -1);
  EXPECT_EQ(db.database, dbINVALID);
  EXPECT_THAT(messages(), HasSubstr("dbopen_noshare: cannot open database"));
  EXPECT_EQ(dbtmp("no such schema").database, dbINVALID);
  messages();
}

TEST(Lookup, MovesOneMemberAtATime) {
  const Handle db(dbtmp("css3.0"));
  const Dbptr origin = dblookup(db, nullptr, "origin", "lat", "dbNULL");
  EXPECT_EQ(origin.record, dbNULL);
  EXPECT_GE(origin.field, 0);
  const Dbptr row = dblookup(origin, nullptr, "", nullptr, "12");
  EXPECT_EQ(row.record, 12);
  EXPECT_EQ(row.field, origin.field);
  const Dbptr event = dblookup(row, nullptr, "event", nullptr, nullptr);
  EXPECT_EQ(event.record, dbALL);
  EXPECT_EQ(event.field, dbALL);
  EXPECT_EQ(dblookup(db, nullptr, "nosuch", nullptr, nullptr).table, dbINVALID);
  EXPECT_THAT(messages(), HasSubstr("schema css3.0 has no table 'nosuch'"));
  EXPECT_EQ(dblookup(origin, nullptr, nullptr, "nosuch", nullptr).field, dbINVALID);
  EXPECT_THAT(messages(), HasSubstr("origin has no field 'nosuch'"));
  for (const char *text : {"-1", "12x", "dbFIRST", "99999999999999999999"}) {
    EXPECT_EQ(dblookup(origin, nullptr, nullptr, nullptr, text).record, dbINVALID);
  }
  messages();
}

TEST(Queries, TellFactsAboutTablesAndFields) {
  const TestDatabase database;
  const Handle db(database.name(), "r");
  const Dbptr lat = dblookup(db, nullptr, "origin", "lat", nullptr);
  const char *text = nullptr;
  int number = -1;
  long size = 0;
  Tbl *list = nullptr;
  EXPECT_EQ(dbquery(lat, dbq_file_name, &text), 0);
  EXPECT_EQ(text, database.file("origin"));
  EXPECT_EQ(dbquery(db, dbq_schema_name, &text), 0);
  EXPECT_STREQ(text, "css3.0");
  EXPECT_EQ(dbquery(lat, dbq_field_null, &text), 0);
  EXPECT_STREQ(text, "-999.0000");
  EXPECT_EQ(dbquery(lat, dbq_field_type, &number), 0);
  EXPECT_EQ(number, dbREAL);
  EXPECT_EQ(dbquery(lat, dbq_table_present, &number), 0);
  EXPECT_EQ(number, 0);
  EXPECT_EQ(dbquery(lat, dbq_record_size, &size), 0);
  EXPECT_EQ(size, 238);
  EXPECT_EQ(dbquery(db.at("site"), dbq_primary_key, &list), 0);
  EXPECT_STREQ(static_cast<char *>(gettbl(list, 1)), "ondate::offdate");
  EXPECT_EQ(dbquery(db.at("origin"), dbq_field_type, &number), -1);
  EXPECT_THAT(messages(), HasSubstr("no field of origin is chosen"));
  EXPECT_EQ(dbquery(db, dbq_record_count, &size), -1);
  EXPECT_EQ(dbquery(lat, 999, &size), -1);
  EXPECT_THAT(messages(), HasSubstr("dbquery: unknown code 999"));
}

TEST(Reading, FollowsTheTableAtEachLook) {
  TestDatabase database;
  const Handle db(database.name(), "r");
  const auto row = [](long evid) { return RowMaker("event").set("evid", evid).text(); };
  const auto evid_of = [&db](long record) {
    long evid = -99;
    dbgetv(db.at("event", record), "evid", &evid, (char *)nullptr);
    return evid;
  };
  EXPECT_EQ(count_of(db.at("event")), 0);
  EXPECT_EQ(dfiletime(db.at("event")), -9999999999.999);
  EXPECT_THAT(messages(), HasSubstr("dfiletime: table event has no file"));
  database.write("event", {row(1), row(2)});
  EXPECT_EQ(evid_of(0), 1);
  const double before = dfiletime(db.at("event"));
  database.write("event", {row(5), row(2), row(3)});
  EXPECT_EQ(evid_of(0), 1);  // nobody has looked
  EXPECT_EQ(evid_of(2), 3);  // a record beyond what was seen makes it look
  EXPECT_EQ(evid_of(0), 5);
  database.write("event", {row(6), row(2), row(3)});
  EXPECT_GT(dfiletime(db.at("event")), before);
  EXPECT_EQ(evid_of(0), 6);
  database.write("event", {row(7)});
  EXPECT_EQ(count_of(db.at("event")), 1);
  EXPECT_EQ(evid_of(0), 7);
  EXPECT_EQ(evid_of(2), -99);
  messages();
}

TEST(Handles, ServeManyThreads) {
  TestDatabase database;
  std::vector<std::string> rows;
  for (long evid = 0; evid < 200; ++evid) {
    rows.push_back(RowMaker("event").set("evid", evid).text());
  }
  database.write("event", rows);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&database] {
      for (int round = 0; round < 10; ++round) {
        const Handle db(database.name(), "r");
        const Handle scratch(dbtmp("css3.0"));
        Pattern evid({"evid"});
        HookHolder hook;
        for (long id = 0; id < 200; id += 7) {
          const Dbptr key = scratch.at("event", dbSCRATCH);
          EXPECT_EQ(dbputv(key, "evid", id, (char *)nullptr), 0);
          EXPECT_EQ(matches(key, db.at("event"), evid, evid, hook),
                    std::vector<long>{id});
        }
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
}

}  // namespace
}  // namespace ksutil::db::test
