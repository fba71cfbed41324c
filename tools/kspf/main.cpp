/* kspf: looks into, edits, checks and merges parameter files. */
#include "tools/kspf/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  CLI::App app("Looks into, edits, checks and merges parameter files.", "kspf");
  app.footer(
      "Examples:\n"
      "  kspf get server.pf colors.background\n"
      "  kspf get --json server.pf magnitudes\n"
      "  kspf set server.pf monitor.interval 2.5\n"
      "  kspf set server.pf offset -- -3\n"
      "  kspf insert server.pf 'magnitudes[0]' 'mww 7.0'\n"
      "  kspf check server.pf --rules server.rules\n"
      "  kspf merge site.pf user.pf -o server.pf\n"
      "  kspf format --in-place server.pf\n"
      "Exit codes: 0 success, 1 failure or violations, 2 wrong usage.");
  add_version(app);
  app.require_subcommand(1);
  Action action;
  add_get(app, action);
  add_set(app, action);
  add_insert(app, action);
  add_delete(app, action);
  add_check(app, action);
  add_merge(app, action);
  add_format(app, action);
  return run(app, action, argc, argv);
}
