/* Tables are read by two threads that share their blocks.  A block that is left out is a
 * part of a catalogue that nobody sees; a signal that the second thread takes is one that
 * a program waits for in vain. */
#include "platform/stock/shared_work.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <numeric>
#include <thread>
#include <vector>

namespace ksutil {
namespace {

constexpr WorkSettings kAlways{.least_bytes = 1000, .always = true};
constexpr WorkSettings kNoThread{.least_bytes = 0, .always = true, .no_thread = true};

TEST(SharedWork, EachPieceIsDoneOnceByOneOfTwoSharers) {
  const ScopedWorkSettings settings(kAlways);
  for (const std::size_t pieces : {0U, 1U, 2U, 1000U}) {
    std::vector<int> done(pieces);
    long by_sharer[kWorkSharers] = {};  // calls of one sharer follow each other
    share_work(pieces, [&](std::size_t piece, unsigned sharer) noexcept {
      ++done[piece];
      ++by_sharer[sharer];
    });
    EXPECT_EQ(done, std::vector<int>(pieces, 1));
    EXPECT_EQ(std::accumulate(by_sharer, by_sharer + kWorkSharers, 0L),
              static_cast<long>(pieces));
  }
}

TEST(SharedWork, TheSecondThreadTakesNoSignals) {
  const ScopedWorkSettings settings(kAlways);
  const auto caller = std::this_thread::get_id();
  std::atomic<bool> second_came{false};
  bool blocked = false;
  /* The caller, if it has taken a piece, leaves the other to the second thread. */
  share_work(2, [&](std::size_t, unsigned sharer) noexcept {
    if (sharer == 0) {
      while (!second_came) std::this_thread::yield();
      return;
    }
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    blocked = sigismember(&mask, SIGTERM) == 1 && sigismember(&mask, SIGINT) == 1 &&
              std::this_thread::get_id() != caller;
    second_came = true;
  });
  EXPECT_TRUE(blocked);
  sigset_t mask;
  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  EXPECT_EQ(sigismember(&mask, SIGTERM), 0) << "the caller's own are as before";
}

TEST(SharedWork, TheCallerDoesAllWithoutASecondThread) {
  const ScopedWorkSettings settings(kNoThread);
  long sum = 0;
  share_work(100, [&](std::size_t piece, unsigned sharer) noexcept {
    if (sharer == 0) sum += static_cast<long>(piece);
  });
  EXPECT_EQ(sum, 4950);
}

TEST(SharedWork, PaysFromTheLeastBytesOn) {
  const ScopedWorkSettings settings(kAlways);
  EXPECT_FALSE(worth_sharing(999));
  EXPECT_TRUE(worth_sharing(1000));
}

}  // namespace
}  // namespace ksutil
