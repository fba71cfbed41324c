/* message_register: keeps the messages of all threads until they are printed or
 * cleared. */
#ifndef KSUTIL_PLATFORM_ELOG_INTERNAL_MESSAGE_REGISTER_H
#define KSUTIL_PLATFORM_ELOG_INTERNAL_MESSAGE_REGISTER_H

#include <cstdint>
#include <mutex>

#include "platform/elog/elog.h"
#include "platform/elog/internal/message.h"

namespace ksutil {

/* The contents taken out of the register. */
struct Taken {
  Messages messages;
  std::uint64_t dropped = 0;
};

class MessageRegister {
 public:
  /* The process's register.  It is never destroyed: destructors of static objects may
   * log. */
  static MessageRegister &instance();

  /* Appends a message of this thread; a message without text only counts as dropped. */
  void append(Message message);

  Taken take_all();

  /* Takes this thread's messages with a higher sequence than `mark`. */
  Messages take_since(std::uint64_t mark);

  /* See elog_string. */
  char *text();

  /* The number of messages that this thread has registered since it began. */
  static std::uint64_t sequence();

 private:
  std::mutex mutex_;  // guards the fields below
  Messages messages_;
  std::uint64_t dropped_ = 0;  // messages replaced by newer ones or lost
};

}  // namespace ksutil
#endif
