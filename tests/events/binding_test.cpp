/* The change test is all that stands between a write and the screen: a code too low hides
 * the write, one too high reads a large database again and again. */
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "platform/elog/elog.h"
#include "platform/stock/fspath.h"
#include "tests/events/event_database.h"
#include "tests/events/messages.h"
#include "tests/support/rows.h"

using namespace ksutil::events::test;

namespace {

using ksutil::test::kEndOfArguments;

class BindingTest : public testing::Test {
 protected:
  BindingTest() {
    db.add_event(1, -1);
    elog_clear_register(0);
    server = std::make_unique<EVServer>(db.name(), 0, 0, -1);
  }
  ~BindingTest() override { elog_clear_register(0); }

  EventDatabase db;
  std::unique_ptr<EVServer> server;
};

}  // namespace

TEST_F(BindingTest, TellsHowATableHasChanged) {
  EXPECT_EQ(server->checkTable("event", 1), 0);
  db.add_event(2, -1);
  EXPECT_EQ(server->checkTable("event", 0), 2);
  EXPECT_EQ(server->checkTable("event", 1), 2);
  EXPECT_EQ(server->checkTable("event", 1), 0);
  dbputv(db.row("event", 0), "prefor", 5L, kEndOfArguments);
  EXPECT_EQ(server->checkTable("event", 1), 1);
  db.remove_last_row("event");
  EXPECT_EQ(server->checkTable("event", 1), 3);
  EXPECT_EQ(server->checkTable("event", 1), 0);
  /* Restored with an earlier time and as many rows: unchanged, by rule. */
  timespec times[2] = {{1000, 0}, {1000, 0}};
  utimensat(AT_FDCWD, db.file("event").c_str(), times, 0);
  EXPECT_EQ(server->checkTable("event", 1), 0);
}

TEST_F(BindingTest, AnEmptyTableIsNewOnceAndThenUnchanged) {
  EXPECT_EQ(server->checkTable("calibration", 1), 2);
  EXPECT_EQ(server->checkTable("calibration", 1), 0);
  elog_clear_register(0);
  EXPECT_EQ(server->checkTable("wrong", 1), -1);
  EXPECT_EQ(taken_messages(), "EVServer::checkTable: no wrong table.\n");
}

TEST_F(BindingTest, ChecksTablesThatAreReadTogether) {
  EXPECT_EQ(server->checkTableTables("event", 1), 0);
  db.add_netmag(1, 1, "mb", 4.0);
  EXPECT_EQ(server->checkTableTables("event", 0), 2);
  EXPECT_EQ(server->checkTableTables("origin", 1), 2);
  EXPECT_EQ(server->checkTableTables("event", 1), 0);
}

TEST_F(BindingTest, ChecksForClientsWithAMemoryOfItsOwn) {
  Listener listener(*server);
  db.add_arrival(1, "AAA", 10.0);
  /* The refresh sees the new row first, and hides nothing from the check. */
  EXPECT_EQ(server->refreshEvents(0), 0);
  EXPECT_EQ(server->checkDatabase(), 0);
  EXPECT_EQ(server->checkDatabase(), 0);
  ASSERT_EQ(listener.checks.size(), 2U);
  EXPECT_EQ(listener.checks[0].size(), 3);
  EXPECT_EQ(listener.checks[0].get("arrival"), 2);
  EXPECT_EQ(listener.checks[0].get("wfdisc"), 0);
  EXPECT_EQ(listener.checks[1].get("arrival"), 0);
}

TEST_F(BindingTest, BindsOnce) {
  EXPECT_EQ(server->setDb(db.name()), 0);
  EXPECT_EQ(server->setDb("/tmp/another"), -1);
  EXPECT_EQ(taken_messages(), "EVServer::setDb: Cannot reset Db name.\n");
  EXPECT_EQ(server->refreshEvents(0), 0);
  EXPECT_EQ(server->eventsNumber(), 1);
}

TEST_F(BindingTest, StartsAgainAfterResetAndCleared) {
  EXPECT_EQ(server->reset(), 0);
  EXPECT_EQ(server->refreshEvents(0), 0);
  server->freeHooks();
  server->freeVectors();
  EXPECT_EQ(server->eventsNumber(), 0);
  EXPECT_EQ(server->refreshEvents(0), 0);
  EXPECT_EQ(server->eventsNumber(), 1);
  EXPECT_EQ(server->closeDb(), 0);
  EXPECT_EQ(server->closeDb(), -1);
  EXPECT_EQ(taken_messages(), "EVServer::closeDb: No database currently open.\n");
}

TEST_F(BindingTest, OfARelativeNameStaysWhenTheWorkingDirectoryChanges) {
  namespace fs = std::filesystem;
  const fs::path before = fs::current_path(), database = db.name();
  fs::current_path(database.parent_path());
  EVServer relative(database.filename(), 0, 0, -1);
  fs::current_path("/");
  EXPECT_EQ(relative.refreshEvents(1), 0);
  EXPECT_EQ(relative.eventsNumber(), 1);
  EXPECT_EQ(relative.reset(), 0) << taken_messages();
  EXPECT_EQ(relative.refreshEvents(0), 0);
  EXPECT_EQ(relative.eventsNumber(), 1);
  fs::current_path(before);
}

TEST_F(BindingTest, MovesRowsThroughTheScratchRecord) {
  std::string row, back;
  EXPECT_EQ(server->getsetScratch("event", row, 0), 0);
  row.replace(0, 8, "      77");
  EXPECT_EQ(server->getsetScratch("event", row, 1), 0);
  EXPECT_EQ(server->getsetScratch("event", back, 0), 0);
  EXPECT_EQ(back, row);
  std::string wrong = "short\n";
  EXPECT_EQ(server->getsetScratch("event", wrong, 1), -1);
}

TEST(BindingFailure, RefusesRemoteFilesAsTheModeSays) {
  EventDatabase db;
  db.add_event(1, -1);
  db.add_site("AAA", 1990001, -1, 0.0, 0.0);
  const std::string mounts = db.name() + "_mounts";
  std::ofstream(mounts) << "archive:/export / nfs rw 0 0\n";
  ksutil::set_mount_table(mounts.c_str());
  testing::internal::CaptureStderr();
  EXPECT_ANY_THROW(EVServer(db.name(), 0, 0, 1));
  EXPECT_NE(testing::internal::GetCapturedStderr().find(
                "EVServer::openTable: Database file " + db.file("event") +
                " appears to be remotely mounted."),
            std::string::npos);
  testing::internal::CaptureStderr();
  { EVServer server(db.name(), 0, 0, 0); }
  const std::string warned = testing::internal::GetCapturedStderr();
  EXPECT_NE(warned.find("EVServer::openTable: WARNING: Database file " +
                        db.file("event") + " appears to be remotely mounted."),
            std::string::npos);
  /* Station tables may be shared. */
  EXPECT_EQ(warned.find(db.file("site")), std::string::npos);
  ksutil::set_mount_table(nullptr);
  elog_clear_register(0);
}
