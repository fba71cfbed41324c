/* TextLines: the lines of an input, one after the other. */
#ifndef KSUTIL_FORMATS_EXCHANGE_TEXT_TEXT_LINES_H
#define KSUTIL_FORMATS_EXCHANGE_TEXT_TEXT_LINES_H

#include <cstdint>
#include <string>

#include "formats/exchange/text/input.h"

namespace ksutil::exchange {

class TextLines {
 public:
  /* Longer lines lose their rest. */
  static constexpr std::size_t kMaxLine = 65536;

  explicit TextLines(Input &input) : input_(input) {}

  /* The next line without its line break; false at the end and after a failure of the
   * input. */
  bool next(std::string &line);
  /* Whether the last line had a line break: one without it may be cut off. */
  bool whole() const { return whole_; }
  std::int64_t number() const { return number_; }  // of the last line, from 1
  const std::string &problem() const { return input_.problem(); }

 private:
  Input &input_;
  std::string buffer_;
  std::size_t at_ = 0;
  bool ended_ = false, after_cr_ = false, whole_ = false;
  std::int64_t number_ = 0;
};

}  // namespace ksutil::exchange
#endif
