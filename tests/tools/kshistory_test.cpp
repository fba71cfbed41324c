/* What operators read of a history decides whether they drive out to a station; and a tool
 * that disturbs the monitor at work, or takes any file for a history, does harm itself. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "objects/kshistory.h"
#include "tests/tools/scratch.h"

namespace ksutil::tools {
namespace {

using testing::HasSubstr;

class KshistoryTool : public testing::Test {
 protected:
  ProgramRun run(const std::string &command, const std::string &options = "") const {
    return run_program(std::string(KSHISTORY_PROGRAM) + " " + command + " " + file_ +
                       " " + options);
  }
  std::string shown(const std::string &options) const {
    const ProgramRun shown = run("show", options);
    EXPECT_EQ(shown.code, 0) << shown.errors;
    return shown.output;
  }

  const ScratchFolder folder_;
  const std::string file_ = folder_ / "latency.hst";
};

TEST_F(KshistoryTool, KeepsShowsAndEvaluatesEntries) {
  ASSERT_EQ(run("add", "2026-11-21T00:00:00 99 --max 3").code, 0);
  ASSERT_EQ(run("add", "1795219200.25 -1.5").code, 0);
  ASSERT_EQ(run("add", "'2026-11-21 00:00:10.25' 2").code, 0);
  ASSERT_EQ(run("add", "'2026-11-21 00:00:20.25' 0.1").code, 0);
  EXPECT_EQ(shown("--csv"),
            "time,value\n"
            "2026-11-21T00:00:00.250Z,-1.5\n"
            "2026-11-21T00:00:10.250Z,2\n"
            "2026-11-21T00:00:20.250Z,0.1\n");
  EXPECT_EQ(shown("--csv --numbers --at '2026-11-21 00:00:02.25'"),
            "time,value\n1795219202.25,-0.8\n");
  EXPECT_EQ(shown("--csv --raw --limit 1"), "time,value\n1795219200.25,-1.5\n");
  const auto json = nlohmann::json::parse(shown("--json --at now"));
  EXPECT_EQ(json[0]["value"], 0.1) << "beyond the end";
  ASSERT_EQ(run("add", "now 5 --max 2").code, 0);
  EXPECT_EQ(nlohmann::json::parse(shown("--json")).size(), 2U);
}

TEST_F(KshistoryTool, LeavesAMonitorAtWorkAlone) {
  char tag[KS_TAG_SIZE];
  ASSERT_NE(kshistory_create(5, "monitor", file_.c_str(), tag), nullptr);
  ASSERT_EQ(kshistory_add(tag, 1, 2), 0);
  EXPECT_EQ(shown("--csv --numbers"), "time,value\n1,2\n");
  const ProgramRun added = run("add", "2 3 --max 5 --wait 0.1");
  EXPECT_EQ(added.code, 1);
  EXPECT_THAT(added.errors, HasSubstr("Can't lock '" + file_ + "' for exclusive use"));
  EXPECT_EQ(kshistory_add(tag, 2, 4), 0);
  EXPECT_EQ(kshistory_free(tag), 0);
  EXPECT_EQ(shown("--csv --numbers"), "time,value\n1,2\n2,4\n");
}

TEST_F(KshistoryTool, AddersTakeTurns) {
  ASSERT_EQ(run("add", "1 0 --max 100").code, 0);
  const ProgramRun all =
      run_program("{ for i in 1 2 3 4 5 6 7 8; do " KSHISTORY_PROGRAM " add " + file_ +
                  " now $i & done; wait; }");
  EXPECT_EQ(all.errors, "");
  EXPECT_EQ(nlohmann::json::parse(shown("--json")).size(), 9U);
}

TEST_F(KshistoryTool, RefusesAnEntryBeforeTheLast) {
  ASSERT_EQ(run("add", "100 1 --max 3").code, 0);
  const ProgramRun late = run("add", "99.5 2");
  EXPECT_EQ(late.code, 1);
  EXPECT_THAT(late.errors,
              HasSubstr("the last entry (1970-01-01T00:01:40.000Z) is later than "
                        "1970-01-01T00:01:39.500Z"));
  EXPECT_EQ(run("add", "100 3").code, 0) << "of the same time";
  EXPECT_EQ(shown("--csv --numbers"), "time,value\n100,1\n100,3\n");
}

TEST_F(KshistoryTool, LeavesNoNewHistoryWithoutAnEntry) {
  int failures = 0;
  for (int blocks = 0; blocks < 20; blocks++) {
    const ProgramRun added =
        run_program("ulimit -f " + std::to_string(blocks) +
                    " && " KSHISTORY_PROGRAM " add --max 5 " + file_ + " 1 2");
    if (added.code == 0) break;
    failures++;
    EXPECT_EQ(added.code, 1);
    EXPECT_FALSE(std::filesystem::exists(file_)) << blocks << " blocks";
  }
  EXPECT_GT(failures, 0);
  EXPECT_EQ(shown("--csv --numbers"), "time,value\n1,2\n");
  /* One that was there stays, and so does its entry. */
  EXPECT_EQ(run("add", "0 2").code, 1);
  EXPECT_EQ(shown("--csv --numbers"), "time,value\n1,2\n");
}

TEST_F(KshistoryTool, RefusesWhatIsNoHistoryOrNoTime) {
  EXPECT_THAT(run("add", "now 1").errors, HasSubstr("--max tells how many"));
  EXPECT_EQ(run("show").code, 1);
  EXPECT_FALSE(std::filesystem::exists(file_));
  folder_.write("latency.hst", "not a history\n");
  for (const std::string command : {"add", "show"}) {
    const ProgramRun refused = run(command, command == "add" ? "now 1 --max 3" : "");
    EXPECT_EQ(refused.code, 1);
    EXPECT_THAT(refused.errors, HasSubstr(file_ + " is not a list file"));
  }
  EXPECT_EQ(read_text(file_), "not a history\n");
  EXPECT_EQ(run("add", "yesterday 1 --max 3").code, 2);
  EXPECT_EQ(run("show", "--at tomorrow").code, 2);
  EXPECT_EQ(run("add", "now 1 --max 0").code, 2);
}

TEST_F(KshistoryTool, DrawsEntriesAsPictures) {
  const std::string picture = folder_ / "latency.svg";
  ASSERT_EQ(run("add", "2026-11-21 1 --max 3").code, 0);
  ASSERT_EQ(run("add", "2026-11-22 3").code, 0);
  const ProgramRun drawn =
      run("plot", "-o " + picture + " --label 'latency (s)' --title KAA");
  ASSERT_EQ(drawn.code, 0) << drawn.errors;
  const std::string svg = read_text(picture);
  EXPECT_THAT(svg, HasSubstr("latency (s)"));
  EXPECT_THAT(svg, HasSubstr(">KAA<"));
  EXPECT_THAT(svg, HasSubstr("2026"));
  EXPECT_EQ(run("plot", "-o " + (folder_ / "latency.txt")).code, 1);
}

}  // namespace
}  // namespace ksutil::tools
