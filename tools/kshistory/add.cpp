#include <sys/stat.h>

#include <limits>
#include <memory>

#include "platform/elog/elog.h"
#include "platform/trace/filetbl.h"
#include "tools/kshistory/commands.h"
#include "tools/kshistory/entries.h"

namespace ksutil::tools {
namespace {

struct AddOptions {
  std::string file, time;
  double value = 0.0;
  int max = 0;  // 0: as it was
};

/* The maximum that a history file has; 0 for a file that does not exist or was never
 * written, -1 with a message. */
long maximum_of(const std::string &file) {
  struct stat status = {};
  if (stat(file.c_str(), &status) != 0 || status.st_size == 0) return 0;
  constexpr int kAll = std::numeric_limits<int>::max();
  Tbl *const list =
      filetbl(file.c_str(), KSHISTORY_TABLE_TAG, kAll, sizeof(KSHistoryEntry));
  const long maximum = filetbl_maximum(list);
  freetbl(list, nullptr);
  return maximum;
}

int add(const AddOptions &options) {
  double time = 0.0;
  if (!parse_time(options.time, time)) return kFailure;
  const long max = options.max > 0 ? options.max : maximum_of(options.file);
  if (max < 0) return kFailure;
  if (max == 0) {
    elog_log(0, "%s is a new history: --max tells how many entries it keeps.\n",
             options.file.c_str());
    return kFailure;
  }
  char tag[KS_TAG_SIZE];
  const std::unique_ptr<KSHistory, int (*)(KSHistory *)> history(
      kshistory_create(static_cast<int>(max), nullptr, options.file.c_str(), tag),
      kshistory_free_history);
  return history != nullptr && kshistory_add(tag, time, options.value) == 0 ? kOk
                                                                            : kFailure;
}

}  // namespace

void add_add(CLI::App &app, Action &action) {
  auto options = std::make_shared<AddOptions>();
  CLI::App *command = app.add_subcommand("add", "Appends an entry to a history");
  command->add_option("file", options->file, "history file; made with --max")
      ->required();
  command->add_option("time", options->time, "a date, epoch seconds or now")
      ->required()
      ->check(time_fault);
  command->add_option("value", options->value, "the value at that time")->required();
  command
      ->add_option("--max", options->max,
                   "The most entries kept, of a new history or from now on")
      ->check(CLI::PositiveNumber);
  command->callback(
      [options, &action] { action = [options] { return add(*options); }; });
}

}  // namespace ksutil::tools
