/* code: represents a compiled expression as instructions over registers.
 *
 * The registers of a workspace hold first the temporaries and then the constants of the
 * program that it last evaluated.  Types are settled when the program is made, so each
 * instruction knows the types of its operands. */
#ifndef KSUTIL_PLATFORM_EXPR_INTERNAL_CODE_H
#define KSUTIL_PLATFORM_EXPR_INTERNAL_CODE_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "platform/expr/expr.h"
#include "platform/expr/shared/pattern.h"

namespace ksutil::expr {

/* Bounds of an expression. */
inline constexpr std::size_t kMaxLength = 65536;        // bytes of its text
inline constexpr int kMaxDepth = 200;                   // parentheses, calls, signs
inline constexpr std::size_t kMaxConstants = 30000;     // in one program
inline constexpr std::size_t kMaxTextLength = 65536;    // bytes of a text it makes
inline constexpr std::size_t kMaxTextMemory = 1 << 20;  // of all texts of an evaluation
inline constexpr std::size_t kMaxStates = 20000;        // of all patterns of one
inline constexpr std::size_t kMaxArguments = 4;         // of one instruction

class Scratch;

/* The arguments and the result of a function call.  The arguments are of the declared
 * types, and not null unless the function takes nulls; the result already has its type
 * and is not null. */
struct Call {
  Scratch &scratch;
  const Value *const *arguments;
  Value &result;
};
using General = bool (*)(Call &call);
using Real1 = double (*)(double);
using Real2 = double (*)(double, double);
using Real4 = double (*)(double, double, double, double);

enum class Op : std::uint16_t {
  kEnd,
  kLoad,
  kMove,  // also between real and time
  kIntegerToReal,
  kTextToTime,
  kNegateInteger,
  kNegateReal,
  kAddInteger,
  kSubtractInteger,
  kMultiplyInteger,
  kModuloInteger,
  kAddReal,
  kSubtractReal,
  kMultiplyReal,
  kDivideReal,
  kModuloReal,
  kConcatenate,
  kEqualInteger,
  kUnequalInteger,
  kLessInteger,
  kLessEqualInteger,
  kEqualReal,
  kUnequalReal,
  kLessReal,
  kLessEqualReal,
  kEqualText,
  kUnequalText,
  kLessText,
  kLessEqualText,
  kMatch,
  kNot,
  kTruth,    // true when true; false when false or null
  kRefuted,  // true when false; false when true or null
  kJump,
  kJumpFalse,
  kJumpTrue,
  kReal1,
  kReal2,
  kReal4,
  kGeneral,      // null when an argument is null
  kGeneralNulls  // sees nulls
};

struct Instruction {
  Op op = Op::kEnd;
  Type type = Type::kInteger;  // of the result
  std::uint16_t target = 0;    // the register of the result
  std::uint16_t count = 0;     // of arguments
  std::uint16_t arguments[kMaxArguments] = {0, 0, 0, 0};
  union {
    std::int32_t slot = 0;  // of a field
    std::uint32_t jump;     // index of an instruction
    const Pattern *pattern;
    Real1 real1;
    Real2 real2;
    Real4 real4;
    General general;
  };
};

struct Code {
  std::vector<Instruction> instructions;
  std::vector<Value> constants;
  std::deque<std::string> texts;  // of the constants, which must not move
  std::vector<std::unique_ptr<const Pattern>> patterns;
  std::size_t temporaries = 0;
  std::uint16_t result = 0;
  Type type = Type::kInteger;
  bool constant = true;
  int only_slot = -1;
  std::uint64_t id = 0;  // unique in this process
};

}  // namespace ksutil::expr
#endif
