/* Generator: checks types and writes the instructions of an expression while it is
 * parsed. */
#ifndef KSUTIL_PLATFORM_EXPR_INTERNAL_GENERATOR_H
#define KSUTIL_PLATFORM_EXPR_INTERNAL_GENERATOR_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/expr/internal/code.h"
#include "platform/expr/internal/functions.h"
#include "platform/expr/internal/lexer.h"
#include "platform/expr/internal/machine.h"

namespace ksutil::expr {

/* Provisional places of constants begin here, until the number of temporaries is
 * known. */
inline constexpr std::uint16_t kConstantPlace = 0x8000;

/* The value of a piece of the expression.  A piece that is not constant stands in the
 * temporary that was the next one when the piece began. */
struct Operand {
  Type type = Type::kInteger;
  std::uint16_t place = 0;  // temporary or constant
  bool constant = false;
  bool known = false;        // never null
  std::size_t position = 0;  // where it begins in the text
};

class Generator {
 public:
  Generator(Code &code, const Fields &fields, Error &error)
      : code_(code), fields_(fields), error_(error) {}

  /* The next temporary; a piece that is no longer needed gives its own back. */
  std::uint16_t mark() const { return next_; }
  void release(std::uint16_t mark) { next_ = mark; }

  /* The functions below give false with the error filled in. */
  bool constant(Value value, std::size_t position, Operand &result);
  bool field(const Token &name, Operand &result);
  bool affirm(const Operand &operand) { return expect_number(operand); }
  bool negate(Operand &operand);
  bool invert(Operand &operand);

  /* Applies the operator; the result replaces `left`, and both begin at `mark`. */
  bool binary(Symbol symbol, std::uint16_t mark, Operand &left, Operand right);

  /* Between its two operands a logical operator jumps over the second.  Index of that
   * jump, for end_logic. */
  bool begin_logic(Symbol symbol, std::uint16_t mark, Operand &left, std::size_t &jump);
  bool end_logic(std::uint16_t mark, Operand &left, Operand right, std::size_t jump);

  /* The instructions of a conditional whose targets are filled in at its end. */
  struct Choice {
    std::size_t test = 0, first = 0, leave = 0;
    Operand value;
  };
  bool begin_choice(std::uint16_t mark, const Operand &condition, Choice &choice);
  void next_choice(std::uint16_t mark, const Operand &first, Choice &choice);
  bool end_choice(std::uint16_t mark, const Choice &choice, Operand second,
                  Operand &result);

  bool call(const Function &function, std::uint16_t mark, std::size_t position,
            std::vector<Operand> &arguments, Operand &result);

  bool finish(const Operand &result);

  bool fail(std::size_t position, std::string message);

 private:
  bool arithmetic(Symbol symbol, std::uint16_t mark, Operand &left, Operand &right);
  bool comparison(Symbol symbol, std::uint16_t mark, Operand &left, Operand &right);
  bool match(Symbol symbol, std::uint16_t mark, Operand &left, const Operand &right);
  bool add_pattern(const Operand &operand, const Pattern *&pattern);
  bool convert_arguments(const Function &function, std::vector<Operand> &arguments);
  bool convert_alike(char code, const Function &function,
                     std::vector<Operand> &arguments);

  bool expect(const Operand &operand, Type type);
  bool expect_number(const Operand &operand);
  bool coerce(Operand &operand, Type type);
  bool as_double(Operand &operand);
  bool emit(Instruction in, std::span<const Operand> arguments, bool known,
            Operand &result);
  bool fold(Instruction in, Value &value);
  bool add_constant(Value value, std::uint16_t &place);
  Value &constant_of(const Operand &operand);
  std::size_t emit_jump(Op op, std::uint16_t place);
  void land(std::size_t jump);
  void move(std::uint16_t mark, const Operand &from, Op op = Op::kMove);
  std::uint16_t allocate();

  Code &code_;
  const Fields &fields_;
  Error &error_;
  Scratch scratch_;  // of constants computed here
  std::uint16_t next_ = 0;
  std::size_t folded_ = 0;  // bytes of computed texts
  std::size_t states_ = 0;  // of all patterns
};

/* "an integer" and so on, for messages. */
const char *type_name(Type type);

bool is_number(Type type);  // a time is a number too

/* The type to which values of both types can be converted; false, with `common`
 * untouched, when there is none. */
bool common_type(Type a, Type b, Type &common);

}  // namespace ksutil::expr
#endif
