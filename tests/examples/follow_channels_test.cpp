/* The smallest display: when its picture is right, so is the road from files to columns. */
#include <cstdio>

#include "tests/tools/scratch.h"
#include "tests/waveforms/view/view_support.h"

namespace {

using ksutil::test::kStart;
using ksutil::test::Scene;
using ksutil::test::TrueRow;
using ksutil::tools::run_program;

const std::string kFollowChannels = FOLLOW_CHANNELS_PROGRAM;

/* Ten seconds of the samples 0, a, 0, a ... for each amplitude a. */
TrueRow steps(double time, const char *chan, const std::vector<double> &amplitudes) {
  TrueRow row{time, 10.0, {}};
  row.chan = chan;
  for (const double amplitude : amplitudes) {
    for (int i = 0; i < 100; i++) row.samples.push_back(i % 2 * amplitude);
  }
  return row;
}

TEST(FollowChannels, DrawsItsChannels) {
  Scene scene;
  TrueRow first = steps(kStart, "BHZ", {0, 8, 80});
  TrueRow second = steps(kStart + 40, "BHZ", {40});
  TrueRow other = steps(kStart + 10, "BHN", {1, 0, 1});
  for (TrueRow *row : {&first, &second, &other}) scene.add(*row);
  const auto run = run_program(kFollowChannels + " " + scene.name() +
                               " 1600000000 1600000060 6 AAA:BHN");
  EXPECT_EQ(run.code, 0) << run.errors;
  EXPECT_EQ(run.output, "AAA:BHN | @.@  | \n");
  const auto both = run_program(kFollowChannels + " " + scene.name() +
                                " 1600000000 1600000060 6 AAA:BHZ,X:Y");
  EXPECT_EQ(both.code, 0) << both.errors;
  EXPECT_NE(both.output.find("AAA:BHZ |..@ + | \n"), std::string::npos) << both.output;
  EXPECT_NE(both.output.find("X:Y |      | nothing there\n"), std::string::npos);
}

TEST(FollowChannels, ShowsWhatIsAppended) {
  Scene scene;
  TrueRow row = steps(kStart, "BHZ", {1});
  scene.add(row);
  FILE *const output = popen(
      (kFollowChannels + " " + scene.name() + " 1600000000 1600000030 3 AAA:BHZ 2")
          .c_str(),
      "r");
  ASSERT_NE(output, nullptr);
  char line[100];
  ASSERT_NE(std::fgets(line, sizeof line, output), nullptr);
  EXPECT_STREQ(line, "AAA:BHZ |@  | \n");
  scene.append(row, steps(kStart, "BHZ", {1}).samples);
  ASSERT_NE(std::fgets(line, sizeof line, output), nullptr);
  EXPECT_STREQ(line, "AAA:BHZ |@@ | \n");
  EXPECT_EQ(pclose(output), 0);
}

TEST(FollowChannels, TellsWhatIsWrong) {
  EXPECT_EQ(run_program(kFollowChannels + " db 1 2 3").code, 2);
  EXPECT_EQ(run_program(kFollowChannels + " db 1 2 0 A:B").code, 2);
  EXPECT_EQ(run_program(kFollowChannels + " db 1 2 3 AB").code, 2);
  EXPECT_EQ(run_program(kFollowChannels + " /nowhere/db 1 2 3 A:B").code, 1);
  Scene scene;
  TrueRow row = steps(kStart, "BHZ", {1});
  row.file = "gone";
  scene.add_row(row);
  const auto run = run_program(kFollowChannels + " " + scene.name() +
                               " 1600000000 1600000030 3 AAA:BHZ");
  EXPECT_EQ(run.code, 1);
  EXPECT_NE(run.output.find("gone: No such file or directory"), std::string::npos)
      << run.output;
}

}  // namespace
