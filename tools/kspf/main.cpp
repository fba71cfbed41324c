/* kspf: looks into, edits, checks and merges parameter files. */
#include "tools/common/out_of_memory.h"
#include "tools/kspf/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  return run_made_program(
      [] {
        return Program{
            "kspf",
            "Looks into, edits, checks and merges parameter files.",
            {get_command(), set_command(), insert_command(), delete_command(),
             check_command(), merge_command(), format_command()},
            ""};
      },
      argc, argv);
}
