/* The server as programs use it: a change that is not told, or told before it can be
 * read, leaves a screen showing old events; a wait that never ends freezes a program. */
#include "events/evserver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "events/evclient.h"
#include "events/records/internal/record_sizes.h"
#include "platform/stock/files.h"
#include "tests/events/bare_server.h"
#include "tests/events/event_database.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

long thread_count() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

/* Collects what it is told. */
class Witness : public EVClient {
 public:
  explicit Witness(EVServer &server_in) : EVClient(&server_in) {}
  void responseCallback(EVResponse response) override {
    const std::lock_guard lock(mutex_);
    responses_.push_back(response);
    if (on_call) on_call();
  }
  void checkDatabaseCallback(Array<std::string, int> changes) override {
    const std::lock_guard lock(mutex_);
    checks_.push_back(changes);
    if (on_call) on_call();
  }
  std::vector<EVResponse> responses() {
    const std::lock_guard lock(mutex_);
    return responses_;
  }
  std::vector<Array<std::string, int>> checks() {
    const std::lock_guard lock(mutex_);
    return checks_;
  }
  std::function<void()> on_call;  // set before anything can be told

 private:
  std::mutex mutex_;
  std::vector<EVResponse> responses_;
  std::vector<Array<std::string, int>> checks_;
};

class Server : public testing::Test {
 protected:
  Server() {
    for (const long evid : {1, 2, 3}) {
      database.add_located_event(evid, 1e9 + 100.0 * static_cast<double>(evid));
    }
  }
  /* Waits for the worker to come to the end of the queue. */
  void settle(EVClient &client) { client.getSite("", 0.0); }

  ksutil::events::test::EventDatabase database;
};

TEST_F(Server, ThatCannotBindItsDatabaseThrowsAndLeavesNoThread) {
  const long threads = thread_count();
  testing::internal::CaptureStderr();
  try {
    EVServer server("/nonexistent/net", 0, 0, -1);
    FAIL() << "no exception";
  } catch (const char *text) {
    EXPECT_STREQ(text, "EVServer::EVServer: setDb() error.");
  }
  EXPECT_THAT(
      testing::internal::GetCapturedStderr(),
      testing::AllOf(
          HasSubstr("EVServer::setDb: dbopen_noshare(/nonexistent/net) error\n"),
          HasSubstr("EVServer::EVServer: setDb(/nonexistent/net) error.\n")));
  EXPECT_EQ(thread_count(), threads);
}

TEST_F(Server, GivesItsEventsToAClient) {
  EVServer server(database.name(), 0, 0, -1);
  EVClient client(&server);
  client.grabEventsLock();
  EXPECT_EQ(client.eventsNumber(), 3);
  EVEvent event;
  EXPECT_EQ(client.getEvent(1, event), 0);
  EXPECT_EQ(event.evid, 2);
  EXPECT_EQ(client.getEvent(3L, event), 0);
  EXPECT_EQ(event.evid, 3);
  EXPECT_EQ(client.getEvent(3, event), -1);
  EXPECT_EQ(client.getEvent(-1, event), -1);
  EXPECT_EQ(client.getEvent(4L, event), -1);
  EXPECT_EQ(event.evid, 3) << "untouched by a failure";
  EXPECT_EQ(client.getMostRecentEvid(), 3);
  EXPECT_EQ(client.getEvents().size(), 3);
  client.releaseEventsLock();
  taken_messages();
  EXPECT_EQ(server.launchThread(), -1);
  EXPECT_EQ(taken_messages(),
            "EVServer::launchThread: processing thread already running.\n");
  server.deregisterClient(&client);
}

TEST_F(Server, TellsEachChangeOnce) {
  EVServer server(database.name(), 0, 0, -1);
  Witness witness(server);
  EXPECT_EQ(witness.refreshEvents(1), 0);
  EXPECT_TRUE(witness.responses().empty()) << "nothing has changed";
  database.add_located_event(4, 1e9 + 400.0);
  EXPECT_EQ(witness.refreshEvents(1), 0);
  EXPECT_EQ(witness.refreshEvents(1), 0);
  const auto responses = witness.responses();
  ASSERT_EQ(responses.size(), 1u);
  EXPECT_EQ(responses[0].events_changed, 1);
  ASSERT_EQ(responses[0].changed_evids.size(), 1);
  EXPECT_EQ(responses[0].changed_evids.get(0), 4);
  EXPECT_EQ(responses[0].mostrecent_evid, 4);
  EXPECT_EQ(witness.refreshEventsForce(1), 0);
  EXPECT_EQ(witness.responses().size(), 2u);
  server.deregisterClient(&witness);
}

int reads_before_failure = 0;

