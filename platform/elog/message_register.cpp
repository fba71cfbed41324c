#include "platform/elog/internal/message_register.h"

#include <atomic>
#include <new>

#include "platform/stock/memory.h"

namespace ksutil {
namespace {

/* Plain numbers, so that a thread may log while its thread-local objects are
 * destroyed. */
thread_local std::uint64_t thread_number = 0;
thread_local std::uint64_t thread_sequence = 0;

std::uint64_t this_thread() {
  static std::atomic<std::uint64_t> last{0};
  if (thread_number == 0) thread_number = ++last;
  return thread_number;
}

}  // namespace

MessageRegister &MessageRegister::instance() {
  alignas(MessageRegister) static unsigned char room[sizeof(MessageRegister)];
  static MessageRegister *const only = new (room) MessageRegister;
  return *only;
}

std::uint64_t MessageRegister::sequence() { return thread_sequence; }

void MessageRegister::append(Message message) {
  message.thread = this_thread();
  message.sequence = ++thread_sequence;
  Messages entry, oldest;  // made and freed outside the lock
  if (message.text) {
    try {
      entry.push_back(std::move(message));
    } catch (const std::bad_alloc &) {
      /* Counted below: a failure of the error register must not reach its caller. */
    }
  }
  const std::lock_guard lock(mutex_);
  if (entry.empty()) {
    ++dropped_;
    return;
  }
  if (messages_.size() >= kElogMaxMessages) {
    oldest.splice(oldest.end(), messages_, messages_.begin());
    ++dropped_;
  }
  messages_.splice(messages_.end(), entry);
}

Taken MessageRegister::take_all() {
  Taken taken;
  const std::lock_guard lock(mutex_);
  taken.messages.swap(messages_);
  std::swap(taken.dropped, dropped_);
  return taken;
}

Messages MessageRegister::take_since(std::uint64_t mark) {
  Messages taken;
  const std::uint64_t thread = this_thread();
  const std::lock_guard lock(mutex_);
  for (auto at = messages_.end(); at != messages_.begin();) {
    --at;
    if (at->thread != thread) continue;
    if (at->sequence <= mark) break;
    const auto found = at++;
    taken.splice(taken.begin(), messages_, found);
  }
  return taken;
}

char *MessageRegister::text() {
  const std::lock_guard lock(mutex_);
  auto *text = static_cast<char *>(ks_malloc(text_size(messages_, dropped_) + 1));
  if (text != nullptr) write_text(messages_, dropped_, text);
  return text;
}

}  // namespace ksutil
