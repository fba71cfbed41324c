/* The worker owns every command, and every client waits for it without a time-out: a
 * command that is lost hangs a program, one that is answered too late writes into memory
 * that is gone, and a thread that misses the end of the server hangs its destructor. */
#include "events/server/internal/threads.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <future>
#include <limits>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "tests/events/bare_server.h"

using namespace std::chrono_literals;
using ksutil::events::launch_threads;
using ksutil::events::push_command;
using testing::HasSubstr;

namespace {

std::unique_ptr<EVCommand> command_for(EVClient *client, const char *name) {
  auto command = std::make_unique<EVCommand>(name);
  command->client = client;
  return command;
}

/* Keeps the worker from answering for as long as it lives. */
class StalledWorker {
 public:
  StalledWorker(BareServer &bare, EVClient &registered) {
    std::promise<void> begun;
    stall_ = std::async(std::launch::async, [&, end = end_.get_future()]() mutable {
      bare.state.clients.while_registered(&registered, [&](EVClient &) {
        begun.set_value();
        end.wait();
      });
    });
    begun.get_future().wait();
  }
  ~StalledWorker() {
    end_.set_value();
    stall_.wait();
  }

 private:
  std::promise<void> end_;
  std::future<void> stall_;
};

bool becomes_answered(const EVClient &client) {
  for (int i = 0; i < 10000 && client.command_pending != 0; i++) usleep(1000);
  return client.command_pending == 0;
}

TEST(Commands, AreRefusedWithoutAWorkerOrARegistration) {
  BareServer bare;
  EVClient client(bare.pointer());
  const auto refused = [&] {
    taken_messages();
    EXPECT_EQ(client.dbputrecord("origin", -1, 0, "row\n"), -1);
    EXPECT_EQ(taken_messages(), "EVClient::dbputrecord: server is not running.\n");
    EXPECT_EQ(client.refreshEvents(0), -1);
    EXPECT_EQ(client.command_pending, 0);
    EXPECT_EQ(client.refresh_pending, 0);
  };
  refused();
  launch_threads(bare.state);
  bare.state.clients.remove(&client);
  refused();
}

TEST(Commands, DropNamesThatAreNotExact) {
  BareServer bare;
  launch_threads(bare.state);
  EVClient client(bare.pointer()), other(bare.pointer());
  taken_messages();
  client.command_pending = 1;
  for (const char *name : {"", "getsite", "getSite ", "getSites", "get"}) {
    EXPECT_EQ(push_command(bare.state, command_for(&client, name)), 0);
  }
  other.getSite("ANMO", 0.0);  // after all of these
  EXPECT_EQ(client.command_pending, 1);
  EXPECT_EQ(taken_messages(), "EVServer::getSite: No database currently open.\n");
  EXPECT_EQ(push_command(bare.state, command_for(&client, "getSite")), 0);
  EXPECT_TRUE(becomes_answered(client));
}

TEST(Commands, ReachTheWorkerWithTheirArgumentsAndReplaceTheSlot) {
  BareServer bare;
  EVClient client(bare.pointer());
  client.records.push(EVTableRecord{3, "stale"});
  client.out2 = "stale";
  launch_threads(bare.state);
  std::string a = "x", b = "x", c = "x", d = "x";
  EXPECT_EQ(client.getWfdiscs("ANMO", "BHZ", 0.0, 1.0, 0).size(), 0);
  EXPECT_EQ(client.dbseed2css("IU", "ANMO", "BHZ", "00", a, b), -1);
  EXPECT_EQ(a + b, "");
  EXPECT_EQ(client.dbcss2seed("ANMO", "BHZ00", a, b, c, d), -1);
  EXPECT_EQ(client.dbnextid("orid"), -1);
  EXPECT_EQ(client.scanWfdisc("", "", "", "", 0.0, 1.0).size(), 0);
  EXPECT_EQ(client.getSite("ANMO", 0.0).recno, -1);
}

/* The client is destroyed while its commands wait in the queue; the address sanitizer sees
 * a write into it. */
TEST(Commands, NeverTouchAClientThatHasLeft) {
  BareServer bare;
  launch_threads(bare.state);
  EVClient witness(bare.pointer());
  auto client = std::make_unique<EVClient>(bare.pointer());
  for (const char *name : {"getArrivals", "getWfdiscs", "dbputrecord", "dbcss2seed"}) {
    EXPECT_EQ(push_command(bare.state, command_for(client.get(), name)), 0);
  }
  bare.state.clients.remove(client.get());
  client.reset();
  witness.getSite("ANMO", 0.0);
}

TEST(Waiting, IsRefusedToTheHolderOfTheEventsLock) {
  BareServer bare;
  launch_threads(bare.state);
  EVClient client(bare.pointer());
  bare.state.published.lock.lock();
  taken_messages();
  EXPECT_EQ(client.refreshEvents(1), -1);
  EXPECT_EQ(taken_messages(),
            "EVClient::refreshEvents: the holder of the events lock "
            "cannot wait for a command.\n");
  EXPECT_EQ(client.getArrivals("", "", 0.0, 1.0).size(), 0);
  {
    const StalledWorker stalled(bare, client);
    taken_messages();
    push_command(bare.state, command_for(nullptr, "getSite"));
    /* The worker has told that it has no database, and waits to answer. */
    EXPECT_TRUE(comes_true([] { return !registered_messages().empty(); }));
    taken_messages();
    for (int i = 0; i < ksutil::events::kQueueCapacity; i++) {
      push_command(bare.state, command_for(nullptr, "getSite"));
    }
    EXPECT_EQ(client.refreshEvents(0), -1);
    EXPECT_EQ(taken_messages(),
              "EVClient::refreshEvents: the command queue is full.\n");
  }
  bare.state.published.lock.unlock();
}

/* What wraps makes a server refresh without pause, or sleep for an hour. */
TEST(SleepMicroseconds, TruncateAndStayInside32Bits) {
  using ksutil::events::sleep_microseconds;
  EXPECT_EQ(sleep_microseconds(2.5), 2500000u);
  EXPECT_EQ(sleep_microseconds(0.0000019), 1u);
  EXPECT_EQ(sleep_microseconds(-1.0), 0u);
  EXPECT_EQ(sleep_microseconds(std::nan("")), 0u);
  for (const double seconds :
       {4294.967296, 5000.0, 1e300, std::numeric_limits<double>::infinity()}) {
    EXPECT_EQ(sleep_microseconds(seconds), 4294967295u) << seconds;
  }
}

/* The worker is in an operation, the queue is full and others wait for room in it, as the
 * refresher and the monitor may: all of them must come back. */
TEST(StopThreads, ReleasesWhoeverWaitsForTheQueue) {
  BareServer bare;
  launch_threads(bare.state);
  EVClient client(bare.pointer());
  client.command_pending = 1;
  auto stalled = std::make_unique<StalledWorker>(bare, client);
  std::vector<std::future<void>> pushers;
  for (int i = 0; i < ksutil::events::kQueueCapacity + 4; i++) {
    pushers.push_back(std::async(std::launch::async, [&] {
      const ksutil::events::ServerPin pin(bare.pointer());
      if (pin.state() == nullptr) return;  // came too late
      push_command(*pin.state(), command_for(&client, "getSite"));
    }));
  }
  while (pmtfifo_data_available(bare.state.cmd_mtfifo) <
         ksutil::events::kQueueCapacity) {
    usleep(100);
  }
  auto ended = std::async(std::launch::async, [&] { bare.end(); });
  EXPECT_EQ(ended.wait_for(50ms), std::future_status::timeout);
  stalled.reset();
  EXPECT_EQ(ended.wait_for(10s), std::future_status::ready);
  for (auto &pusher : pushers) {
    EXPECT_EQ(pusher.wait_for(10s), std::future_status::ready);
  }
  EXPECT_EQ(client.command_pending, 0);
}

TEST(StopThreads, EndsAtAnyMomentUnderWaitingClients) {
  std::mt19937 random(20260);
  for (int round = 0; round < 60; round++) {
    BareServer bare;
    launch_threads(bare.state);
    std::vector<std::unique_ptr<EVClient>> clients;
    std::vector<std::thread> threads;
    std::atomic<bool> done{false};
    for (int i = 0; i < ksutil::events::kQueueCapacity + 3; i++) {
      clients.push_back(std::make_unique<EVClient>(bare.pointer()));
      threads.emplace_back([&done, client = clients.back().get()] {
        while (!done) EXPECT_EQ(client->dbnextid("orid"), -1);
      });
    }
    usleep(static_cast<useconds_t>(random() % 3000));
    bare.end();
    done = true;
    for (std::thread &thread : threads) thread.join();
  }
  taken_messages();
}

}  // namespace
