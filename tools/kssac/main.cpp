/* kssac: shows, changes, converts and draws SAC files. */
#include "tools/common/out_of_memory.h"
#include "tools/kssac/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  return run_made_program(
      [] {
        return Program{"kssac",
                       "Shows, changes, converts and draws seismograms in SAC files.",
                       {from_db_command(), header_command(), dump_command(),
                        set_command(), swap_command(), plot_command(), to_db_command()},
                       ""};
      },
      argc, argv);
}