ssize_t failing_pread(int fd, void *to, std::size_t bytes, off_t at) {
  if (reads_before_failure-- > 0) return ::pread(fd, to, bytes, at);
  errno = EIO;
  return -1;
}

/* A disk that fails for a moment: what cannot be read has not gone. */
TEST_F(Server, KeepsItsEventsWhileATableCannotBeRead) {
  EVServer server(database.name(), 0, 0, -1);
  Witness witness(server);
  int failures = 0;
  for (int round = 0; round < 20; round++) {
    const long evid = 4 + round;
    database.add_located_event(evid, 1e9 + 100.0 * static_cast<double>(evid));
    ksutil::FileCalls calls = ksutil::system_file_calls();
    calls.pread = failing_pread;
    {
      const ksutil::ScopedFileCalls scope(calls);
      reads_before_failure = round;
      if (server.refreshEvents(0) != 0) failures++;
    }
    const auto list = server.eventsList();
    EXPECT_GE(list->size(), evid - 1) << "read " << round << " and the next failed";
    for (const EVEvent &event : *list) EXPECT_EQ(event.origins.size(), 1);
    EXPECT_EQ(server.refreshEvents(0), 0);
    EXPECT_EQ(server.eventsList()->size(), evid) << "after round " << round;
  }
  EXPECT_GT(failures, 5);
  for (const EVResponse &response : witness.responses()) {
    EXPECT_EQ(response.removed_evids.size(), 0);
  }
  server.deregisterClient(&witness);
  taken_messages();
}

TEST_F(Server, FollowsTheDatabaseByItself) {
  EVServer server(database.name(), 0, 0, -1);
  Witness witness(server);
  server.autoRefreshEvents(0.01);
  server.autoCheckDatabase(0.01);
  database.add_located_event(4, 1e9 + 400.0);
  EXPECT_TRUE(comes_true([&] { return witness.responses().size() == 1; }));
  dbaddv(database.table("arrival"), "sta", "ANMO", "time", 1e9, "arid", 1L, nullptr);
  EXPECT_TRUE(comes_true([&] {
    for (const auto &changes : witness.checks()) {
      if (changes.get("arrival") == 2) return true;
    }
    return false;
  }));
  const auto first = witness.checks().front();
  EXPECT_EQ(first.size(), 3);
  EXPECT_TRUE(first.contains("wfdisc") && first.contains("detection"));
  server.deregisterClient(&witness);
}

TEST_F(Server, DelaysOnlyThePublicationUnderTheEventsLock) {
  EVServer server(database.name(), 0, 0, -1);
  Witness witness(server);
  database.add_located_event(4, 1e9 + 400.0);
  witness.grabEventsLock();
  const auto before = witness.eventsList();
  EXPECT_EQ(witness.refreshEvents(0), 0);
  usleep(100000);
  EXPECT_EQ(witness.eventsNumber(), 3);
  EXPECT_EQ(witness.responses().size(), 0u);
  witness.releaseEventsLock();
  EXPECT_TRUE(comes_true([&] { return witness.responses().size() == 1; }));
  witness.grabEventsLock();
  EXPECT_EQ(witness.eventsNumber(), 4);
  witness.releaseEventsLock();
  EXPECT_EQ(before->size(), 3) << "a list that is kept stays as it is";
  server.deregisterClient(&witness);
}

/* A reader that holds the lock for long must not stop refreshes that have nothing to
 * publish, and with them every command. */
TEST_F(Server, RefreshesUnderTheEventsLockWhileNothingChanges) {
  EVServer server(database.name(), 0, 0, -1);
  EVClient client(&server);
  for (const bool expanded : {false, true}) {
    server.grabEventsLock();
    if (expanded) {
      EVEvent event;
      EXPECT_EQ(server.getExpandedEvent(nullptr, 2, event), 0);
      database.add_site("AAA", 1990001, -1, 10.0, 30.0);
    }
    auto refreshed = std::async(std::launch::async, [&] {
      return client.refreshEvents(1) + client.refreshEvents(1) + client.dbnextid("x");
    });
    /* With the cache in use a new site makes the refresh read, and then publish. */
    const auto expected =
        expanded ? std::future_status::timeout : std::future_status::ready;
    EXPECT_EQ(refreshed.wait_for(expanded ? 50ms : 10000ms), expected);
    server.releaseEventsLock();
    refreshed.wait();
  }
  server.deregisterClient(&client);
  taken_messages();
}

/* A thread that finds its interval negative after the callback that made it so must look
 * again, not sleep for an hour. */
