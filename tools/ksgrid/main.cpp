/* ksgrid: shows, evaluates, draws and makes files of grids. */
#include "tools/ksgrid/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  CLI::App app("Shows, evaluates, draws and makes files of grids.", "ksgrid");
  app.footer(
      "Examples:\n"
      "  ksgrid make points.txt map.grid --name 'peak velocity' --xname longitude\n"
      "  ksgrid info map.grid\n"
      "  ksgrid eval map.grid --x 12.5 13 --y 41.9 42\n"
      "  ksgrid eval map.grid --points stations.txt --mode block --csv\n"
      "  ksgrid plot map.grid --map -o map.png\n"
      "  cat day1.grid day2.grid | ksgrid info --json -\n"
      "Grids of a file and frames of a grid count from 0, negative frames from the "
      "end.\n"
      "Exit codes: 0 success, 1 failure, 2 wrong usage.");
  add_version(app);
  app.require_subcommand(1);
  Action action;
  add_info(app, action);
  add_eval(app, action);
  add_plot(app, action);
  add_make(app, action);
  return run(app, action, argc, argv);
}
