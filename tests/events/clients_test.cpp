/* The client list calls application code that comes and goes on any thread: a call too
 * many reaches a destroyed object, a missing wait lets it be destroyed under a call, and
 * a missing call leaves a program waiting for ever. */
#include "events/server/internal/clients.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <future>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/events/bare_server.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

/* Runs a function in its callbacks, and leaves the server's list when it ends. */
class Listener : public EVClient {
 public:
  explicit Listener(BareServer &bare)
      : EVClient(bare.pointer()), clients_(bare.state.clients) {}
  ~Listener() {
    while (clients_.contains(this)) clients_.remove(this);
  }
  void responseCallback(EVResponse response) override { on_response(response); }
  void checkDatabaseCallback(Array<std::string, int> changes) override {
    on_check(changes);
  }
  std::function<void(EVResponse &)> on_response = [](EVResponse &) {};
  std::function<void(Array<std::string, int> &)> on_check =
      [](Array<std::string, int> &) {};

 private:
  ksutil::events::ClientList &clients_;
};

class Clients : public testing::Test {
 protected:
  BareServer bare;
  ksutil::events::ClientList &clients = bare.state.clients;
  std::vector<std::string> calls;
};

TEST_F(Clients, AreCalledInOrderOnceForEachRegistration) {
  Listener a(bare), b(bare);
  clients.add(&a);
  a.refresh_pending = 1;
  a.on_response = [&](EVResponse &response) {
    calls.push_back("a" + std::to_string(response.changed_evids.size()));
    response.changed_evids.clear();  // its own copy
  };
  b.on_response = [&](EVResponse &response) {
    calls.push_back("b" + std::to_string(response.changed_evids.size()));
    EXPECT_EQ(a.refresh_pending, 0) << "cleared as soon as its client was called";
    EXPECT_EQ(b.refresh_pending, 1) << "cleared only after the call";
  };
  b.refresh_pending = 1;
  EVResponse report;
  report.changed_evids.push(7);
  clients.refresh_ended(&report);
  EXPECT_THAT(calls, ElementsAre("a1", "b1", "a1"));
  EXPECT_EQ(b.refresh_pending, 0);

  clients.remove(&a);  // the first registration: b comes before the other
  calls.clear();
  b.refresh_pending = 1;
  clients.refresh_ended(&report);
  EXPECT_THAT(calls, ElementsAre("b1", "a1"));
  clients.remove(&a);
  clients.remove(&a);
  EXPECT_FALSE(clients.contains(&a));
  EXPECT_TRUE(clients.contains(&b));
}

TEST_F(Clients, AreJustReleasedWithoutAReport) {
  Listener a(bare);
  a.on_response = [&](EVResponse &) { calls.push_back("a"); };
  a.refresh_pending = 1;
  clients.refresh_ended(nullptr);
  EXPECT_EQ(a.refresh_pending, 0);
  EXPECT_TRUE(calls.empty());
}

TEST_F(Clients, MayLeaveAndDieDuringANotification) {
  auto first = std::make_unique<Listener>(bare);
  auto second = std::make_unique<Listener>(bare);
  auto twice = std::make_unique<Listener>(bare);
  clients.add(twice.get());
  Listener last(bare);
  first->on_check = [&](Array<std::string, int> &changes) {
    calls.push_back("first");
    EXPECT_EQ(changes.get("arrival"), 2);
    clients.remove(second.get());
    second.reset();
    clients.remove(twice.get());
  };
  twice->on_check = [&](Array<std::string, int> &) {
    calls.push_back("twice");
    clients.remove(twice.get());
  };
  last.on_check = [&](Array<std::string, int> &) {
    calls.push_back("last");
    clients.remove(first.get());
    first.reset();
  };
  Array<std::string, int> changes;
  changes.set("arrival", 2);
  clients.database_checked(changes);
  clients.database_checked(changes);
  EXPECT_THAT(calls, ElementsAre("first", "twice", "last", "last"));
}

TEST_F(Clients, RemovalWaitsForACallOnAnotherThread) {
  auto client = std::make_unique<Listener>(bare);
  std::promise<void> entered, leave;
  bool left = false;
  client->on_response = [&](EVResponse &) {
    entered.set_value();
    leave.get_future().wait();
    left = true;
  };
  const EVResponse report;
  auto notified =
      std::async(std::launch::async, [&] { clients.refresh_ended(&report); });
  entered.get_future().wait();
  auto removed = std::async(std::launch::async, [&] {
    clients.remove(client.get());
    EXPECT_TRUE(left);
    client.reset();
  });
  EXPECT_EQ(removed.wait_for(50ms), std::future_status::timeout);
  leave.set_value();
  EXPECT_EQ(removed.wait_for(10s), std::future_status::ready);
  notified.wait();
}

