/* XmlElement: an element of XML with all that is in it, as a small tree. */
#ifndef KSUTIL_FORMATS_EXCHANGE_TEXT_XML_ELEMENT_H
#define KSUTIL_FORMATS_EXCHANGE_TEXT_XML_ELEMENT_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "formats/exchange/text/xml_reader.h"

namespace ksutil::exchange {

/* Attributes and elements asked for count as used; without_use() names the rest. */
class XmlElement {
 public:
  static constexpr std::size_t kMostElements = 50000;

  std::string name, space, text;
  XmlAttributes attributes;
  std::vector<XmlElement> children;
  std::int64_t line = 0;
  mutable bool used = false;

  /* After XmlReader::Got::kStart: takes this element up to its end.  False, with the
   * reader's problem() set, when the text is faulty or the tree has more than kMostElements. */
  bool read(XmlReader &reader);

  /* The same, but a child for which `takes` gives kTaken has been read by it up to its end,
   * and is not a part of the tree; kFailed ends the reading. */
  enum class Child { kKept, kTaken, kFailed };
  bool read_around(XmlReader &reader, const std::function<Child()> &takes);

  /* The first child of a name, or the one at the end of a path ("time/value"); null. */
  const XmlElement *find(std::string_view path) const;
  /* Its text; "" when it is not there. */
  const std::string &text_of(std::string_view path) const;
  /* The value of an attribute; "" when it is not there. */
  const std::string &attribute(std::string_view name) const;
  /* Calls `visit` with each child of a name. */
  void each(std::string_view child,
            const std::function<void(const XmlElement &)> &visit) const;

  /* Calls `visit` with the name of each child, at any depth, that nothing asked for; its
   * own children are not named besides.  Empty elements do not count. */
  void without_use(const std::function<void(const std::string &path)> &visit) const;
  /* Marks all that is in it as used. */
  void use() const;

 private:
  void name_unused(const std::string &path,
                   const std::function<void(const std::string &)> &visit) const;
  void begin(const XmlReader &reader);
};

}  // namespace ksutil::exchange
#endif
