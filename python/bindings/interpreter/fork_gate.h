/* fork_gate: lets a process fork only while no thread holds a lock of the module, so that
 * the child finds the locks free and the data behind them whole. */
#ifndef KSUTIL_PYTHON_BINDINGS_INTERPRETER_FORK_GATE_H
#define KSUTIL_PYTHON_BINDINGS_INTERPRETER_FORK_GATE_H

namespace ksutil::python {

/* Holds forks up for one scope, in which a thread may take locks of the module.
 *
 * The thread that forks has the GIL and waits for all scopes to end: a scope must not ask
 * for the GIL, and must not wait for anything but the library's reading and computing.
 * Scopes of one thread may be nested. */
class ForkGate {
 public:
  ForkGate();
  ~ForkGate();
  ForkGate(const ForkGate &) = delete;
  ForkGate &operator=(const ForkGate &) = delete;
};

}  // namespace ksutil::python
#endif
