#include "tools/common/out_of_memory.h"

#include <errno.h>

#include <cstdio>
#include <new>

namespace ksutil::tools {

void complain_of_memory() noexcept {
  std::fprintf(stderr, "%s: out of memory\n", program_invocation_short_name);
}

int run_made_program(Program (*make)(), int argc, char **argv) try {
  return run_program(make(), argc, argv);
} catch (const std::bad_alloc &) {
  complain_of_memory();
  return kFailure;
}

}  // namespace ksutil::tools
