/* ksvector: reads curves from instrument responses and text tables, interpolates,
 * combines and draws them. */
#include "tools/common/out_of_memory.h"
#include "tools/ksvector/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  return run_made_program(
      [] {
        return Program{"ksvector",
                       "Reads curves from response files and text tables.",
                       {info_command(), read_command(), eval_command(), stats_command(),
                        plot_command()},
                       "Columns count from 0.\n"};
      },
      argc, argv);
}
