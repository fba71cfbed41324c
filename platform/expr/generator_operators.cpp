/* generator_operators: checks the types of operands and writes the instructions of
 * operators. */
#include <array>

#include "platform/expr/internal/generator.h"

namespace ksutil::expr {

namespace {

struct ArithmeticOps {
  Symbol symbol;
  Op integer, real;
};

/* Division and powers of integers give a real. */
constexpr ArithmeticOps kArithmetic[] = {
    {Symbol::kPlus, Op::kAddInteger, Op::kAddReal},
    {Symbol::kMinus, Op::kSubtractInteger, Op::kSubtractReal},
    {Symbol::kTimes, Op::kMultiplyInteger, Op::kMultiplyReal},
    {Symbol::kModulo, Op::kModuloInteger, Op::kModuloReal},
    {Symbol::kDivide, Op::kEnd, Op::kDivideReal},
    {Symbol::kPower, Op::kEnd, Op::kReal2}};

struct ComparisonOps {
  Symbol symbol;
  bool swapped;
  Op integer, real, text;
};

constexpr ComparisonOps kComparisons[] = {
    {Symbol::kEqual, false, Op::kEqualInteger, Op::kEqualReal, Op::kEqualText},
    {Symbol::kUnequal, false, Op::kUnequalInteger, Op::kUnequalReal, Op::kUnequalText},
    {Symbol::kLess, false, Op::kLessInteger, Op::kLessReal, Op::kLessText},
    {Symbol::kGreater, true, Op::kLessInteger, Op::kLessReal, Op::kLessText},
    {Symbol::kLessEqual, false, Op::kLessEqualInteger, Op::kLessEqualReal,
     Op::kLessEqualText},
    {Symbol::kGreaterEqual, true, Op::kLessEqualInteger, Op::kLessEqualReal,
     Op::kLessEqualText}};

template <class Table>
const auto &entry(const Table &table, Symbol symbol) {
  std::size_t i = 0;
  while (table[i].symbol != symbol) ++i;
  return table[i];
}

}  // namespace

bool Generator::negate(Operand &operand) {
  if (!expect_number(operand)) return false;
  Instruction in;
  in.op = operand.type == Type::kInteger ? Op::kNegateInteger : Op::kNegateReal;
  in.type = operand.type == Type::kInteger ? Type::kInteger : Type::kReal;
  const Operand argument = operand;
  if (!argument.constant) release(argument.place);
  return emit(in, {&argument, 1}, false, operand);
}

bool Generator::invert(Operand &operand) {
  if (!expect(operand, Type::kBoolean)) return false;
  Instruction in;
  in.op = Op::kNot;
  in.type = Type::kBoolean;
  const Operand argument = operand;
  if (!argument.constant) release(argument.place);
  return emit(in, {&argument, 1}, true, operand);
}

bool Generator::binary(Symbol symbol, std::uint16_t mark, Operand &left,
                       Operand right) {
  const std::size_t first = left.place;
  const bool constant = left.constant && right.constant;
  switch (symbol) {
    case Symbol::kPlus:
    case Symbol::kMinus:
    case Symbol::kTimes:
    case Symbol::kDivide:
    case Symbol::kModulo:
    case Symbol::kPower:
      if (!arithmetic(symbol, mark, left, right)) return false;
      break;
    case Symbol::kMatch:
    case Symbol::kNoMatch:
    case Symbol::kGlob:
    case Symbol::kNoGlob:
      if (!match(symbol, mark, left, right)) return false;
      break;
    default:
      if (!comparison(symbol, mark, left, right)) return false;
  }
  if (constant && left.constant) {
    /* Frees the constants from which this one was computed, as nothing else uses them:
     * they stand behind the first operand, because everything between belongs to the
     * second. */
    const Value value = constant_of(left);
    code_.constants.resize(first - kConstantPlace);
    left.place = static_cast<std::uint16_t>(first);
    code_.constants.push_back(value);
  }
  return true;
}

bool Generator::arithmetic(Symbol symbol, std::uint16_t mark, Operand &left,
                           Operand &right) {
  Instruction in;
  if (symbol == Symbol::kPlus && left.type == Type::kText) {
    if (!expect(right, Type::kText)) return false;
    in.op = Op::kConcatenate;
    in.type = Type::kText;
  } else {
    if (symbol == Symbol::kMinus) {
      if (left.type == Type::kTime && right.type == Type::kText &&
          !coerce(right, Type::kTime)) {
        return false;
      }
      if (right.type == Type::kTime && left.type == Type::kText &&
          !coerce(left, Type::kTime)) {
        return false;
      }
    }
    if (!expect_number(left) || !expect_number(right)) return false;
    const ArithmeticOps &ops = entry(kArithmetic, symbol);
    const bool integers = left.type == Type::kInteger && right.type == Type::kInteger &&
                          ops.integer != Op::kEnd;
    const bool moved_time =
        (symbol == Symbol::kPlus &&
         (left.type == Type::kTime) != (right.type == Type::kTime)) ||
        (symbol == Symbol::kMinus && left.type == Type::kTime &&
         right.type != Type::kTime);
    in.op = integers ? ops.integer : ops.real;
    in.type = integers ? Type::kInteger : moved_time ? Type::kTime : Type::kReal;
    if (symbol == Symbol::kPower) in.real2 = find_function("pow")->real2;
    if (!integers && (!as_double(left) || !as_double(right))) {
      return false;
    }
  }
  release(mark);
  return emit(in, std::array{left, right}, false, left);
}

bool Generator::comparison(Symbol symbol, std::uint16_t mark, Operand &left,
                           Operand &right) {
  const ComparisonOps &ops = entry(kComparisons, symbol);
  Type type;
  if (!common_type(left.type, right.type, type)) {
    return fail(right.position, std::string("expected a value to compare with ") +
                                    type_name(left.type) + ", found " +
                                    type_name(right.type));
  }
  if (type == Type::kBoolean && ops.integer != Op::kEqualInteger &&
      ops.integer != Op::kUnequalInteger) {
    return fail(left.position, "expected a number, text or time, found a boolean");
  }
  const auto ready = [&](Operand &operand) {
    return type == Type::kTime && operand.type != Type::kText ? as_double(operand)
                                                              : coerce(operand, type);
  };
  if (!ready(left) || !ready(right)) return false;
  Instruction in;
  in.type = Type::kBoolean;
  in.op = type == Type::kText                          ? ops.text
          : type == Type::kReal || type == Type::kTime ? ops.real
                                                       : ops.integer;
  release(mark);
  return emit(in, ops.swapped ? std::array{right, left} : std::array{left, right}, true,
              left);
}

bool Generator::match(Symbol symbol, std::uint16_t mark, Operand &left,
                      const Operand &right) {
  if (!expect(left, Type::kText) || !expect(right, Type::kText)) return false;
  if (symbol == Symbol::kMatch || symbol == Symbol::kNoMatch) {
    Instruction in;
    in.op = Op::kMatch;
    in.type = Type::kBoolean;
    if (!add_pattern(right, in.pattern)) return false;
    release(mark);
    const Operand text = left;
    if (!emit(in, {&text, 1}, false, left)) return false;
  } else {
    std::vector<Operand> arguments{right, left};
    if (!call(*find_function("glob"), mark, left.position, arguments, left))
      return false;
  }
  Instruction in;
  in.op =
      symbol == Symbol::kMatch || symbol == Symbol::kGlob ? Op::kTruth : Op::kRefuted;
  in.type = Type::kBoolean;
  release(mark);
  const Operand found = left;
  return emit(in, {&found, 1}, true, left);
}

bool Generator::add_pattern(const Operand &operand, const Pattern *&pattern) {
  if (!operand.constant) return fail(operand.position, "expected a constant pattern");
  auto made = std::make_unique<Pattern>();
  std::size_t place = 0;
  std::string message;
  if (!made->compile(constant_of(operand).text, place, message)) {
    return fail(operand.position,
                message + " at byte " + std::to_string(place) + " of the pattern");
  }
  states_ += made->size();
  if (states_ > kMaxStates) return fail(operand.position, "expected smaller patterns");
  pattern = made.get();
  code_.patterns.push_back(std::move(made));
  return true;
}

bool Generator::convert_alike(char code, const Function &function,
                              std::vector<Operand> &arguments) {
  Type type = arguments[0].type;
  for (const Operand &argument : arguments) {
    if (code == 'n' && !expect_number(argument)) return false;
    if (!common_type(type, argument.type, type)) return expect(argument, type);
  }
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::size_t declared = std::min(i, function.arguments.size() - 1);
    if (function.arguments[declared] == code && !coerce(arguments[i], type))
      return false;
  }
  return true;
}

