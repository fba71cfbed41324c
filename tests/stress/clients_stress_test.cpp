/* Many clients on many threads that come, ask and go while rows arrive and the server
 * ends: programs that hang or crash then take the operator's screen with them. */
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <vector>

#include "core/register.h"
#include "tests/events/bare_server.h"
#include "tests/events/event_database.h"
#include "tests/stress/stress_support.h"

using namespace stress;

namespace {

constexpr int kRounds = 32;

/* Threads that work at random until they are dismissed. */
class Crowd {
 public:
  template <class Work>
  void add(unsigned seed, Work work) {
    threads_.emplace_back([this, seed, work] {
      std::mt19937 random(seed);
      while (!dismissed_) work(random);
    });
  }
  void dismiss() {
    dismissed_ = true;
    for (std::thread &thread : threads_) thread.join();
  }

 private:
  std::atomic<bool> dismissed_{false};
  std::vector<std::thread> threads_;
};

/* What may go on while the server is destroyed: calls that wait for it. */
void wait_for_server(EVClient &client, std::mt19937 &random) {
  switch (below(random, 6)) {
    case 0:
      client.refreshEvents(1);
      break;
    case 1:
      client.refreshEventsForce(static_cast<int>(below(random, 2)));
      break;
    case 2:
      client.checkDatabase();
      break;
    case 3: {
      const Table<EVTableRecord> found = client.dbsubset("origin", "depth > 5.0");
      for (const EVTableRecord &record : found) EXPECT_FALSE(record.record.empty());
      break;
    }
    case 4:
      client.dbnextid("arid");
      break;
    default:
      client.getArrivals("ANMO", "BHZ", 1e9, 1e9 + 1000.0);
  }
}

/* What may not: reading, registering and settings. */
void use_lists(EVServer &server, EVClient &client, std::mt19937 &random) {
  client.grabEventsLock();
  const Table<EVEvent> events = client.getEvents();
  if (events.size() > 0) {
    const auto place = below(random, static_cast<unsigned>(events.size()));
    const auto evid = static_cast<long>(events.ptr(place)->evid);
    EVEvent event;
    EXPECT_EQ(client.getExpandedEvent(evid, event), 0) << taken_messages();
    EXPECT_EQ(event.evid, evid);
  }
  client.releaseEventsLock();
  if (below(random, 8) == 0) server.setMaxExpandedEvents(1 + int(below(random, 20)));
}

void come_and_go(EVServer &server, std::mt19937 &random) {
  EVClient client(&server);
  if (below(random, 2) == 0) server.registerClient(&client);
  for (unsigned i = below(random, 4); i > 0; i--) wait_for_server(client, random);
  if (below(random, 2) == 0) client.refreshEvents(0);
  server.deregisterClient(&client);
  server.deregisterClient(&client);
}

void change_settings(EVServer &server, std::mt19937 &random) {
  switch (below(random, 6)) {
    case 0:
      server.setDetections(static_cast<int>(below(random, 2)));
      break;
    case 1:
      server.freeHooks();
      break;
    case 2:
      server.reset();
      break;
    default:
      server.setMaxEvents(static_cast<int>(below(random, 30)));
  }
  usleep(below(random, 3000));
}

TEST(ManyClients, MayDoAnythingAtAnyTime) {
  const Watchdog watchdog("a server under many clients");
  std::mt19937 random(seed());
  ksutil::events::test::EventDatabase database;
  long evid = 0;
  while (++evid <= 20)
    database.add_located_event(evid, 1e9 + static_cast<double>(evid));
  const Deadline deadline;
  for (int round = 0; round < kRounds || !deadline.over(); round++) {
    auto server = std::make_unique<EVServer>(database.name(), 0, 0, -1);
    Witness first(*server), second(*server), third(*server), fourth(*server);
    Crowd waiting, free;
    for (EVClient *client : {&first, &second}) {
      waiting.add(any(random),
                  [client](std::mt19937 &r) { wait_for_server(*client, r); });
    }
    EVServer &alive = *server;
    for (EVClient *client : {&third, &fourth}) {
      free.add(any(random),
               [&alive, client](std::mt19937 &r) { use_lists(alive, *client, r); });
      free.add(any(random), [&alive](std::mt19937 &r) { come_and_go(alive, r); });
    }
    free.add(any(random), [&alive](std::mt19937 &r) { change_settings(alive, r); });
    server->autoRefreshEvents(0.002);
    server->autoCheckDatabase(0.002);
    for (unsigned i = below(random, 12); i > 0; i--, evid++) {
      database.add_located_event(evid, 1e9 + static_cast<double>(evid));
      usleep(below(random, 4000));
    }
    free.dismiss();
    if (round % 8 == 0) {
      server->setDetections(1);
      server->setMaxEvents(0);
      settle(third);
      expect_same_as_fresh(*server, database.name());
    }
    usleep(below(random, 5000));
    server.reset();
    waiting.dismiss();
    taken_messages();
  }
}

}  // namespace
