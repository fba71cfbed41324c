/* XmlWriter: writes XML in UTF-8, element by element, with two blanks for each level.
 *
 * Texts may hold any bytes: what XML forbids is replaced by U+FFFD and counted. */
#ifndef KSUTIL_FORMATS_EXCHANGE_TEXT_XML_WRITER_H
#define KSUTIL_FORMATS_EXCHANGE_TEXT_XML_WRITER_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "formats/exchange/text/sink_buffer.h"

namespace ksutil::exchange {

class XmlWriter {
 public:
  explicit XmlWriter(TextSink &sink) : buffer_(sink) {}

  /* The declaration, which stands first. */
  void declare() { buffer_.text() += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"; }

  /* Begins an element; attributes of it may follow before anything else.  `name` must
   * outlive the element: it is a constant. */
  void open(const char *name);
  void attribute(std::string_view name, std::string_view value);
  /* Ends the element that was opened last; one without content becomes "<name/>". */
  void close();

  /* An element with a text. */
  void element(const char *name, std::string_view text);
  /* The same, unless the text is empty. */
  void given(const char *name, std::string_view text) {
    if (!text.empty()) element(name, text);
  }
  /* A text that is the content of the element that was opened last; it is closed by the
   * next call of close(), on the same line. */
  void text(std::string_view text);

  /* As SinkBuffer. */
  bool settle() { return buffer_.settle(); }
  bool flush() { return buffer_.flush(); }

  /* Characters that were replaced. */
  std::int64_t replaced() const { return replaced_; }

 private:
  void indent();
  void end_tag();
  void escape(std::string_view text, bool attribute);

  SinkBuffer buffer_;
  std::vector<const char *> open_;
  bool in_tag_ = false;   // a start tag is not ended yet
  bool in_text_ = false;  // the last element holds text
  std::int64_t replaced_ = 0;
  std::string clean_;
};

}  // namespace ksutil::exchange
#endif
