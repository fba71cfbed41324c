/* pmtcomp_worker: the worker threads of a pmtcomp. */
#include <cstdio>

#include "pipeline/internal/pmtcomp_record.h"
#include "pipeline/internal/pthread_lock.h"
#include "platform/clock/clock.h"
#include "platform/stock/text.h"

std::atomic<int> ksutil::comp_verbosity{0};

namespace {

/* Prints a line about this worker when the verbosity reaches a level. */
template <class... Args>
void say(int level, const char *format, Args... args) {
  if (ksutil::comp_verbosity < level) return;
  const ksutil::ScopedCLocale c_locale;
  std::printf(format, static_cast<unsigned long>(pthread_self()), args...);
}

/* Waits for the next step; false when the worker has to leave. */
bool wait_for_start(PmtcompThread &self) {
  const auto asked = [&self] { return self.start != 0; };
  if (!self.wait_for_start.skip()) self.wait_for_start.until(asked);
  say(2, "pmtcomp_runthread: %lu: waiting for start lock\n");
  ksutil::PthreadLock lock(self.mutex);
  say(2, "pmtcomp_runthread: %lu: obtained start lock\n");
  while (self.start == 0 && self.quit == 0) {
    say(2, "pmtcomp_runthread: %lu: waiting for start (%ld, %ld)\n", self.start.load(),
        self.quit.load());
    pthread_cond_wait(&self.start_cond, &self.mutex);
    say(2, "pmtcomp_runthread: %lu: got start (%ld, %ld)\n", self.start.load(),
        self.quit.load());
  }
  if (self.quit != 0) return false;
  self.start = 0;
  self.finished = 0;
  say(2, "pmtcomp_runthread: %lu: releasing start lock\n");
  lock.unlock();
  say(2, "pmtcomp_runthread: %lu: start lock released\n");
  return true;
}

void run_step(PmtcompThread &self) {
  const double began = std_now();
  self.result = self.comp_sub(self.arg1, self.arg2, self.arg3, &self, began);
  if (ksutil::comp_verbosity >= 1) {
    say(1, "pmtcomp_runthread: %lu: comp_sub in %.6f\n", std_now() - began);
  }
}

/* Sends the signal under the lock: the controlling thread, if it has not seen
 * `finished`, is then either asleep or has not looked yet. */
void tell_finished(PmtcompThread &self) {
  self.finished = 1;
  say(2, "pmtcomp_runthread: %lu: waiting for finish lock\n");
  ksutil::PthreadLock lock(self.mutex);
  say(2, "pmtcomp_runthread: %lu: obtained finish lock\n");
  say(2, "pmtcomp_runthread: %lu: signaling finish\n");
  pthread_cond_signal(&self.finish_cond);
  say(2, "pmtcomp_runthread: %lu: releasing finish\n");
  lock.unlock();
  say(2, "pmtcomp_runthread: %lu: finish lock released\n");
}

}  // namespace

void *ksutil::run_comp_thread(void *thread) {
  auto &self = *static_cast<PmtcompThread *>(thread);
  say(1, "pmtcomp_runthread: %lu: Starting thread\n");
  while (wait_for_start(self)) {
    run_step(self);
    tell_finished(self);
  }
  say(1, "pmtcomp_runthread: %lu: Exiting thread\n");
  return nullptr;
}