/* Two threads have something to tell one client.  The second must not enter the client
 * beside the first, and must not wait for it either: the first may be waiting for the
 * second, here for the end of its refresh. */
TEST_F(Clients, AreCalledByOneThreadAtATimeAndNoThreadWaits) {
  Listener client(bare);
  std::promise<void> entered, leave;
  bool released = false;
  std::thread::id checker, responder;
  client.refresh_pending = 1;
  client.on_check = [&](Array<std::string, int> &) {
    entered.set_value();
    released = comes_true([&] { return client.refresh_pending == 0; });
    leave.get_future().wait();
    checker = std::this_thread::get_id();
    calls.push_back("check");
  };
  client.on_response = [&](EVResponse &response) {
    responder = std::this_thread::get_id();
    calls.push_back("response " + std::to_string(response.changed_evids.get(0)));
  };
  const Array<std::string, int> changes;
  auto checked =
      std::async(std::launch::async, [&] { clients.database_checked(changes); });
  entered.get_future().wait();
  for (const long evid : {7, 8}) {
    auto ended = std::async(std::launch::async, [&] {
      EVResponse report;
      report.changed_evids.push(evid);
      clients.refresh_ended(&report);
    });
    ASSERT_EQ(ended.wait_for(10s), std::future_status::ready);
  }
  EXPECT_TRUE(calls.empty());
  leave.set_value();
  checked.wait();
  EXPECT_TRUE(released);
  EXPECT_THAT(calls, ElementsAre("check", "response 7", "response 8"));
  EXPECT_EQ(checker, responder);
}

/* A client that leaves inside its callback gets no call that another thread has left to
 * it; one that is removed by a third thread is not called once the removal returns. */
TEST_F(Clients, LeaveTheCallsThatOthersHaveLeftToThem) {
  for (const bool from_inside : {true, false}) {
    auto client = std::make_unique<Listener>(bare);
    std::promise<void> entered, leave;
    client->on_response = [&](EVResponse &) {
      entered.set_value();
      leave.get_future().wait();
      if (from_inside) clients.remove(client.get());
      calls.push_back("response");
    };
    client->on_check = [&](Array<std::string, int> &) { calls.push_back("check"); };
    const EVResponse report;
    auto notified =
        std::async(std::launch::async, [&] { clients.refresh_ended(&report); });
    entered.get_future().wait();
    clients.database_checked({});
    auto removed = std::async(std::launch::async, [&] {
      if (!from_inside) clients.remove(client.get());
    });
    if (!from_inside) {
      EXPECT_TRUE(comes_true([&] { return !clients.contains(client.get()); }));
      EXPECT_EQ(removed.wait_for(20ms), std::future_status::timeout);
    }
    leave.set_value();
    removed.wait();
    if (from_inside) notified.wait();  // nothing else has waited for the callback
    EXPECT_THAT(calls, ElementsAre("response"));
    notified.wait();
    EXPECT_THAT(calls, ElementsAre("response"));
    calls.clear();
  }
}

/* Threads that call at random from inside callbacks too, as programs do that set limits
 * and check there; clients come and go.  No overlap, no hang, nothing after removal. */
TEST_F(Clients, AreNeverEnteredTwiceUnderAnyTraffic) {
  struct Guarded {
    explicit Guarded(BareServer &bare) : listener(bare) {}
    Listener listener;
    std::atomic<std::thread::id> owner{};
    std::atomic<int> overlaps{0}, calls{0};
  };
  std::vector<std::unique_ptr<Guarded>> all;
  const EVResponse report;
  for (int i = 0; i < 3; i++) {
    all.push_back(std::make_unique<Guarded>(bare));
    Guarded &guarded = *all.back();
    const auto enter = [this, &guarded, &report, i](bool nests) {
      const std::thread::id self = std::this_thread::get_id();
      const std::thread::id before = guarded.owner.exchange(self);
      if (before != std::thread::id() && before != self) guarded.overlaps++;
      if (++guarded.calls % 7 == i && nests) clients.refresh_ended(&report);
      guarded.owner = before;
    };
    guarded.listener.on_check = [enter](Array<std::string, int> &) { enter(true); };
    guarded.listener.on_response = [enter](EVResponse &) { enter(false); };
  }
  Listener visitor(bare);  // whole before others call it
  std::vector<std::future<void>> threads;
  for (int t = 0; t < 4; t++) {
    threads.push_back(std::async(std::launch::async, [&, t] {
      for (int i = 0; i < 300; i++) {
        if (t == 3) {
          clients.remove(&visitor);
          clients.add(&visitor);
        } else if (i % 2 == 0) {
          clients.database_checked({});
        } else {
          clients.refresh_ended(&report);
        }
      }
    }));
  }
  for (auto &thread : threads) {
    ASSERT_EQ(thread.wait_for(60s), std::future_status::ready);
  }
  clients.remove(&visitor);
  for (const auto &guarded : all) {
    clients.remove(&guarded->listener);
    EXPECT_EQ(guarded->overlaps, 0);
    EXPECT_GE(guarded->calls, 900);
  }
}

