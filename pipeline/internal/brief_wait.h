/* What a thread does before it falls asleep. */
#ifndef KSUTIL_PIPELINE_INTERNAL_BRIEF_WAIT_H
#define KSUTIL_PIPELINE_INTERNAL_BRIEF_WAIT_H

#include <sched.h>

namespace ksutil {

/* Whether threads of this process can run at the same time, as it was at the first call.
 * On one processor looking again changes nothing until another thread has run. */
bool runs_in_parallel();

inline void pause_briefly() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("yield" ::: "memory");
#endif
}

/* The other side of a hand-over is often about to act, and waking a sleeper costs more
 * than its work.  Both functions tell whether `changed` came, and last some microseconds,
 * which a thread that always waits in vain does not feel. */

/* Looks again without giving up the processor, where that can help at all. */
template <class Changed>
bool spin_until(const Changed &changed, int looks) {
  if (!runs_in_parallel()) return false;
  for (int i = 0; i < looks; i++) {
    if (changed()) return true;
    pause_briefly();
  }
  return false;
}

/* Looks again after letting other threads run. */
template <class Changed>
bool yield_until(const Changed &changed, int yields) {
  for (int i = 0; i < yields; i++) {
    if (changed()) return true;
    sched_yield();
  }
  return changed();
}

}  // namespace ksutil
#endif
