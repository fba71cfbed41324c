/* Queries choose the events that analysts see; a null taken for a number shows events
 * that have no magnitude among those that do. */
#include <atomic>
#include <thread>

#include "platform/db/access.h"
#include "tests/platform/db/api_test_support.h"

namespace ksutil::db::test {
namespace {

using testing::HasSubstr;

class ExpressionsOnARecord : public testing::Test {
 protected:
  ExpressionsOnARecord() : db_(dbtmp("css3.0")), origin_(db_.at("origin", dbSCRATCH)) {
    EXPECT_EQ(dbputv(origin_, "orid", 42L, "lat", 10.5, "time", 1300000000.5, "auth",
                     "net", (char *)nullptr),
              0);
  }
  Handle db_;
  Dbptr origin_;
};

TEST_F(ExpressionsOnARecord, GiveEachTypeOfResult) {
  long integer = 0;
  double real = 0.0, time = 0.0;
  char *text = nullptr;
  int yes = 0;
  EXPECT_EQ(dbex_evalstr(origin_, "orid+1", dbexINTEGER, &integer), 0);
  EXPECT_EQ(integer, 43);
  EXPECT_EQ(dbex_evalstr(origin_, "origin.lat*2", dbexREAL, &real), 0);
  EXPECT_EQ(real, 21.0);
  EXPECT_EQ(dbex_evalstr(origin_, "time+1", dbexTIME, &time), 0);
  EXPECT_EQ(time, 1300000001.5);
  EXPECT_EQ(dbex_evalstr(origin_, "auth", dbexTEXT, &text), 0);
  EXPECT_STREQ(text, "net");
  std::free(text);
  EXPECT_EQ(dbex_evalstr(origin_, "orid == 42 && lat > 10", dbexBOOLEAN, &yes), 0);
  EXPECT_EQ(yes, 1);
  EXPECT_EQ(dbex_evalstr(origin_, "orid", dbexREAL, &real), 0);
  EXPECT_EQ(real, 42.0);
}

TEST_F(ExpressionsOnARecord, TellNullsWithTheirValue) {
  long evid = 0;
  double depth = 0.0;
  char *text = nullptr;
  EXPECT_EQ(dbex_evalstr(origin_, "evid", dbexINTEGER, &evid), 1);
  EXPECT_EQ(evid, -1);
  EXPECT_EQ(dbex_evalstr(origin_, "depth", dbexREAL, &depth), 1);
  EXPECT_EQ(depth, -999.0);
  EXPECT_EQ(dbex_evalstr(origin_, "dtype", dbexTEXT, &text), 1);
  EXPECT_STREQ(text, "-");
  std::free(text);
}

TEST_F(ExpressionsOnARecord, NeedNoRecordWithoutFields) {
  long value = 0;
  EXPECT_EQ(dbex_evalstr(dbinvalid(), "6*7", dbexINTEGER, &value), 0) << messages();
  EXPECT_EQ(value, 42);
  EXPECT_EQ(dbex_evalstr(db_.at("origin"), "6*7", dbexINTEGER, &value), 0);
  EXPECT_EQ(dbex_evalstr(db_.at("origin"), "orid", dbexINTEGER, &value), -1);
  EXPECT_THAT(messages(), HasSubstr("no record of origin is chosen"));
}

TEST_F(ExpressionsOnARecord, RefuseOtherTablesAndBadTexts) {
  Expression *expression = nullptr;
  long value = 0;
  EXPECT_EQ(dbex_compile(origin_, "orid +", &expression, dbexINTEGER), -1);
  EXPECT_THAT(messages(), HasSubstr("dbex_compile: Can't compile 'orid +': "));
  EXPECT_EQ(dbex_compile(origin_, "magid", &expression, dbexINTEGER), -1);
  EXPECT_EQ(dbex_compile(origin_, "orid", &expression, 9), -1);
  EXPECT_EQ(expression, nullptr);
  ASSERT_EQ(dbex_compile(origin_, "orid", &expression, dbexINTEGER), 0) << messages();
  EXPECT_EQ(dbex_eval(db_.at("event", dbNULL), expression, &value), -1);
  EXPECT_THAT(messages(), HasSubstr("the expression is about origin, not about event"));
  EXPECT_EQ(dbex_eval(origin_, expression, &value), 0);
  EXPECT_EQ(value, 42);
  dbex_free(expression);
  dbex_free(nullptr);
}

TEST(ExpressionThreads, ShareOneExpression) {
  TestDatabase database;
  std::vector<std::string> rows;
  for (long orid = 0; orid < 300; ++orid) {
    rows.push_back(RowMaker("origin").set("orid", orid).text());
  }
  database.write("origin", rows);
  const Handle db(database.name(), "r");
  Expression *expression = nullptr;
  ASSERT_EQ(dbex_compile(db.at("origin"), "orid*2", &expression, dbexTEXT), 0)
      << messages();
  std::atomic<long> sum{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      const Handle own(database.name(), "r");
      for (long record = 0; record < 300; ++record) {
        const Dbptr row = (record % 2 == 0 ? db : own).at("origin", record);
        char *text = nullptr;
        EXPECT_EQ(dbex_eval(row, expression, &text), 0);
        sum += std::atol(text);
        std::free(text);
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(sum, 4 * 2 * (299 * 300 / 2));
  dbex_free(expression);
}

}  // namespace
}  // namespace ksutil::db::test
