/* One message of the register: how it is made and how it is printed. */
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
  std::uint64_t thread = 0;    // who registered it, from 1
  std::uint64_t sequence = 0;  // its number among that thread's messages, from 1
};

using Messages = std::list<Message>;

/* The text of a printf call, at most kElogMaxLength bytes, with the text of `error` on a
 * line of its own when it is not 0.  The message has no text when memory is short. */
Message format_message(int error, const char *format, va_list args) KSUTIL_PRINTF(2, 0);

/* Bytes that the text of all messages takes, each but the last ended by a newline, with
 * the line about `dropped` older ones; and the text itself, into `to` of one byte more. */
std::size_t text_size(const Messages &messages, std::uint64_t dropped);
void write_text(const Messages &messages, std::uint64_t dropped, char *to);

/* Prints the messages to standard error, each line after the program's name. */
void print_messages(const Messages &messages, std::uint64_t dropped,
                    const char *program);

}  // namespace ksutil
#endif
