/* ksgrid: shows, evaluates, draws and makes files of grids. */
#include "tools/ksgrid/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  return run_program(
      {"ksgrid",
       "Shows, evaluates, draws and makes files of grids.",
       {make_grid_command(), info_command(), eval_command(), plot_command()},
       "Grids of a file and frames of a grid count from 0, negative frames from "
       "the\nend.\n"},
      argc, argv);
}
