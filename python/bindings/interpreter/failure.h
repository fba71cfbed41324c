/* failure: turns failed calls of the library into exceptions of Python.
 *
 *   Failure failure;
 *   const int result = [&] {
 *     GilReleased released;
 *     return call_of_the_library();
 *   }();
 *   if (result < 0) failure.raise();
 *
 * Threads: a Failure belongs to the thread that made it; it may be used with or without
 * the GIL. */
#ifndef KSUTIL_PYTHON_BINDINGS_INTERPRETER_FAILURE_H
#define KSUTIL_PYTHON_BINDINGS_INTERPRETER_FAILURE_H

#include <stdexcept>
#include <string>

namespace ksutil::python {

/* The C++ side of the exception ksutil.Error; may be thrown with or without the GIL. */
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/* One call of the library: notes where this thread's messages begin, and at its end drops
 * those that came since, so that nothing stays in the register. */
class Failure {
 public:
  Failure();
  ~Failure();
  Failure(const Failure &) = delete;
  Failure &operator=(const Failure &) = delete;

  /* Takes this thread's messages since the beginning, without the newline at their end. */
  std::string text() const;

  /* Throws Error with the text; `otherwise` is the text when there is no message. */
  [[noreturn]] void raise(const char *otherwise = "the call failed") const;

  /* Gives the result of a call back, and raises when it is negative. */
  template <class Result>
  Result check(Result result) const {
    if (result < 0) raise();
    return result;
  }

 private:
  int mark_;
};

}  // namespace ksutil::python
#endif
