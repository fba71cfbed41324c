/* brief_wait: looks again for some microseconds before a thread falls asleep.
 *
 * The other side of a hand-over is often about to act, and waking a sleeper costs more than
 * its work.  Looking again pays only while the other side runs on another core.  Whether it
 * does is learned from whether looking has paid before: on a busy machine, on one core and
 * beside a slow partner threads soon go straight to sleep, as they do on a plain condition
 * variable.
 * A waiting thread never yields the processor: beside busy threads of any process a yield
 * lasts until they have had their time slices, some milliseconds each. */
#ifndef KSUTIL_PIPELINE_INTERNAL_BRIEF_WAIT_H
#define KSUTIL_PIPELINE_INTERNAL_BRIEF_WAIT_H

#include <algorithm>
#include <atomic>

namespace ksutil {

/* Looks again before a wait for one kind of event, and remembers whether it has paid.  Zero
 * bytes are an object without experience.  Threads may share an object: an update that is
 * lost costs a look too many or too few. */
class BriefWait {
 public:
  /* Whether this wait should go straight to sleep; call it once for each wait.  True for the
   * next 1, 3, 7 ... kMostSkipped waits after a wait whose looks were in vain. */
  bool skip() {
    const int left = left_.load(std::memory_order_relaxed);
    if (left > 0) left_.store(left - 1, std::memory_order_relaxed);
    return left > 0;
  }

  /* Forgets the experience. */
  void forget() {
    skipped_.store(0, std::memory_order_relaxed);
    left_.store(0, std::memory_order_relaxed);
  }

  /* Looks at most kLooks times for changed(); returns whether it came. */
  template <class Changed>
  bool until(const Changed &changed) {
    for (int i = 0; i < kLooks; ++i) {
      if (changed()) {
        skipped_.store(0, std::memory_order_relaxed);
        return true;
      }
      pause();
    }
    const int next =
        std::min(2 * skipped_.load(std::memory_order_relaxed) + 1, kMostSkipped);
    skipped_.store(next, std::memory_order_relaxed);
    left_.store(next, std::memory_order_relaxed);
    return false;
  }

 private:
  static constexpr int kLooks = 128;
  static constexpr int kMostSkipped = 127;

  /* Lets the core rest for a moment, without giving it to another thread. */
  static void pause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield" ::: "memory");
#endif
  }

  std::atomic<int>
      skipped_;  // waits skipped after the last looks; 0: these were not in vain
  std::atomic<int> left_;  // those of them that are still to come
};

}  // namespace ksutil
#endif
