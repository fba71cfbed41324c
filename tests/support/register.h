/* Message register for tests. */
#ifndef KSUTIL_TESTS_SUPPORT_REGISTER_H
#define KSUTIL_TESTS_SUPPORT_REGISTER_H

#include <cstdlib>
#include <memory>
#include <string>

#include "platform/elog/elog.h"

namespace ksutil::test {

/* The text of all messages registered so far, of every thread. */
inline std::string registered_messages() {
  const std::unique_ptr<char, void (*)(void *)> text(elog_string(0), std::free);
  return text == nullptr ? "" : text.get();
}

/* The same; the register is empty afterwards. */
inline std::string taken_messages() {
  std::string text = registered_messages();
  elog_clear_register(0);
  return text;
}

}  // namespace ksutil::test
#endif
