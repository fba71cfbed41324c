/* A monitor that misses a change leaves old data on a screen.  A monitor that cannot be
 * stopped, or two monitors after two starts, hang or crash the program. */
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "tests/events/view_database.h"

using namespace ksutil::events::test;

namespace {

using Texts = std::map<std::string, std::string>;

Texts texts_of(rbtree *changes) {
  Texts texts;
  Tbl *keys = keysarr(changes);
  for (const char *key : records<const char>(keys)) {
    texts[key] = static_cast<const char *>(getarr(changes, key));
  }
  freetbl(keys, nullptr);
  return texts;
}

class ViewChanges : public ViewTest {
 protected:
  ~ViewChanges() override { freearr(changes, free); }
  Texts check() {
    EXPECT_EQ(view.checkChanges(&changes), 0);
    return texts_of(changes);
  }
  rbtree *changes = nullptr;
};

/* Collects the reports of a monitor on its thread; outlives the view. */
struct Reports {
  std::mutex lock;  // guards `seen`
  Texts seen;
  std::atomic<int> calls{0};
  std::atomic<bool> wrong_code{false};
};

int note(int code, void *arg, void *changes) {
  auto &reports = *static_cast<Reports *>(arg);
  if (code != 0) reports.wrong_code = true;
  const std::lock_guard lock(reports.lock);
  for (const auto &[table, text] : texts_of(static_cast<rbtree *>(changes))) {
    reports.seen[table] = text;
  }
  reports.calls++;
  return 0;
}

/* Gives up long before the time-out of the test. */
template <class Condition>
bool eventually(Condition condition) {
  for (int i = 0; i < 20000; i++) {
    if (condition()) return true;
    eventview_usleep(0.001);
  }
  return false;
}

bool calls_again(Reports &reports) {
  const int before = reports.calls;
  return eventually([&] { return reports.calls > before; });
}

/* Whether no call comes any more, after one that may be in progress. */
bool has_stopped(Reports &reports) {
  int last = -1;
  return eventually([&] {
    const int now = reports.calls;
    eventview_usleep(0.15);
    return std::exchange(last, now) == reports.calls;
  });
}

constexpr double kPeriod = 0.005;

}  // namespace

TEST_F(ViewChanges, ReportsEachChangeOnce) {
  db.add_event(1, -1);
  Texts first = check();
  EXPECT_EQ(first, (Texts{{"event", "added"},
                          {"origin", "added"},
                          {"origerr", "added"},
                          {"assoc", "added"},
                          {"arrival", "added"},
                          {"wfmeas", "added"},
                          {"netmag", "added"},
                          {"stamag", "added"},
                          {"mt", "added"},
                          {"site", "added"},
                          {"detection", "added"}}))
      << "the first look, at empty tables too";
  EXPECT_EQ(check(), Texts());
  dbputv(db.row("event", 0), "prefor", 5L, static_cast<char *>(nullptr));
  db.add_origin(5, 1, 100.0);
  EXPECT_EQ(check(), (Texts{{"event", "modified"}, {"origin", "added"}}));
  db.remove_last_row("origin");
  EXPECT_EQ(check(), (Texts{{"origin", "removed"}}));
  EXPECT_EQ(view.getTable("event").count, 1);
  EXPECT_EQ(view.getTable("origin").filetime, 0.0) << "a table without rows";
  EXPECT_EQ(check(), Texts());
}

TEST_F(ViewChanges, ReadingHidesNoChange) {
  check();
  db.add_located_event(1, 100.0);
  Tbl *events = nullptr;
  EXPECT_EQ(view.refreshEvents(&events), 0);
  view.freeEvents(events);
  EXPECT_EQ(check(),
            (Texts{{"event", "added"}, {"netmag", "added"}, {"origin", "added"}}));
}

