#include "platform/expr/internal/parser.h"

namespace ksutil::expr {

namespace {

constexpr std::size_t kMaxRepeated = 16;  // arguments of min and max
constexpr int kLogicOr = 1, kLogicAnd = 2, kHighest = 6;

/* How strongly a binary operator binds; 0 for other words. */
int precedence(Symbol symbol) {
  switch (symbol) {
    case Symbol::kOr:
      return kLogicOr;
    case Symbol::kAnd:
      return kLogicAnd;
    case Symbol::kEqual:
    case Symbol::kUnequal:
    case Symbol::kMatch:
    case Symbol::kNoMatch:
    case Symbol::kGlob:
    case Symbol::kNoGlob:
      return 3;
    case Symbol::kLess:
    case Symbol::kLessEqual:
    case Symbol::kGreater:
    case Symbol::kGreaterEqual:
      return 4;
    case Symbol::kPlus:
    case Symbol::kMinus:
      return 5;
    case Symbol::kTimes:
    case Symbol::kDivide:
    case Symbol::kModulo:
      return kHighest;
    default:
      return 0;
  }
}

class Parser {
 public:
  Parser(std::string_view text, Generator &generator, Error &error)
      : lexer_(text), generator_(generator), error_(error) {}

  bool parse() {
    Operand result;
    return advance() && choice(result) &&
           (token_.symbol == Symbol::kEnd ||
            fail_after_operand("expected an operator or the end")) &&
           generator_.finish(result);
  }

 private:
  /* Counts one level of nesting for its scope. */
  class Level {
   public:
    explicit Level(int &depth) : depth_(depth) { ++depth_; }
    ~Level() { --depth_; }
    Level(const Level &) = delete;
    Level &operator=(const Level &) = delete;

   private:
    int &depth_;
  };

  bool advance() { return lexer_.next(token_, error_); }
  bool fail(const char *message) { return generator_.fail(token_.position, message); }
  bool expect(Symbol symbol, const char *message) {
    return token_.symbol == symbol ? advance() : fail_after_operand(message);
  }
  /* Other languages have words for the operators that join conditions. */
  bool fail_after_operand(std::string message) {
    if (token_.symbol == Symbol::kName && token_.text == "and") {
      message += " (and is written &&)";
    } else if (token_.symbol == Symbol::kName && token_.text == "or") {
      message += " (or is written ||)";
    }
    return generator_.fail(token_.position, message);
  }
  bool shallow() { return depth_ <= kMaxDepth || fail("expected less nesting"); }

  /* a ? b : c */
  bool choice(Operand &result) {
    const Level level(depth_);
    const std::uint16_t mark = generator_.mark();
    if (!shallow() || !binary(kLogicOr, result)) return false;
    if (token_.symbol != Symbol::kQuestion) return true;
    Generator::Choice choice;
    Operand branch;
    if (!generator_.begin_choice(mark, result, choice) || !advance()) return false;
    if (!this->choice(branch)) return false;
    generator_.next_choice(mark, branch, choice);
    return expect(Symbol::kColon, "expected ':'") && this->choice(branch) &&
           generator_.end_choice(mark, choice, branch, result);
  }

  bool binary(int least, Operand &left) {
    const std::uint16_t mark = generator_.mark();
    if (!unary(left)) return false;
    for (int strength = precedence(token_.symbol); strength >= least && strength > 0;
         strength = precedence(token_.symbol)) {
      const Symbol symbol = token_.symbol;
      const bool logic = strength <= kLogicAnd;
      std::size_t jump = 0;
      Operand right;
      if (logic && !generator_.begin_logic(symbol, mark, left, jump)) return false;
      if (!advance()) return false;
      if (!(strength < kHighest ? binary(strength + 1, right) : unary(right))) {
        return false;
      }
      if (!(logic ? generator_.end_logic(mark, left, right, jump)
                  : generator_.binary(symbol, mark, left, right))) {
        return false;
      }
    }
    return true;
  }

  bool unary(Operand &result) {
    const Symbol symbol = token_.symbol;
    if (symbol != Symbol::kMinus && symbol != Symbol::kPlus && symbol != Symbol::kNot) {
      return power(result);
    }
    const Level level(depth_);
    const std::size_t position = token_.position;
    if (!shallow() || !advance() || !unary(result)) return false;
    if (!(symbol == Symbol::kNot     ? generator_.invert(result)
          : symbol == Symbol::kMinus ? generator_.negate(result)
                                     : generator_.affirm(result))) {
      return false;
    }
    result.position = position;
    return true;
  }

  /* Binds more strongly than a sign on its left, more weakly than one on its right. */
  bool power(Operand &result) {
    const std::uint16_t mark = generator_.mark();
    if (!primary(result)) return false;
    if (token_.symbol != Symbol::kPower) return true;
    const Level level(depth_);
    Operand exponent;
    return shallow() && advance() && unary(exponent) &&
           generator_.binary(Symbol::kPower, mark, result, exponent);
  }

  bool primary(Operand &result) {
    const Token token = token_;
    switch (token.symbol) {
      case Symbol::kInteger:
        return constant(Value::of_integer(token.integer), result);
      case Symbol::kReal:
        return constant(Value::of_real(token.real), result);
      case Symbol::kText:
        return constant(Value::of_text(token.text), result);
      case Symbol::kName:
        return named(token, result);
      case Symbol::kOpen: {
        if (!advance() || !choice(result) ||
            !expect(Symbol::kClose, "expected an operator or ')'")) {
          return false;
        }
        result.position = token.position;
        return true;
      }
      default:
        return fail("expected a number, text, field, function or '('");
    }
  }

  bool constant(const Value &value, Operand &result) {
    return generator_.constant(value, token_.position, result) && advance();
  }

  bool named(const Token &name, Operand &result) {
    if (name.text == "true" || name.text == "false") {
      return constant(Value::of_boolean(name.text == "true"), result);
    }
    if (!advance()) return false;
    if (token_.symbol != Symbol::kOpen) return generator_.field(name, result);
    const Function *const function = find_function(name.text);
    if (function == nullptr) {
      return generator_.fail(name.position, "expected a known function, found '" +
                                                name.text.substr(0, 80) + "'");
    }
    const std::uint16_t mark = generator_.mark();
    std::vector<Operand> arguments;
    return advance() && list(arguments) &&
           generator_.call(*function, mark, name.position, arguments, result);
  }

  bool list(std::vector<Operand> &arguments) {
    if (token_.symbol == Symbol::kClose) return advance();
    while (true) {
      if (arguments.size() == kMaxRepeated) return fail("expected fewer arguments");
      if (!choice(arguments.emplace_back())) return false;
      if (token_.symbol != Symbol::kComma) break;
      if (!advance()) return false;
    }
    return expect(Symbol::kClose, "expected an operator, ',' or ')'");
  }

  Lexer lexer_;
  Generator &generator_;
  Error &error_;
  Token token_;
  int depth_ = 0;
};

}  // namespace

bool parse(std::string_view text, Generator &generator, Error &error) {
  return Parser(text, generator, error).parse();
}

}  // namespace ksutil::expr
