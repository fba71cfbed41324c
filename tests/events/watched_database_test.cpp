/* A server and its views live for months while files are replaced and databases closed under
 * them.  A reading that goes on with the tables of a closed handle reads freed memory. */
#include "events/database/internal/watched_database.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "events/reading/internal/tree_reader.h"
#include "platform/elog/elog.h"
#include "tests/events/event_database.h"
#include "tests/events/messages.h"

using namespace ksutil::events;
using namespace ksutil::events::test;

namespace {

class Watched : public testing::Test {
 protected:
  Watched() {
    files.add_located_event(1, 1e9);
    elog_clear_register(0);
  }
  ~Watched() override { elog_clear_register(0); }

  int change_of(const char *name) { return database.check(*database.table(name)); }

  static constexpr const char *kTables[] = {"origin", "event", "origerr", "netmag",
                                            "mt"};
  std::string refused;  // a table that is not opened
  EventDatabase files;
  WatchedDatabase database{{"Tester", kTables, "r", "open", "look_up",
                            [this](Dbptr db, const char *name, EVTable &table) {
                              table.db = dblookup(db, nullptr, name, nullptr, nullptr);
                              return name != refused;
                            }}};
};

}  // namespace

TEST_F(Watched, StaysOpenWhenAnotherCannotBeOpenedWhole) {
  const WatchedDatabase::Hold hold = database.hold();
  EXPECT_FALSE(database.reopen("Tester::reset"));
  EXPECT_FALSE(database.require_open("Tester::read"));
  ASSERT_TRUE(database.open(files.name(), "Tester::start"));
  EXPECT_EQ(change_of("event"), 2);
  const Dbptr handle = database.handle();
  refused = "netmag";
  EXPECT_FALSE(database.reopen("Tester::reset"));
  elog_clear_register(0);
  EXPECT_FALSE(database.open("/nowhere/at/all", "Tester::start"));
  EXPECT_NE(taken_messages().find("Tester::start: open(/nowhere/at/all) error\n"),
            std::string::npos);
  EXPECT_EQ(database.handle().database, handle.database);
  EXPECT_EQ(database.name(), files.name());
  EXPECT_EQ(change_of("event"), 0) << "and what was seen of it is remembered";
  EXPECT_NE(database.rows("netmag"), nullptr);
  refused.clear();
  ASSERT_TRUE(database.reopen("Tester::reset"));
  EXPECT_EQ(change_of("event"), 2);
}

TEST_F(Watched, ReportsFailuresInTheNameOfItsCaller) {
  const WatchedDatabase::Hold hold = database.hold();
  EXPECT_FALSE(database.reopen("Tester::reset"));
  refused = "netmag";
  EXPECT_FALSE(database.open(files.name(), "Tester::start"));
  EXPECT_FALSE(database.require_open("Tester::read"));
  EXPECT_EQ(taken_messages(),
            "Tester::reset: No database currently open.\n"
            "Tester::start: netmag: look_up() error.\n"
            "Tester::read: No database currently open.\n");
}

TEST_F(Watched, ForgetsItsTablesWhenItIsClosedAndItsNameWhenItIsUnbound) {
  const WatchedDatabase::Hold hold = database.hold();
  ASSERT_TRUE(database.open(files.name(), "Tester::start"));
  EXPECT_EQ(change_of("origin"), 2);
  database.close();
  EXPECT_FALSE(database.is_open());
  EXPECT_EQ(database.table("origin")->db.table, dbINVALID);
  EXPECT_EQ(database.table("origin")->count, -1);
  ASSERT_TRUE(database.reopen("Tester::reset"));
  database.unbind();
  EXPECT_FALSE(database.reopen("Tester::reset"));
}

TEST_F(Watched, TellsAReadingInStepsThatItsTablesAreGone) {
  {
    const WatchedDatabase::Hold hold = database.hold();
    ASSERT_TRUE(database.open(files.name(), "Tester::start"));
  }
  const auto between_steps = [&](auto what) {
    Steps steps(database, 1);
    TreeReader reader(database);
    EXPECT_TRUE(reader.bind(kReadList));
    EXPECT_TRUE(steps.step(reader));
    steps.let_go();
    std::thread([&] {
      const WatchedDatabase::Hold hold = database.hold();
      what();
    }).join();
    return steps.take_again(reader);
  };
  EXPECT_TRUE(between_steps([&] { database.free_indexes(); }));
  EXPECT_TRUE(between_steps([&] { database.forget_changes(); }));
  EXPECT_FALSE(between_steps([&] { EXPECT_TRUE(database.reopen("Tester::reset")); }));
  EXPECT_FALSE(between_steps([&] { database.close(); }));
}
