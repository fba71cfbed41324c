/* merge: kspf merge. */
#include <vector>

#include "tools/kspf/commands.h"

namespace ksutil::tools {
namespace {

struct MergeOptions {
  std::vector<std::string> files;
  std::string output;
  bool append_tables = false, keep_present = false;
};

int merge(const MergeOptions &options) {
  const int flags = (options.append_tables ? KSPF_APPEND_TABLES : 0) |
                    (options.keep_present ? KSPF_KEEP_PRESENT : 0);
  KSPf merged;
  for (const std::string &file : options.files) {
    KSPf pf;
    if (!read_input(file, false, pf)) return kFailure;
    if (&file == &options.files.front()) {
      merged = pf;
    } else if (merged.merge(pf, flags) != 0) {
      return kFailure;
    }
  }
  return write_output(merged, options.output);
}

void describe_merge(CLI::App &command, MergeOptions &options) {
  command.add_option("files", options.files, "Parameter files")->required();
  command.add_option("-o,--output", options.output, "File to write instead");
  command.add_flag("--append-tables", options.append_tables,
                   "Items of later tables follow those of earlier ones");
  command.add_flag("--keep-present", options.keep_present,
                   "Take only what is absent from the earlier files");
}

}  // namespace

Command merge_command() {
  return make_command<MergeOptions>(
      "merge", "Prints files as one, later over earlier",
      {"kspf merge -o server.pf data/settings/site.pf data/settings/user.pf"},
      describe_merge, merge);
}

}  // namespace ksutil::tools
