#include "platform/expr/internal/functions.h"

namespace ksutil::expr {

std::array<std::span<const Function>, 4> all_functions() {
  return {number_functions(), time_functions(), text_functions(), travel_functions()};
}

const Function *find_function(std::string_view name) {
  for (const std::span<const Function> functions : all_functions()) {
    for (const Function &function : functions) {
      if (function.name == name) return &function;
    }
  }
  return nullptr;
}

}  // namespace ksutil::expr
