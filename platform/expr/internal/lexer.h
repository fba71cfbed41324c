/* Lexer: splits the text of an expression into words. */
#ifndef KSUTIL_PLATFORM_EXPR_INTERNAL_LEXER_H
#define KSUTIL_PLATFORM_EXPR_INTERNAL_LEXER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/expr/expr.h"

namespace ksutil::expr {

enum class Symbol {
  kEnd,
  kInteger,
  kReal,
  kText,
  kName,
  kOpen,
  kClose,
  kComma,
  kQuestion,
  kColon,
  kPlus,
  kMinus,
  kTimes,
  kDivide,
  kModulo,
  kPower,
  kNot,
  kAnd,
  kOr,
  kEqual,
  kUnequal,
  kLess,
  kLessEqual,
  kGreater,
  kGreaterEqual,
  kMatch,
  kNoMatch,
  kGlob,
  kNoGlob
};

struct Token {
  Symbol symbol = Symbol::kEnd;
  std::size_t position = 0;
  std::int64_t integer = 0;
  double real = 0.0;
  std::string text;  // a name, or the content of a quoted text with escapes resolved
};

class Lexer {
 public:
  explicit Lexer(std::string_view text) : text_(text) {}
  /* The next word; false, with `error` filled in, when the text has no valid word
   * there. */
  bool next(Token &token, Error &error);

 private:
  bool word(Token &token, Error &error);
  bool number(Token &token, Error &error);
  bool refuse_date(Error &error) const;
  bool quoted(Token &token, Error &error);
  void name(Token &token);
  bool symbol(Token &token, Error &error);

  std::string_view text_;
  std::size_t at_ = 0;
  Symbol last_ = Symbol::kEnd;  // the previous word
};

}  // namespace ksutil::expr
#endif
