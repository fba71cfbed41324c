/* A server reads only what has changed.  One table whose changes are followed to the wrong
 * events leaves a stale magnitude or location on the screen until the next restart, and
 * nothing tells: what is followed must equal what is read anew, whatever was edited. */
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <utility>

#include "platform/db/store/internal/flat_files.h"
#include "platform/elog/elog.h"
#include "platform/stock/files.h"
#include "tests/events/event_database.h"
#include "tests/events/meddler.h"
#include "tests/support/rows.h"

using namespace ksutil::events;
using namespace ksutil::events::test;

namespace {

using ksutil::test::kEndOfArguments;

/* Random edits of a database, of the kinds that analysts and programs make. */
class Editor {
 public:
  Editor(EventDatabase &database, unsigned seed) : db_(database), random_(seed) {}

  void edit() {
    switch (pick(26)) {
      case 0:
        db_.add_event(id(), id(), date());
        break;
      case 1:
      case 2:
        db_.add_origin(id(), id(), date() * 10, date());
        break;
      case 3:
      case 4:
        db_.add_netmag(id(), id(), type(), size(), date());
        break;
      case 5:
        db_.add_origerr(id(), date());
        break;
      case 6:
        db_.add_mt(id(), date());
        break;
      case 7:
        put("event", "prefor", id());
        break;
      case 8:
        put("event", "evid", id());
        break;
      case 9:
        put("origin", "evid", id());
        break;
      case 10:
        put("origin", "orid", id());
        break;
      case 11:
        put("origin", "mb", size());
        break;
      case 12:
        put("origin", "lddate", date());
        break;
      case 13:
        put("netmag", "orid", id());
        break;
      case 14:
        put("netmag", "magnitude", size());
        break;
      case 15:
        put("mt", "lddate", date());
        break;
      case 16:
        put("origerr", "orid", id());
        break;
      case 17:
        rare();
        break;
      default:
        edit_expansion();
        break;
    }
  }

 private:
  /* Rows that only expanded events show. */
  void edit_expansion() {
    switch (pick(14)) {
      case 0:
      case 1:
        db_.add_arrival(id(), "AAA", date());
        break;
      case 2:
        db_.add_assoc(id(), id(), "AAA", "d");
        break;
      case 3:
        db_.add_stamag(id(), "AAA", size());
        break;
      case 4:
        put("assoc", pick(2) == 0 ? "orid" : "arid", id());
        break;
      case 5:
        put("arrival", "arid", id());
        break;
      case 6:
        put("arrival", "time", date());
        break;
      case 7:
        put("stamag", "magid", id());
        break;
      case 8:
        if (db_.count("arrival") > 0) db_.remove_last_row("arrival");
        break;
      case 9:
        db_.add_site("AAA", day(), pick(2) == 0 ? -1 : day(), size(), size());
        break;
      case 10:
        put("site", pick(2) == 0 ? "ondate" : "offdate", day());
        break;
      case 11:
        db_.add_detection("AAA", date() * 10, pick(4) == 0 ? "ON" : "D");
        break;
      case 12:
        put("detection", "time", date() * 10);
        break;
      case 13:
        if (db_.count("detection") > 0) db_.remove_last_row("detection");
        break;
    }
  }

  void rare() {
    switch (pick(4)) {
      case 0:
        if (db_.count("netmag") > 0) db_.remove_last_row("netmag");
        break;
      case 1:
        if (db_.count("event") > 3) db_.remove_last_row("event");
        break;
      case 2:  // a magnitude that cannot be read hides its event
        if (const long row = some_row("netmag"); row >= 0) {
          long size = 0;
          dbquery(db_.table("netmag"), dbq_record_size, &size);
          db_.overwrite("netmag", row * size + 51, "x");
        }
        break;
      case 3:
        put("event", "evid", -1L);
        break;
    }
  }

