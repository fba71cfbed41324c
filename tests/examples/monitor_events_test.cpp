/* Programs that follow a database are written after this example: one that misses a
 * change, or ends in a lock, would be copied. */
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>

#include "tests/events/event_database.h"
#include "tests/tools/scratch.h"

namespace {

using ksutil::tools::run_program;

const std::string kMonitorEvents = MONITOR_EVENTS_PROGRAM;

std::string next_line(FILE *output) {
  std::array<char, 1024> line{};
  return fgets(line.data(), line.size(), output) == nullptr ? "" : line.data();
}

TEST(MonitorEvents, ReportsWhatIsThereAndEachChange) {
  ksutil::events::test::EventDatabase db;
  db.add_located_event(1, 2e9);
  FILE *output = popen((kMonitorEvents + " " + db.name() + " 0.02 2").c_str(), "r");
  ASSERT_NE(output, nullptr);
  EXPECT_EQ(next_line(output),
            "changed: arrival added, assoc added, detection added, event added, mt "
            "added, netmag added, origerr added, origin added, site added, stamag "
            "added, wfmeas added\n");
  EXPECT_EQ(next_line(output), "1 events\n");
  EXPECT_EQ(next_line(output),
            "latest: 1 2033-05-18T03:33:20.000 10.000 20.000 mw 5.50\n");
  db.add_event(2, -1);
  EXPECT_EQ(next_line(output), "changed: event added\n");
  EXPECT_EQ(next_line(output), "2 events\n");
  EXPECT_EQ(next_line(output).substr(0, 9), "latest: 1");
  EXPECT_EQ(next_line(output), "");
  EXPECT_EQ(pclose(output), 0);
}

TEST(MonitorEvents, TellsWhatIsWrong) {
  EXPECT_EQ(run_program(kMonitorEvents + " db 1").code, 2);
  EXPECT_EQ(run_program(kMonitorEvents + " db never 1").code, 2);
  const auto missing = run_program(kMonitorEvents + " /nowhere/db 1 1");
  EXPECT_EQ(missing.code, 1);
  EXPECT_NE(missing.errors.find("dbopen(/nowhere/db) error"), std::string::npos);
}

}  // namespace
