#include "platform/elog/internal/message.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/elog/elog.h"
#include "platform/stock/text.h"

namespace ksutil {
namespace {

/* The line about messages that a full register has dropped; "" when there are none. */
struct DroppedLine {
  explicit DroppedLine(std::uint64_t dropped) {
    if (dropped == 0) return;
    std::snprintf(text, sizeof text, "elog: %llu older messages were dropped.\n",
                  static_cast<unsigned long long>(dropped));
  }
  char text[80] = "";
};

bool needs_end(const Message &message) {
  return message.length == 0 || message.text.get()[message.length - 1] != '\n';
}

void print_lines(const char *program, const char *text, std::size_t length) {
  while (length > 0) {
    const void *end = std::memchr(text, '\n', length);
    const std::size_t line =
        end == nullptr
            ? length
            : static_cast<std::size_t>(static_cast<const char *>(end) - text);
    std::fprintf(stderr, "%s: ", program);
    std::fwrite(text, 1, line, stderr);
    std::fputc('\n', stderr);
    const std::size_t taken = std::min(line + 1, length);
    text += taken;
    length -= taken;
  }
}

}  // namespace

Message format_message(int error, const char *format, va_list args) {
  const ScopedCLocale locale;
  char trouble[128] = "";
  if (error != 0) {
    char room[100];
    std::snprintf(trouble, sizeof trouble, "%s\n",
                  strerror_r(error, room, sizeof room));
  }
  const std::size_t extra = 1 + std::strlen(trouble);  // a newline between the two

  char room[512];
  va_list again;
  va_copy(again, args);
  const int wanted = std::vsnprintf(room, sizeof room, format, args);
  Message message;
  const std::size_t length = std::min<std::size_t>(
      static_cast<std::size_t>(std::max(wanted, 0)), kElogMaxLength - extra);
  message.text.reset(static_cast<char *>(ks_malloc(length + extra + 1)));
  if (char *text = message.text.get()) {
    if (length < sizeof room) {
      std::memcpy(text, room, length);
    } else {
      std::vsnprintf(text, length + 1, format, again);
    }
    message.length = length;
    if (error != 0) {
      if (needs_end(message)) text[message.length++] = '\n';
      std::memcpy(text + message.length, trouble, extra - 1);
      message.length += extra - 1;
    }
    text[message.length] = '\0';
  }
  va_end(again);
  return message;
}

std::size_t text_size(const Messages &messages, std::uint64_t dropped) {
  std::size_t size = std::strlen(DroppedLine(dropped).text);
  for (const Message &message : messages) {
    size += message.length + (needs_end(message) && &message != &messages.back());
  }
  return size;
}

void write_text(const Messages &messages, std::uint64_t dropped, char *to) {
  const DroppedLine line(dropped);
  to = std::copy_n(line.text, std::strlen(line.text), to);
  for (const Message &message : messages) {
    to = std::copy_n(message.text.get(), message.length, to);
    if (needs_end(message) && &message != &messages.back()) *to++ = '\n';
  }
  *to = '\0';
}

/* Writes the messages line by line, without allocating memory. */
void print_messages(const Messages &messages, std::uint64_t dropped,
                    const char *program) {
  if (messages.empty() && dropped == 0) return;
  flockfile(stderr);
  const DroppedLine line(dropped);
  print_lines(program, line.text, std::strlen(line.text));
  for (const Message &message : messages) {
    print_lines(program, message.text.get(), message.length);
  }
  std::fflush(stderr);
  funlockfile(stderr);
}

}  // namespace ksutil
