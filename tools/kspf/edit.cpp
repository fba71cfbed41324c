#include <memory>

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

/* A file that already says what it should is not written again. */
int edit_file(const EditOptions &options, Edit edit) {
  KSPf pf;
  std::string before, after;
  if (pf.readFile(options.file) != 0 || pf.text(before) != 0 ||
      apply(pf, options, edit) != 0 || pf.text(after) != 0) {
    return kFailure;
  }
  return after == before ? kOk : write_output(pf, options.file);
}

void add(CLI::App &app, Action &action, const char *name, const char *description,
         Edit edit) {
  const auto options = std::make_shared<EditOptions>();
  CLI::App *command = app.add_subcommand(name, description);
  command->add_option("file", options->file, "Parameter file, which is replaced")
      ->required();
  command->add_option("path", options->path, "Path of the value")->required();
  if (edit != Edit::kDelete) {
    command->add_option("value", options->value, "The text")->required();
    command->add_flag("--block", options->block,
                      "The value is written as in a file: '&Tbl{ ... }' on lines");
  }
  command->callback(
      [options, edit, &action] { action = [=] { return edit_file(*options, edit); }; });
}

}  // namespace

void add_set(CLI::App &app, Action &action) {
  add(app, action, "set", "Set a value, adding a key that is absent", Edit::kSet);
}

void add_insert(CLI::App &app, Action &action) {
  add(app, action, "insert", "Add a key, or an item before that of its index",
      Edit::kInsert);
}

void add_delete(CLI::App &app, Action &action) {
  add(app, action, "delete", "Remove a value", Edit::kDelete);
}

}  // namespace ksutil::tools
