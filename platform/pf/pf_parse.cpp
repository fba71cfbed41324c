#include "platform/pf/shared/pf_parse.h"

#include <algorithm>
#include <utility>

#include "platform/stock/text.h"

namespace ksutil {
namespace {

constexpr std::string_view kBlanks = " \t\r";

/* Thrown within the parser only. */
struct SyntaxError {
  std::string cause;
};

bool ends_here(std::string_view rest) {
  rest = trimmed(rest);
  return rest.empty() || rest.front() == '#';
}

/* Cuts a comment, which begins with a "#" at the start or after a blank. */
std::string_view without_comment(std::string_view text) {
  for (std::size_t i = 0; (i = text.find('#', i)) != text.npos; ++i) {
    if (i == 0 || kBlanks.find(text[i - 1]) != kBlanks.npos) {
      return trimmed(text.substr(0, i));
    }
  }
  return trimmed(text);
}

char unescaped(char letter) {
  switch (letter) {
    case 'n':
      return '\n';
    case 't':
      return '\t';
    case 'r':
      return '\r';
    case '"':
    case '\\':
      return letter;
    default:
      throw SyntaxError{std::string("Unknown escape \\") + letter +
                        " in a quoted text"};
  }
}

/* Removes a quoted text from the front of `rest`, which begins with its opening
 * quote. */
std::string take_quoted(std::string_view &rest) {
  std::string text;
  for (std::size_t i = 1; i < rest.size(); ++i) {
    if (rest[i] == '"') {
      rest.remove_prefix(i + 1);
      return text;
    }
    if (rest[i] == '\\' && i + 1 < rest.size()) {
      text += unescaped(rest[++i]);
    } else {
      text += rest[i];
    }
  }
  throw SyntaxError{"A quoted text is not ended on its line"};
}

/* Removes the name of an array's entry from the front of `rest`. */
std::string take_name(std::string_view &rest) {
  if (rest.front() == '"') {
    std::string name = take_quoted(rest);
    if (!rest.empty() && kBlanks.find(rest.front()) == kBlanks.npos) {
      throw SyntaxError{"A blank must follow a quoted name"};
    }
    return name;
  }
  const std::size_t end = std::min(rest.find_first_of(kBlanks), rest.size());
  const std::string name(rest.substr(0, end));
  rest.remove_prefix(end);
  return name;
}

/* The kind of block that `text` opens, with `rest` set behind its brace; else
 * PFINVALID. */
int opened_kind(std::string_view text, std::string_view &rest) {
  const bool table = text.starts_with("&Tbl");
  if (!table && !text.starts_with("&Arr")) return PFINVALID;
  const std::size_t brace = text.find_first_not_of(kBlanks, 4);
  if (brace == text.npos || text[brace] != '{') return PFINVALID;
  rest = trimmed(text.substr(brace + 1));
  return table ? PFTBL : PFARR;
}

class Parser {
 public:
  explicit Parser(PfLineTaker &taker) : taker_(taker) { open_.push_back({PFARR, 0}); }

  void take_line(std::string_view raw) {
    found_.raw = raw;
    ++found_.number;
    std::string_view line = raw;
    if (line.ends_with('\n')) line.remove_suffix(1);
    if (line.find('\0') != line.npos) throw SyntaxError{"The line holds a NUL byte"};
    line = trimmed(line);
    if (line.empty() || line.front() == '#') {
      hand_over(PfLine::Kind::kRemark);
    } else if (line.front() == '}') {
      close_block(line.substr(1));
    } else {
      if (open_.back().kind == PFARR) take_name_of_entry(line);
      take_value(trimmed(line));
    }
  }

  void finish() const {
    if (open_.size() > 1) {
      throw SyntaxError{"The block opened in line " +
                        std::to_string(open_.back().line) + " is not closed"};
    }
  }

  long line() const { return found_.number; }

 private:
  struct OpenBlock {
    int kind;
    long line;
  };

  void hand_over(PfLine::Kind kind) {
    found_.kind = kind;
    taker_.take(found_);
  }

  void take_name_of_entry(std::string_view &line) {
    std::string_view rest;
    if (opened_kind(line, rest) != PFINVALID) {
      throw SyntaxError{"A name is missing before " + std::string(line.substr(0, 4)) +
                        "{"};
    }
    found_.name = take_name(line);
  }

  void take_value(std::string_view text) {
    std::string_view rest = text;
    if (const int kind = opened_kind(text, rest); kind != PFINVALID) {
      open_block(kind, text, rest);
      return;
    }
    if (text.starts_with('"')) {
      found_.text = take_quoted(rest);
      if (!ends_here(rest)) throw SyntaxError{"There is text after a quoted text"};
      found_.written = text.substr(0, text.size() - rest.size());
    } else {
      found_.written = without_comment(text);
      found_.text = found_.written;
    }
    count_entry();
    hand_over(PfLine::Kind::kText);
  }

  void open_block(int kind, std::string_view text, std::string_view rest) {
    found_.closed = rest.starts_with('}');
    const std::string_view after = found_.closed ? rest.substr(1) : rest;
    if (!ends_here(after)) {
      throw SyntaxError{"There is text after the opening brace of a block"};
    }
    if (open_.size() > kPfMaxDepth) {
      throw SyntaxError{"Blocks are nested deeper than " + std::to_string(kPfMaxDepth)};
    }
    const std::size_t brace = text.find(found_.closed ? '}' : '{');
    found_.written = text.substr(0, brace + 1);
    found_.block = kind;
    count_entry();
    hand_over(PfLine::Kind::kOpen);
    if (!found_.closed) open_.push_back({kind, found_.number});
  }

  void close_block(std::string_view rest) {
    if (!ends_here(rest)) throw SyntaxError{"There is text after a closing brace"};
    if (open_.size() == 1) throw SyntaxError{"A closing brace has no block to close"};
    hand_over(PfLine::Kind::kClose);
    open_.pop_back();
  }

  void count_entry() {
    if (++entries_ > kPfMaxEntries) {
      throw SyntaxError{"There are more than " + std::to_string(kPfMaxEntries) +
                        " entries"};
    }
  }

  PfLineTaker &taker_;
  std::vector<OpenBlock> open_;  // the blocks around the present line, the root first
  PfLine found_;                 // kept between lines for its memory
  long entries_ = 0;
};

}  // namespace

std::string_view byte_order_mark(std::string_view text) {
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  return text.substr(0, text.starts_with(kMark) ? kMark.size() : 0);
}

std::string text_of_written(std::string_view written) {
  return written.starts_with('"') ? take_quoted(written) : std::string(written);
}

bool take_quoted(std::string_view &rest, std::string &text, std::string &cause) {
  try {
    text = take_quoted(rest);
    return true;
  } catch (SyntaxError &syntax) {
    cause = std::move(syntax.cause);
    return false;
  }
}

bool parse_pf_lines(std::string_view text, PfLineTaker &taker, PfError &error) {
  if (text.size() > kPfMaxBytes) {
    error = {1, "The text is longer than " + std::to_string(kPfMaxBytes) + " bytes"};
    return false;
  }
  text.remove_prefix(byte_order_mark(text).size());
  Parser parser(taker);
  try {
    while (!text.empty()) {
      const std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
      parser.take_line(text.substr(0, end));
      text.remove_prefix(end);
    }
    parser.finish();
    return true;
  } catch (SyntaxError &syntax) {
    error = {parser.line(), std::move(syntax.cause)};
    return false;
  }
}

}  // namespace ksutil
