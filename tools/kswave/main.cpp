/* kswave: lists, extracts, draws and picks the waveforms of a database. */
#include "tools/common/out_of_memory.h"
#include "tools/kswave/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  return run_made_program(
      [] {
        return Program{"kswave",
                       "Lists, extracts, draws and picks the waveforms of a database.",
                       {list_command(), get_command(), plot_command(),
                        response_command(), spectrum_command(), pick_command()},
                       ""};
      },
      argc, argv);
}
