/* out_of_memory: ends a program that has run out of memory with a message. */
#ifndef KSUTIL_TOOLS_COMMON_OUT_OF_MEMORY_H
#define KSUTIL_TOOLS_COMMON_OUT_OF_MEMORY_H

#include "tools/common/cli.h"

namespace ksutil::tools {

/* Prints "program: out of memory" without allocating any. */
void complain_of_memory() noexcept;

/* run_program with the program that `make` makes, for main: memory may also be short
 * when the table of commands is made. */
int run_made_program(Program (*make)(), int argc, char **argv);

}  // namespace ksutil::tools
#endif
