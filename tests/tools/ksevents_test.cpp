/* What ksevents shows is what operators act on. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "tests/tools/paths.h"
#include "tests/tools/scratch.h"

namespace ksutil::tools {
namespace {

using testing::HasSubstr;

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
  const ProgramRun shown =
      run_program(kKsevents + " show --tree " + database + " 48836019");
  ASSERT_EQ(shown.code, 0) << shown.errors;
  EXPECT_THAT(shown.output, HasSubstr("evid               = 48836019\n"));
  EXPECT_THAT(shown.output, HasSubstr("    Origin 0:\n"));
  const ProgramRun unknown = run_program(kKsevents + " show " + database + " 1");
  EXPECT_EQ(unknown.code, 1);
  EXPECT_THAT(unknown.errors, HasSubstr("no event with evid 1"));
}

TEST(Ksevents, ShowsAnEventFromItsStations) {
  const ProgramRun run =
      run_program(kKsevents + " show --json " + kData + "/ueb/ueb_test 48836019");
  ASSERT_EQ(run.code, 0) << run.errors;
  const auto event = nlohmann::json::parse(run.output);
  EXPECT_EQ(event["evid"], 48836019);
  ASSERT_EQ(event["origins"].size(), 1U);
  const auto &origin = event["origins"][0];
  EXPECT_EQ(origin["preferred"], 1);
  EXPECT_TRUE(origin["magnitude"].is_null());
  ASSERT_EQ(origin["associations"].size(), 2U);
  const auto &association = origin["associations"][0];
  EXPECT_EQ(association["sta"], "TXAR");
  EXPECT_EQ(association["phase"], "Pg");
  /* The distance and azimuth that the locator wrote. */
  EXPECT_NEAR(association["distance"].get<double>(), 2.457, 0.02);
  EXPECT_NEAR(association["azimuth"].get<double>(), 299.9, 0.5);
  EXPECT_EQ(origin["detections"].size(), 0U);

  const ProgramRun text = run_program(kKsevents + " view " + kData + "/aug2015 1");
  EXPECT_EQ(text.code, 0) << text.errors;
  EXPECT_THAT(text.output, HasSubstr("Event 1: 1 origin, "));
  EXPECT_THAT(text.output, HasSubstr("orid  pref  time"));
  const ProgramRun unknown = run_program(kKsevents + " show " + kData + "/aug2015x 1");
  EXPECT_EQ(unknown.code, 1);
  EXPECT_THAT(unknown.errors, HasSubstr("aug2015x"));
}

