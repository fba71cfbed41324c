/* The programs are what operators type: exit codes and output must hold in scripts. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "tests/tools/paths.h"
#include "tests/tools/scratch.h"

namespace ksutil::tools {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(Ksdb, AnswersWrongUsageWithTwoAndFailureWithOne) {
  EXPECT_EQ(run_program(kKsdb).code, 2);
  EXPECT_EQ(run_program(kKsdb + " list onlyone").code, 2);
  EXPECT_EQ(run_program(kKsdb + " --help").code, 0);
  const ProgramRun missing = run_program(kKsdb + " info /nowhere/db");
  EXPECT_EQ(missing.code, 1);
  EXPECT_THAT(missing.errors, HasSubstr("/nowhere/db"));
  EXPECT_EQ(run_program(kKsdb + " list " + kData + "/ueb/ueb_test nosuch").code, 1);
}

TEST(Ksdb, ListsFieldsAsJsonAndRowsAsStored) {
  const std::string database = kData + "/ueb/ueb_test";
  const ProgramRun fields =
      run_program(kKsdb + " list " + database + " assoc --fields delta,sta --json");
  ASSERT_EQ(fields.code, 0) << fields.errors;
  const auto rows = nlohmann::json::parse(fields.output);
  ASSERT_EQ(rows.size(), 420U);
  EXPECT_EQ(rows[0]["sta"], "ARCES");
  EXPECT_NEAR(rows[0]["delta"].get<double>(), 87.876, 1e-9);
  const ProgramRun raw = run_program(kKsdb + " list " + database + " assoc --raw");
  EXPECT_EQ(raw.output, read_text(database + ".assoc") + "\n");
}

/* A catalogue of three events, two of which are magnitude 4 or more. */
std::string small_database(const ScratchFolder &folder) {
  folder.write("c.csv",
               "time,latitude,longitude,id,mag,magType\n"
               "2015-08-01T00:00:00Z,1,2,a,4.5,mb\n"
               "2015-08-01T01:00:00Z,3,4,b,3.0,ml\n"
               "2015-08-01T02:00:00Z,5,6,c,4.0,mb\n");
  EXPECT_EQ(run_program(kKsdb + " import --create css3.0 " + (folder / "c.csv") + " " +
                        (folder / "db"))
                .code,
            0);
  return folder / "db";
}

TEST(Ksdb, ShowsViewsAsTables) {
  const ScratchFolder folder;
  const std::string database = small_database(folder);
  const auto output = [&](const std::string &arguments) {
    const ProgramRun run = run_program(kKsdb + " " + arguments);
    EXPECT_EQ(run.code, 0) << arguments << "\n" << run.errors;
    return run.output;
  };
  EXPECT_EQ(output("subset " + database + " origin 'mb >= 4' --fields orid,lat --csv"),
            "orid,lat\n1,1.0000\n3,5.0000\n");
  EXPECT_EQ(output("sort " + database + " netmag magnitude --reverse --limit 2" +
                   " --fields magid,magnitude --csv"),
            "magid,magnitude\n1,4.50\n3,4.00\n");
  EXPECT_EQ(output("group " + database + " netmag magtype --csv"),
            "magtype,count\nmb,2\nml,1\n");
  const std::string fields = " --fields event.evid,origin.orid,magnitude --csv";
  const std::string joined = "evid,orid,magnitude\n1,1,4.50\n2,2,3.00\n3,3,4.00\n";
  const std::string natural =
      output("join " + database + " event origin netmag" + fields);
  EXPECT_EQ(natural.substr(natural.find('\n')), joined.substr(joined.find('\n')));
  EXPECT_EQ(output("sort " + database + " event+origin+netmag evid" + fields), natural);
  EXPECT_EQ(output("join " + database + " event netmag --left-keys prefor" +
                   " --right-keys orid --where 'magnitude < 4' --fields magtype --csv"),
            "magtype\nml\n");
}

