/* The refresh decides what clients are told.  A change that is consumed without being
 * read stays unseen until the next write; a report without a change makes every client
 * redraw for ever. */
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <future>
#include <memory>
#include <utility>

#include "events/records/internal/row_texts.h"
#include "platform/clock/clock.h"
#include "platform/elog/elog.h"
#include "platform/stock/files.h"
#include "tests/events/event_database.h"
#include "tests/events/messages.h"
#include "tests/support/rows.h"

using namespace ksutil::events;
using namespace ksutil::events::test;

namespace {

using ksutil::test::kEndOfArguments;
constexpr double kTime = 1.0e9;  // 2001-09-09, day 252

/* Two events, the first with two origins and everything below them. */
class RefreshTest : public testing::Test {
 protected:
  RefreshTest() {
    db.add_event(1, 11);
    db.add_event(2, 21);
    db.add_origin(11, 1, kTime);
    db.add_origin(12, 1, kTime + 1.0, 900.0);
    db.add_origin(21, 2, kTime - 100.0);
    db.add_origerr(11);
    db.add_netmag(101, 11, "mb", 4.5);
    db.add_mt(11, 1001.0);
    db.add_arrival(501, "AAA", kTime + 60.0);
    db.add_assoc(501, 11, "AAA", "d");
    db.add_stamag(101, "AAA", 4.6);
    db.add_site("AAA", 1990001, -1, 10.0, 30.0);
    db.add_detection("AAA", kTime + 5.0, "D");
    server = std::make_unique<EVServer>(db.name(), 0, 0, -1);
    listener = std::make_unique<Listener>(*server);
  }
  ~RefreshTest() override {
    listener.reset();
    server.reset();
    elog_clear_register(0);
  }

  /* The report of one refresh; nothing when nobody was told. */
  std::unique_ptr<EVResponse> refreshed(int force = 0) {
    listener->reports.clear();
    EXPECT_EQ(server->refreshEvents(force), 0);
    EXPECT_LE(listener->reports.size(), 1U);
    if (listener->reports.empty()) return nullptr;
    return std::make_unique<EVResponse>(listener->reports[0]);
  }
  EVEvent event(long evid) {
    EVEvent found;
    EXPECT_EQ(server->getEvid(evid, found), 0);
    return found;
  }
  EVEvent expanded(long evid) {
    EVEvent found;
    EXPECT_EQ(server->getExpandedEvent(nullptr, evid, found), 0);
    return found;
  }

  EventDatabase db;
  std::unique_ptr<EVServer> server;
  std::unique_ptr<Listener> listener;
};

/* Lets a table's file be looked at, which reads it once, but not be read, as a failing disk
 * or mount does. */
class UnreadableTable {
 public:
  explicit UnreadableTable(const std::string &file) : scope_(failing_calls()) {
    file_ = file;
    looks_ = 1;
  }

 private:
  static ssize_t failing_pread(int fd, void *to, std::size_t bytes, off_t at) {
    const std::filesystem::path link = "/proc/self/fd/" + std::to_string(fd);
    if (std::filesystem::read_symlink(link) != file_ || looks_-- > 0) {
      return pread(fd, to, bytes, at);
    }
    errno = EIO;
    return -1;
  }
  static ksutil::FileCalls failing_calls() {
    ksutil::FileCalls calls = ksutil::system_file_calls();
    calls.pread = failing_pread;
    return calls;
  }
  static inline std::string file_;
  static inline int looks_ = 0;
  ksutil::ScopedFileCalls scope_;
};

}  // namespace

TEST_F(RefreshTest, ReadsTheTree) {
  const EVEvent first = event(1);
  ASSERT_EQ(first.origins.size(), 2);
  /* The older load date comes first. */
  EXPECT_EQ(first.origins.ptr(0)->orid, 12);
  const EVOrigin &preferred = *first.origins.ptr(1);
  EXPECT_EQ(first.pref_origin, 1);
  EXPECT_EQ(preferred.preferred, 1);
  EXPECT_EQ(first.time, kTime);
  EXPECT_EQ(preferred.recno_origerr, 0);
  EXPECT_EQ(preferred.magnitudes.size(), 1);
  EXPECT_EQ(preferred.pref_moment, 0);
  EXPECT_EQ(first.pref_moment_origin, 1);
  EXPECT_EQ(first.lddate_view, 1001.0);
  EXPECT_EQ(first.magnitude, 4.5);
  EXPECT_EQ(first.magtype, "mb");
  EXPECT_EQ(preferred.record_origin.view().back(), '\n');
  EXPECT_EQ(preferred.associations.size(), 0);
  EXPECT_EQ(server->detectionsNumber(), 1);
  EXPECT_EQ(server->getMostRecentEvid(), 1);
  EXPECT_EQ(server->getLastModifiedEvid(), 1);
}