/* Bulletins come without stations: the locator's distance and azimuth are all there is. */
TEST(Ksevents, ShowsDistancesOfTheBulletinWhereStationsAreUnknown) {
  const ScratchFolder folder;
  const std::string database = folder / "db";
  ASSERT_EQ(run_program("for t in " + kData + "/ueb/ueb_test.*; do cp $t " + database +
                        ".${t##*.}; done && rm " + database + ".site")
                .code,
            0);
  const ProgramRun run =
      run_program(kKsevents + " show --json " + database + " 48836019");
  const auto event = nlohmann::json::parse(run.output);
  const auto &association = event["origins"][0]["associations"][0];
  EXPECT_EQ(association["sta"], "TXAR");
  EXPECT_NEAR(association["distance"].get<double>(), 2.458, 0.0005);
  EXPECT_NEAR(association["azimuth"].get<double>(), 299.9, 0.2);
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

std::string quoted(const std::string &text) { return " '" + text + "'"; }

TEST(Ksevents, ListSelectsSortsAndShowsByQueries) {
  const ProgramRun run = run_program(
      kKsevents + " list --csv " + kData + "/aug2015 --reverse" + " --where" +
      quoted("magnitude >= 6.5") + " --sort" + quoted("magnitude + depth / 1e4") +
      " --columns" + quoted("magnitude, strdate(time),max(lat, lon) > 0,mb + ms"));
  ASSERT_EQ(run.code, 0) << run.errors;
  EXPECT_EQ(run.output,
            "magnitude,strdate(time),\"max(lat, lon) > 0\",mb + ms\n"
            "6.6,2015-08-10,1,\n"
            "6.6,2015-08-15,1,\n");
}

/* Events without a value come last when reversed, and have no cell. */
TEST(Ksevents, ListReadsWideRowsAndLeavesMissingValuesBlank) {
  const ProgramRun run =
      run_program(kKsevents + " list --json --sort depth --reverse --columns " +
                  quoted("evid,depth,orid") + " " + kData + "/ueb/ueb_test");
  ASSERT_EQ(run.code, 0) << run.errors;
  const auto events = nlohmann::json::parse(run.output);
  ASSERT_EQ(events.size(), 104U);
  for (std::size_t i = 0; i < events.size(); i++) {
    EXPECT_EQ(events[i]["depth"].is_null(), i >= 84) << i;
    EXPECT_EQ(events[i]["orid"].is_null(), i >= 84) << i;
    if (i == 0 || i >= 84) continue;
    EXPECT_GE(events[i - 1]["depth"].get<double>(), events[i]["depth"].get<double>());
  }
}

TEST(Ksevents, ListTellsWhatIsWrongWithAQuery) {
  const std::string list = kKsevents + " list " + kData + "/aug2015";
  for (const char *option : {"--where", "--sort", "--columns"}) {
    const ProgramRun run = run_program(list + " " + option + quoted("evid, (lat + )"));
    EXPECT_EQ(run.code, 2);
    EXPECT_THAT(run.errors, HasSubstr("expected "));
    EXPECT_THAT(run.errors, HasSubstr("at position "));
    EXPECT_EQ(run.output, "");
  }
  const ProgramRun text = run_program(list + " --where evname");
  EXPECT_EQ(text.code, 2);
  EXPECT_THAT(text.errors, HasSubstr("is a text, not a condition"));
}

/* An unreadable number must not pass for a missing one unseen. */
TEST(Ksevents, ListReportsValuesThatCannotBeRead) {
  const ScratchFolder folder;
  folder.write("a.csv",
               "time,latitude,longitude,depth,id,mag,magType\n"
               "2015-08-01T00:00:00Z,1,2,33,a,4,mb\n");
  ASSERT_EQ(run_program(kKsdb + " import --create css3.0 " + (folder / "a.csv") + " " +
                        (folder / "db"))
                .code,
            0);
  std::string origin = read_text(folder / "db.origin");
  origin.replace(origin.find("33.0"), 4, "3x.0");
  folder.write("db.origin", origin);
  const ProgramRun run =
      run_program(kKsevents + " list --csv --columns evid,depth " + (folder / "db"));
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.output, "evid,depth\n1,\n");
  EXPECT_THAT(run.errors,
              HasSubstr("1 value of " + (folder / "db") + " cannot be read"));
}

TEST(Ksevents, DiffPrintsWhatTheSecondDatabaseHasDifferent) {
  const ScratchFolder folder;
  const auto import = [&](const char *database, const char *rows) {
    const std::string file =
        folder.write("catalogue.csv",
                     std::string("time,latitude,longitude,id,mag,magType\n") + rows);
    return run_program(kKsdb + " import --create css3.0 " + file + " " +
                       (folder / database))
        .code;
  };
  ASSERT_EQ(import("old", "2015-08-01T00:00:00Z,1,2,a,4,mb\n"), 0);
  std::filesystem::copy(folder / "old", folder / "new");
  for (const char *table : {".event", ".origin", ".netmag", ".lastid"}) {
    if (std::filesystem::exists(folder / "old" + table)) {
      std::filesystem::copy(folder / "old" + table, folder / "new" + table);
    }
  }
  const std::string diff =
      kKsevents + " diff " + (folder / "old") + " " + (folder / "new");
  const ProgramRun same = run_program(diff);
  EXPECT_EQ(same.code, 0) << same.errors;
  EXPECT_EQ(same.output, "");
  ASSERT_EQ(import("new", "2015-08-02T00:00:00Z,1,2,b,5,mb\n"), 0);
  const ProgramRun added = run_program(diff);
  EXPECT_EQ(added.code, 0) << added.errors;
  EXPECT_THAT(added.output, HasSubstr("event2 2 added:\n"));
  EXPECT_EQ(added.output.find("event1"), std::string::npos) << added.output;
  EXPECT_EQ(run_program(diff + "/nowhere").code, 1);
}

}  // namespace
}  // namespace ksutil::tools
