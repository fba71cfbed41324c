/* kssac: shows, changes, converts and draws SAC files. */
#include "tools/kssac/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  CLI::App app("Shows, changes, converts and draws seismograms in SAC files.", "kssac");
  app.footer(
      "Examples:\n"
      "  kssac header anmo.sac\n"
      "  kssac dump anmo.sac --csv\n"
      "  kssac set anmo.sac T0=12.5 KT0=S KHOLE=00\n"
      "  kssac swap from-elsewhere.sac here.sac\n"
      "  kssac from-db mydb --where \"sta == 'ANMO'\" --dir seismograms\n"
      "  kssac to-db seismograms/*.sac mydb --create css3.0\n"
      "  kssac plot seismograms/*.sac -o seismograms.svg\n"
      "Exit codes: 0 success, 1 failure, 2 wrong usage.");
  add_version(app);
  app.require_subcommand(1);
  Action action;
  add_header(app, action);
  add_dump(app, action);
  add_set(app, action);
  add_swap(app, action);
  add_from_db(app, action);
  add_to_db(app, action);
  add_sac_plot(app, action);
  return run(app, action, argc, argv);
}
