/* ksevents: shows the events of a database as the event server sees them. */
#include "tools/common/out_of_memory.h"
#include "tools/ksevents/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  return run_made_program(
      [] {
        return Program{"ksevents",
                       "Shows the events of a database, and follows their changes.",
                       {list_command(), show_command(), view_command(), watch_command(),
                        plot_command(), diff_command()},
                       ""};
      },
      argc, argv);
}
