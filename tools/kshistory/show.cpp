/* show: kshistory show. */
#include <algorithm>
#include <climits>
#include <memory>

#include "platform/elog/elog.h"
#include "tools/common/cells.h"
#include "tools/common/options.h"
#include "tools/common/rows.h"
#include "tools/kshistory/commands.h"
#include "tools/kshistory/entries.h"

namespace ksutil::tools {
namespace {

struct ShowOptions {
  std::string file, at;
  bool raw = false;
  long limit = LONG_MAX;
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
  Rows rows({{"time", false, options.raw}, {"value", true, true}}, options.form);
  long left = options.limit;
  for (const KSHistoryEntry &entry : entries) {
    if (left-- <= 0) break;
    rows.add({entry_time_cell(entry.time, options.raw), shortest_cell(entry.value)});
  }
  rows.print();
  return kOk;
}

void describe_show(CLI::App &command, ShowOptions &options) {
  command.add_option("file", options.file, "history file")->required();
  command
      .add_option("--at", options.at,
                  "Only the value at this time: a date, epoch seconds or now")
      ->check(time_fault);
  command.add_flag("--raw,--numbers", options.raw,
                   "Times as epoch seconds instead of dates");
  add_limit(command, options.limit, "entries, the oldest ones");
  add_form_options(command, options.form);
}

}  // namespace

Command show_command() {
  return make_command<ShowOptions>(
      "show", "Lists the entries of a history, or tells its value",
      {"kshistory show latency.hst", "kshistory show --csv --limit 10 latency.hst",
       "kshistory show --at '2026-11-21 12:00' latency.hst"},
      describe_show, show);
}

}  // namespace ksutil::tools
