/* Programs that list a large catalogue read its events one by one.  They must show what a
 * server would: an event that is lost at a seam between two readings, or one that mixes two
 * states of the database, looks like any other line of a list. */
#include "events/event_rows.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "events/records/internal/compare.h"
#include "platform/elog/elog.h"
#include "tests/events/event_database.h"
#include "tests/events/messages.h"

using namespace ksutil::events;
using namespace ksutil::events::test;

namespace {

/* More events than are read under one hold of the lock; a limit of the server does not
 * matter. */
class EventRows : public testing::Test {
 protected:
  static constexpr long kEvents = 1100;
  EventRows() {
    for (long evid = 1; evid <= kEvents; evid++) {
      db.add_located_event(evid, 1.0e9 + static_cast<double>(evid));
    }
  }
  ~EventRows() override { elog_clear_register(0); }

  /* Writes bytes into a row of a table. */
  void spoil(const std::string &table, long row, std::size_t at) {
    std::fstream file(db.file(table), std::ios::in | std::ios::out | std::ios::binary);
    std::string line;
    std::getline(file, line);
    file.seekp(
        static_cast<std::streamoff>((line.size() + 1) * static_cast<std::size_t>(row)) +
        static_cast<std::streamoff>(at));
    file << "x";
  }

  EventDatabase db;
};

TEST_F(EventRows, AreTheListOfAServerWithoutALimit) {
  spoil("event", 511, 3);    // its evid
  spoil("origin", 700, 3);   // the latitude, which the list does not need
  spoil("origin", 900, 32);  // the time
  EVServer whole(db.name(), 0, 0, -1);
  const auto expected = whole.eventsList();
  ASSERT_GT(expected->size(), kEvents - 3);
  ASSERT_LT(expected->size(), kEvents);

  EVServer server(db.name(), 0, 1, -1);
  long i = 0;
  EXPECT_EQ(each_event(server,
                       [&](EVEvent &event) {
                         const EVEvent *const other = expected->ptr(i++);
                         EXPECT_TRUE(other != nullptr && equal(event, *other));
                         EXPECT_TRUE(other != nullptr && event.order == other->order);
                         return !HasFailure();
                       }),
            0);
  EXPECT_EQ(i, expected->size());
}

/* Of events that are not wanted nothing else is read, and the others are as in a list. */
TEST_F(EventRows, AreFilteredByWhatEventAndOriginTell) {
  spoil("event", 511, 3);    // its evid
  spoil("origin", 900, 32);  // the time
  spoil("netmag", 600, 45);  // its magnitude: the event is left out
  spoil("netmag", 601, 45);  // of an event that is not wanted
  EVServer whole(db.name(), 0, 0, -1);
  std::vector<const EVEvent *> expected;
  const auto list = whole.eventsList();
  for (const EVEvent &event : *list) {
    if (event.evid % 3 == 1) expected.push_back(&event);
  }
  EVServer server(db.name(), 0, 1, -1);
  std::size_t i = 0;
  const auto wanted = [&](const EVEvent &outline) {
    EXPECT_EQ(outline.origins.size(), 1);
    EXPECT_EQ(outline.pref_origin, 0);
    EXPECT_EQ(outline.time, outline.origins.ptr(0)->time);
    EXPECT_EQ(outline.origins.ptr(0)->magnitudes.size(), 0);
    return outline.evid % 3 == 1;
  };
  const auto take = [&](EVEvent &event) {
    const bool known = i < expected.size();
    EXPECT_TRUE(known && equal(event, *expected[i]));
    EXPECT_TRUE(known && event.order == expected[i]->order);
    ++i;
    return !HasFailure();
  };
  EXPECT_EQ(each_event(server, wanted, take), 0);
  EXPECT_EQ(i, expected.size());
}

/* The server refreshes, and its indexes move on, while events are read. */
TEST_F(EventRows, AreOfOneStateOfTheDatabase) {
  EVServer server(db.name(), 0, 1, -1);
  long seen = 0, with_two_origins = 0;
  EXPECT_EQ(each_event(server,
                       [&](EVEvent &event) {
                         if (seen++ == 0) {
                           db.add_located_event(kEvents + 1, 2.0e9);
                           db.add_origin(90000, kEvents, 2.0e9);
                           EXPECT_EQ(server.refreshEvents(0), 0);
                         }
                         with_two_origins += event.origins.size() == 2 ? 1 : 0;
                         return true;
                       }),
            0);
  EXPECT_EQ(seen, kEvents);
  EXPECT_EQ(with_two_origins, 0);
}

TEST_F(EventRows, EndWhenTheCallerHasEnough) {
  EVServer server(db.name(), 0, 1, -1);
  long seen = 0;
  EXPECT_EQ(each_event(server, [&](EVEvent &) { return ++seen < 3; }), 0);
  EXPECT_EQ(seen, 3);
}

TEST_F(EventRows, FailWhenTheDatabaseIsClosedMeanwhile) {
  EVServer server(db.name(), 0, 1, -1);
  long seen = 0;
  EXPECT_EQ(each_event(server,
                       [&](EVEvent &) {
                         if (seen++ == 0) server.closeDb();
                         return true;
                       }),
            -1);
  EXPECT_LT(seen, kEvents);
  EXPECT_NE(taken_messages().find("each_event: "), std::string::npos);
}

}  // namespace
