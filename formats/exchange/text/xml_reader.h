/* XmlReader: the elements of an XML text, one after the other, in bounded memory.
 *
 * The text may be UTF-8, UTF-16 or ISO-8859-1, as it says itself.  Nothing outside the text
 * is read, and nothing is expanded: a document type declaration, which alone can declare
 * entities, is refused.  Bounded are the depth (kMostDepth), each tag, comment and text
 * (kMostBytes), and the memory of the parser (kMostMemory).
 * A record of a few hundred elements is best taken as a tree (xml_element.h). */
#ifndef KSUTIL_FORMATS_EXCHANGE_TEXT_XML_READER_H
#define KSUTIL_FORMATS_EXCHANGE_TEXT_XML_READER_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "formats/exchange/text/input.h"

struct XML_ParserStruct;

namespace ksutil::exchange {

/* Local name and value: prefixes are resolved and left out. */
using XmlAttributes = std::vector<std::pair<std::string, std::string>>;

class XmlReader {
 public:
  static constexpr int kMostDepth = 64;
  static constexpr std::size_t kMostBytes = std::size_t{1} << 20;
  static constexpr std::size_t kMostMemory = std::size_t{1} << 24;

  /* The input must outlive the reader. */
  explicit XmlReader(Input &input);
  ~XmlReader();
  XmlReader(const XmlReader &) = delete;
  XmlReader &operator=(const XmlReader &) = delete;

  /* Goes on to the next beginning or end of an element.  kDone: the text is over, and was
   * well-formed; kFailed: see problem(); so is each later call. */
  enum class Got { kStart, kEnd, kDone, kFailed };
  Got next();

  /* Of the element that has begun or ended, valid up to the next call. */
  const std::string &name() const { return token_->name; }    // without prefix
  const std::string &space() const { return token_->space; }  // the namespace's URI
  const XmlAttributes &attributes() const { return token_->attributes; }  // at kStart
  const std::string *attribute(std::string_view name) const;
  /* At kEnd: what stood in the element itself, without white space around it. */
  const std::string &text() const { return token_->text; }
  int depth() const { return token_->depth; }  // 1: the root
  std::int64_t line() const { return token_->line; }

  /* After kStart: goes on to the end of this element; false after a failure. */
  bool skip();

  /* "file:line: cause". */
  const std::string &problem() const { return problem_; }
  const std::string &input_name() const { return input_.name(); }

  /* Makes reading fail here, for a reason of the caller. */
  Got fail(std::int64_t line, const std::string &cause);

 private:
  struct Token {
    bool start = false;
    int depth = 0;
    std::int64_t line = 0;
    std::string name, space, text;
    XmlAttributes attributes;
  };
  struct Handlers;

  Token &add(const char *name);
  bool parse_piece();
  void stop(const std::string &cause);
  std::string cause_of_error() const;

  Input &input_;
  XML_ParserStruct *parser_ = nullptr;
  std::string piece_, problem_, stopped_;
  std::vector<std::string> texts_;  // of the open elements
  std::vector<std::string> names_;
  int depth_ = 0;
  std::vector<Token> tokens_;  // of the last piece; the first count_ are in use
  std::size_t at_ = 0, count_ = 0;
  const Token none_{};
  const Token *token_;
  std::int64_t fed_ = 0;
  bool ended_ = false;
};

}  // namespace ksutil::exchange
#endif
