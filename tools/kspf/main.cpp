/* kspf: looks into, edits, checks and merges parameter files. */
#include "tools/kspf/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  return run_program({"kspf",
                      "Looks into, edits, checks and merges parameter files.",
                      {get_command(), set_command(), insert_command(), delete_command(),
                       check_command(), merge_command(), format_command()},
                      ""},
                     argc, argv);
}
