#ifndef KSUTIL_TESTS_EVENTS_MESSAGES_H
#define KSUTIL_TESTS_EVENTS_MESSAGES_H

#include <string>

#include "core/register.h"
#include "platform/stock/memory.h"

/* The registered messages, which it clears. */
inline std::string taken_messages() {
  const ksutil::MallocPtr<char> text(ks_elog_string(0));
  ks_clear_register(0);
  return text == nullptr ? "" : text.get();
}

#endif