TEST_F(RefreshTest, TellsNobodyWithoutAChange) {
  EXPECT_EQ(refreshed(), nullptr);
  const auto forced = refreshed(1);
  ASSERT_NE(forced, nullptr);
  EXPECT_EQ(forced->events_changed, 1);
  EXPECT_EQ(forced->changed_evids.size(), 0);
  /* The first look after a forced one reads everything again, and finds it the same. */
  EXPECT_EQ(refreshed(), nullptr);
  EXPECT_EQ(refreshed(), nullptr);
}

TEST_F(RefreshTest, ForceReadsARowThatWasRewrittenWithItsTimePutBack) {
  struct stat before;
  ASSERT_EQ(::stat(db.file("origin").c_str(), &before), 0);
  dbputv(db.row("origin", 2), "depth", 12.0, kEndOfArguments);
  const struct timespec times[2] = {before.st_atim, before.st_mtim};
  ASSERT_EQ(::utimensat(AT_FDCWD, db.file("origin").c_str(), times, 0), 0);
  EXPECT_EQ(refreshed(), nullptr) << "the time of change decides without force";
  const auto forced = refreshed(1);
  ASSERT_NE(forced, nullptr);
  EXPECT_EQ(forced->changed_evids.size(), 1);
  EXPECT_NE(event(2).origins.get(0).record_origin.view().find(" 12.0000 "),
            std::string_view::npos);
}

TEST_F(RefreshTest, ReportsEachTableOfTheListByItsEvent) {
  const struct {
    const char *table;
    long row;
  } cases[] = {{"event", 1}, {"origin", 1}, {"origerr", 0}, {"netmag", 0}, {"mt", 0}};
  double lddate = 5000.0;
  for (const auto &c : cases) {
    SCOPED_TRACE(c.table);
    dbputv(db.row(c.table, c.row), "lddate", lddate++, kEndOfArguments);
    const auto report = refreshed();
    ASSERT_NE(report, nullptr);
    EXPECT_EQ(report->events_changed, 1);
    EXPECT_EQ(report->expanded_changed, 0);
    const long evid = std::string(c.table) == "event" ? 2 : 1;
    EXPECT_EQ(values(report->changed_evids), std::vector<long>{evid});
  }
}

TEST_F(RefreshTest, ReportsExpandedEventsWhenWhatTheyReadHasChanged) {
  const EVEvent before = expanded(1);
  const EVOrigin &origin = *before.origins.ptr(1);
  ASSERT_EQ(origin.associations.size(), 1);
  EXPECT_EQ(origin.associations.ptr(0)->defining, 1);
  EXPECT_EQ(origin.associations.ptr(0)->recno_arrival, 0);
  EXPECT_EQ(origin.associations.ptr(0)->recno_site, 0);
  EXPECT_EQ(origin.magnitudes.ptr(0)->stamags.size(), 1);
  ASSERT_EQ(origin.detections.size(), 1);

  dbputv(db.row("assoc", 0), "timedef", "n", kEndOfArguments);
  auto report = refreshed();
  ASSERT_NE(report, nullptr);
  EXPECT_EQ(report->events_changed, 0);
  EXPECT_EQ(report->detections_changed, 0);
  EXPECT_EQ(report->expanded_changed, 1);
  EXPECT_EQ(values(report->changed_evids), std::vector<long>{1});

  const struct {
    const char *table, *field;
  } others[] = {{"arrival", "lddate"}, {"stamag", "lddate"}};
  for (const auto &other : others) {
    SCOPED_TRACE(other.table);
    refreshed();
    dbputv(db.row(other.table, 0), other.field, 7000.0, kEndOfArguments);
    report = refreshed();
    ASSERT_NE(report, nullptr);
    EXPECT_EQ(report->expanded_changed, 1);
    EXPECT_EQ(report->detections_changed, 0);
  }
  dbputv(db.row("site", 0), "lat", 11.0, kEndOfArguments);
  report = refreshed();
  ASSERT_NE(report, nullptr);
  EXPECT_EQ(report->expanded_changed, 1);
  EXPECT_EQ(report->detections_changed, 1);
  EXPECT_TRUE(equal_expanded(expanded(1), expanded(1)));
}

