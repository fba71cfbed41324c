/* ksdb: looks at databases, checks them, fills them from catalogues, and edits them. */
#include "tools/common/out_of_memory.h"
#include "tools/ksdb/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  return run_made_program(
      [] {
        return Program{
            "ksdb",
            "Looks at event databases, checks, fills, copies and edits them.",
            {info_command(),   list_command(),   subset_command(), sort_command(),
             join_command(),   group_command(),  plot_command(),   schema_command(),
             verify_command(), create_command(), copy_command(),   nextid_command(),
             import_command(), add_command(),    set_command(),    delete_command(),
             prefer_command(), dedup_command(),  export_command(), formats_command(),
             follow_command()},
            ""};
      },
      argc, argv);
}
