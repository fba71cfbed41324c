/* The messages that wait to be printed or cleared, of all threads. */
#ifndef KSUTIL_PLATFORM_ELOG_INTERNAL_MESSAGE_REGISTER_H
#define KSUTIL_PLATFORM_ELOG_INTERNAL_MESSAGE_REGISTER_H

#include <cstdint>
#include <mutex>

#include "platform/elog/elog.h"
#include "platform/elog/internal/message.h"

namespace ksutil {

/* What was in the register, taken out. */
struct Taken {
  Messages messages;
  std::uint64_t dropped = 0;
};

class MessageRegister {
 public:
  /* The process's register; it is never destroyed, so that static objects may log. */
  static MessageRegister &instance();

  /* Appends a message of this thread; one without text only counts as dropped. */
  void append(Message message);

  Taken take_all();

  /* Takes this thread's messages with a higher sequence than `mark`. */
  Messages take_since(std::uint64_t mark);

  /* See elog_string. */
  char *text();

  /* How many messages this thread has registered since it began. */
  static std::uint64_t sequence();

 private:
  std::mutex mutex_;  // guards the fields below
  Messages messages_;
  std::uint64_t dropped_ = 0;  // messages that went out because the register was full
};

}  // namespace ksutil
#endif