  long pick(long n) { return static_cast<long>(random_() % static_cast<unsigned>(n)); }
  long id() { return 1 + pick(40); }
  long day() { return 1969364 + (pick(2) == 0 ? 0 : 637 + pick(3)); }
  double date() { return 1000.0 + static_cast<double>(pick(20)); }
  double size() { return static_cast<double>(pick(80)) / 10.0; }
  const char *type() {
    const char *const types[] = {"mb", "MW", "ml", "md"};
    return types[pick(4)];
  }
  long some_row(const char *table) {
    const long rows = db_.count(table);
    return rows == 0 ? -1 : pick(rows);
  }
  template <class Value>
  void put(const char *table, const char *field, Value value) {
    if (const long row = some_row(table); row >= 0) {
      dbputv(db_.row(table, row), field, value, kEndOfArguments);
    }
  }

  EventDatabase &db_;
  std::mt19937 random_;
};

std::set<long> evids(const Table<EVEvent> &list) {
  std::set<long> result;
  for (const EVEvent &event : list) result.insert(event.evid);
  return result;
}

/* The expanded events of a server's cache. */
using Expanded = std::map<long, EVEvent>;
Expanded expanded_of(EVServer &server) {
  Expanded found;
  for (long evid = 1; evid <= 40; evid++) {
    EVEvent event;
    if (server.containsExpandedEvent(evid, event) == 1) found.emplace(evid, event);
  }
  return found;
}

/* Another server reads them anew at each forced refresh. */
void check_expanded(const Expanded &cached, EVServer &anew) {
  const ksutil::ElogScope unreadable;
  for (const auto &[evid, event] : cached) {
    EVEvent fresh;
    /* An event that cannot be read stays as it was. */
    if (anew.getExpandedEvent(nullptr, evid, fresh) != 0) continue;
    EXPECT_TRUE(equal_expanded(event, fresh)) << "evid " << evid;
  }
}

/* What a report has to say, from the lists and the expanded events alone. */
void check_report(const Table<EVEvent> &before, const Table<EVEvent> &now,
                  const Expanded &expanded_before, const Expanded &expanded_now,
                  const EVResponse &report) {
  std::vector<long> changed, removed;
  const EventIndex old_events(before);
  std::set<long> seen;
  for (const EVEvent &event : now) {
    if (!old_events.contains_equal(event) && seen.insert(event.evid).second) {
      changed.push_back(event.evid);
    }
  }
  const std::set<long> present = evids(now);
  seen.clear();
  for (const EVEvent &event : before) {
    if (!present.contains(event.evid) && seen.insert(event.evid).second) {
      removed.push_back(event.evid);
    }
  }
  const bool list_changed =
      !changed.empty() || !removed.empty() || before.size() != now.size();
  for (const auto &[evid, event] : expanded_before) {
    const auto after = expanded_now.find(evid);
    if (after != expanded_now.end() && !equal_expanded(event, after->second) &&
        std::find(changed.begin(), changed.end(), evid) == changed.end()) {
      changed.push_back(evid);
    }
  }
  EXPECT_EQ(values(report.changed_evids), changed);
  EXPECT_EQ(values(report.removed_evids), removed);
  EXPECT_EQ(report.events_changed, list_changed ? 1 : 0);
}

void follow(unsigned seed, int max_events) {
  SCOPED_TRACE("seed " + std::to_string(seed));
  EventDatabase database;
  Editor editor(database, seed);
  for (long evid = 1; evid <= 30; evid++) {
    database.add_event(evid, evid, 1000.0);
    database.add_origin(evid, evid, 100.0 * static_cast<double>(evid));
  }
  EVServer server(database.name(), 0, max_events, -1);
  Listener listener(server);
  std::mt19937 random(seed + 1000);
  std::shared_ptr<const Table<EVEvent>> held;
  Table<EVEvent> held_copy;
  std::unique_ptr<EVServer> anew;
  for (int round = 0; round < 40; round++) {
    SCOPED_TRACE("round " + std::to_string(round));
    const Table<EVEvent> before = server.getEvents();
    const long edits = static_cast<long>(random() % 4);
    for (long i = 0; i < edits; i++) editor.edit();
    listener.reports.clear();
    const Expanded expanded_before = expanded_of(server);
    /* Readers hold the list at times, and then it must not change under them. */
    if (random() % 3 == 0) {
      held = server.eventsList();
      held_copy = *held;
    } else {
      held = nullptr;
    }
    ASSERT_EQ(server.refreshEvents(0), 0);
    const Table<EVEvent> now = server.getEvents();
    if (held != nullptr) {
      EXPECT_TRUE(same_lists(*held, held_copy));
    }

    if (anew == nullptr || round % 10 == 0) {
      anew = std::make_unique<EVServer>(database.name(), 0, max_events, -1);
    } else {
      ASSERT_EQ(anew->refreshEvents(1), 0);
    }
    ASSERT_TRUE(same_lists(now, anew->getEvents()));
    const Expanded expanded = expanded_of(server);
    check_expanded(expanded, *anew);
    EXPECT_EQ(server.getLastModifiedEvid(), anew->getLastModifiedEvid());
    EXPECT_EQ(server.getMostRecentEvid(), anew->getMostRecentEvid());
    if (listener.reports.empty()) {
      EXPECT_TRUE(same_lists(before, now));
    } else {
      ASSERT_EQ(listener.reports.size(), 1U);
      check_report(before, now, expanded_before, expanded, listener.reports[0]);
    }
    const ksutil::ElogScope unreadable;
    for (auto more = random() % 4; more > 0; more--) {
      EVEvent shown;
      /* Also between an edit and the refresh that finds it. */
      if (random() % 3 == 0) editor.edit();
      server.getExpandedEvent(nullptr, 1 + static_cast<long>(random() % 40), shown);
    }
  }
}

}  // namespace

