/* A pipeline that lost, doubled or mixed up seismograms would do so in every program that
 * was begun as a copy of it. */
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "formats/kssac.h"
#include "platform/clock/clock.h"
#include "tests/support/rows.h"
#include "tests/tools/scratch.h"

namespace {

using ksutil::tools::ProgramRun;
using ksutil::tools::run_program;
using ksutil::tools::ScratchFolder;

const std::string kPickOnsets = PICK_ONSETS_PROGRAM;
constexpr double kBegin = 1440000000.0, kRate = 20.0;

/* A minute of noise with a signal from `onset` seconds on (negative: none). */
void write_seismogram(const std::string &file, const char *sta, double onset) {
  std::mt19937 random(7);
  std::normal_distribution<float> noise(0.0F, 1.0F);
  std::vector<float> samples(1200);
  for (std::size_t i = 0; i < samples.size(); i++) {
    const double t = static_cast<double>(i) / kRate;
    samples[i] = noise(random);
    if (onset >= 0 && t >= onset) {
      samples[i] += static_cast<float>(50.0 * std::cos(6.0 * (t - onset)));
    }
  }
  KSSac *const sac = kssac_create(nullptr, nullptr);
  kssac_puthdr_kssac(sac, "KSTNM", sta, "KCMPNM", "BHZ", ksutil::test::kEndOfArguments);
  kssac_putdata_kssac(sac, static_cast<long>(samples.size()), samples.data(), "V",
                      kBegin, kRate);
  ASSERT_EQ(kssac_write_to_file_kssac(sac, file.c_str()), 0);
  kssac_free_kssac(sac);
}

TEST(PickOnsets, PicksEverySeismogramOnceInTheOrderOfTheFiles) {
  const ScratchFolder scratch;
  const std::vector<double> onsets{20.0, 33.5, -1.0, 15.25, 48.0, 27.0, 40.0};
  std::string files;
  for (std::size_t i = 0; i < onsets.size(); i++) {
    const std::string number = std::to_string(i);
    write_seismogram(scratch / (number + ".sac"), ("ST" + number).c_str(), onsets[i]);
    files += " " + (scratch / (number + ".sac"));
  }
  const std::string results = scratch / "results";
  const ProgramRun run = run_program(kPickOnsets + " -o " + results + files);
  ASSERT_EQ(run.code, 0) << run.errors;
  EXPECT_NE(run.errors.find("largest amplitude 5"), std::string::npos) << run.errors;
  std::ifstream lines(results);
  std::string line;
  for (std::size_t i = 0; i < onsets.size(); i++) {
    ASSERT_TRUE(std::getline(lines, line));
    std::istringstream words(line);
    std::string file, sta, chan, onset;
    words >> file >> sta >> chan >> onset;
    EXPECT_EQ(sta, "ST" + std::to_string(i));
    if (onsets[i] < 0) {
      EXPECT_EQ(onset, "-") << line;
      continue;
    }
    double picked = 0;
    ASSERT_TRUE(ksutil::parse_date_text(onset, picked)) << line;
    EXPECT_NEAR(picked, kBegin + onsets[i], 0.15) << line;
  }
  EXPECT_FALSE(std::getline(lines, line));
}

TEST(PickOnsets, GoesOnAfterAFileThatItCannotRead) {
  const ScratchFolder scratch;
  write_seismogram(scratch / "good.sac", "GOOD", 30.0);
  scratch.write("bad.sac", "not a seismogram");
  const std::string results = scratch / "results";
  const ProgramRun run =
      run_program(kPickOnsets + " -o " + results + " " + (scratch / "bad.sac") + " " +
                  (scratch / "good.sac"));
  EXPECT_EQ(run.code, 1);
  EXPECT_NE(run.errors.find("no seismogram in " + (scratch / "bad.sac")),
            std::string::npos)
      << run.errors;
  std::ifstream lines(results);
  std::string line;
  ASSERT_TRUE(std::getline(lines, line));
  EXPECT_NE(line.find("GOOD"), std::string::npos);
  EXPECT_EQ(run_program(kPickOnsets).code, 2);
}

TEST(PickOnsets, ReadsWhateverIsNamedFirst) {
  const ScratchFolder scratch;
  write_seismogram(scratch / "one.sac", "ONE", 30.0);
  write_seismogram(scratch / "two.sac", "TWO", 30.0);
  const std::string before = ksutil::tools::read_text(scratch / "one.sac");
  const ProgramRun run = run_program(kPickOnsets + " " + (scratch / "one.sac") + " " +
                                     (scratch / "two.sac"));
  EXPECT_EQ(run.code, 0) << run.errors;
  EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 2) << run.output;
  EXPECT_EQ(ksutil::tools::read_text(scratch / "one.sac"), before);
}

}  // namespace
