/* run: executes the instructions of a compiled expression. */
#ifndef KSUTIL_PLATFORM_EXPR_INTERNAL_MACHINE_H
#define KSUTIL_PLATFORM_EXPR_INTERNAL_MACHINE_H

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/expr/internal/code.h"

namespace ksutil::expr {

/* The texts made by one evaluation. */
class Scratch {
 public:
  /* Room for a text; null, with a message registered, when a bound is exceeded. */
  char *take(std::size_t size);
  bool copy(std::string_view text, Value &result);
  void clear();

  PatternScratch pattern;

 private:
  std::vector<std::unique_ptr<char[]>> blocks_;
  std::size_t block_ = 0, used_ = 0;
};

/* Runs instructions up to their end; false, with a message, when one fails. */
bool run(const Instruction *code, Value *registers, const Record &record,
         Scratch &scratch);

}  // namespace ksutil::expr
#endif