/* Texts of an event that was read again lie in new memory. */
TEST_F(RefreshTest, ReadsOnlyExpandedEventsAgainWhoseRowsHaveChanged) {
  const auto cached = [&](long evid) {
    EVEvent found;
    EXPECT_EQ(server->containsExpandedEvent(evid, found), 1);
    return found;
  };
  expanded(1);
  expanded(2);
  db.add_arrival(900, "AAA", kTime);
  refreshed();
  EVEvent first = cached(1), second = cached(2);
  const auto read_again = [&](long evid, const EVEvent &before) {
    return !cached(evid).record_event.same_place(before.record_event);
  };
  db.add_arrival(901, "AAA", kTime);
  EXPECT_EQ(refreshed(), nullptr);
  EXPECT_FALSE(read_again(1, first));
  EXPECT_FALSE(read_again(2, second));

  const long orid = second.origins.ptr(0)->orid;
  db.add_assoc(902, orid, "AAA", "d");
  auto report = refreshed();
  ASSERT_NE(report, nullptr);
  EXPECT_EQ(values(report->changed_evids), std::vector<long>{2});
  EXPECT_FALSE(read_again(1, first));
  EXPECT_TRUE(read_again(2, second));
  EXPECT_EQ(cached(2).origins.ptr(0)->associations.ptr(0)->recno_arrival, -1);

  /* The arrival of an association that was without one. */
  second = cached(2);
  db.add_arrival(902, "AAA", kTime);
  report = refreshed();
  ASSERT_NE(report, nullptr);
  EXPECT_EQ(values(report->changed_evids), std::vector<long>{2});
  EXPECT_FALSE(read_again(1, first));
  EXPECT_GE(cached(2).origins.ptr(0)->associations.ptr(0)->recno_arrival, 0);
}

TEST_F(RefreshTest, ReadsDetectionsWithTheirResiduals) {
  for (const char *state : {"ON", "on", "OFF", "off", "-"}) {
    db.add_detection("AAA", kTime + 6.0, state);
  }
  db.add_detection("ZZZ", kTime + 1800.0, "P");
  db.add_detection("AAA", kTime + 1800.1, "P");
  db.add_detection("AAA", kTime - 10.1, "P");
  const EVEvent read = expanded(1);
  const Table<EVDetection> &detections = read.origins.ptr(1)->detections;
  ASSERT_EQ(detections.size(), 2);
  const EVDetection &known = *detections.ptr(0);
  /* 10 degrees of longitude at 10 degrees north; P of iasp91 from 33 km takes about
   * 139 s there, S about 246 s. */
  EXPECT_NEAR(known.delta, 9.8477, 1e-3);
  EXPECT_NEAR(known.presidual, 5.0 - 139.4, 2.0);
  EXPECT_NEAR(known.sresidual, 5.0 - 248.5, 4.0);
  const EVDetection &unknown = *detections.ptr(1);
  EXPECT_EQ(unknown.recno_site, -1);
  EXPECT_EQ(unknown.presidual, -999.0);
  EXPECT_EQ(unknown.delta, -999.0);

  /* The window ends 10 s after the latest event: 5.0 and the one before it are in. */
  const auto report = refreshed();
  ASSERT_NE(report, nullptr);
  EXPECT_EQ(report->detections_changed, 1);
  EXPECT_EQ(report->events_changed, 0);
  EXPECT_EQ(server->detectionsNumber(), 2);
  EXPECT_EQ(server->getDetections().ptr(0)->presidual, -999.0);
}

TEST_F(RefreshTest, AddsAnOriginsOwnMagnitudesWhenNetmagLacksThem) {
  dbputv(db.row("origin", 0), "mb", 4.5, "ms", 5.1, "msid", 101L, "ml", 3.0, "mlid",
         777L, kEndOfArguments);
  refreshed();
  const EVEvent first = event(1);
  const EVOrigin &origin = *first.origins.ptr(1);
  /* mb stands in netmag by type and value, ms by its id. */
  ASSERT_EQ(origin.magnitudes.size(), 2);
  const EVMagnitude &own = *origin.magnitudes.ptr(1);
  EXPECT_EQ(own.magtype, "ml");
  EXPECT_EQ(own.recno_netmag, -1);
  EXPECT_EQ(own.lddate_netmag, 0.0);
  EXPECT_EQ(own.record_netmag.view().substr(0, 8), "     777");
  EXPECT_EQ(own.record_netmag.view().back(), '\n');
  EXPECT_EQ(refreshed(), nullptr);
  const auto forced = refreshed(1);
  EXPECT_EQ(forced->changed_evids.size(), 0);
}

