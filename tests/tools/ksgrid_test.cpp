/* What ksgrid shows and makes is what maps are drawn from. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/tools/scratch.h"

namespace ksutil::tools {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

const std::string kKsgrid = KSGRID_PROGRAM;

ProgramRun ksgrid(const std::string &arguments) {
  return run_program(kKsgrid + " " + arguments);
}

/* Two frames on x 1, 2, 4 and y -1, 1; (4, 1) is missing in the first one, and the node
 * (2, -1) in both. */
std::string made_grid(const ScratchFolder &folder) {
  const std::string table = folder.write("table",
                                         "# x y first second\n"
                                         "4,1,nan,8\n"
                                         "1 -1  1 -1\r\n"
                                         "\n"
                                         "2;1;3;-3\n"
                                         "1\t1\t2 -2\n"
                                         "4 -1 1e2 .5");
  const std::string grid = folder / "made.grid";
  const ProgramRun run = ksgrid("make " + table + " " + grid +
                                " --name map --xname east --xtext km "
                                "--text 'peak velocity' --text cm/s "
                                "--time 2016-08-24T01:36:32 --dt 0.5");
  EXPECT_EQ(run.code, 0) << run.errors;
  return grid;
}

TEST(Ksgrid, MakesWhatInfoShows) {
  const ScratchFolder folder;
  const std::string grid = made_grid(folder);
  /* Files of grids can be joined. */
  const ProgramRun run =
      run_program("cat " + grid + " " + grid + " | " + kKsgrid + " info --json -");
  ASSERT_EQ(run.code, 0) << run.errors;
  const auto grids = nlohmann::json::parse(run.output);
  ASSERT_EQ(grids.size(), 2U);
  const auto &shown = grids[1];
  EXPECT_EQ(shown["name"], "map");
  EXPECT_EQ(shown["x"].dump(),
            R"({"count":3,"first":1,"last":4,"name":"east","texts":["km",null]})");
  EXPECT_EQ(shown["y"]["first"], -1);
  EXPECT_EQ(shown["frames"], 2);
  EXPECT_EQ(shown["time"], "2016-08-24T01:36:32.000Z");
  EXPECT_EQ(
      nlohmann::json::parse(ksgrid("info --json --raw " + grid).output)[0]["time"],
      1472002592.0);
  EXPECT_EQ(shown["dt"], 0.5);
  EXPECT_EQ(shown["min"], -3);
  EXPECT_EQ(shown["max"], 100);
  EXPECT_EQ(shown["gaps"], 3);
  EXPECT_EQ(shown["texts"][1], "cm/s");
  EXPECT_THAT(ksgrid("info " + grid).output,
              HasSubstr("frames  2, first at 2016-08-24T01:36:32.000Z, every 0.5 s\n"));
}

TEST(Ksgrid, EvaluatesPointsOfTheCommandLineAndOfTables) {
  const ScratchFolder folder;
  const std::string grid = made_grid(folder);
  const ProgramRun block =
      ksgrid("eval " + grid + " --mode block --frame -1 --csv --x 3.5,9 --y 0.5,0");
  EXPECT_EQ(block.output, "x,y,value\n3.5,0.5,8\n9,0,\n") << block.errors;
  const std::string points = folder.write("points", "1 0\n2 1\n1.5 1\n");
  const ProgramRun json = ksgrid("eval " + grid + " --json --points " + points);
  const auto rows = nlohmann::json::parse(json.output);
  ASSERT_EQ(rows.size(), 3U);
  /* All lie in the cell of a node that is missing. */
  EXPECT_TRUE(rows[0]["value"].is_null());
  const std::string whole = folder.write("whole", "0 0 1\n0 2 3\n4 0 5\n4 2 7\n");
  ASSERT_EQ(ksgrid("make " + whole + " " + grid).code, 0);
  EXPECT_EQ(ksgrid("eval " + grid + " --csv --x 1 --y 1.5").output,
            "x,y,value\n1,1.5,3.5\n");
  /* A source straight below has no horizontal slowness. */
  EXPECT_EQ(ksgrid("eval " + grid + " --csv --distances --depth 33 --x 0 --y 0").output,
            "x,y,value\n0,0,1\n");
}

TEST(Ksgrid, DrawsFrames) {
  const ScratchFolder folder;
  const std::string grid = made_grid(folder), picture = folder / "map.svg";
  const ProgramRun run = ksgrid("plot " + grid + " --frame 0,-1 -o " + picture);
  ASSERT_EQ(run.code, 0) << run.errors;
  const std::string svg = read_text(picture);
  EXPECT_THAT(svg, HasSubstr("frame 1, 2016-08-24T01:36:32.500"));
  EXPECT_THAT(svg, HasSubstr("east"));
  const std::string png = folder / "map.png";
  ASSERT_EQ(ksgrid("plot " + grid + " --map --low 0 --high 5 -o " + png).code, 0);
  EXPECT_THAT(read_text(png), StartsWith("\x89PNG"));
}

TEST(Ksgrid, SaysWhatIsWrong) {
  const ScratchFolder folder;
  const std::string grid = made_grid(folder), out = folder / "out";
  const auto make_error = [&](const std::string &text) {
    const ProgramRun run = ksgrid("make " + folder.write("t", text) + " " + out);
    EXPECT_EQ(run.code, 1);
    EXPECT_FALSE(std::filesystem::exists(out));
    return run.errors;
  };
  EXPECT_THAT(make_error("1 2 3\n1 2 4\n"),
              HasSubstr("t:2: the same point as in line 1"));
  EXPECT_THAT(make_error("1 2 3\n1 2 x\n"), HasSubstr("t:2: not a number"));
  EXPECT_THAT(make_error("1 2 1e39\n"), HasSubstr("t:1: not a number"));
  EXPECT_THAT(make_error("1 2\n"), HasSubstr("at least 3 numbers are needed, not 2"));
  EXPECT_THAT(make_error("1 2 3\n1 3 4 5\n"),
              HasSubstr("4 numbers, where lines above"));
  EXPECT_THAT(make_error("1 nan 3\n"), HasSubstr("x and y must be finite"));
  EXPECT_THAT(make_error("# none\n"), HasSubstr("no numbers"));
  std::string scattered;
  for (int i = 0; i < 1000; i++) {
    scattered += std::to_string(i) + " " + std::to_string(i * 7) + " 1\n";
  }
  EXPECT_THAT(make_error(scattered), HasSubstr("not a mesh: 1000 different x"));

  const std::string cut = folder / "cut";
  std::filesystem::copy(grid, cut);
  std::filesystem::resize_file(cut, 100);
  const ProgramRun damaged = ksgrid("info " + cut);
  EXPECT_EQ(damaged.code, 1);
  EXPECT_EQ(damaged.errors, "ksgrid: " + cut + ": not a file of grids, or damaged\n");
  EXPECT_THAT(ksgrid("eval " + grid + " --grid 1 --x 1 --y 1").errors,
              HasSubstr("holds 1 grids, none of number 1"));
  EXPECT_THAT(ksgrid("eval " + grid + " --frame 2 --x 1 --y 1").errors,
              HasSubstr("no frame 2: the grid has 2"));
  EXPECT_EQ(ksgrid("eval " + grid + " --x 1,2 --y 1").code, 2);
  EXPECT_EQ(ksgrid("make --time soon " + grid + " " + out).code, 2);
}

}  // namespace
}  // namespace ksutil::tools
