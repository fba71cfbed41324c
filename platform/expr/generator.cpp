#include "platform/expr/internal/generator.h"

#include <algorithm>
#include <utility>

#include "platform/clock/clock.h"
#include "platform/elog/elog.h"

namespace ksutil::expr {

namespace {

constexpr std::size_t kMaxFoldedText = 1 << 20;

class NoRecord final : public Record {
 public:
  bool value(int, Value &) const override { return false; }
};

/* The instruction that converts a value of one type to another. */
bool conversion(Type from, Type to, Op &op) {
  op = from == Type::kInteger ? Op::kIntegerToReal
       : from == Type::kText  ? Op::kTextToTime
                              : Op::kMove;
  if (from == to) {
    op = Op::kMove;
    return true;
  }
  if (to == Type::kTime) return from != Type::kBoolean;
  return to == Type::kReal && is_number(from);
}

}  // namespace

const char *type_name(Type type) {
  switch (type) {
    case Type::kInteger:
      return "an integer";
    case Type::kReal:
      return "a real number";
    case Type::kText:
      return "a text";
    case Type::kBoolean:
      return "a boolean";
    case Type::kTime:
      return "a time";
  }
  return "";
}

bool is_number(Type type) {
  return type == Type::kInteger || type == Type::kReal || type == Type::kTime;
}

bool common_type(Type a, Type b, Type &common) {
  const Type wider = a == b                                 ? a
                     : a == Type::kTime || b == Type::kTime ? Type::kTime
                                                            : Type::kReal;
  Op op;
  if (!conversion(a, wider, op) || !conversion(b, wider, op)) return false;
  common = wider;
  return true;
}

bool Generator::fail(std::size_t position, std::string message) {
  error_ = {position, std::move(message)};
  return false;
}

bool Generator::expect(const Operand &operand, Type type) {
  if (operand.type == type) return true;
  return fail(operand.position, std::string("expected ") + type_name(type) +
                                    ", found " + type_name(operand.type));
}

bool Generator::expect_number(const Operand &operand) {
  if (is_number(operand.type)) return true;
  return fail(operand.position,
              std::string("expected a number, found ") + type_name(operand.type));
}

std::uint16_t Generator::allocate() {
  code_.temporaries = std::max<std::size_t>(code_.temporaries, next_ + 1U);
  return next_++;
}

Value &Generator::constant_of(const Operand &operand) {
  return code_.constants[operand.place - kConstantPlace];
}

bool Generator::add_constant(Value value, std::uint16_t &place) {
  if (code_.constants.size() >= kMaxConstants) return false;
  if (value.type == Type::kText) {
    value.text = code_.texts.emplace_back(value.text);
  }
  place = static_cast<std::uint16_t>(kConstantPlace + code_.constants.size());
  code_.constants.push_back(value);
  return true;
}

bool Generator::constant(Value value, std::size_t position, Operand &result) {
  result = {value.type, 0, true, !value.null, position};
  return add_constant(value, result.place) ||
         fail(position, "expected fewer constants");
}

bool Generator::field(const Token &name, Operand &result) {
  Instruction in;
  int slot = 0;
  if (!fields_.bind(name.text, slot, in.type)) {
    return fail(name.position,
                "expected a known field, found '" + name.text.substr(0, 80) + "'");
  }
  in.op = Op::kLoad;
  in.slot = slot;
  in.target = allocate();
  code_.instructions.push_back(in);
  code_.constant = false;
  result = {in.type, in.target, false, false, name.position};
  return true;
}

/* Computes an instruction whose operands are all constant.  If it fails, it stays for
 * the evaluation, which then reports the failure. */
bool Generator::fold(Instruction in, Value &value) {
  Value registers[kMaxArguments + 1];
  for (std::uint16_t i = 0; i < in.count; ++i) {
    registers[i] = code_.constants[in.arguments[i] - std::size_t{kConstantPlace}];
    in.arguments[i] = i;
  }
  in.target = kMaxArguments;
  const Instruction code[] = {in, {}};
  const ElogScope quiet;
  scratch_.clear();
  if (!run(code, registers, NoRecord(), scratch_)) return false;
  value = registers[kMaxArguments];
  if (value.type == Type::kText) folded_ += value.text.size();
  return folded_ <= kMaxFoldedText;
}

bool Generator::emit(Instruction in, std::span<const Operand> arguments, bool known,
                     Operand &result) {
  bool constant = true;
  in.count = 0;
  for (const Operand &argument : arguments) {
    in.arguments[in.count++] = argument.place;
    constant = constant && argument.constant;
  }
  const std::size_t position = result.position;
  Value value;
  if (constant && fold(in, value)) return this->constant(value, position, result);
  in.target = allocate();
  code_.instructions.push_back(in);
  result = {in.type, in.target, false, known, position};
  return true;
}

bool Generator::coerce(Operand &operand, Type type) {
  if (operand.type == type) return true;
  Instruction in;
  in.type = type;
  in.count = 1;
  in.arguments[0] = in.target = operand.place;
  if (!conversion(operand.type, type, in.op)) return expect(operand, type);
  if (operand.constant) {
    const std::string_view text = constant_of(operand).text;
    if (!fold(in, constant_of(operand))) {
      return fail(operand.position,
                  "expected a date, found '" + std::string(text.substr(0, 80)) + "'");
    }
  } else {
    code_.instructions.push_back(in);
  }
  operand.type = type;
  return true;
}

/* Reals and times are both doubles. */
bool Generator::as_double(Operand &operand) {
  return operand.type == Type::kTime || coerce(operand, Type::kReal);
}

std::size_t Generator::emit_jump(Op op, std::uint16_t place) {
  Instruction in;
  in.op = op;
  in.count = op == Op::kJump ? 0 : 1;
  in.arguments[0] = place;
  code_.instructions.push_back(in);
  return code_.instructions.size() - 1;
}

void Generator::land(std::size_t jump) {
  code_.instructions[jump].jump = static_cast<std::uint32_t>(code_.instructions.size());
}

void Generator::move(std::uint16_t mark, const Operand &from, Op op) {
  Instruction in;
  in.op = op;
  in.type = from.type;
  in.count = 1;
  in.arguments[0] = from.place;
  release(mark);
  in.target = allocate();
  code_.instructions.push_back(in);
}

bool Generator::begin_logic(Symbol symbol, std::uint16_t mark, Operand &left,
                            std::size_t &jump) {
  if (!expect(left, Type::kBoolean)) return false;
  if (left.constant || !left.known) move(mark, left, Op::kTruth);
  jump = emit_jump(symbol == Symbol::kAnd ? Op::kJumpFalse : Op::kJumpTrue, mark);
  release(mark);
  return true;
}

bool Generator::end_logic(std::uint16_t mark, Operand &left, Operand right,
                          std::size_t jump) {
  if (!expect(right, Type::kBoolean)) return false;
  if (right.constant || !right.known) move(mark, right, Op::kTruth);
  land(jump);
  left = {Type::kBoolean, mark, false, true, left.position};
  return true;
}

bool Generator::begin_choice(std::uint16_t mark, const Operand &condition,
                             Choice &choice) {
  if (!expect(condition, Type::kBoolean)) return false;
  choice.test = emit_jump(Op::kJumpFalse, condition.place);
  release(mark);
  return true;
}

void Generator::next_choice(std::uint16_t mark, const Operand &first, Choice &choice) {
  choice.value = first;
  choice.first = code_.instructions.size();
  move(mark, first);
  choice.leave = emit_jump(Op::kJump, 0);
  land(choice.test);
  release(mark);
}

bool Generator::end_choice(std::uint16_t mark, const Choice &choice, Operand second,
                           Operand &result) {
  Operand first = choice.value;
  Type type;
  if (!common_type(first.type, second.type, type)) return expect(second, first.type);
  if (first.constant) {
    if (!coerce(first, type)) return false;
  } else if (first.type != type) {
    conversion(first.type, type, code_.instructions[choice.first].op);
  }
  code_.instructions[choice.first].type = type;
  if (!coerce(second, type)) return false;
  move(mark, second);
  land(choice.leave);
  result = {type, mark, false, first.known && second.known, result.position};
  return true;
}

bool Generator::finish(const Operand &result) {
  const auto place = [this](std::uint16_t p) {
    return p < kConstantPlace
               ? p
               : static_cast<std::uint16_t>(p - kConstantPlace + code_.temporaries);
  };
  code_.type = result.type;
  code_.result = place(result.place);
  const auto &all = code_.instructions;
  if (all.size() == 1 && all[0].op == Op::kLoad) code_.only_slot = all[0].slot;
  for (Instruction &in : code_.instructions) {
    for (std::size_t i = 0; i < in.count; ++i) in.arguments[i] = place(in.arguments[i]);
  }
  code_.instructions.emplace_back();
  return true;
}

}  // namespace ksutil::expr
