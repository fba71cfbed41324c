#include "formats/exchange/text/xml_writer.h"

#include "formats/exchange/text/value_text.h"

namespace ksutil::exchange {

void XmlWriter::indent() { buffer_.text().append(2 * open_.size(), ' '); }

void XmlWriter::end_tag() {
  if (in_tag_) buffer_.text() += ">\n";
  in_tag_ = false;
}

void XmlWriter::open(const char *name) {
  end_tag();
  indent();
  buffer_.text() += '<';
  buffer_.text() += name;
  open_.push_back(name);
  in_tag_ = true;
}

void XmlWriter::attribute(std::string_view name, std::string_view value) {
  std::string &text = buffer_.text();
  text += ' ';
  text += name;
  text += "=\"";
  escape(value, true);
  text += '"';
}

void XmlWriter::close() {
  const char *name = open_.back();
  open_.pop_back();
  std::string &text = buffer_.text();
  if (in_tag_) {
    text += "/>\n";
  } else {
    if (!in_text_) indent();
    text += "</";
    text += name;
    text += ">\n";
  }
  in_tag_ = in_text_ = false;
}

void XmlWriter::text(std::string_view text) {
  if (in_tag_) buffer_.text() += '>';
  in_tag_ = false;
  in_text_ = true;
  escape(text, false);
}

void XmlWriter::element(const char *name, std::string_view text) {
  open(name);
  if (!text.empty()) this->text(text);
  close();
}

/* Line breaks and tabs in attributes are written as references, which readers keep; so
 * are carriage returns everywhere. */
void XmlWriter::escape(std::string_view value, bool attribute) {
  clean_.clear();
  replaced_ += append_clean(value, clean_);
  std::string &text = buffer_.text();
  for (const char c : clean_) {
    switch (c) {
      case '&':
        text += "&amp;";
        break;
      case '<':
        text += "&lt;";
        break;
      case '>':
        text += "&gt;";
        break;
      case '\r':
        text += "&#13;";
        break;
      case '"':
        text += attribute ? "&quot;" : "\"";
        break;
      case '\n':
      case '\t':
        if (attribute) {
          text += c == '\n' ? "&#10;" : "&#9;";
          break;
        }
        [[fallthrough]];
      default:
        text += c;
    }
  }
}

}  // namespace ksutil::exchange
