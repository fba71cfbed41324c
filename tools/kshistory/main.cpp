/* kshistory: shows, extends and draws the histories that monitors keep in files. */
#include "tools/common/out_of_memory.h"
#include "tools/kshistory/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  return run_made_program(
      [] {
        return Program{"kshistory",
                       "Shows, extends and draws histories: the running records of "
                       "monitored quantities.",
                       {add_command(), show_command(), plot_command()},
                       ""};
      },
      argc, argv);
}
