/* Writer: events in one exchange format, one after the other, in bounded memory. */
#ifndef KSUTIL_FORMATS_EXCHANGE_WRITER_H
#define KSUTIL_FORMATS_EXCHANGE_WRITER_H

#include <string>
#include <vector>

#include "formats/exchange/reader.h"
#include "formats/exchange/records.h"

namespace ksutil::exchange {

/* Gives the text on, as it comes; false when it cannot be taken, after a message. */
class TextSink {
 public:
  virtual ~TextSink() = default;
  virtual bool put(std::string_view text) = 0;
};

class Writer {
 public:
  virtual ~Writer() = default;

  /* Write the beginning of the text, one event, and the end of the text.
   * false when the sink does not take it. */
  virtual bool begin() = 0;
  virtual bool put(const Event &event) = 0;
  virtual bool end() = 0;

  /* Values of the events that the format has no place for. */
  virtual std::vector<Unplaced> without_place() const { return {}; }
};

}  // namespace ksutil::exchange
#endif