TEST_F(RefreshTest, PrefersTheNewestOriginWhenPreforIsMissing) {
  dbputv(db.row("event", 0), "prefor", 99L, kEndOfArguments);
  refreshed();
  const EVEvent first = event(1);
  EXPECT_EQ(first.pref_origin, 1);
  EXPECT_EQ(first.origins.ptr(1)->preferred, 1);
  EXPECT_EQ(first.time, kTime);
  dbputv(db.row("origin", 0), "lddate", 900.0, kEndOfArguments);
  refreshed();
  /* Equal load dates keep the order of the table. */
  EXPECT_EQ(event(1).origins.ptr(0)->orid, 11);
  EXPECT_EQ(event(1).time, kTime + 1.0);
}

TEST_F(RefreshTest, KeepsTheLastRowsUnderALimit) {
  for (long evid = 3; evid <= 25; evid++) db.add_event(evid, -1);
  EXPECT_EQ(server->setMaxEvents(10), 0);
  ASSERT_EQ(server->eventsNumber(), 10);
  EXPECT_EQ(server->getEvents().ptr(0)->evid, 16);
  EXPECT_EQ(server->getEvents().ptr(9)->order, 9);
  EXPECT_EQ(server->setMaxEvents(100), 0);
  EXPECT_EQ(server->eventsNumber(), 25);
  EXPECT_EQ(server->findEvid(16), 15);
  EXPECT_EQ(server->findEvid(99), -1);
  /* An event that the limit leaves out can still be expanded. */
  EXPECT_EQ(server->setMaxEvents(1), 0);
  EXPECT_EQ(expanded(1).origins.ptr(1)->associations.size(), 1);
}

TEST_F(RefreshTest, SkipsAnEventThatCannotBeRead) {
  taken_messages();
  db.overwrite("origin", 0, "  wrong  ");  // lat, which the list does not need
  EXPECT_EQ(values(refreshed()->changed_evids), std::vector<long>{1});
  db.overwrite("origin", 29, "time?");
  const auto report = refreshed();
  ASSERT_NE(report, nullptr);
  EXPECT_EQ(values(report->removed_evids), std::vector<long>{1});
  EXPECT_EQ(taken_messages(), "");
  EVEvent event;
  EXPECT_EQ(server->refreshEvent(0, &event, nullptr), 10);
  EXPECT_EQ(server->refreshEvent(99, &event, nullptr), 10);
  EXPECT_EQ(taken_messages(), "");
  dbputv(db.row("origin", 0), "lat", 1.0, "time", kTime, kEndOfArguments);
  EXPECT_EQ(values(refreshed()->changed_evids), std::vector<long>{1});
}

TEST_F(RefreshTest, ExpandsTheRowOfAnEvidThatCanBeRead) {
  db.add_event(2, 21);  // as the list has it, beside a row with the same evid
  db.overwrite("event", 77 + 25, "     x.y");
  EXPECT_EQ(server->refreshEvents(0), 0);
  EVEvent found;
  EXPECT_EQ(server->getExpandedEvent(nullptr, 2, found), 0);
  EXPECT_EQ(found.recno_event, 2);
}

TEST_F(RefreshTest, GivesExpandedEventsTheOrderOfTheList) {
  db.add_event(2, 21);
  db.add_event(3, 31);
  EXPECT_EQ(server->refreshEvents(0), 0);
  for (const int most : {0, 2, 1}) {
    server->setMaxEvents(most);
    for (const long evid : {2, 3}) {
      EVEvent listed;
      const bool shown = server->getEvid(evid, listed) == 0;
      EXPECT_EQ(shown, most != 1 || evid == 3);
      EXPECT_EQ(expanded(evid).order, shown ? listed.order : -1);
    }
  }
}

TEST_F(RefreshTest, PicksUpWhatAFailedRefreshHasConsumed) {
  dbputv(db.row("event", 0), "lddate", 3000.0, kEndOfArguments);
  server->closeDb();
  taken_messages();
  EXPECT_EQ(server->refreshEvents(0), -1);
  EXPECT_EQ(taken_messages(), "EVServer::refreshEvents: No database currently open.\n");
  EXPECT_EQ(server->reset(), 0);
  const auto report = refreshed();
  ASSERT_NE(report, nullptr);
  EXPECT_EQ(values(report->changed_evids), std::vector<long>{1});
}