/* A reading that meets rows of two states begins again, and ends although the other
 * program never does; once it has ended, the list is that of a fresh server. */
TEST(FollowedList, EqualsOneReadAnewAfterRowsWereOverwrittenUnderTheReading) {
  constexpr long kOrid = 55, kEvid = 64;  // their last digits in a row
  const ksutil::db::ScopedBlockBudget tiny(1);
  for (unsigned seed = 31; seed <= 42; seed++) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    EventDatabase database;
    for (long evid = 1; evid <= 30; evid++) database.add_located_event(evid, 1000.0);
    Meddler meddler(database, {"origin", {kOrid, kEvid}}, seed, 1 + seed % 3);
    meddler.start(seed % 4 == 0 ? -1 : 5);
    EVServer server(database.name(), 0, 0, -1);
    Editor editor(database, seed);
    for (int round = 0; round < 6; round++) {
      editor.edit();
      ASSERT_EQ(server.refreshEvents(0), 0) << "round " << round;
    }
    meddler.stop();
    ASSERT_EQ(server.refreshEvents(0), 0);
    EVServer anew(database.name(), 0, 0, -1);
    ASSERT_TRUE(same_lists(server.getEvents(), anew.getEvents()));
  }
}

TEST(FollowedList, EqualsOneReadAnewAfterAnyEdits) {
  for (unsigned seed = 1; seed <= 8; seed++) follow(seed, 0);
}

/* Nearly nothing is kept of what was read: changes are found by fingerprints alone. */
TEST(FollowedList, EqualsOneReadAnewWithoutTheOldRows) {
  const ksutil::db::ScopedBlockBudget tiny(1);
  for (unsigned seed = 21; seed <= 26; seed++) follow(seed, 0);
  follow(27, 25);
}

TEST(FollowedList, EqualsOneReadAnewWithinAMovingWindow) {
  for (unsigned seed = 11; seed <= 14; seed++) follow(seed, 25);
}
