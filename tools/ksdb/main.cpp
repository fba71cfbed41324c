/* ksdb: looks at databases, checks them, and fills them from catalogues. */
#include "tools/ksdb/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  CLI::App app("Looks at flat-file event databases, checks them and fills them.",
               "ksdb");
  app.footer(
      "Examples:\n"
      "  ksdb info data/aug2015\n"
      "  ksdb list data/aug2015 origin --fields time,lat,lon,ml --limit 5\n"
      "  ksdb join data/aug2015 event origin --where 'ml >= 3' --fields evid,time,ml\n"
      "  ksdb plot data/aug2015 origin --map --hue depth -o map.svg\n"
      "  ksdb import catalogue.csv mydb --create css3.0\n"
      "  ksdb verify mydb\n"
      "Exit codes: 0 success, 1 failure, 2 wrong usage.");
  add_version(app);
  app.require_subcommand(1);
  Action action;
  add_info(app, action);
  add_list(app, action);
  add_views(app, action);
  add_plot(app, action);
  add_schema(app, action);
  add_verify(app, action);
  add_nextid(app, action);
  add_import(app, action);
  return run(app, action, argc, argv);
}
