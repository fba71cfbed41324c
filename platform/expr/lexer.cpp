#include "platform/expr/internal/lexer.h"

#include <charconv>

namespace ksutil::expr {

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

bool begins_name(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

/* The place after an index such as "[12]" at `at`, else `at`. */
std::size_t index_end(std::string_view text, std::size_t at) {
  std::size_t i = at + 1;
  while (i < text.size() && is_digit(text[i])) ++i;
  return text[at] == '[' && i > at + 1 && i < text.size() && text[i] == ']' ? i + 1
                                                                            : at;
}

/* A text without quotes that begins with three numbers, as in 2012-08-31. */
struct WrittenDate {
  std::size_t length = 0;  // 0: not like a date
  bool certain = false;    // it has a leading zero, which no integer is written with
};

/* Reads "YYYY-MM-DD" and "YYYY/MM/DD" at the beginning of the text. */
WrittenDate written_date(std::string_view text) {
  constexpr std::size_t kLength = 10;
  if (text.size() < kLength) return {};
  for (std::size_t i = 0; i < kLength; ++i) {
    const bool separator = i == 4 || i == 7;
    if (separator ? text[i] != '-' && text[i] != '/' : !is_digit(text[i])) return {};
  }
  if (text[4] != text[7] || (text.size() > kLength && is_digit(text[kLength]))) {
    return {};
  }
  const int month = (text[5] - '0') * 10 + (text[6] - '0');
  const int day = (text[8] - '0') * 10 + (text[9] - '0');
  if (month < 1 || month > 12 || day < 1 || day > 31) return {};
  WrittenDate date{kLength, text[5] == '0' || text[8] == '0'};
  if (date.length < text.size() && text[date.length] == 'T') {
    date.certain = true;
    do {
      ++date.length;
    } while (date.length < text.size() &&
             (is_digit(text[date.length]) || text[date.length] == ':' ||
              text[date.length] == '.'));
  }
  return date;
}

bool is_arithmetic(Symbol symbol) {
  return symbol == Symbol::kPlus || symbol == Symbol::kMinus ||
         symbol == Symbol::kTimes || symbol == Symbol::kDivide ||
         symbol == Symbol::kModulo || symbol == Symbol::kPower;
}

struct Spelling {
  std::string_view text;
  Symbol symbol;
};

/* A longer spelling stands before those that begin it. */
constexpr Spelling kSpellings[] = {
    {"==", Symbol::kEqual},        {"!=", Symbol::kUnequal}, {"<=", Symbol::kLessEqual},
    {">=", Symbol::kGreaterEqual}, {"=~", Symbol::kMatch},   {"!~", Symbol::kNoMatch},
    {"=*", Symbol::kGlob},         {"!*", Symbol::kNoGlob},  {"&&", Symbol::kAnd},
    {"||", Symbol::kOr},           {"(", Symbol::kOpen},     {")", Symbol::kClose},
    {",", Symbol::kComma},         {"?", Symbol::kQuestion}, {":", Symbol::kColon},
    {"+", Symbol::kPlus},          {"-", Symbol::kMinus},    {"*", Symbol::kTimes},
    {"/", Symbol::kDivide},        {"%", Symbol::kModulo},   {"^", Symbol::kPower},
    {"!", Symbol::kNot},           {"<", Symbol::kLess},     {">", Symbol::kGreater}};

}  // namespace

bool Lexer::next(Token &token, Error &error) {
  if (!word(token, error)) return false;
  last_ = token.symbol;
  return true;
}

/* Refuses a date without quotes, which would otherwise be computed as a small number.
 * A text with a leading zero can only be a date; any other may be meant as arithmetic
 * when it is a part of a longer arithmetic expression. */
bool Lexer::refuse_date(Error &error) const {
  const std::string_view rest = text_.substr(at_);
  const WrittenDate date = written_date(rest);
  if (date.length == 0) return false;
  const std::string_view behind = rest.substr(date.length, 1);
  const bool goes_on = !behind.empty() && behind.find_first_of("+-*/%^") == 0;
  if (!date.certain && (goes_on || is_arithmetic(last_))) return false;
  const std::string text(rest.substr(0, date.length));
  error = {at_, "expected a date in quotes, \"" + text + "\", found " + text +
                    " without them"};
  return true;
}

bool Lexer::word(Token &token, Error &error) {
  while (at_ < text_.size() && (text_[at_] == ' ' || text_[at_] == '\t' ||
                                text_[at_] == '\n' || text_[at_] == '\r')) {
    ++at_;
  }
  token.position = at_;
  token.text.clear();
  if (at_ == text_.size()) {
    token.symbol = Symbol::kEnd;
    return true;
  }
  const char c = text_[at_];
  const bool point = c == '.' && at_ + 1 < text_.size() && is_digit(text_[at_ + 1]);
  if (is_digit(c) && refuse_date(error)) return false;
  if (is_digit(c) || point) return number(token, error);
  if (c == '"' || c == '\'') return quoted(token, error);
  if (begins_name(c)) {
    name(token);
    return true;
  }
  return symbol(token, error);
}

bool Lexer::number(Token &token, Error &error) {
  const char *const begin = text_.data() + at_;
  const char *const end = text_.data() + text_.size();
  const char *p = begin;
  bool whole = true;
  while (p < end && is_digit(*p)) ++p;
  if (p < end && *p == '.') {
    whole = false;
    ++p;
    while (p < end && is_digit(*p)) ++p;
  }
  if (p < end && (*p == 'e' || *p == 'E')) {
    const char *digits = p + 1;
    if (digits < end && (*digits == '+' || *digits == '-')) ++digits;
    if (digits < end && is_digit(*digits)) {
      whole = false;
      p = digits;
      while (p < end && is_digit(*p)) ++p;
    }
  }
  if (p < end && begins_name(*p)) {
    error = {static_cast<std::size_t>(p - text_.data()), "expected an operator"};
    return false;
  }
  const auto result = whole ? std::from_chars(begin, p, token.integer)
                            : std::from_chars(begin, p, token.real);
  if (result.ec != std::errc()) {
    error = {at_, whole ? "expected an integer of at most 9223372036854775807"
                        : "expected a real number within the range of doubles"};
    return false;
  }
  token.symbol = whole ? Symbol::kInteger : Symbol::kReal;
  at_ = static_cast<std::size_t>(p - text_.data());
  return true;
}

bool Lexer::quoted(Token &token, Error &error) {
  const char quote = text_[at_];
  token.symbol = Symbol::kText;
  for (std::size_t i = at_ + 1; i < text_.size(); ++i) {
    char c = text_[i];
    if (c == quote) {
      at_ = i + 1;
      return true;
    }
    if (c == '\\' && i + 1 < text_.size()) {
      /* Other escapes keep their backslash, so that patterns need no second one. */
      switch (text_[i + 1]) {
        case 'n':
          c = '\n', ++i;
          break;
        case 't':
          c = '\t', ++i;
          break;
        case '\\':
        case '"':
        case '\'':
          c = text_[++i];
          break;
        default:
          break;
      }
    }
    token.text += c;
  }
  error = {text_.size(), std::string("expected a closing ") + quote};
  return false;
}

void Lexer::name(Token &token) {
  std::size_t i = at_;
  while (i < text_.size()) {
    if (begins_name(text_[i]) || is_digit(text_[i]) ||
        (text_[i] == '.' && i + 1 < text_.size() && begins_name(text_[i + 1]))) {
      ++i;
    } else if (const std::size_t end = index_end(text_, i); end > i) {
      i = end;
    } else {
      break;
    }
  }
  token.symbol = Symbol::kName;
  token.text = text_.substr(at_, i - at_);
  at_ = i;
}

bool Lexer::symbol(Token &token, Error &error) {
  for (const Spelling &spelling : kSpellings) {
    if (text_.substr(at_).starts_with(spelling.text)) {
      token.symbol = spelling.symbol;
      at_ += spelling.text.size();
      return true;
    }
  }
  switch (text_[at_]) {
    case '=':
      error = {at_, "expected '==', '=~' or '=*'"};
      break;
    case '&':
      error = {at_, "expected '&&'"};
      break;
    case '|':
      error = {at_, "expected '||'"};
      break;
    default:
      error = {at_, "expected a number, text, name or operator"};
  }
  return false;
}

}  // namespace ksutil::expr
