/* Curves are drawn and compared from scripts by this program: kinds of file must be told
 * apart, numbers must survive being printed. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "tests/tools/scratch.h"

namespace ksutil::tools {
namespace {

using testing::HasSubstr;

const std::string kKsvector = KSVECTOR_PROGRAM;

class Ksvector : public testing::Test {
 protected:
  ProgramRun run(const std::string &arguments) {
    return run_program(kKsvector + " " + arguments);
  }

  ScratchFolder folder_;
  std::string fap_ =
      folder_.write("r.fap", "m 1 c fap\n2\n1 10 0.1 0 0\n2 30 1e-300\n");
  std::string table_ = folder_.write("t.txt", "x,y,l\n1,2,a\n3,4,\"b\n");
};

TEST_F(Ksvector, TellsResponsesFromTables) {
  EXPECT_EQ(run("info --csv --skip 1 " + fap_ + " " + table_).output,
            "file,kind,points,ny,xmin,xmax,ymin,ymax\n" + fap_ +
                ",fap,2,2,1,2,1e-300,30\n" + table_ + ",table,2,1,1,3,2,4\n");
  const ProgramRun forced = run("info --kind fap " + fap_ + " " + table_);
  EXPECT_EQ(forced.code, 1);
  EXPECT_THAT(forced.output, HasSubstr(fap_));
  EXPECT_THAT(forced.errors, HasSubstr("cannot parse " + table_));
  EXPECT_EQ(run("info --kind table --skip 2 " + fap_).code, 0);
}

TEST_F(Ksvector, PrintsPointsWithTheirLabels) {
  const auto rows = nlohmann::json::parse(
      run("read --json --skip 1 --x 0 --y 1,0 --label 0 " + table_).output);
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[1].dump(), R"({"label":"3","x":3,"y0":4,"y1":3})");
  EXPECT_EQ(run("read --csv " + fap_).output, "x,y0,y1\n1,10,0.1\n2,30,1e-300\n");
}

TEST_F(Ksvector, EvaluatesWhereItIsAsked) {
  EXPECT_EQ(run("eval --csv --at 0,1.5,9 " + fap_).output,
            "x,y0,y1\n0,10,0.1\n1.5,20,0.05\n9,30,1e-300\n");
  EXPECT_EQ(run("eval --csv " + table_ + " --skip 1 --from 1 --to 3 --count 3").output,
            "x,y\n1,2\n2,3\n3,4\n");
  EXPECT_EQ(run("eval " + fap_).code, 2);
  EXPECT_EQ(run("eval --at 1,x " + fap_).code, 2);
  EXPECT_EQ(
      run("read --csv --y 2,1 --limit 1 " + fap_ + " --kind table --skip 2").output,
      "x,y0,y1\n1,0.1,10\n");
  EXPECT_EQ(run("eval " + fap_ + " --from 1 --to 2").code, 2);
  const ProgramRun empty = run("eval --at 1 " + folder_.write("empty", ""));
  EXPECT_EQ(empty.code, 1);
  EXPECT_THAT(empty.errors, HasSubstr("No points in vector"));
  const ProgramRun drawn =
      run("plot -o " + (folder_ / "x.svg") + " " + (folder_ / "empty"));
  EXPECT_EQ(drawn.code, 1);
  EXPECT_THAT(drawn.errors, HasSubstr("empty: no points to draw"));
  EXPECT_FALSE(std::filesystem::exists(folder_ / "x.svg"));
}

/* A picture of a pole-zero file looks like a curve: what is not a number must be told. */
TEST_F(Ksvector, RefusesFilesOfOtherKindsWithFileAndLine) {
  const auto refusal = [&](const char *name, const std::string &text) {
    const ProgramRun refused = run("read " + folder_.write(name, text));
    EXPECT_EQ(refused.code, 1) << text;
    EXPECT_EQ(refused.output, "") << text;
    return refused.errors;
  };
  const std::string at = "ksvector: " + (folder_ / "f") + ":";
  EXPECT_THAT(refusal("f", "ZEROS 2\nPOLES 1\n-0.03 0.03\nCONSTANT 1e9\n"),
              HasSubstr(at + "1: 'ZEROS' in column 0 is not a number"));
  EXPECT_THAT(refusal("f", "# comment\nB050F03 Station: CRLZ\n"),
              HasSubstr(at + "2: 'B050F03'"));
  EXPECT_THAT(refusal("f", "theoretical 1 instrument paz CSS\n2\n"),
              HasSubstr(at + "1: 'theoretical'"));
  EXPECT_THAT(refusal("f", std::string("1 2\n\x01\x00\x02", 7)),
              HasSubstr(at + "2: the line has bytes that are not text"));
  EXPECT_THAT(run("info /dev/zero").errors,
              HasSubstr("/dev/zero:1: the line has bytes that are not text"));
  EXPECT_THAT(refusal("f", "1 2\n3\n"), HasSubstr(at + "2: column 1 is missing"));
  EXPECT_THAT(refusal("f", "m 1 c fap\n3\n1 2 3\n1 2 x\n"),
              HasSubstr(at + "4: 'x' is not a number"));
  EXPECT_THAT(refusal("f", "m 1 c fap\n3\n1 2 3\n"),
              HasSubstr(at + "3: the file ends after 1 of 3 rows"));
  EXPECT_THAT(refusal("f", "m 1 c fap2\n1\n1 2 3\n"),
              HasSubstr(at + "3: the row has 3 of 7 columns"));
}

TEST_F(Ksvector, CombinesFilesThatFit) {
  const std::string a = folder_.write("a", "1 5\n2 6\n"),
                    b = folder_.write("b", "1 7\n2 1\n");
  const std::string other = folder_.write("other", "1 99\n3 99\n");
  const ProgramRun most = run("stats --type max --csv " + a + " " + b + " " + other);
  EXPECT_EQ(most.code, 0);
  EXPECT_EQ(most.output, "x,y\n1,7\n2,6\n");
  EXPECT_THAT(most.errors, HasSubstr(other + " is left out"));
  EXPECT_EQ(run("stats --type mean " + a).code, 2);
  EXPECT_EQ(run("stats --type max " + a + " /nowhere").code, 1);
}

}  // namespace
}  // namespace ksutil::tools