TEST(Ksdb, RefusesViewsThatMakeNoSense) {
  const ScratchFolder folder;
  const std::string database = small_database(folder);
  const ProgramRun wrong =
      run_program(kKsdb + " subset " + database + " origin 'mb >='");
  EXPECT_EQ(wrong.code, 2);
  EXPECT_THAT(wrong.errors, HasSubstr("Can't compile 'mb >='"));
  for (const char *arguments :
       {" origin lastid", " origin origin", " origin nosuch", " origin netmag+"}) {
    EXPECT_EQ(run_program(kKsdb + " join " + database + arguments).code, 1)
        << arguments;
  }
  EXPECT_EQ(run_program(kKsdb + " join " + database + " event origin netmag" +
                        " --left-keys evid")
                .code,
            2);
  EXPECT_EQ(run_program(kKsdb + " sort " + database + " origin time --fields x").code,
            2);
}

TEST(Ksdb, VerifyFindsWhatIsWrongWithARealDatabase) {
  const ProgramRun run =
      run_program(kKsdb + " verify --limit 1000 " + kData + "/ueb/ueb_test");
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.output, HasSubstr("netmag: "));
  EXPECT_THAT(run.output, HasSubstr("event: 20 foreign preferred origins"));
  EXPECT_THAT(run.output, Not(HasSubstr("broken records")));
  EXPECT_EQ(run_program(kKsdb + " verify " + kData + "/aug2015").code, 0);
}

TEST(Ksdb, VerifyTellsEachKindOfFault) {
  const ScratchFolder folder;
  const std::string database = folder / "bad";
  folder.write("c.csv",
               "time,latitude,longitude,id,mag,magType,updated\n"
               "2015-08-01T00:00:00Z,1,2,a,4.0,mb,2015-08-02T00:00:00Z\n"
               "2015-08-01T01:00:00Z,1,2,b,4.0,mb,2015-08-02T00:00:00Z\n");
  ASSERT_EQ(run_program(kKsdb + " import --create css3.0 " + (folder / "c.csv") + " " +
                        database)
                .code,
            0);
  std::string origin = read_text(database + ".origin");
  const std::size_t stride = origin.find('\n') + 1;
  origin.replace(48, 8, origin.substr(stride + 48, 8));  // the orid of the other row
  origin.replace(2, 3, "x.y");                           // a latitude
  folder.write("bad.origin", origin);
  const ProgramRun run = run_program(kKsdb + " verify " + database);
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.output, HasSubstr("origin: 1 unreadable fields"));
  EXPECT_THAT(run.output, HasSubstr("origin: 1 repeated ids"));
  EXPECT_THAT(run.output, HasSubstr("event: 1 dangling references"));
}

/* Rows of wfdisc over a file of 40 bytes: one that fits, one that is doubled, one that asks
 * for more samples than there are, and one whose file is missing. */
TEST(Ksdb, VerifyComparesWaveformRowsWithTheirFiles) {
  const ScratchFolder folder;
  folder.write("db", "schema css3.0\n");
  folder.write("ten.w", std::string(40, '\0'));
  const auto row = [](const char *chan, int nsamp, const char *file, int foff) {
    char text[400];
    const int length = snprintf(
        text, sizeof text,
        "%-6s %-8s %17.5f %8d %8d %8d %17.5f %8d %11.7f %16.6f %16.6f %-6s %-1s %-2s "
        "%-1s %-64s %-32s %10d %8d %17.5f\n",
        "AAA", chan, 1438387200.0, -1, -1, 2015213, 1438387209.0, nsamp, 1.0, 0.0, -1.0,
        "-", "o", "s4", "n", ".", file, foff, -1, 1438387200.0);
    return std::string(text, static_cast<std::size_t>(length));
  };
  folder.write("db.wfdisc", row("BHZ", 10, "ten.w", 0) + row("BHZ", 10, "ten.w", 0) +
                                row("BHN", 10, "ten.w", 4) + row("BHE", 10, "no.w", 0));
  const ProgramRun run = run_program(kKsdb + " verify --json " + (folder / "db"));
  EXPECT_EQ(run.code, 1) << run.errors;
  std::map<std::string, std::pair<long, long>> kinds;  // count, first record
  const auto found = nlohmann::json::parse(run.output);
  for (const auto &problem : found["problems"]) {
    kinds[problem["kind"]] = {problem["count"], problem["records"][0]["record"]};
  }
  using testing::Pair;
  EXPECT_THAT(kinds, testing::ElementsAre(
                         Pair("doubled waveform rows", Pair(1, 1)),
                         Pair("waveform files that are too short", Pair(1, 2)),
                         Pair("waveform files that cannot be read", Pair(1, 3))));
}

