#include "formats/exchange/text/text_lines.h"

#include <algorithm>

namespace ksutil::exchange {

bool TextLines::next(std::string &line) {
  line.clear();
  for (;;) {
    if (at_ < buffer_.size() && after_cr_) {
      if (buffer_[at_] == '\n') at_++;
      after_cr_ = false;
    }
    const auto begin = buffer_.begin() + static_cast<std::ptrdiff_t>(at_);
    const auto end = std::find_if(begin, buffer_.end(),
                                  [](char c) { return c == '\n' || c == '\r'; });
    const auto length = static_cast<std::size_t>(end - begin);
    line.append(buffer_, at_,
                std::min(length, kMaxLine - std::min(line.size(), kMaxLine)));
    at_ += length;
    if (end != buffer_.end()) {
      after_cr_ = *end == '\r';
      at_++;
      number_++;
      return whole_ = true;
    }
    buffer_.clear();
    at_ = 0;
    if (ended_ || !input_.read(buffer_)) {
      ended_ = true;
      if (line.empty()) return false;
      whole_ = false;
      number_++;
      return true;
    }
  }
}

}  // namespace ksutil::exchange
