/* Newcomers copy the examples: one that lost rows, or their order, would live on in their
 * programs. */
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/tools/scratch.h"

namespace {

using ksutil::tools::ProgramRun;
using ksutil::tools::run_program;

const std::string kPredictArrivals = PREDICT_ARRIVALS_PROGRAM;
const std::string kDatabase = KSUTIL_SOURCE_DIR "/data/aug2015";

TEST(PredictArrivals, PredictsEveryOriginInTheOrderOfTheTable) {
  const ProgramRun run = run_program(kPredictArrivals + " " + kDatabase + " 52.2 4.5");
  ASSERT_EQ(run.code, 0) << run.errors;
  std::ifstream table(kDatabase + ".origin");
  std::istringstream output(run.output);
  std::string row, line;
  long count = 0;
  double deepest = 0;
  for (; std::getline(table, row) && std::getline(output, line); count++) {
    double lat = 0, lon = 0, depth = 0, delta = 0;
    long orid = 0, printed = 0;
    std::string time, phase;
    std::istringstream(row) >> lat >> lon >> depth >> time >> orid;
    std::istringstream(line) >> printed >> delta >> phase;
    ASSERT_EQ(printed, orid);
    const double degree = std::acos(-1.0) / 180.0;
    const double cosine = std::sin(lat * degree) * std::sin(52.2 * degree) +
                          std::cos(lat * degree) * std::cos(52.2 * degree) *
                              std::cos((lon - 4.5) * degree);
    ASSERT_NEAR(delta, std::acos(cosine) / degree, 0.001) << line;
    ASSERT_EQ(phase.starts_with('P') || phase == "p", depth <= 700) << line;
    deepest = std::max(deepest, depth);
  }
  EXPECT_GT(count, 64) << "more than one batch";
  std::getline(output, line);
  std::ostringstream summary;
  summary.precision(4);
  summary << count << " origins, the deepest at " << deepest << " km";
  EXPECT_EQ(line, summary.str());
}

TEST(PredictArrivals, TellsWhatIsWrong) {
  EXPECT_EQ(run_program(kPredictArrivals).code, 2);
  EXPECT_EQ(run_program(kPredictArrivals + " " + kDatabase + " north 4.5").code, 2);
  const ProgramRun missing = run_program(kPredictArrivals + " /nowhere/db 52 4");
  EXPECT_EQ(missing.code, 1);
  EXPECT_NE(missing.errors.find("/nowhere/db"), std::string::npos);
}

}  // namespace
