/* ksdb: looks at databases, checks them, and fills them from catalogues. */
#include "tools/ksdb/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  return run_program(
      {"ksdb",
       "Looks at flat-file event databases, checks them and fills them.",
       {info_command(), list_command(), subset_command(), sort_command(),
        join_command(), group_command(), plot_command(), schema_command(),
        verify_command(), nextid_command(), import_command()},
       ""},
      argc, argv);
}
