/* edit: kspf set, insert and delete. */
#include <string>
#include <utility>
#include <vector>

#include "tools/kspf/commands.h"

namespace ksutil::tools {
namespace {

struct EditOptions {
  std::string file, path, value;
  bool block = false;
};

enum class Edit { kSet, kInsert, kDelete };

int apply(KSPf &pf, const EditOptions &options, Edit edit) {
  switch (edit) {
    case Edit::kSet:
      return options.block ? pf.setWritten(options.path, options.value)
                           : pf.set(options.path, options.value);
    case Edit::kInsert:
      return options.block ? pf.insertWritten(options.path, options.value)
                           : pf.insert(options.path, options.value);
    case Edit::kDelete:
      return pf.remove(options.path);
  }
  return -1;
}

/* Do not write a file whose content is already the wanted one. */
template <Edit edit>
int edit_file(const EditOptions &options) {
  KSPf pf;
  std::string before, after;
  if (pf.readFile(options.file) != 0 || pf.text(before) != 0 ||
      apply(pf, options, edit) != 0 || pf.text(after) != 0) {
    return kFailure;
  }
  return after == before ? kOk : write_output(pf, options.file);
}

template <Edit edit>
void describe(CLI::App &command, EditOptions &options) {
  command.add_option("file", options.file, "Parameter file, which is replaced")
      ->required();
  command.add_option("path", options.path, "Path of the value")->required();
  if (edit == Edit::kDelete) return;
  command.add_option("value", options.value, "The text")->required();
  command.add_flag("--block", options.block,
                   "The value is written as in a file: '&Tbl{ ... }' on lines");
}

template <Edit edit>
Command edit_command(const char *name, const char *description,
                     std::vector<std::string> examples) {
  return make_command<EditOptions>(name, description, std::move(examples),
                                   describe<edit>, edit_file<edit>);
}

}  // namespace

Command set_command() {
  return edit_command<Edit::kSet>(
      "set", "Sets a value, adding a key that is absent",
      {"kspf set data/settings/server.pf monitor.interval 2.5",
       "kspf set data/settings/server.pf offset -- -3"});
}

Command insert_command() {
  return edit_command<Edit::kInsert>(
      "insert", "Adds a key, or an item before that of its index",
      {"kspf insert data/settings/server.pf 'magnitudes[0]' 'mww 7.0'"});
}

Command delete_command() {
  return edit_command<Edit::kDelete>("delete", "Removes a value",
                                     {"kspf delete data/settings/server.pf offset"});
}

}  // namespace ksutil::tools
