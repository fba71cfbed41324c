/* failure: registers the message of a failed function and gives its result.
 *
 * The house rule: a public function that fails registers one message in its own name,
 * "name: what went wrong.\n", and returns -1, null or false.  No exception leaves a plain
 * function or the function of a thread.  In code:
 *
 *     int ksthing_load(const char *path) {
 *       return at_boundary("ksthing_load", [&]() -> int {
 *         if (path == nullptr) return fail("ksthing_load", "No path given");
 *         const FileHandle file = open_file(path, O_RDONLY);
 *         if (!file) return fail_errno("ksthing_load", "open(%s) error", path);
 *         ...                     // std::bad_alloc may be thrown in here
 *         return 0;
 *       });
 *     }
 *
 * `who` is the name of the public function, with its class for a member
 * ("EVServer::setDb"); it is always a literal or a text that outlives the call.  The text
 * has neither the name, nor the full stop, nor the newline: these are added.  A promised
 * text that ends otherwise is registered with elog_log as it is.
 *
 * None of these functions throws.  All but fail_memory, and at_boundary where it catches
 * something, keep errno.  They may be called from any thread. */
#ifndef KSUTIL_PLATFORM_ELOG_FAILURE_H
#define KSUTIL_PLATFORM_ELOG_FAILURE_H

#include <concepts>
#include <cstddef>
#include <exception>
#include <new>
#include <type_traits>

#include "platform/elog/elog.h"
#include "platform/stock/export.h"

namespace ksutil {

/* Results that a Failure turns into: a number other than a truth; a pointer or its owner. */
template <class Result>
concept NumberResult = std::is_arithmetic_v<Result> && !std::same_as<Result, bool>;
template <class Result>
concept EmptyResult = std::is_pointer_v<Result> || requires(Result result) {
  result.release();
};

/* The result of a function that has failed: -1 where a number is returned, false for a
 * bool, null for a pointer or a std::unique_ptr, so that `return fail(...)` fits them all.
 * Ignore it where a failure has another result: `fail(...); return std::nullopt;`. */
class Failure {
 public:
  constexpr operator bool() const { return false; }

  template <NumberResult Number>
  constexpr operator Number() const {
    return static_cast<Number>(-1);
  }

  template <EmptyResult Result>
  constexpr operator Result() const {
    return Result{};
  }
};

/* Registers "who: text.\n", the text being that of the printf arguments, with flag 0: for
 * a wrong argument, a look-up that found nothing, contents that make no sense. */
Failure fail(const char *who, const char *format, ...) KSUTIL_PRINTF(2, 3);

/* The same with flag 1, which adds the text of errno on a line of its own (nothing when
 * errno is 0): after a failed system call.  Call it before anything that may change errno,
 * such as a close or a free. */
Failure fail_errno(const char *who, const char *format, ...) KSUTIL_PRINTF(2, 3);

/* "who: malloc() error.\n" with flag 1, errno being set to ENOMEM: memory is short. */
Failure fail_memory(const char *who);

/* Runs fn() at the boundary of a plain function and returns its result.  When fn throws,
 * returns `failure` instead and registers a message in the name of `who`: fail_memory for
 * std::bad_alloc, else fail with the exception's own text, for any std::exception. */
template <class Result, class Function>
Result at_boundary(const char *who, Result failure, const Function &fn) {
  try {
    return fn();
  } catch (const std::bad_alloc &) {
    fail_memory(who);
  } catch (const std::exception &error) {
    fail(who, "%s", error.what());
  }
  return failure;
}

/* The same with the result -1, null or false; nothing for a function without result. */
template <class Function>
auto at_boundary(const char *who, const Function &fn) {
  using Result = std::invoke_result_t<const Function &>;
  if constexpr (std::is_void_v<Result>) {
    at_boundary(who, 0, [&fn] {
      fn();
      return 0;
    });
  } else {
    return at_boundary<Result>(who, Result(Failure()), fn);
  }
}

}  // namespace ksutil
#endif
