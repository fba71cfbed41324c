/* elog: the process-wide register of messages.
 *
 * Messages collect in the register until they are printed or cleared.  The register
 * holds kElogMaxMessages messages of at most kElogMaxLength bytes; when it is full, a
 * new message replaces the oldest, and a line with the number of dropped messages is
 * put before the rest.  Flag 1 appends the text of errno, as it was at the call, on a
 * line of its own after the message (nothing when errno is 0); other bits are ignored.
 * Texts are kept as given; a missing newline at the end of a message is added when the
 * next message arrives.
 * Threads: all functions may run concurrently.  Messages of one thread stay in order,
 * and a mark taken by one thread never discards the messages of another.
 * None of the functions throws, and all keep errno.  A message for which memory is
 * short is lost and counted as dropped. */
#ifndef KSUTIL_PLATFORM_ELOG_ELOG_H
#define KSUTIL_PLATFORM_ELOG_ELOG_H

#include <cstdarg>

#include "platform/stock/export.h"

enum { kElogMaxMessages = 4096, kElogMaxLength = 65536 };

extern "C" {

/* Appends a message. */
KSUTIL_API void elog_log(int flag, const char *format, ...) KSUTIL_PRINTF(2, 3);
KSUTIL_API void velog_log(int flag, const char *format, va_list args)
    KSUTIL_PRINTF(2, 0);

/* Append a message, print the whole register to standard error, each line after the
 * program's name and a colon, and clear it.  notify is for news, complain for
 * trouble. */
KSUTIL_API void elog_notify(int flag, const char *format, ...) KSUTIL_PRINTF(2, 3);
KSUTIL_API void velog_notify(int flag, const char *format, va_list args)
    KSUTIL_PRINTF(2, 0);
KSUTIL_API void elog_complain(int flag, const char *format, ...) KSUTIL_PRINTF(2, 3);
KSUTIL_API void velog_complain(int flag, const char *format, va_list args)
    KSUTIL_PRINTF(2, 0);

/* Like complain, then ends the process with exit(1). */
[[noreturn]] KSUTIL_API void elog_die(int flag, const char *format, ...)
    KSUTIL_PRINTF(2, 3);
[[noreturn]] KSUTIL_API void velog_die(int flag, const char *format, va_list args)
    KSUTIL_PRINTF(2, 0);

/* A position in this thread's messages, for elog_flush. */
KSUTIL_API int elog_mark(void);

/* Discards this thread's messages since the mark; with `deliver` non-zero prints them
 * to standard error first.  Other threads' messages stay. */
KSUTIL_API void elog_flush(int deliver, int mark);

/* Empties the register of all threads' messages; returns how many there were. */
KSUTIL_API int elog_clear_register(int flag);

/* A new text with all messages in order, "" when there are none; the caller frees it.
 * Null when memory is short. */
KSUTIL_API char *elog_string(int flag);

/* The name that stands before printed messages; the executable's name by default. */
KSUTIL_API void elog_set_program(const char *name);

/* Installs a function that receives each message when it is registered; the register
 * keeps the message as well.  severity is 0 for log, 1 notify, 2 complain, 3 die; null
 * removes the function.  It is called from any thread, one call at a time, possibly
 * while locks of the library are held: it must not log, nor call any other function of
 * the library. */
typedef void (*ElogSink)(int severity, const char *message, void *context);
KSUTIL_API void elog_set_sink(ElogSink sink, void *context);

}  // extern "C"

namespace ksutil {

/* Discards, at the end of its scope, the messages that this thread has registered
 * within it, unless keep() was called.  For attempts whose failure is not an error, and
 * for readings that skip unreadable rows. */
class ElogScope {
 public:
  ElogScope() : mark_(elog_mark()) {}
  ~ElogScope() { drop(); }
  ElogScope(const ElogScope &) = delete;
  ElogScope &operator=(const ElogScope &) = delete;

  /* Discards the messages so far, not only at the end; nothing once they are kept. */
  void drop() {
    if (!kept_) elog_flush(0, mark_);
  }

  /* Leaves the messages of the scope, those still to come included, in the register. */
  void keep() { kept_ = true; }

  /* Notes the result of a step and returns it.  A negative result (the step failed)
   * keeps the messages; a result above 0 (something was skipped) drops the messages so
   * far, so that they do not stand beside those of a later failure. */
  template <class Result>
  Result note(Result result) {
    if (result < 0) keep();
    if (result > 0) drop();
    return result;
  }

 private:
  int mark_;
  bool kept_ = false;
};

}  // namespace ksutil
#endif
