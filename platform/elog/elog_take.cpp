#include "platform/elog/elog_take.h"

#include <algorithm>
#include <cerrno>
#include <climits>

#include "platform/elog/internal/message_register.h"
#include "platform/stock/memory.h"

char *elog_take(int mark) {
  const int error = errno;
  const std::uint64_t now = ksutil::MessageRegister::sequence();
  const std::uint64_t since = (now - static_cast<std::uint64_t>(mark)) & INT_MAX;
  ksutil::Messages taken;
  if (since > 0) {
    taken = ksutil::MessageRegister::instance().take_since(now - std::min(now, since));
  }
  auto *text = static_cast<char *>(ks_malloc(ksutil::text_size(taken, 0) + 1));
  if (text != nullptr) ksutil::write_text(taken, 0, text);
  errno = error;
  return text;
}