/* Rows that the system does not hand out are not rows that are gone. */
TEST_F(RefreshTest, LosesNothingToATableThatCannotBeReadForNow) {
  const std::string list = "EVServer::refreshEvents: cannot read the tables.\n";
  const std::string window = "EVServer::refreshEvents: refreshDetections() error.\n";
  const std::string expansion =
      "EVServer::refreshEvents: refreshAssociations() error.\n";
  const struct {
    const char *table;
    bool of_expanded;
    std::string message;
  } cases[] = {{"event", false, list},      {"origin", false, list},
               {"netmag", false, list},     {"detection", false, window},
               {"site", false, window},     {"assoc", true, expansion},
               {"stamag", true, expansion}, {"detection", true, expansion}};
  double lddate = 5000.0;
  for (const auto &c : cases) {
    SCOPED_TRACE(c.table);
    if (c.of_expanded) expanded(1);
    const Table<EVEvent> before = server->getEvents();
    dbputv(db.row(c.table, 0), "lddate", lddate++, kEndOfArguments);
    taken_messages();
    listener->refresh_pending = 1;
    {
      const UnreadableTable unreadable(db.file(c.table));
      EXPECT_EQ(server->refreshEvents(0), -1);
    }
    EXPECT_EQ(listener->refresh_pending, 0);
    const std::string messages = taken_messages();
    EXPECT_NE(messages.find(": Cannot read records 0 to "), std::string::npos);
    EXPECT_NE(messages.find(c.message), std::string::npos) << messages;
    EXPECT_TRUE(same_lists(server->getEvents(), before));
    EXPECT_EQ(server->detectionsNumber(), 1);
    EXPECT_NE(refreshed(), nullptr);
    EXPECT_EQ(taken_messages(), "");
  }
  EXPECT_EQ(event(1).origins.ptr(1)->magnitudes.size(), 1);
}

TEST_F(RefreshTest, KeepsItsListsWhileTheDatabaseIsGone) {
  const std::filesystem::path folder = std::filesystem::path(db.name()).parent_path();
  const std::filesystem::path moved = folder.string() + ".moved";
  const Table<EVEvent> before = server->getEvents();
  std::filesystem::rename(folder, moved);
  taken_messages();
  EXPECT_EQ(server->refreshEvents(0), -1);
  EXPECT_NE(taken_messages().find(": Cannot look at its folder "), std::string::npos);
  EXPECT_TRUE(same_lists(server->getEvents(), before));
  EXPECT_EQ(server->detectionsNumber(), 1);
  std::filesystem::rename(moved, folder);
  EXPECT_EQ(server->refreshEvents(0), 0);
  EXPECT_TRUE(same_lists(server->getEvents(), before));
  EXPECT_EQ(taken_messages(), "");
}

/* The lists go away between the reading of what has changed and its publication. */
TEST_F(RefreshTest, SurvivesListsThatAreFreedMeanwhile) {
  static std::promise<void> *reading = nullptr;
  static std::shared_future<void> locked;
  static thread_local bool refreshes = false;  // the worker asks for the time as well
  std::promise<void> begun, go_on;
  reading = &begun;
  locked = go_on.get_future();
  dbputv(db.row("event", 0), "lddate", 3000.0, kEndOfArguments);
  set_clock([] {
    if (!refreshes) return kTime;
    if (auto *const first = std::exchange(reading, nullptr)) {
      first->set_value();
      locked.wait();
    }
    return kTime;
  });
  auto refresh = std::async(std::launch::async, [&] {
    refreshes = true;
    return server->refreshEvents(0);
  });
  begun.get_future().wait();
  server->grabEventsLock();
  go_on.set_value();
  server->freeVectors();
  server->releaseEventsLock();
  EXPECT_EQ(refresh.get(), 0);
  set_clock(nullptr);
  EXPECT_EQ(server->eventsNumber(), 0);
  EXPECT_EQ(server->refreshEvents(0), 0);
  EXPECT_EQ(server->eventsNumber(), 2);
}

TEST_F(RefreshTest, HasDetectionsOnlyWhileTheyAreOn) {
  expanded(1);
  server->setDetections(0);
  const auto off = refreshed();
  ASSERT_NE(off, nullptr);
  EXPECT_EQ(off->detections_changed, 1);
  EXPECT_EQ(off->expanded_changed, 1);
  EXPECT_EQ(server->detectionsNumber(), 0);
  EXPECT_EQ(expanded(1).origins.ptr(1)->detections.size(), 0);
  EXPECT_EQ(refreshed(), nullptr);
  server->setDetections(1);
  refreshed();
  EXPECT_EQ(server->detectionsNumber(), 1);
  EXPECT_EQ(expanded(1).origins.ptr(1)->detections.size(), 1);
}

