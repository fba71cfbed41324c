/* message: makes and prints the messages of the register. */
#ifndef KSUTIL_PLATFORM_ELOG_INTERNAL_MESSAGE_H
#define KSUTIL_PLATFORM_ELOG_INTERNAL_MESSAGE_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <list>

#include "platform/stock/export.h"
#include "platform/stock/memory.h"

namespace ksutil {

struct Message {
  MallocPtr<char> text;
  std::size_t length = 0;
  std::uint64_t thread = 0;    // number of the thread that registered it, from 1
  std::uint64_t sequence = 0;  // number among the messages of that thread, from 1
};

using Messages = std::list<Message>;

/* Formats a message of at most kElogMaxLength bytes, with the text of `error` on a line
 * of its own unless `error` is 0.  The message has no text when memory is short. */
Message format_message(int error, const char *format, va_list args) KSUTIL_PRINTF(2, 0);

/* text_size: the bytes of all messages as one text, each message but the last ended by
 * a newline, with the line about `dropped` older ones.  write_text writes this text
 * with a NUL, one byte more. */
std::size_t text_size(const Messages &messages, std::uint64_t dropped);
void write_text(const Messages &messages, std::uint64_t dropped, char *to);

/* Prints the messages to standard error, each line after the program's name. */
void print_messages(const Messages &messages, std::uint64_t dropped,
                    const char *program);

}  // namespace ksutil
#endif
