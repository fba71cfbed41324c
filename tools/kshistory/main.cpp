/* kshistory: shows, extends and draws the histories that monitors keep in files. */
#include "tools/kshistory/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  CLI::App app(
      "Shows, extends and draws histories: the running records of monitored "
      "quantities.",
      "kshistory");
  app.footer(
      "Examples:\n"
      "  kshistory add latency.hst now 2.5 --max 1000\n"
      "  kshistory show latency.hst --csv\n"
      "  kshistory show latency.hst --at '2026-11-21 12:00'\n"
      "  kshistory plot latency.hst -o latency.svg --label 'latency (s)'\n"
      "Exit codes: 0 success, 1 failure, 2 wrong usage.");
  add_version(app);
  app.require_subcommand(1);
  Action action;
  add_show(app, action);
  add_add(app, action);
  add_plot(app, action);
  return run(app, action, argc, argv);
}