TEST_F(RefreshTest, EndsTheDetectionWindowNowOnRequest) {
  set_clock([] { return kTime + 7206.0; });
  server->setAgeRefNow(1);
  db.add_detection("AAA", kTime + 7206.0, "P");  // the first is 7201 s ago
  refreshed();
  set_clock(nullptr);
  ASSERT_EQ(server->detectionsNumber(), 1);
  EXPECT_EQ(server->getDetections().ptr(0)->recno_detection, 1);
}

TEST_F(RefreshTest, ForgetsExpandedEventsThatAreGone) {
  expanded(2);
  db.remove_last_row("event");
  const auto report = refreshed();
  ASSERT_NE(report, nullptr);
  EXPECT_EQ(values(report->removed_evids), std::vector<long>{2});
  EXPECT_EQ(server->containsExpandedEvent(2), 0);
  EVEvent event;
  EXPECT_EQ(server->getExpandedEvent(nullptr, 2, event), -1);
}

TEST_F(RefreshTest, PurgesTheEventsHandedOutLongestAgo) {
  static double now = kTime;
  set_clock([] { return now++; });
  db.add_event(3, -1);
  refreshed();
  for (const long evid : {1, 2, 3}) expanded(evid);
  expanded(1);
  server->setMaxExpandedEvents(2);
  refreshed(1);
  EXPECT_EQ(server->containsExpandedEvent(1), 1);
  EXPECT_EQ(server->containsExpandedEvent(2), 0);
  EXPECT_EQ(server->containsExpandedEvent(3), 1);
  /* The cache grows under a quiet database too. */
  expanded(2);
  EXPECT_EQ(server->expandedNumber(), 3);
  refreshed();
  set_clock(nullptr);
  EXPECT_EQ(server->expandedNumber(), 2);
  EXPECT_EQ(server->containsExpandedEvent(3), 0);
}

TEST_F(RefreshTest, IsRefusedToTheOwnerOfTheEventsLock) {
  server->grabEventsLock();
  EXPECT_EQ(server->refreshEvents(0), -1);
  EXPECT_EQ(server->setMaxEvents(5), -1);
  server->releaseEventsLock();
  EXPECT_EQ(server->refreshEvents(0), 0);
}

TEST_F(RefreshTest, FindsTheStationEpochThatBeganLast) {
  db.add_site("AAA", 1995001, 2001252, 12.0, 30.0);
  db.add_site("AAA", 2001253, -1, 13.0, 30.0);
  EXPECT_EQ(expanded(1).origins.ptr(1)->associations.ptr(0)->recno_site, 1);
  dbputv(db.row("arrival", 0), "time", kTime + 86400.0, kEndOfArguments);
  refreshed();
  EXPECT_EQ(expanded(1).origins.ptr(1)->associations.ptr(0)->recno_site, 2);
}

TEST_F(RefreshTest, ReadsTheListAnewAfterTheRulesHaveChanged) {
  db.add_netmag(102, 11, "ml", 3.3);
  refreshed();
  EXPECT_EQ(event(1).magtype, "ml");
  char rules[] = "preferred_magnitudes &Tbl{\n mb\n}\n";
  EXPECT_EQ(server->setPreferredMagnitudes(rules), 0);
  dbputv(db.row("event", 1), "lddate", 4000.0, kEndOfArguments);
  refreshed();
  EXPECT_EQ(event(1).magtype, "mb");
  /* A slip of the pen does not leave the server without rules. */
  char broken[] = "preferred_magnitudes &Tbl{\n";
  EXPECT_EQ(server->setPreferredMagnitudes(broken), -1);
  refreshed(1);
  EXPECT_EQ(event(1).magtype, "mb");
}

TEST(RowHome, KeepsTheTextsOfAnEvent) {
  EVEvent event;
  event.record_event = "event\n";
  event.origins.push(EVOrigin());
  event.origins.ptr(0)->record_origin = "origin\n";
  event.origins.ptr(0)->magnitudes.push(EVMagnitude());
  event.origins.ptr(0)->magnitudes.ptr(0)->record_netmag = "netmag\n";
  const EVEvent before = event;
  gather_texts(event);
  EXPECT_TRUE(equal(before, event));
  EXPECT_FALSE(event.record_event.same_place(before.record_event));
}