TEST_F(Server, GoesOnAfterAnIntervalWasNegativeForAMoment) {
  EVServer server(database.name(), 0, 0, -1);
  Witness witness(server);
  witness.on_call = [&] { server.autoRefreshEvents(-1.0); };
  database.add_located_event(4, 1e9 + 400.0);
  server.autoRefreshEvents(0.001);
  EXPECT_TRUE(comes_true([&] { return witness.responses().size() == 1; }));
  usleep(20000);  // lets the refresher go to sleep on the negative interval
  database.add_located_event(5, 1e9 + 500.0);
  server.autoRefreshEvents(0.001);
  EXPECT_TRUE(comes_true([&] { return witness.responses().size() == 2; }));
  server.deregisterClient(&witness);
}

/* Limits that another thread sets during a refresh and during its repetition: each is
 * applied before the refresh ends, or it would wait for the next change. */
TEST_F(Server, AppliesALimitThatIsSetDuringTheRepetition) {
  EVServer server(database.name(), 0, 0, -1);
  Witness witness(server);
  std::vector<int> limits = {3, 1, 2};
  std::vector<int> results;
  witness.on_call = [&] {
    if (limits.empty()) return;
    const int limit = limits.back();
    limits.pop_back();
    results.push_back(std::async(std::launch::async, [&] {
                        return server.setMaxEvents(limit);
                      }).get());
  };
  EXPECT_EQ(server.refreshEvents(1), 0);
  EXPECT_THAT(results, ElementsAre(11, 11, 11));
  server.grabEventsLock();
  EXPECT_EQ(server.eventsNumber(), 3);
  server.releaseEventsLock();
  EXPECT_EQ(witness.responses().size(), 4u);
  server.deregisterClient(&witness);
}

/* The worker waits for the lock in order to publish, and the destructor for the worker. */
TEST_F(Server, EndsUnderItsOwnersEventsLock) {
  auto server = std::make_unique<EVServer>(database.name(), 0, 0, -1);
  EVClient client(server.get());
  client.grabEventsLock();
  server->grabEventsLock();
  database.add_located_event(4, 1e9 + 400.0);
  EXPECT_EQ(client.refreshEvents(0), 0);
  server.reset();
  client.releaseEventsLock();
  EXPECT_EQ(client.server, nullptr);
}

/* The lock belongs to the server: its holder would unlock freed memory. */
TEST_F(Server, WaitsAtItsEndForAnotherThreadsEventsLock) {
  auto server = std::make_unique<EVServer>(database.name(), 0, 0, -1);
  EVClient client(server.get());
  std::promise<void> held;
  std::atomic<bool> released{false};
  std::thread holder([&] {
    client.grabEventsLock();
    held.set_value();
    std::this_thread::sleep_for(300ms);
    released = true;
    client.releaseEventsLock();
  });
  held.get_future().wait();
  server.reset();
  EXPECT_TRUE(released);
  holder.join();
}

TEST_F(Server, RefusesNullRecords) {
  EVServer server(database.name(), 0, 0, -1);
  taken_messages();
  EXPECT_EQ(server.refreshEvent(0, nullptr, nullptr), -1);
  EXPECT_EQ(taken_messages(), "EVServer::refreshEvent: no event given.\n");
  EXPECT_EQ(server.refreshOrigin(0, nullptr), -1);
  EXPECT_EQ(server.refreshAssociations(nullptr), -1);
  EXPECT_EQ(server.refreshAssociation(0, nullptr), -1);
  EXPECT_EQ(server.refreshDetections(nullptr), -1);
  EXPECT_EQ(server.refreshStamags(nullptr), -1);
  EXPECT_EQ(
      server.execDbmatches("origin", "", "event", nullptr, nullptr, nullptr).size(), 0);
  EXPECT_EQ(server.checkTable(static_cast<EVTable *>(nullptr), 1), -1);
  taken_messages();
}

/* Callbacks may read under the lock, ask for more and change settings; what would wait for
 * the worker that runs them is refused. */
TEST_F(Server, LetsACallbackDoAllButWait) {
  EVServer server(database.name(), 0, 0, -1);
  Witness witness(server);
  EVClient other(&server);
  int calls = 0, events = 0, waited = 0, limited = 0, asked = 0;
  witness.on_call = [&] {
    if (calls++ > 0) return;
    witness.grabEventsLock();
    events = witness.eventsNumber();
    witness.releaseEventsLock();
    waited = witness.refreshEvents(1);
    for (int i = 0; i < 30; i++) asked += other.refreshEvents(0);
    limited = server.setMaxEvents(2);
    server.deregisterClient(&other);
  };
  database.add_located_event(4, 1e9 + 400.0);
  EXPECT_EQ(other.refreshEvents(1), 0);
  settle(witness);
  EXPECT_EQ(events, 4);
  EXPECT_EQ(waited, -1);
  EXPECT_EQ(asked, 0) << "more than the queue holds";
  EXPECT_EQ(limited, 11);
  EXPECT_TRUE(comes_true([&] {
    witness.grabEventsLock();
    const int number = witness.eventsNumber();
    witness.releaseEventsLock();
    return number == 2;
  })) << "the limit that met a running refresh is applied after it";
  server.deregisterClient(&witness);
}

