#include <algorithm>
#include <memory>

#include "platform/elog/elog.h"
#include "tools/common/rows.h"
#include "tools/kshistory/commands.h"
#include "tools/kshistory/entries.h"

namespace ksutil::tools {
namespace {

struct ShowOptions {
  std::string file, at;
  bool numbers = false;
  Form form = Form::kText;
};

/* The value at a time of a history in memory with these entries; false with a message. */
bool evaluate(const std::vector<KSHistoryEntry> &entries, double time, double &value) {
  char tag[KS_TAG_SIZE];
  const int n = std::max(static_cast<int>(entries.size()), 1);
  const std::unique_ptr<KSHistory, int (*)(KSHistory *)> history(
      kshistory_create(n, nullptr, nullptr, tag), kshistory_free_history);
  if (history == nullptr) return false;
  for (const KSHistoryEntry &entry : entries) {
    if (kshistory_add(tag, entry.time, entry.value) != 0) return false;
  }
  return kshistory_eval(tag, &value, time) == 0;
}

int show(const ShowOptions &options) {
  std::vector<KSHistoryEntry> entries;
  if (!read_entries(options.file, entries)) return kFailure;
  if (!options.at.empty()) {
    if (entries.empty()) {
      elog_log(0, "%s has no entries.\n", options.file.c_str());
      return kFailure;
    }
    KSHistoryEntry found{};
    if (!parse_time(options.at, found.time) ||
        !evaluate(entries, found.time, found.value)) {
      return kFailure;
    }
    entries = {found};
  }
  Rows rows({{"time", false, options.numbers}, {"value", true, true}}, options.form);
  for (const KSHistoryEntry &entry : entries) {
    rows.add({time_cell(entry.time, options.numbers), value_cell(entry.value)});
  }
  rows.print();
  return kOk;
}

}  // namespace

void add_show(CLI::App &app, Action &action) {
  auto options = std::make_shared<ShowOptions>();
  CLI::App *command =
      app.add_subcommand("show", "Lists the entries of a history, or tells its value");
  command->add_option("file", options->file, "history file")->required();
  command
      ->add_option("--at", options->at,
                   "Only the value at this time: a date, epoch seconds or now")
      ->check(time_fault);
  command->add_flag("--numbers", options->numbers,
                    "Times as epoch seconds instead of dates");
  add_form_options(*command, options->form);
  command->callback(
      [options, &action] { action = [options] { return show(*options); }; });
}

}  // namespace ksutil::tools
