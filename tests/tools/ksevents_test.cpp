/* What ksevents shows is what operators act on. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "tests/tools/scratch.h"

namespace ksutil::tools {
namespace {

using testing::HasSubstr;

const std::string kKsdb = KSDB_PROGRAM;
const std::string kKsevents = KSEVENTS_PROGRAM;
const std::string kData = KSUTIL_SOURCE_DIR "/data";

/* Every event of a real database with dangling relations: 20 of its events have no origin
 * of their own, and none of its netmag rows names one of its origins. */
TEST(Ksevents, ListsEveryEventOfARealDatabase) {
  const ProgramRun run =
      run_program(kKsevents + " list --json " + kData + "/ueb/ueb_test");
  ASSERT_EQ(run.code, 0) << run.errors;
  const auto events = nlohmann::json::parse(run.output);
  ASSERT_EQ(events.size(), 104U);
  long without = 0;
  for (const auto &event : events) without += event["orid"].is_null() ? 1 : 0;
  EXPECT_EQ(without, 20);
  EXPECT_EQ(events[0]["evid"], 48836019);
  EXPECT_EQ(events[0]["orid"], 48836019);
  EXPECT_NEAR(events[0]["lat"].get<double>(), 28.1317, 1e-4);
  EXPECT_TRUE(events[0]["magnitude"].is_null());
}

TEST(Ksevents, ListsTheLastEventsWithPreferredMagnitudes) {
  const ProgramRun run =
      run_program(kKsevents + " list --csv --max-events 3 " + kData + "/aug2015");
  ASSERT_EQ(run.code, 0) << run.errors;
  EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 4);
  EXPECT_THAT(run.output, HasSubstr("2015-08-26T"));
  EXPECT_THAT(run.output, HasSubstr(",mb,"));
}

TEST(Ksevents, ShowPrintsTheTreeAndRefusesUnknownIds) {
  const std::string database = kData + "/ueb/ueb_test";
  const ProgramRun shown = run_program(kKsevents + " show " + database + " 48836019");
  ASSERT_EQ(shown.code, 0) << shown.errors;
  EXPECT_THAT(shown.output, HasSubstr("evid               = 48836019\n"));
  EXPECT_THAT(shown.output, HasSubstr("    Origin 0:\n"));
  const ProgramRun unknown = run_program(kKsevents + " show " + database + " 1");
  EXPECT_EQ(unknown.code, 1);
  EXPECT_THAT(unknown.errors, HasSubstr("no event with evid 1"));
}

TEST(Ksevents, WatchReportsChangesAndEndsOnSignal) {
  using namespace std::chrono_literals;
  const ScratchFolder folder;
  folder.write(
      "a.csv",
      "time,latitude,longitude,id,mag,magType\n2015-08-01T00:00:00Z,1,2,a,4,mb\n");
  folder.write(
      "b.csv",
      "time,latitude,longitude,id,mag,magType\n2015-08-01T01:00:00Z,1,2,b,5,mb\n");
  const std::string database = folder / "db", output = folder / "output";
  const auto import = [&](const char *file) {
    return run_program(kKsdb + " import --create css3.0 " + (folder / file) + " " +
                       database)
        .code;
  };
  ASSERT_EQ(import("a.csv"), 0);

  const pid_t child = fork();
  if (child == 0) {
    if (freopen(output.c_str(), "w", stdout) == nullptr) _exit(9);
    execl(kKsevents.c_str(), "ksevents", "watch", "--json", "--interval", "0.05",
          database.c_str(), static_cast<char *>(nullptr));
    _exit(9);
  }
  const auto wait_for = [&](const std::string &text) {
    for (int i = 0; i < 1000 && read_text(output).find(text) == std::string::npos;
         i++) {
      std::this_thread::sleep_for(20ms);
    }
    return read_text(output);
  };
  EXPECT_THAT(wait_for("start"), HasSubstr(R"({"report":"start","events":1})"));
  ASSERT_EQ(import("b.csv"), 0);
  EXPECT_THAT(wait_for("\"evid\":2"), HasSubstr("\"magnitude\":5.0"));
  kill(child, SIGTERM);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace ksutil::tools
