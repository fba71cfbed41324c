/* The programs are what operators type: exit codes and output must hold in scripts. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/tools/scratch.h"

namespace ksutil::tools {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kKsdb = KSDB_PROGRAM;
const std::string kData = KSUTIL_SOURCE_DIR "/data";

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
}

}  // namespace
}  // namespace ksutil::tools
