/* Clients that ask at the same time must each get their own answers: an arrival shown at
 * the wrong station is worse than none.  And a client that has left is not called again,
 * or programs crash when they close a window. */
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/register.h"
#include "tests/events/event_database.h"
#include "tests/stress/stress_support.h"

using namespace stress;

namespace {

constexpr int kStations = 6;
constexpr int kArrivals = 5;  // at station i: i + kArrivals of them
constexpr double kStart = 1.2e9;

std::string station(int i) { return "ST" + std::to_string(i); }

/* Reads and sorts under the events lock in its callback, and knows when it has left. */
class Reader : public EVClient {
 public:
  explicit Reader(EVServer &server_in) : EVClient(&server_in) {}
  void leave() {
    server->deregisterClient(this);
    left_ = true;
  }
  int calls() const { return calls_; }

  void responseCallback(EVResponse) override {
    EXPECT_FALSE(left_);
    calls_++;
    grabEventsLock();
    expect_sorted();
    releaseEventsLock();
  }
  void checkDatabaseCallback(Array<std::string, int>) override { EXPECT_FALSE(left_); }

  /* The caller holds the events lock. */
  void expect_sorted() {
    Table<EVEvent> events = getEvents();
    int result = -1;
    const Table<int> order = sort(&events, "time", 1, &result);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(order.size(), events.size());
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end(), [&](int a, int b) {
      return events.ptr(a)->time > events.ptr(b)->time;
    }));
  }

 private:
  std::atomic<bool> left_{false};
  std::atomic<int> calls_{0};
};

/* Every command of one station, and what it must give. */
void ask(Reader &client, int i) {
  const std::string sta = station(i);
  const Table<EVArrival> arrivals = client.getArrivals(sta, "BHZ", 0.0, 2e9);
  EXPECT_EQ(arrivals.size(), i + kArrivals);
  for (const EVArrival &arrival : arrivals) EXPECT_EQ(arrival.sta, sta);
  EXPECT_EQ(client.getSite(sta, kStart).recno, i);
  const Table<EVTableRecord> subset =
      client.dbsubset("arrival", "sta == \"" + sta + "\"");
  EXPECT_EQ(subset.size(), i + kArrivals);
  for (const EVTableRecord &record : subset) {
    EXPECT_TRUE(record.record.starts_with(sta));
  }
}

TEST(Answers, BelongToTheClientThatAsked) {
  const Watchdog watchdog("clients that ask at once");
  ksutil::events::test::EventDatabase database;
  for (int i = 0; i < kStations; i++) {
    EXPECT_EQ(database.add_site(station(i).c_str(), 2000001, -1, 10.0 + i, 20.0), i);
    for (int k = 0; k < i + kArrivals; k++) {
      EXPECT_GE(database.add_arrival(100 * i + k, station(i).c_str(), kStart + k), 0);
    }
  }
  EVServer server(database.name(), 0, 0, -1);
  std::vector<std::unique_ptr<Reader>> readers;  // made before the first callback
  for (int i = 0; i < kStations; i++) {
    readers.push_back(std::make_unique<Reader>(server));
  }
  server.autoRefreshEvents(0.002);
  server.autoCheckDatabase(0.002);

  std::atomic<bool> over{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < kStations; i++) {
    threads.emplace_back(
        [&over, i, client = readers[static_cast<std::size_t>(i)].get()] {
          while (!over) {
            ask(*client, i);
            EXPECT_EQ(client->refreshEvents(1), 0);
            client->grabEventsLock();
            client->expect_sorted();
            client->releaseEventsLock();
          }
          client->leave();
        });
  }
  std::mt19937 random(seed());
  const Deadline deadline;
  for (long evid = 1; !deadline.over(); evid++) {
    database.add_located_event(evid,
                               kStart + static_cast<double>(below(random, 100000)));
    usleep(2000);
  }
  over = true;
  for (std::thread &thread : threads) thread.join();
  for (const auto &reader : readers) EXPECT_GT(reader->calls(), 0);

  EVClient last(&server);
  database.add_located_event(1000000, kStart);  // nobody who has left hears of this
  settle(last);
  expect_same_as_fresh(server, database.name());
  server.deregisterClient(&last);
}

}  // namespace
