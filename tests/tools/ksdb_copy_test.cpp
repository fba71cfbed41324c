/* A copy is made so that the original can be let go: what it lacks is lost. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "tests/tools/scratch.h"

namespace ksutil::tools {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

const std::string kShipped = KSUTIL_SOURCE_DIR "/data/aug2015";

class KsdbCopy : public testing::Test {
 protected:
  ProgramRun ksdb(const std::string &arguments) const {
    return run_program("cd " + folder_.path() + " && " KSDB_PROGRAM " " + arguments);
  }
  const ScratchFolder folder_;
};

TEST_F(KsdbCopy, HasTheTablesOfTheOriginal) {
  const ProgramRun run = ksdb("copy " + kShipped + " made");
  EXPECT_EQ(run.code, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("copied and verified"));
  int tables = 0;
  for (const auto &entry : fs::directory_iterator(fs::path(kShipped).parent_path())) {
    const std::string file = entry.path().filename();
    if (!file.starts_with("aug2015.") || entry.path().extension() == ".csv") continue;
    tables++;
    EXPECT_EQ(read_text(folder_ / ("made" + entry.path().extension().string())),
              read_text(entry.path()))
        << file;
  }
  EXPECT_GE(tables, 3);
  EXPECT_EQ(ksdb("verify --quiet made").code, 0);
}

TEST_F(KsdbCopy, LeavesATargetWithRowsAloneUnlessToldToReplaceThem) {
  ASSERT_EQ(ksdb("create made").code, 0);
  EXPECT_EQ(ksdb("create made").code, 1);
  ASSERT_EQ(ksdb("add made event evid=7 evname=mine").code, 0);
  const std::string before = read_text(folder_ / "made.event");
  ASSERT_FALSE(before.empty());
  const ProgramRun refused = ksdb("copy " + kShipped + " made");
  EXPECT_EQ(refused.code, 1);
  EXPECT_THAT(refused.errors, HasSubstr("made has 1 row in event; --replace"));
  EXPECT_EQ(read_text(folder_ / "made.event"), before);
  EXPECT_FALSE(fs::exists(folder_ / "made.origin"));
  EXPECT_EQ(ksdb("copy --quiet --replace " + kShipped + " made").code, 0);
  EXPECT_EQ(read_text(folder_ / "made.event"), read_text(kShipped + ".event"));
}

TEST_F(KsdbCopy, NeverReplacesADatabaseByItself) {
  ASSERT_EQ(ksdb("copy --quiet " + kShipped + " made").code, 0);
  ASSERT_EQ(run_program("ln -s made.event " + (folder_ / "other.event")).code, 0);
  for (const char *same : {"made", "./made", "other"}) {
    const ProgramRun run = ksdb(std::string("copy --replace made ") + same);
    EXPECT_EQ(run.code, 1);
    EXPECT_THAT(run.errors, HasSubstr("is the database made itself"));
  }
  EXPECT_EQ(read_text(folder_ / "made.event"), read_text(kShipped + ".event"));
}

TEST_F(KsdbCopy, CountsTheRowsThatCannotBeRead) {
  ASSERT_EQ(ksdb("copy --quiet " + kShipped + " source").code, 0);
  std::string origins = read_text(folder_ / "source.origin");
  const std::size_t length = origins.find('\n') + 1;
  origins[2 * length - 1] = 'x';  // a row without its end
  origins[3 * length + 2] = 'q';  // a latitude that is not a number
  folder_.write("source.origin", origins);
  const ProgramRun run = ksdb("copy source made");
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.errors, HasSubstr("2 records"));
  const std::string copied = read_text(folder_ / "made.origin");
  EXPECT_EQ(copied.substr(0, length), origins.substr(0, length));
  EXPECT_EQ(copied.substr(length, length), origins.substr(2 * length, length));
  EXPECT_EQ(copied.substr(2 * length), origins.substr(4 * length));
}

TEST_F(KsdbCopy, AFullDiskLeavesNothingBehind) {
  /* 64 blocks of 512 bytes for each file; without the signal, writes then fail. */
  const ProgramRun run =
      run_program("cd " + folder_.path() +
                  " && trap '' XFSZ && ulimit -f 64 && " KSDB_PROGRAM " copy " +
                  kShipped + " made");
  EXPECT_EQ(run.code, 1);
  EXPECT_NE(run.errors, "");
  EXPECT_TRUE(fs::is_empty(folder_.path())) << run.errors;
}

TEST_F(KsdbCopy, ReplacesAllRowsOrNone) {
  ASSERT_EQ(ksdb("create made").code, 0);
  ASSERT_EQ(ksdb("add made event evid=7 evname=mine").code, 0);
  ASSERT_EQ(ksdb("add made site sta=OLD ondate=2000001").code, 0);
  const auto content = [&] {
    std::map<std::string, std::string> found;
    for (const auto &entry : fs::directory_iterator(folder_.path())) {
      found[entry.path().filename()] = read_text(entry.path());
    }
    return found;
  };
  const auto before = content();
  const ProgramRun full = run_program(
      "cd " + folder_.path() +
      " && trap '' XFSZ && ulimit -f 64 && " KSDB_PROGRAM " copy --replace " +
      kShipped + " made");
  EXPECT_EQ(full.code, 1);
  EXPECT_NE(full.errors, "");
  EXPECT_EQ(content(), before);

  /* An origin that does not fit into the target is found in the middle of the copy. */
  folder_.write("source", "schema css3.0\n");
  folder_.write("source.event", read_text(kShipped + ".event"));
  folder_.write("source.origin", std::string(400, 'x') + "\n");
  EXPECT_EQ(ksdb("copy --replace source made").code, 1);
  EXPECT_EQ(read_text(folder_ / "made.event"), before.at("made.event"));

  ASSERT_EQ(ksdb("copy --quiet --replace " + kShipped + " made").code, 0);
  EXPECT_EQ(read_text(folder_ / "made.event"), read_text(kShipped + ".event"));
  EXPECT_EQ(read_text(folder_ / "made.site"), "");
}

TEST_F(KsdbCopy, SaysWhatIsWrongWithItsOptions) {
  EXPECT_EQ(ksdb("copy --store postgresql " + kShipped + " made").code, 2);
  EXPECT_EQ(ksdb("create --connection host=x made").code, 2);
  const ProgramRun unknown = ksdb("create --store nosuch --connection x made");
  EXPECT_EQ(unknown.code, 1);
  EXPECT_THAT(unknown.errors, HasSubstr("plug-in"));
  EXPECT_EQ(ksdb("copy nowhere made").code, 1);
  ASSERT_EQ(ksdb("create --schema kbcore wide").code, 0);
  const ProgramRun other = ksdb("copy " + kShipped + " wide");
  EXPECT_EQ(other.code, 1);
  EXPECT_THAT(other.errors, HasSubstr("wide has the schema kbcore, not css3.0"));
  EXPECT_FALSE(fs::exists(folder_ / "made"));
}

}  // namespace
}  // namespace ksutil::tools
