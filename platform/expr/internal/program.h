/* program: implements the classes of expr.h. */
#ifndef KSUTIL_PLATFORM_EXPR_INTERNAL_PROGRAM_H
#define KSUTIL_PLATFORM_EXPR_INTERNAL_PROGRAM_H

#include <vector>

#include "platform/expr/expr.h"
#include "platform/expr/internal/code.h"
#include "platform/expr/internal/convert.h"
#include "platform/expr/internal/machine.h"

namespace ksutil::expr {

struct Program::Code : expr::Code {};

struct Workspace::Impl {
  std::vector<Value> registers;
  std::uint64_t loaded = 0;  // the program whose constants are in the registers
  Scratch scratch;
  char converted[kConvertedSize];  // the text of convert()
};

}  // namespace ksutil::expr
#endif
