/* ksvector: reads curves from instrument responses and text tables, interpolates,
 * combines and draws them. */
#include "tools/ksvector/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  return run_program({"ksvector",
                      "Reads curves from response files and text tables.",
                      {info_command(), read_command(), eval_command(), stats_command(),
                       plot_command()},
                      "Columns count from 0.\n"},
                     argc, argv);
}
