#include "platform/elog/failure.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>

#include "platform/stock/memory.h"
#include "platform/stock/text.h"

namespace ksutil {
namespace {

/* Registers the message; errno is the same for the formatting (%m), the flag and the
 * caller.  A text for which memory is short is registered without its end. */
void register_failure(int flag, const char *who, const char *format, va_list args)
    KSUTIL_PRINTF(3, 0);
void register_failure(int flag, const char *who, const char *format, va_list args) {
  const int error = errno;
  const ScopedCLocale locale;
  char room[512];
  va_list again;
  va_copy(again, args);
  errno = error;
  const int length = std::vsnprintf(room, sizeof room, format, args);
  MallocPtr<char> longer;
  if (length >= static_cast<int>(sizeof room)) {
    const auto size =
        std::min<std::size_t>(static_cast<std::size_t>(length) + 1, kElogMaxLength);
    longer.reset(static_cast<char *>(ks_malloc(size)));
    errno = error;
    if (longer) std::vsnprintf(longer.get(), size, format, again);
  }
  va_end(again);
  errno = error;
  elog_log(flag, "%s: %s.\n", who, longer ? longer.get() : room);
}

}  // namespace

Failure fail(const char *who, const char *format, ...) {
  va_list args;
  va_start(args, format);
  register_failure(0, who, format, args);
  va_end(args);
  return {};
}

Failure fail_errno(const char *who, const char *format, ...) {
  va_list args;
  va_start(args, format);
  register_failure(1, who, format, args);
  va_end(args);
  return {};
}

Failure fail_memory(const char *who) {
  errno = ENOMEM;
  return fail_errno(who, "malloc() error");
}

}  // namespace ksutil
