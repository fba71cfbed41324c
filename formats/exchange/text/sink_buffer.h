/* SinkBuffer: collects what a writer makes, and gives it to a sink in large pieces. */
#ifndef KSUTIL_FORMATS_EXCHANGE_TEXT_SINK_BUFFER_H
#define KSUTIL_FORMATS_EXCHANGE_TEXT_SINK_BUFFER_H

#include <string>

#include "formats/exchange/writer.h"

namespace ksutil::exchange {

class SinkBuffer {
 public:
  explicit SinkBuffer(TextSink &sink) : sink_(sink) {}

  /* The collected text; append to it. */
  std::string &text() { return text_; }

  /* Gives the text on when there is much of it.  False once the sink has refused. */
  bool settle() { return text_.size() < kPiece ? good_ : flush(); }
  /* Gives the text on. */
  bool flush() {
    if (good_ && !text_.empty()) good_ = sink_.put(text_);
    text_.clear();
    return good_;
  }

 private:
  static constexpr std::size_t kPiece = std::size_t{1} << 16;

  TextSink &sink_;
  std::string text_;
  bool good_ = true;
};

}  // namespace ksutil::exchange
#endif