TEST_F(ViewChanges, OpensOneDatabaseAndSaysWhyNotAnother) {
  EXPECT_EQ(view.configure("dbname", db.name().c_str(), static_cast<char *>(nullptr)),
            0);
  EXPECT_EQ(view.configure("dbname", "/tmp/other", static_cast<char *>(nullptr)), -1);
  EXPECT_NE(taken_messages().find("eventview_parse_dbname: database " + db.name() +
                                  " already open and cannot be reset to /tmp/other\n"),
            std::string::npos);
  char *name = eventview_print_dbname(nullptr, nullptr, nullptr, 0, &view);
  EXPECT_EQ(name, db.name());
  free(name);

  view.init();
  eventview_free_hooks(nullptr);
  KSEV_Table event = view.getTable("event");
  EXPECT_EQ(event.table.database, dbINVALID);
  char *change = nullptr;
  EXPECT_EQ(eventview_check_table(&event, &change), -1);
  EXPECT_EQ(change, nullptr);
  EXPECT_TRUE(
      taken_messages().ends_with("\neventview_check_table: table_stamp() error.\n"));
  EXPECT_EQ(view.reset(), -1);
  EXPECT_EQ(view.checkChanges(&changes), -1);
  Tbl *events = nullptr;
  KSEVOrigin origin;
  EXPECT_EQ(view.refreshEvents(&events), -1);
  EXPECT_EQ(view.refreshDetections(&origin, 0), -1);
  EXPECT_EQ(taken_messages(),
            "KSEventView::reset: No database currently open.\n"
            "KSEventView::checkChanges: No database currently open.\n"
            "KSEventView::refreshEvents: No database currently open.\n"
            "KSEventView::refreshDetections: No database currently open.\n");
  EXPECT_EQ(view.configure("dbname", "/nowhere/db", static_cast<char *>(nullptr)), -1);
  EXPECT_NE(
      taken_messages().find("eventview_parse_dbname: dbopen(/nowhere/db) error\n"),
      std::string::npos);
  EXPECT_EQ(view.configure("dbname", db.name().c_str(), static_cast<char *>(nullptr)),
            0);
  EXPECT_EQ(check().size(), 11U);
}

TEST_F(ViewChanges, RefusesASchemaThatLacksATable) {
  std::ostringstream text;
  text << std::ifstream(KSUTIL_SOURCE_DIR "/schemas/css3.0").rdbuf();
  std::string schema = text.str();
  for (const auto &[from, to] :
       {std::pair("\nname         css3.0", "\nname         bare"),
        std::pair("\n  mt &Arr{", "\n  mx &Arr{")}) {
    const std::size_t place = schema.find(from);
    ASSERT_NE(place, std::string::npos);
    schema.replace(place, std::strlen(from), to);
  }
  const std::string directory = std::filesystem::path(db.name()).parent_path();
  std::ofstream(directory + "/bare") << schema;
  setenv("KSUTIL_SCHEMA_PATH", directory.c_str(), 1);
  const std::string other = directory + "/other";
  EXPECT_EQ(dbcreate(other.c_str(), "bare"), 0) << taken_messages();
  KSEventView without(settings_of_view(other).get());
  unsetenv("KSUTIL_SCHEMA_PATH");
  const std::string messages = taken_messages();
  EXPECT_NE(
      messages.find("eventview_open_table: no mt table in the schema.\n"
                    "eventview_parse_dbname: mt: eventview_open_table() error.\n"),
      std::string::npos)
      << messages;
  Tbl *events = nullptr;
  EXPECT_EQ(without.refreshEvents(&events), -1);
}

TEST_F(ViewChanges, ResetReadsReplacedFiles) {
  db.add_located_event(1, 100.0);
  check();
  EXPECT_EQ(view.reset(), 0);
  EXPECT_EQ(check().size(), 11U);
  KSEVEvent *event = view.findEvid(1);
  ASSERT_NE(event, nullptr);
  /* With no files to open, the view keeps its open database. */
  std::filesystem::rename(db.name(), db.name() + "_away");
  for (const char *table : {"event", "origin", "netmag"}) {
    std::filesystem::rename(db.file(table), db.file(table) + "_away");
  }
  EXPECT_EQ(view.reset(), -1);
  EXPECT_NE(view.getTable("event").table.database, dbINVALID);
  view.freeEvent(event);
}

TEST_F(ViewChanges, MonitorReportsChangesAndCanBeStoppedAndStarted) {
  Reports reports, others;
  KSEventView watched(settings_of_view(db.name()).get());
  EXPECT_EQ(watched.monitorChangesThread(kPeriod, note, &reports), 0);
  EXPECT_TRUE(calls_again(reports));
  db.add_located_event(1, 100.0);
  /* The owner reads while the monitor checks. */
  EXPECT_TRUE(eventually([&] {
    Tbl *events = nullptr;
    EXPECT_EQ(watched.refreshEvents(&events), 0);
    watched.freeEvents(events);
    const std::lock_guard lock(reports.lock);
    return reports.seen["event"] == "added" && reports.seen.contains("detection");
  }));
  EXPECT_FALSE(reports.wrong_code);

  /* New settings reach a thread in the middle of a long sleep. */
  EXPECT_EQ(watched.monitorChangesThread(3600.0, note, &others), 0);
  EXPECT_TRUE(eventually([&] { return others.calls == 1; }));
  EXPECT_EQ(watched.monitorChangesThread(kPeriod, note, &reports), 0);
  EXPECT_TRUE(calls_again(reports));
  EXPECT_EQ(others.calls, 1);

  EXPECT_EQ(watched.monitorChangesThread(0.0, note, &reports), 0);
  EXPECT_TRUE(has_stopped(reports));
  EXPECT_EQ(watched.monitorChangesThread(kPeriod, note, &reports), 0);
  EXPECT_TRUE(calls_again(reports));
  /* Stops and starts that follow each other faster than the thread can notice. */
  for (int i = 0; i < 50; i++) {
    watched.monitorChangesThread(0.0, nullptr, nullptr);
    watched.monitorChangesThread(kPeriod, note, &reports);
  }
  EXPECT_TRUE(calls_again(reports));
}

