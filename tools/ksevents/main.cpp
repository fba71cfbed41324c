/* ksevents: the events of a database as the event server sees them. */
#include "tools/ksevents/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  CLI::App app("Shows the events of a database, and follows their changes.",
               "ksevents");
  app.footer(
      "Examples:\n"
      "  ksevents list data/aug2015\n"
      "  ksevents list data/aug2015 --max-events 20 --json\n"
      "  ksevents list mydb --where 'magnitude >= 5' --sort depth --reverse\n"
      "  ksevents list mydb --columns 'evid,strtime(time),origin.nass'\n"
      "  ksevents show data/aug2015 17\n"
      "  ksevents view 17 data/aug2015\n"
      "  ksevents watch mydb --interval 1\n"
      "  ksevents diff yesterday today\n"
      "Exit codes: 0 success, 1 failure, 2 wrong usage.");
  add_version(app);
  app.require_subcommand(1);
  Action action;
  add_list(app, action);
  add_show(app, action);
  add_view(app, action);
  add_watch(app, action);
  add_diff(app, action);
  return run(app, action, argc, argv);
}
