#include "formats/exchange/text/xml_reader.h"

#include <expat.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

constexpr char kSeparator = '\n';  // between namespace and name, as expat gives them

/* Memory that all parsers of the process hold: names that a text makes up are kept until
 * its end.  Each block begins with its size. */
std::atomic<std::size_t> held{0};
constexpr std::size_t kHead = alignof(std::max_align_t);

void *resize(void *block, std::size_t size) {
  auto *old = block == nullptr ? nullptr : static_cast<char *>(block) - kHead;
  std::size_t before = 0;
  if (old != nullptr) std::memcpy(&before, old, sizeof before);
  if (size > XmlReader::kMostMemory || held - before + size > XmlReader::kMostMemory) {
    return nullptr;
  }
  auto *made = static_cast<char *>(std::realloc(old, size + kHead));
  if (made == nullptr) return nullptr;
  held += size - before;
  std::memcpy(made, &size, sizeof size);
  return made + kHead;
}
void *take(std::size_t size) { return resize(nullptr, size); }
void give_back(void *block) {
  if (block == nullptr) return;
  char *old = static_cast<char *>(block) - kHead;
  std::size_t size = 0;
  std::memcpy(&size, old, sizeof size);
  held -= size;
  std::free(old);
}
constexpr XML_Memory_Handling_Suite kMemory{take, resize, give_back};

std::string shown(std::string_view text) {
  std::string result(text.substr(0, 60));
  std::replace_if(
      result.begin(), result.end(),
      [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 127; }, '?');
  return result;
}

}  // namespace

/* What expat calls. */
struct XmlReader::Handlers {
  static XmlReader &reader(void *data) { return *static_cast<XmlReader *>(data); }

  static void XMLCALL start(void *data, const XML_Char *name, const XML_Char **pairs) {
    XmlReader &self = reader(data);
    if (self.depth_ >= kMostDepth) {
      return self.stop("elements are nested deeper than " + std::to_string(kMostDepth));
    }
    self.depth_++;
    Token &token = self.add(name);
    token.start = true;
    for (; *pairs != nullptr; pairs += 2) {
      const char *local = std::strrchr(pairs[0], kSeparator);
      token.attributes.emplace_back(local == nullptr ? pairs[0] : local + 1, pairs[1]);
    }
    const auto level = static_cast<std::size_t>(self.depth_);
    if (self.texts_.size() < level) {
      self.texts_.resize(level);
      self.names_.resize(level);
    }
    self.texts_[level - 1].clear();
    self.names_[level - 1] = token.name;
  }

  static void XMLCALL end(void *data, const XML_Char *name) {
    XmlReader &self = reader(data);
    Token &token = self.add(name);
    token.text = trimmed(self.texts_[static_cast<std::size_t>(self.depth_) - 1]);
    self.depth_--;
  }

  static void XMLCALL text(void *data, const XML_Char *bytes, int count) {
    XmlReader &self = reader(data);
    if (self.depth_ == 0) return;
    std::string &text = self.texts_[static_cast<std::size_t>(self.depth_) - 1];
    const std::string_view more(bytes, static_cast<std::size_t>(count));
    /* Line breaks and indents around children are not worth keeping. */
    if (text.empty() && trimmed(more).empty()) return;
    if (text.size() + more.size() > kMostBytes) {
      return self.stop("a text is longer than " + std::to_string(kMostBytes) +
                       " bytes");
    }
    text += more;
  }

  static void XMLCALL doctype(void *data, const XML_Char *, const XML_Char *,
                              const XML_Char *, int) {
    reader(data).stop("a document type declaration (with entities) is not read");
  }
};

XmlReader::XmlReader(Input &input) : input_(input) {
  token_ = &none_;
  /* What is text already is UTF-8, whatever the declaration says. */
  const XML_Char separator[] = {kSeparator, '\0'};
  parser_ = XML_ParserCreate_MM(input.is_converted() ? "UTF-8" : nullptr, &kMemory,
                                separator);
  if (parser_ == nullptr) {
    problem_ = input.name() + ": no memory for an XML parser";
    return;
  }
  XML_SetUserData(parser_, this);
  XML_SetElementHandler(parser_, Handlers::start, Handlers::end);
  XML_SetCharacterDataHandler(parser_, Handlers::text);
  XML_SetStartDoctypeDeclHandler(parser_, Handlers::doctype);
}

