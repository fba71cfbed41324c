#include "platform/pf/internal/pf_parse.h"

#include <algorithm>
#include <utility>

#include "platform/stock/text.h"

namespace ksutil {
namespace {

constexpr std::string_view kBlanks = " \t\r";

/* Left by throw within the parser only. */
struct SyntaxError {
  std::string cause;
};

bool ends_here(std::string_view rest) {
  rest = trimmed(rest);
  return rest.empty() || rest.front() == '#';
}

/* Cuts a comment, which begins with a "#" at the start or after a blank. */
std::string_view without_comment(std::string_view text) {
  for (std::size_t i = 0; (i = text.find('#', i)) != text.npos; i++) {
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

/* Takes a quoted text, whose opening quote stands first, off the front of `rest`. */
std::string take_quoted(std::string_view &rest) {
  std::string text;
  for (std::size_t i = 1; i < rest.size(); i++) {
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

/* Takes the name of an array's entry off the front of `rest`. */
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
  Parser() : root_(std::make_unique<Pf>(PFARR, 0)) {
    open_.push_back({root_.get(), 0});
  }

  void take_line(std::string_view line) {
    line_++;
    if (line.find('\0') != line.npos) throw SyntaxError{"The line holds a NUL byte"};
    line = trimmed(line);
    if (line.empty() || line.front() == '#') return;
    if (line.front() == '}') {
      close_block(line.substr(1));
    } else if (block().kind() == PFTBL) {
      take_value({}, line);
    } else {
      take_entry(line);
    }
  }

  PfPtr finish() {
    if (open_.size() > 1) {
      throw SyntaxError{"The block opened in line " +
                        std::to_string(open_.back().line) + " is not closed"};
    }
    return std::move(root_);
  }

  long line() const { return line_; }

 private:
  struct OpenBlock {
    Pf *node;
    long line;
  };

  Pf &block() { return *open_.back().node; }

  void take_entry(std::string_view line) {
    std::string_view rest;
    if (opened_kind(line, rest) != PFINVALID) {
      throw SyntaxError{"A name is missing before " + std::string(line.substr(0, 4)) +
                        "{"};
    }
    const std::string name = take_name(line);
    take_value(name, trimmed(line));
  }

  void take_value(std::string_view name, std::string_view text) {
    std::string_view rest = text;
    if (const int kind = opened_kind(text, rest); kind != PFINVALID) {
      open_block(name, kind, rest);
    } else if (text.starts_with('"')) {
      const std::string quoted = take_quoted(rest);
      if (!ends_here(rest)) throw SyntaxError{"There is text after a quoted text"};
      store(name, std::make_unique<Pf>(quoted, block().depth + 1));
    } else {
      store(name, std::make_unique<Pf>(without_comment(text), block().depth + 1));
    }
  }

  void open_block(std::string_view name, int kind, std::string_view rest) {
    const bool closed = rest.starts_with('}');
    if (!ends_here(closed ? rest.substr(1) : rest)) {
      throw SyntaxError{"There is text after the opening brace of a block"};
    }
    if (block().depth >= kPfMaxDepth) {
      throw SyntaxError{"Blocks are nested deeper than " + std::to_string(kPfMaxDepth)};
    }
    PfPtr made = std::make_unique<Pf>(kind, block().depth + 1);
    Pf *const node = made.get();
    store(name, std::move(made));
    if (!closed) open_.push_back({node, line_});
  }

  void close_block(std::string_view rest) {
    if (!ends_here(rest)) throw SyntaxError{"There is text after a closing brace"};
    if (open_.size() == 1) throw SyntaxError{"A closing brace has no block to close"};
    open_.pop_back();
  }

  void store(std::string_view name, PfPtr value) {
    if (++entries_ > kPfMaxEntries) {
      throw SyntaxError{"There are more than " + std::to_string(kPfMaxEntries) +
                        " entries"};
    }
    if (PfTable *table = block().table()) {
      table->push(std::move(value));
    } else {
      block().array()->put(name, std::move(value));
    }
  }

  PfPtr root_;
  std::vector<OpenBlock> open_;  // the blocks around the present line, the root first
  long line_ = 0;
  long entries_ = 0;
};

}  // namespace

PfPtr parse_pf(std::string_view text, PfError &error) {
  if (text.size() > kPfMaxBytes) {
    error = {1, "The text is longer than " + std::to_string(kPfMaxBytes) + " bytes"};
    return nullptr;
  }
  Parser parser;
  try {
    while (!text.empty()) {
      const std::size_t end = std::min(text.find('\n'), text.size());
      parser.take_line(text.substr(0, end));
      text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parser.finish();
  } catch (SyntaxError &syntax) {
    error = {parser.line(), std::move(syntax.cause)};
    return nullptr;
  }
}

}  // namespace ksutil