/* Ends a server in the middle of whatever its threads and clients do. */
TEST_F(Server, EndsAtAnyMoment) {
  std::mt19937 random(4711);
  const double intervals[] = {0.0, 1e-6, 0.001, 3600.0};
  for (int round = 0; round < 24; round++) {
    auto server = std::make_unique<EVServer>(database.name(), 0, 0, -1);
    Witness first(*server), second(*server);
    server->autoRefreshEvents(intervals[round % 4]);
    server->autoCheckDatabase(intervals[(round / 4 + 1) % 4]);
    std::atomic<bool> done{false};
    auto waiting = std::async(std::launch::async, [&] {
      while (!done) first.refreshEventsForce(1);
    });
    auto commanding = std::async(std::launch::async, [&] {
      while (!done) second.checkDatabase();
    });
    usleep(static_cast<useconds_t>(random() % 20000));
    const auto begun = std::chrono::steady_clock::now();
    server.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 10s);
    done = true;
    waiting.wait();
    commanding.wait();
  }
  taken_messages();
}

/* Several programs' worth of clients while an importer writes: afterwards the server holds
 * what a server that is started now would read, and everybody has been told of it. */
TEST_F(Server, KeepsUpWithAWriterUnderManyClients) {
  constexpr long kEvents = 40;
  EVServer server(database.name(), 0, 0, -1);
  Witness witness(server);
  std::atomic<bool> done{false};
  std::vector<std::future<void>> users;
  for (int i = 0; i < 4; i++) {
    users.push_back(std::async(std::launch::async, [&, i] {
      while (!done) {
        EVClient client(&server);
        client.refreshEvents(i % 2);
        client.getSite("", 0.0);
        client.grabEventsLock();
        const auto list = client.eventsList();
        EVEvent event;
        if (list->size() > 0) {
          EXPECT_EQ(client.getExpandedEvent(list->get(0).evid, event), 0);
        }
        client.releaseEventsLock();
        for (const EVEvent &listed : *list) EXPECT_EQ(listed.origins.size(), 1);
        server.deregisterClient(&client);
      }
    }));
  }
  server.autoRefreshEvents(0.002);
  server.autoCheckDatabase(0.002);
  for (long evid = 4; evid <= kEvents; evid++) {
    database.add_located_event(evid, 1e9 + 100.0 * static_cast<double>(evid));
    usleep(2000);
  }
  server.autoRefreshEvents(0.0);
  done = true;
  for (auto &user : users) user.wait();
  EXPECT_EQ(witness.refreshEvents(1), 0);
  EXPECT_EQ(witness.refreshEvents(1), 0);

  EVServer fresh(database.name(), 0, 0, -1);
  Table<EVEvent> held = *server.eventsList();
  EXPECT_EQ(held.size(), kEvents);
  EXPECT_EQ(fresh.isEqual(&held), 1);
  std::vector<bool> told(kEvents + 1);
  for (const EVResponse &response : witness.responses()) {
    for (const long evid : response.changed_evids) {
      told[static_cast<std::size_t>(evid)] = true;
    }
  }
  for (std::size_t evid = 4; evid <= kEvents; evid++) EXPECT_TRUE(told[evid]) << evid;
  server.deregisterClient(&witness);
}

/* Operators watch these figures to size the limits of a server. */
TEST(RecordSizes, CountEveryRecordAndText) {
  EVStamag stamag;
  stamag.record_stamag = "12345";
  EVMagnitude magnitude;
  magnitude.magtype = "mw";
  magnitude.stamags.push(stamag);
  EVAssociation association;
  association.record_site = "123";
  EVDetection detection;
  detection.record_detection = "12";
  EVOrigin origin;
  origin.record_origerr = "1234567";
  origin.magnitudes.push(magnitude);
  origin.moments.push(EVMoment());
  origin.detections.push(detection);
  origin.associations.push(association);
  EVEvent event;
  event.record_event = "1";
  event.origins.push(origin);
  event.origins.push(origin);
  const std::size_t of_origin = sizeof(EVOrigin) + 7 + sizeof(EVMagnitude) + 2 +
                                sizeof(EVStamag) + 5 + sizeof(EVMoment) +
                                sizeof(EVDetection) + 2 + sizeof(EVAssociation) + 3;
  EXPECT_EQ(ksutil::events::bytes(event), sizeof(EVEvent) + 1 + 2 * of_origin);
}

}  // namespace