TEST(Ksdb, VerifyMendsOrphansAndCountersWithoutLosingARow) {
  const ScratchFolder folder;
  const std::string database = small_database(folder);
  const std::string origins = read_text(database + ".origin");
  const std::string events = read_text(database + ".event");
  const std::size_t stride = events.find('\n') + 1;
  folder.write("db.event", events.substr(0, stride));  // two origins lose their events
  std::string counters = read_text(database + ".lastid");
  const std::size_t orid = counters.find("orid");
  counters.replace(counters.find('3', orid), 1, "1");
  folder.write("db.lastid", counters);
  const ProgramRun before = run_program(kKsdb + " verify " + database);
  EXPECT_EQ(before.code, 1);
  EXPECT_THAT(before.output, HasSubstr("origin: 2 dangling references"));
  EXPECT_THAT(before.output, HasSubstr("lastid: 1 stale counters"));

  const ProgramRun fixed = run_program(kKsdb + " verify --fix " + database);
  EXPECT_EQ(fixed.code, 0) << fixed.output << fixed.errors;
  EXPECT_THAT(fixed.output, HasSubstr("mended event: 2 rows added"));
  EXPECT_THAT(fixed.output, HasSubstr("mended lastid: orid set from 1 to 3"));
  EXPECT_EQ(read_text(database + ".origin"), origins);
  EXPECT_EQ(
      run_program(kKsdb + " list --csv --fields evid,prefor " + database + " event")
          .output,
      "evid,prefor\n1,1\n2,2\n3,3\n");
  EXPECT_THAT(run_program(kKsdb + " verify --fix " + database).output,
              Not(HasSubstr("mended")));
}

TEST(Ksdb, ImportReportsLinesItLeavesOut) {
  const ScratchFolder folder;
  folder.write("c.csv",
               "time,latitude,longitude,id\n"
               "2015-08-01T00:00:00Z,1,2,a\nsoon,1,2,b\n");
  const ProgramRun run = run_program(kKsdb + " import --create kbcore " +
                                     (folder / "c.csv") + " " + (folder / "db"));
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.output, HasSubstr("1 added"));
  EXPECT_THAT(run.errors, HasSubstr("c.csv:3: time is 'soon'"));
}

TEST(Ksdb, NextidNeverRepeatsItself) {
  const ScratchFolder folder;
  folder.write("db", "schema css3.0\n");
  const std::string command = kKsdb + " nextid " + (folder / "db") + " orid";
  EXPECT_EQ(run_program(command).output, "1\n");
  EXPECT_EQ(run_program(command).output, "2\n");
  const std::string counters = read_text(folder / "db.lastid");
  EXPECT_EQ(run_program(kKsdb + " nextid " + (folder / "db") + " orids").code, 2);
  EXPECT_EQ(read_text(folder / "db.lastid"), counters);
}

TEST(Ksdb, ShowsTheTypesOfASchemaAsItsFileNamesThem) {
  EXPECT_THAT(run_program(kKsdb + " schema --csv css3.0 event").output,
              HasSubstr("\nevname,text,10,15,%-15s,-,"));
}

}  // namespace
}  // namespace ksutil::tools
