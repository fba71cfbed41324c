/* ksvector: reads curves from instrument responses and text tables, interpolates,
 * combines and draws them. */
#include "tools/ksvector/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  CLI::App app("Reads curves from response files and text tables.", "ksvector");
  app.footer(
      "Examples:\n"
      "  ksvector info station.fap\n"
      "  ksvector read --skip 1 --x 0 --y 2,3 --label 1 table.txt\n"
      "  ksvector eval station.fap --at 0.5 1 2\n"
      "  ksvector eval table.txt --from 0 --to 10 --count 101 --csv\n"
      "  ksvector stats --type median day1.txt day2.txt day3.txt\n"
      "  ksvector plot station.fap other.fap -o responses.svg\n"
      "Columns count from 0.  Exit codes: 0 success, 1 failure, 2 wrong usage.");
  add_version(app);
  app.require_subcommand(1);
  Action action;
  add_info(app, action);
  add_read(app, action);
  add_eval(app, action);
  add_stats(app, action);
  add_plot(app, action);
  return run(app, action, argc, argv);
}
