#include "formats/exchange/text/xml_element.h"

#include <algorithm>

namespace ksutil::exchange {
namespace {
const std::string kNoText;
}

void XmlElement::begin(const XmlReader &reader) {
  name = reader.name();
  space = reader.space();
  attributes = reader.attributes();
  line = reader.line();
}

bool XmlElement::read(XmlReader &reader) {
  *this = XmlElement();
  begin(reader);
  /* The open elements, outermost first.  Only the last one gains children, so that the
   * others stay where they are. */
  std::vector<XmlElement *> open{this};
  for (std::size_t count = 1; !open.empty();) {
    switch (reader.next()) {
      case XmlReader::Got::kStart:
        if (++count > kMostElements) {
          reader.fail(line, "the element " + name + " has more than " +
                                std::to_string(kMostElements) + " elements in it");
          return false;
        }
        open.push_back(&open.back()->children.emplace_back());
        open.back()->begin(reader);
        break;
      case XmlReader::Got::kEnd:
        open.back()->text = reader.text();
        open.pop_back();
        break;
      case XmlReader::Got::kDone:
      case XmlReader::Got::kFailed:
        return false;
    }
  }
  return true;
}

bool XmlElement::read_around(XmlReader &reader, const std::function<Child()> &takes) {
  *this = XmlElement();
  begin(reader);
  for (;;) {
    switch (reader.next()) {
      case XmlReader::Got::kStart: {
        const Child child = takes();
        if (child == Child::kFailed) return false;
        if (child == Child::kTaken) break;
        if (children.size() >= kMostElements) {
          reader.fail(line, "the element " + name + " has more than " +
                                std::to_string(kMostElements) + " elements in it");
          return false;
        }
        if (!children.emplace_back().read(reader)) return false;
        break;
      }
      case XmlReader::Got::kEnd:
        text = reader.text();
        return true;
      case XmlReader::Got::kDone:
      case XmlReader::Got::kFailed:
        return false;
    }
  }
}

const XmlElement *XmlElement::find(std::string_view path) const {
  const XmlElement *at = this;
  while (at != nullptr && !path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string_view wanted = path.substr(0, end);
    const auto found =
        std::find_if(at->children.begin(), at->children.end(),
                     [&](const XmlElement &child) { return child.name == wanted; });
    at = found == at->children.end() ? nullptr : &*found;
    if (at != nullptr) at->used = true;
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return at;
}

const std::string &XmlElement::text_of(std::string_view path) const {
  const XmlElement *found = find(path);
  return found == nullptr ? kNoText : found->text;
}

const std::string &XmlElement::attribute(std::string_view wanted) const {
  const auto found =
      std::find_if(attributes.begin(), attributes.end(),
                   [&](const auto &pair) { return pair.first == wanted; });
  return found == attributes.end() ? kNoText : found->second;
}

void XmlElement::each(std::string_view wanted,
                      const std::function<void(const XmlElement &)> &visit) const {
  for (const XmlElement &child : children) {
    if (child.name != wanted) continue;
    child.used = true;
    visit(child);
  }
}

void XmlElement::use() const {
  used = true;
  for (const XmlElement &child : children) child.use();
}

void XmlElement::name_unused(
    const std::string &path,
    const std::function<void(const std::string &)> &visit) const {
  for (const XmlElement &child : children) {
    if (child.used) {
      child.name_unused(path + "/" + child.name, visit);
    } else if (!child.text.empty() || !child.children.empty()) {
      visit(path + "/" + child.name);
    }
  }
}

void XmlElement::without_use(
    const std::function<void(const std::string &)> &visit) const {
  name_unused(name, visit);
}

}  // namespace ksutil::exchange