/* The address of a client that has left may be another's at once. */
TEST_F(Clients, MadeDuringANotificationAreCalledFromTheNextOn) {
  alignas(Listener) std::byte place[sizeof(Listener)];
  Listener first(bare);
  Listener *second = new (place) Listener(bare);
  first.on_check = [&](Array<std::string, int> &) {
    if (!calls.empty()) return;
    calls.push_back("first");
    clients.remove(second);
    second->~Listener();
    second = new (place) Listener(bare);
    second->on_check = [&](Array<std::string, int> &) { calls.push_back("new"); };
  };
  clients.database_checked({});
  EXPECT_THAT(calls, ElementsAre("first"));
  clients.database_checked({});
  EXPECT_THAT(calls, ElementsAre("first", "new"));
  clients.remove(second);
  second->~Listener();
}

TEST_F(Clients, RemovalReleasesAWaitingClient) {
  Listener client(bare);
  clients.add(&client);
  client.command_pending = client.refresh_pending = 1;
  clients.remove(&client);
  EXPECT_EQ(client.command_pending, 1) << "its other registration is still served";
  clients.remove(&client);
  EXPECT_EQ(client.command_pending, 0);
  EXPECT_EQ(client.refresh_pending, 0);
}

TEST_F(Clients, AnExceptionInACallbackReachesNobodyElse) {
  Listener bad(bare), good(bare);
  bad.refresh_pending = 1;
  bad.on_response = [](EVResponse &) { throw std::runtime_error("no memory"); };
  good.on_response = [&](EVResponse &) { calls.push_back("good"); };
  taken_messages();
  const EVResponse report;
  clients.refresh_ended(&report);
  EXPECT_THAT(calls, ElementsAre("good"));
  EXPECT_EQ(bad.refresh_pending, 0);
  EXPECT_EQ(taken_messages(),
            "EVServer: exception in a client's callback: no memory.\n");
}

TEST_F(Clients, AreWrittenToOnlyWhileRegistered) {
  Listener client(bare);
  const auto write = [](EVClient &c) { c.status = 5; };
  EXPECT_TRUE(clients.while_registered(&client, write));
  EXPECT_EQ(client.status, 5);
  clients.remove(&client);
  client.status = 0;
  EXPECT_FALSE(clients.while_registered(&client, write));
  EXPECT_FALSE(clients.while_registered(nullptr, write));
  EXPECT_EQ(client.status, 0);
}

TEST_F(Clients, OutliveTheirServer) {
  Listener client(bare);
  client.command_pending = 1;
  bare.end();
  EXPECT_EQ(client.server, nullptr);
  EXPECT_EQ(client.command_pending, 0);
  taken_messages();
  EXPECT_EQ(client.getArrivals("ANMO", "BHZ", 0.0, 1.0).size(), 0);
  EXPECT_EQ(client.dbnextid("arid"), -1);
  EXPECT_EQ(client.refreshEvents(1), -1);
  EXPECT_THAT(
      taken_messages(),
      testing::AllOf(HasSubstr("EVClient::getArrivals: server is not running.\n"),
                     HasSubstr("EVClient::dbnextid: server is not running.\n"),
                     HasSubstr("EVClient::refreshEvents: server is not running.\n")));
  EVEvent event;
  client.grabEventsLock();
  EXPECT_EQ(client.getEvent(0, event), -1);
  EXPECT_EQ(client.eventsList()->size(), 0);
  EXPECT_EQ(client.getExpandedEvent(1, event), -1);
  client.releaseEventsLock();
}

}  // namespace