XmlReader::~XmlReader() {
  if (parser_ != nullptr) XML_ParserFree(parser_);
}

XmlReader::Token &XmlReader::add(const char *name) {
  if (count_ == tokens_.size()) tokens_.emplace_back();
  Token &token = tokens_[count_++];
  const char *local = std::strrchr(name, kSeparator);
  if (local == nullptr) {
    token.space.clear();
    token.name = name;
  } else {
    token.space.assign(name, local);
    token.name = local + 1;
  }
  token.start = false;
  token.depth = depth_;
  token.line = static_cast<std::int64_t>(XML_GetCurrentLineNumber(parser_));
  token.text.clear();
  token.attributes.clear();
  return token;
}

void XmlReader::stop(const std::string &cause) {
  if (stopped_.empty()) stopped_ = cause;
  XML_StopParser(parser_, XML_FALSE);
}

XmlReader::Got XmlReader::fail(std::int64_t line, const std::string &cause) {
  if (problem_.empty()) {
    problem_ = input_.name() + ":" + std::to_string(line) + ": " + cause;
  }
  return Got::kFailed;
}

std::string XmlReader::cause_of_error() const {
  if (!stopped_.empty()) return stopped_;
  const XML_Error code = XML_GetErrorCode(parser_);
  const std::string within =
      depth_ > 0
          ? " in the element " + shown(names_[static_cast<std::size_t>(depth_) - 1])
          : "";
  switch (code) {
    case XML_ERROR_INVALID_TOKEN:
      return "this is not well-formed XML, or not in the encoding that the text "
             "declares" +
             within;
    case XML_ERROR_UNKNOWN_ENCODING:
      return "the encoding that the text declares is not known";
    case XML_ERROR_INCORRECT_ENCODING:
      return "the text is not in the encoding that it declares";
    case XML_ERROR_UNDEFINED_ENTITY:
      return "an entity that is not declared" + within;
    case XML_ERROR_NO_MEMORY:
      return "the text has too many names for the memory of the parser";
    case XML_ERROR_NO_ELEMENTS:
    case XML_ERROR_UNCLOSED_TOKEN:
    case XML_ERROR_PARTIAL_CHAR:
    case XML_ERROR_UNCLOSED_CDATA_SECTION:
      if (ended_) return "the text ends" + (depth_ > 0 ? within : " before an element");
      break;
    default:
      break;
  }
  return XML_ErrorString(code) + within;
}

/* Parses the next piece into tokens; false after a failure. */
bool XmlReader::parse_piece() {
  piece_.clear();
  const bool more = input_.read(piece_);
  if (!input_.problem().empty()) {
    problem_ = input_.problem();
    return false;
  }
  ended_ = !more;
  at_ = count_ = 0;
  token_ = &none_;
  fed_ += static_cast<std::int64_t>(piece_.size());
  const XML_Status status =
      XML_Parse(parser_, piece_.data(), static_cast<int>(piece_.size()), ended_);
  if (status == XML_STATUS_ERROR) {
    const std::string cause = cause_of_error();
    fail(static_cast<std::int64_t>(XML_GetCurrentLineNumber(parser_)), cause);
  } else if (!ended_ && fed_ - XML_GetCurrentByteIndex(parser_) >
                            static_cast<std::int64_t>(kMostBytes)) {
    fail(static_cast<std::int64_t>(XML_GetCurrentLineNumber(parser_)),
         "a tag or a comment is longer than " + std::to_string(kMostBytes) + " bytes");
  }
  /* What stands before a fault is given first. */
  return problem_.empty() || count_ > 0;
}

XmlReader::Got XmlReader::next() {
  while (at_ == count_) {
    if (!problem_.empty()) return Got::kFailed;
    if (ended_) return Got::kDone;
    if (!parse_piece()) return Got::kFailed;
  }
  token_ = &tokens_[at_++];
  return token_->start ? Got::kStart : Got::kEnd;
}

const std::string *XmlReader::attribute(std::string_view name) const {
  for (const auto &[key, value] : token_->attributes) {
    if (key == name) return &value;
  }
  return nullptr;
}

bool XmlReader::skip() {
  const int depth = token_->depth;
  for (;;) {
    switch (next()) {
      case Got::kStart:
        break;
      case Got::kEnd:
        if (token_->depth == depth) return true;
        break;
      case Got::kDone:
      case Got::kFailed:
        return false;
    }
  }
}

}  // namespace ksutil::exchange
