/* ksgrid: shows, evaluates, draws and makes files of grids. */
#include "tools/common/out_of_memory.h"
#include "tools/ksgrid/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  return run_made_program(
      [] {
        return Program{
            "ksgrid",
            "Shows, evaluates, draws and makes files of grids.",
            {make_grid_command(), info_command(), eval_command(), plot_command()},
            "Grids of a file and frames of a grid count from 0, negative frames from "
            "the\nend.\n"};
      },
      argc, argv);
}
