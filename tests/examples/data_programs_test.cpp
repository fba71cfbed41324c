/* Programs that draw, write waveform files, pass grids on and watch channels are written
 * after these examples: a curve in a wrong place or a channel that is dead without a word would
 * be copied. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "formats/kssac.h"
#include "platform/clock/clock.h"
#include "tests/tools/scratch.h"
#include "tests/waveforms/view/view_support.h"

namespace {

using ksutil::test::kEndOfArguments;
using ksutil::test::kStart;
using ksutil::test::read_file;
using ksutil::test::Scene;
using ksutil::test::TempFolder;
using ksutil::test::TrueRow;
using ksutil::test::write_file;
using ksutil::tools::run_program;

const std::string kPlot = PLOT_RESPONSE_PROGRAM, kSac = SAC_FROM_ROWS_PROGRAM,
                  kGrid = GRID_PIPE_PROGRAM, kMonitor = MONITOR_CHANNELS_PROGRAM;

TEST(PlotResponse, PutsAStraightLineFromCornerToCorner) {
  const TempFolder folder;
  std::string fap = "theoretical 1 instrument fap author\n5\n";
  for (const char *value : {"0.01", "0.1", "1", "10", "100"}) {
    fap += std::string(value) + " " + value + " 0\n";
  }
  write_file(folder / "line.fap", fap);
  const auto run =
      run_program(kPlot + " " + folder / "line.fap" + " " + folder / "a.svg");
  EXPECT_EQ(run.code, 0) << run.errors;
  EXPECT_NE(run.output.find("0.01 to 100 Hz, amplitudes 0.01 to 100"),
            std::string::npos)
      << run.output;
  const std::string svg = read_file(folder / "a.svg");
  EXPECT_NE(svg.find("d='M60.0 340.0 "), std::string::npos) << svg;
  EXPECT_NE(svg.find("L320.0 180.0 "), std::string::npos) << svg;
  EXPECT_NE(svg.find("L580.0 20.0 '/>\n</svg>"), std::string::npos) << svg;
}

TEST(SacFromRows, WritesSamplesWithTheirStationAndLeavesOutWhatCannotBeRead) {
  Scene scene;
  TrueRow row{kStart, 20.0, {3, -1, 4, 1, -5}};
  scene.add(row);
  TrueRow gone{kStart, 20.0, {1}};
  gone.chan = "BHN";
  gone.file = "gone";
  scene.add_row(gone);
  const auto table = [&](const char *name) {
    return dblookup(scene.db(), nullptr, name, nullptr, nullptr);
  };
  EXPECT_GE(dbaddv(table("site"), "sta", "AAA", "ondate", 1990001L, "lat", 47.5, "lon",
                   11.25, "elev", 0.5, kEndOfArguments),
            0);
  for (const char *chan : {"BHZ", "BHN"}) {
    EXPECT_GE(dbaddv(table("sitechan"), "sta", "AAA", "chan", chan, "ondate", 1990001L,
                     "hang", 0.0, "vang", 0.0, kEndOfArguments),
              0);
  }
  const TempFolder folder;
  const auto run =
      run_program(kSac + " " + scene.name() + " 'samprate > 1' " + folder.path());
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.output, folder / "AAA.BHZ.2020257.122640.000.sac" + "\n");
  EXPECT_NE(run.errors.find("gone"), std::string::npos) << run.errors;
  EXPECT_NE(run.errors.find("sac_from_rows: record 1 is left out."), std::string::npos);

  KSSac *const sac = kssac_read_from_file_kssac(
      (folder / "AAA.BHZ.2020257.122640.000.sac").c_str(), nullptr, nullptr);
  ASSERT_NE(sac, nullptr);
  char station[9] = "";
  double latitude = 0.0, elevation = 0.0;
  EXPECT_EQ(kssac_gethdr_kssac(sac, "KSTNM", station, "STLA", &latitude, "STEL",
                               &elevation, static_cast<char *>(nullptr)),
            0);
  EXPECT_STREQ(station, "AAA");
  EXPECT_DOUBLE_EQ(latitude, 47.5);
  EXPECT_DOUBLE_EQ(elevation, 500.0);
  long nsamp = 0;
  double time = 0.0, samprate = 0.0;
  float *samples = nullptr;
  EXPECT_EQ(kssac_getdata_kssac(sac, &nsamp, &time, &samprate, &samples, nullptr), 0);
  EXPECT_EQ(std::vector<double>(samples, samples + nsamp), row.samples);
  EXPECT_DOUBLE_EQ(time, kStart);
  std::free(samples);
  kssac_free_kssac(sac);

  EXPECT_EQ(run_program(kSac + " " + scene.name() + " 'nothing >' .").code, 1);
  EXPECT_EQ(run_program(kSac + " /nowhere/db 'nsamp > 1' .").code, 1);
}

/* The values of the four nodes around 13.5 42.5 are exp(-d * d), d being half their distance
 * from the source in degrees; their mean is 0.510 in the first step. */
TEST(GridPipe, ShowsWhatIsMade) {
  const auto run = run_program(kGrid + " make 3 | " + kGrid + " show 13.5 42.5");
  EXPECT_EQ(run.code, 0) << run.errors;
  EXPECT_EQ(run.output,
            "0 s: greatest 1.000 at 12 42; at the point 0.510\n"
            "1 s: greatest 0.939 at 13 42; at the point 0.836\n"
            "2 s: greatest 1.000 at 14 43; at the point 0.791\n");
  const auto beside = run_program(kGrid + " make 1 | " + kGrid + " show 9 42");
  EXPECT_EQ(beside.output, "0 s: greatest 1.000 at 12 42; at the point nothing\n");
  const auto cut =
      run_program(kGrid + " make 2 | head -c 3000 | " + kGrid + " show 12 42");
  EXPECT_EQ(cut.code, 1);
  EXPECT_NE(cut.errors.find("grid_pipe: a packet is damaged."), std::string::npos);
}

TEST(MonitorChannels, FindsChannelsThatAreLateFlatOrMissing) {
  Scene scene;
  const double now = std_now();
  TrueRow good{now - 1000, 1.0, ksutil::test::wandering(2000, 1)};
  TrueRow late{now - 1000, 1.0, ksutil::test::wandering(500, 2)};
  TrueRow flat{now - 1000, 1.0, std::vector<double>(2000, 7.0)};
  late.chan = "BHN";
  flat.chan = "BHE";
  for (TrueRow *row : {&good, &late, &flat}) scene.add(*row);
  const std::string begin = kMonitor + " " + scene.name() + " 800 10 ";

  const auto run = run_program(begin + "AAA:BHZ,AAA:BHN,AAA:BHE,X:Y 1");
  EXPECT_EQ(run.code, 1) << run.errors;
  EXPECT_THAT(run.output,
              testing::ContainsRegex("AAA:BHZ +0.0 s old +100 %  [-0-9]+ to "
                                     "[0-9]+ \n"));
  EXPECT_THAT(run.output, testing::ContainsRegex("AAA:BHN +[45]..\\.. s old .* LATE"));
  EXPECT_THAT(run.output, testing::ContainsRegex("AAA:BHE +0.0 s old .* 7 to 7 FLAT"));
  EXPECT_THAT(run.output, testing::ContainsRegex("X:Y +nothing in the window"));
  EXPECT_EQ(run_program(begin + "AAA:BHZ 1").code, 0);
  EXPECT_EQ(run_program(begin + "AAA-BHZ 1").code, 2);
  EXPECT_EQ(run_program(kMonitor + " /nowhere/db 800 10 A:B 1").code, 1);
}

}  // namespace
