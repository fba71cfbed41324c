#include "bindings/interpreter/fork_gate.h"

#include <pthread.h>

#include <condition_variable>
#include <mutex>

namespace ksutil::python {
namespace {

struct Gate {
  std::mutex mutex;  // held during a fork; guards `inside`
  std::condition_variable left;
  long inside = 0;  // scopes that have begun and not ended
};

/* Never destroyed: objects may be freed after the static ones have gone. */
Gate &the_gate() {
  static Gate *const only = new Gate;
  return *only;
}

void before_fork() {
  std::unique_lock lock(the_gate().mutex);
  the_gate().left.wait(lock, [] { return the_gate().inside == 0; });
  lock.release();
}

void after_fork() { the_gate().mutex.unlock(); }

}  // namespace

ForkGate::ForkGate() {
  static const bool told = pthread_atfork(before_fork, after_fork, after_fork) == 0;
  (void)told;
  const std::lock_guard lock(the_gate().mutex);
  the_gate().inside++;
}

ForkGate::~ForkGate() {
  const std::lock_guard lock(the_gate().mutex);
  if (--the_gate().inside == 0) the_gate().left.notify_all();
}

}  // namespace ksutil::python
