#include "tests/stress/stress_support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace stress {

double seconds() {
  static const double given = [] {
    const char *text = std::getenv("KSUTIL_STRESS_SECONDS");
    const double value = text == nullptr ? 0.0 : static_cast<double>(std::atol(text));
    return value > 0.0 ? value : 2.0;
  }();
  return given;
}

unsigned seed() {
  const char *text = std::getenv("KSUTIL_STRESS_SEED");
  const unsigned chosen =
      text == nullptr ? std::random_device()() : static_cast<unsigned>(std::atol(text));
  std::printf("KSUTIL_STRESS_SEED=%u\n", chosen);
  return chosen;
}

Watchdog::Watchdog(std::string what) : what_(std::move(what)) {
  thread_ = std::thread([this] {
    std::unique_lock lock(mutex_);
    const auto limit =
        std::chrono::milliseconds(static_cast<long>(1000.0 * (60.0 + 3.0 * seconds())));
    if (ended_.wait_for(lock, limit, [this] { return over_; })) return;
    std::fprintf(stderr, "watchdog: %s hangs\n", what_.c_str());
    std::abort();
  });
}

Watchdog::~Watchdog() {
  {
    const std::lock_guard lock(mutex_);
    over_ = true;
  }
  ended_.notify_all();
  thread_.join();
}

void Witness::responseCallback(EVResponse response) {
  const std::lock_guard lock(mutex_);
  for (const long evid : response.changed_evids) evids_.insert(evid);
}

std::set<long> Witness::evids() {
  const std::lock_guard lock(mutex_);
  return evids_;
}

void settle(EVClient &client) {
  /* The first may have begun before the call. */
  EXPECT_EQ(client.refreshEvents(1), 0);
  EXPECT_EQ(client.refreshEvents(1), 0);
}

void expect_same_as_fresh(EVServer &server, const std::string &database) {
  EVServer fresh(database, 0, 0, -1);
  server.grabEventsLock();
  Table<EVEvent> events = *server.eventsList();
  Table<EVDetection> detections = *server.detectionsList();
  const long modified = server.getLastModifiedEvid();
  const long recent = server.getMostRecentEvid();
  server.releaseEventsLock();
  EXPECT_EQ(fresh.isEqual(&events), 1);
  if (fresh.isEqual(&events) != 1) fresh.printDifferences(&events);
  EXPECT_EQ(fresh.isEqual(&detections), 1);
  fresh.grabEventsLock();
  const auto read = fresh.eventsList();
  EXPECT_EQ(modified, fresh.getLastModifiedEvid());
  EXPECT_EQ(recent, fresh.getMostRecentEvid());
  fresh.releaseEventsLock();
  ASSERT_EQ(events.size(), read->size());
  for (long i = 0; i < events.size(); i++) {
    const EVEvent &listed = *read->ptr(i);
    EXPECT_EQ(events.ptr(i)->evid, listed.evid) << "place " << i;
    EXPECT_EQ(events.ptr(i)->recno_event, listed.recno_event) << "place " << i;
    EVEvent held, expected;
    const auto evid = static_cast<long>(listed.evid);
    if (server.containsExpandedEvent(evid, held) != 1) continue;
    EXPECT_EQ(fresh.getExpandedEvent(nullptr, evid, expected), 0);
    EXPECT_EQ(fresh.isEqual(&held, &expected), 1) << "expanded event " << evid;
  }
}

}  // namespace stress
