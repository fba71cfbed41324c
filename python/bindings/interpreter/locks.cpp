#include "bindings/interpreter/locks.h"

#include <Python.h>

#include <ksutil/platform/elog/elog.h>

namespace ksutil::python {

void finish_locked(std::mutex &lock, const std::function<void()> &work) noexcept {
  const auto run = [&] {
    const ForkGate gate;
    const std::lock_guard<std::mutex> held(lock);
    const ElogScope quiet;
    work();
  };
  if (PyGILState_Check() == 1 && _Py_IsFinalizing() == 0) {
    const GilReleased gil;
    run();
  } else {
    run();
  }
}

}  // namespace ksutil::python
