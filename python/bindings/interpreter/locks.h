/* locks: runs work without the GIL, under a lock where it needs one.
 *
 * A thread takes a lock only after it has released the GIL, and holds it only while it needs
 * nothing of Python. */
#ifndef KSUTIL_PYTHON_BINDINGS_INTERPRETER_LOCKS_H
#define KSUTIL_PYTHON_BINDINGS_INTERPRETER_LOCKS_H

#include <functional>
#include <mutex>

#include "bindings/interpreter/fork_gate.h"
#include "bindings/interpreter/gil.h"

namespace ksutil::python {

/* Runs `work` without the GIL, under a lock. */
template <class Work>
auto locked(std::mutex &lock, const Work &work) {
  const GilReleased released;
  const ForkGate gate;
  const std::lock_guard<std::mutex> held(lock);
  return work();
}

/* Runs `work` without the GIL. */
template <class Work>
auto released(const Work &work) {
  const GilReleased gil;
  return work();
}

/* For destructors: runs `work` under a lock, without the GIL while the interpreter lives,
 * and drops its messages. */
void finish_locked(std::mutex &lock, const std::function<void()> &work) noexcept;

}  // namespace ksutil::python
#endif
