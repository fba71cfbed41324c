/* A latch that counts its unlocks lets the refresher queue refreshes without end; one that
 * loses the worker's last unlock keeps the server from ever ending. */
#include "events/server/internal/threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <vector>

#include "events/database/internal/fair_lock.h"
#include "events/server/internal/published.h"
#include "tests/events/bare_server.h"

using namespace std::chrono_literals;
using ksutil::events::EventsLock;
using ksutil::events::RefreshLatch;

TEST(RefreshLatch, ManyUnlocksLetOneLockThrough) {
  RefreshLatch latch;
  for (int i = 0; i < 5; i++) latch.unlock();
  latch.lock();
  auto second = std::async(std::launch::async, [&] { latch.lock(); });
  EXPECT_EQ(second.wait_for(50ms), std::future_status::timeout);
  latch.unlock();
  EXPECT_EQ(second.wait_for(10s), std::future_status::ready);
}

TEST(RefreshLatch, ClosedLetsPresentAndFutureLocksThrough) {
  RefreshLatch latch;
  latch.lock();
  auto waiting = std::async(std::launch::async, [&] { latch.lock(); });
  EXPECT_EQ(waiting.wait_for(20ms), std::future_status::timeout);
  latch.close();
  EXPECT_EQ(waiting.wait_for(10s), std::future_status::ready);
  latch.lock();
  latch.lock();
}

/* A refresh of a large list goes on in steps: whoever expands an event meanwhile, with the
 * events lock held, must not wait for all of them. */
TEST(FairLock, LetsTheWaitingInBeforeItsLastHolder) {
  ksutil::events::FairLock lock;
  std::vector<int> order;
  lock.lock();
  auto waiting = std::async(std::launch::async, [&] {
    const std::lock_guard hold(lock);
    order.push_back(1);
  });
  EXPECT_EQ(waiting.wait_for(50ms), std::future_status::timeout);
  for (int step = 0; step < 3; step++) {
    lock.unlock();
    lock.lock();
    order.push_back(2);
  }
  lock.unlock();
  waiting.wait();
  EXPECT_EQ(order, (std::vector<int>{1, 2, 2, 2}));
}

/* The owner decides which waits are refused: a lock that forgets it lets a program hang,
 * one that another thread can open shows readers a list in the making. */
TEST(EventsLock, BelongsToOneThreadUntilItsLastUnlock) {
  EventsLock lock;
  lock.lock();
  lock.lock();
  lock.unlock();
  std::async(std::launch::async, [&] {
    EXPECT_FALSE(lock.owned_by_this_thread());
    taken_messages();
    lock.unlock();
    EXPECT_EQ(taken_messages(),
              "EVServer::releaseEventsLock: this thread does not hold "
              "the events lock.\n");
  }).wait();
  EXPECT_TRUE(lock.owned_by_this_thread());
  auto other = std::async(std::launch::async, [&] {
    lock.lock();
    lock.unlock();
  });
  EXPECT_EQ(other.wait_for(20ms), std::future_status::timeout);
  lock.unlock();
  EXPECT_EQ(other.wait_for(10s), std::future_status::ready);
  EXPECT_FALSE(lock.owned_by_this_thread());
}