TEST_F(ViewChanges, ViewEndsInTheMiddleOfALongSleep) {
  Reports reports;
  const auto start = std::chrono::steady_clock::now();
  {
    KSEventView ended(settings_of_view(db.name()).get());
    EXPECT_EQ(ended.monitorChangesThread(3600.0, note, &reports), 0);
    EXPECT_TRUE(eventually([&] { return reports.calls > 0; }));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
  EXPECT_EQ(reports.calls, 1);
}

TEST_F(ViewChanges, ACallbackMayReadAndStop) {
  struct Owner {
    KSEventView *view = nullptr;
    std::atomic<int> calls{0};
    std::atomic<long> events{-1};
  } owner;
  KSEventView watched(settings_of_view(db.name()).get());
  owner.view = &watched;
  db.add_located_event(1, 100.0);
  const auto read_and_stop = [](int, void *arg, void *) {
    auto &self = *static_cast<Owner *>(arg);
    Tbl *events = nullptr;
    self.view->refreshEvents(&events);
    self.events = counttbl(events);
    self.view->freeEvents(events);
    self.view->monitorChangesThread(0.0, nullptr, nullptr);
    self.calls++;
    return 0;
  };
  for (int round = 1; round <= 3; round++) {
    EXPECT_EQ(watched.monitorChangesThread(kPeriod, read_and_stop, &owner), 0);
    EXPECT_TRUE(eventually([&] { return owner.calls >= round; }));
  }
  EXPECT_EQ(owner.events, 1);
}

TEST_F(ViewChanges, ACallbackThatStartsTheMonitorAgainDoesNotKeepTheView) {
  struct Owner {
    KSEventView *view = nullptr;
    std::atomic<bool> called{false}, refused{false};
  } owner;
  const auto start_again = [](int, void *arg, void *) -> int {
    auto &self = *static_cast<Owner *>(arg);
    self.called = true;
    /* Repeats until the destructor runs, which waits for this call. */
    self.refused = eventually([&] {
      return self.view->monitorChangesThread(kPeriod, nullptr, nullptr) != 0;
    });
    return 0;
  };
  {
    KSEventView ended(settings_of_view(db.name()).get());
    owner.view = &ended;
    EXPECT_EQ(ended.monitorChangesThread(kPeriod, start_again, &owner), 0);
    EXPECT_TRUE(eventually([&] { return owner.called.load(); }));
  }
  EXPECT_TRUE(owner.refused);
  EXPECT_EQ(taken_messages(),
            "KSEventView::monitorChangesThread: the view is ending.\n");
}

TEST_F(ViewChanges, AnExceptionOfACallbackEndsNothing) {
  std::atomic<int> calls{0};
  KSEventView watched(settings_of_view(db.name()).get());
  const auto fail = [](int, void *arg, void *) -> int {
    ++*static_cast<std::atomic<int> *>(arg);
    throw std::runtime_error("no screen");
  };
  EXPECT_EQ(watched.monitorChangesThread(kPeriod, fail, &calls), 0);
  EXPECT_TRUE(eventually([&] { return calls >= 2; }));
  EXPECT_NE(taken_messages().find("KSEventView::monitorChangesThread: no screen.\n"),
            std::string::npos);
}

#if !defined(__SANITIZE_THREAD__)
TEST_F(ViewChanges, AMonitorThatCannotStartMayBeStartedLater) {
  Reports reports;
  KSEventView watched(settings_of_view(db.name()).get());
  pthread_attr_t usual, huge;
  pthread_getattr_default_np(&usual);
  pthread_attr_init(&huge);
  pthread_attr_setstacksize(&huge, std::size_t{1} << 46);
  pthread_setattr_default_np(&huge);
  EXPECT_EQ(watched.monitorChangesThread(kPeriod, note, &reports), -1);
  pthread_setattr_default_np(&usual);
  EXPECT_EQ(taken_messages().rfind(
                "KSEventView::monitorChangesThread: pthread_create() error.\n", 0),
            0U);
  EXPECT_EQ(watched.monitorChangesThread(kPeriod, note, &reports), 0);
  EXPECT_TRUE(calls_again(reports));
  watched.monitorChangesThread(0.0, nullptr, nullptr);
  EXPECT_TRUE(has_stopped(reports));
}
#endif
