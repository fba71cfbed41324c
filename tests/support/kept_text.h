/* KeptText: keeps what a writer of an exchange format writes. */
#ifndef KSUTIL_TESTS_SUPPORT_KEPT_TEXT_H
#define KSUTIL_TESTS_SUPPORT_KEPT_TEXT_H

#include <string>
#include <string_view>

#include "formats/exchange/writer.h"

namespace ksutil::test {

class KeptText final : public exchange::TextSink {
 public:
  bool put(std::string_view more) override {
    text += more;
    return true;
  }
  std::string text;
};

}  // namespace ksutil::test
#endif