bool Generator::convert_arguments(const Function &function,
                                  std::vector<Operand> &arguments) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const char code = function.arguments[std::min(i, function.arguments.size() - 1)];
    Operand &argument = arguments[i];
    bool fits = true;
    switch (code) {
      case 'i':
        fits = expect(argument, Type::kInteger);
        break;
      case 's':
        fits = expect(argument, Type::kText);
        break;
      case 'b':
        fits = expect(argument, Type::kBoolean);
        break;
      case 't':
        fits = coerce(argument, Type::kTime);
        break;
      case 'r':
        fits = expect_number(argument) && as_double(argument);
        break;
      case 'v':
        break;
      default:
        return convert_alike(code, function, arguments);
    }
    if (!fits) return false;
  }
  return true;
}

bool Generator::call(const Function &function, std::uint16_t mark, std::size_t position,
                     std::vector<Operand> &arguments, Operand &result) {
  const std::size_t declared = function.arguments.size();
  const bool repeats = (function.traits & kRepeats) != 0;
  if (arguments.size() < declared || (arguments.size() > declared && !repeats)) {
    return fail(position, "expected " + std::to_string(declared) +
                              (repeats ? " or more" : "") + " argument" +
                              (declared == 1 ? "" : "s") + " of " +
                              std::string(function.name));
  }
  if (!convert_arguments(function, arguments)) return false;
  if ((function.traits & kGlobs) != 0 && arguments[0].constant &&
      constant_of(arguments[0]).text.size() > kMaxPatternLength) {
    return fail(arguments[0].position, "expected a pattern of at most 1024 bytes");
  }
  Instruction in;
  if (function.real1 != nullptr) {
    in.op = Op::kReal1;
    in.real1 = function.real1;
  } else if (function.real2 != nullptr) {
    in.op = Op::kReal2;
    in.real2 = function.real2;
  } else if (function.real4 != nullptr) {
    in.op = Op::kReal4;
    in.real4 = function.real4;
  } else {
    in.op = (function.traits & kTakesNulls) != 0 ? Op::kGeneralNulls : Op::kGeneral;
    in.general = function.general;
  }
  switch (function.result) {
    case 'i':
      in.type = Type::kInteger;
      break;
    case 'r':
      in.type = Type::kReal;
      break;
    case 't':
      in.type = Type::kTime;
      break;
    case 's':
      in.type = Type::kText;
      break;
    case 'b':
      in.type = Type::kBoolean;
      break;
    default:
      in.type = arguments[0].type;
  }
  result.position = position;
  release(mark);
  if ((function.traits & kVaries) != 0) {
    code_.constant = false;
    in.target = allocate();
    code_.instructions.push_back(in);
    result = {in.type, in.target, false, false, position};
    return true;
  }
  if (!repeats) return emit(in, arguments, false, result);
  result = arguments[0];
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const Operand left = result;
    result.position = position;
    release(mark);
    if (!emit(in, std::array{left, arguments[i]}, false, result)) return false;
  }
  return true;
}

}  // namespace ksutil::expr
