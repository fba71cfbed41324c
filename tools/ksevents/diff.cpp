/* diff: ksevents diff. */
#include "tools/common/unreadable.h"
#include "tools/ksevents/commands.h"
#include "tools/ksevents/served_events.h"

namespace ksutil::tools {
namespace {

struct DiffOptions {
  std::string database1, database2;
};

int diff(const DiffOptions &options) {
  ServedEvents served1(options.database1);
  if (!served1) return kFailure;
  ServedEvents served2(options.database2);
  if (!served2) return kFailure;
  Table<EVEvent> events1 = served1.events(), events2 = served2.events();
  served1.server().print(&events1, &events2, "");
  const int first =
      report_unreadable({served1.unreadable(), 0}, "records", options.database1);
  const int second =
      report_unreadable({served2.unreadable(), 0}, "records", options.database2);
  return first == kOk ? second : first;
}

void describe_diff(CLI::App &command, DiffOptions &options) {
  command.add_option("database1", options.database1, "path/name of the older state")
      ->required();
  command.add_option("database2", options.database2, "path/name of the newer state")
      ->required();
}

}  // namespace

Command diff_command() {
  return make_command<DiffOptions>(
      "diff", "Prints the events, and fields of events, in which two databases differ",
      {"ksevents diff yesterday today"}, describe_diff, diff);
}

}  // namespace ksutil::tools
