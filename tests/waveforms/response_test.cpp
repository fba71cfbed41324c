/* A response that is read or evaluated wrongly turns every amplitude and magnitude behind it
 * wrong, and nobody sees it in the seismogram. */
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <fstream>
#include <numbers>
#include <string>

#include "tests/support/folder.h"
#include "waveforms/response.h"

namespace {

using namespace ksutil;
using Complex = std::complex<double>;
using std::numbers::pi;

class ResponseFiles : public testing::Test {
 protected:
  std::string write(const std::string &text) {
    const std::string path = folder_ / "response";
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }
  /* Reads a text; the problem without the name of the file. */
  bool read(const std::string &text, double time = kNullTime) {
    const std::string path = write(text);
    problem_.clear();
    const bool good = read_response_file(path, response_, problem_, time);
    if (problem_.starts_with(path)) problem_.erase(0, path.size());
    return good;
  }
  test::TempFolder folder_;
  Response response_;
  std::string problem_;
};

void expect_near(Complex found, Complex expected, double relative) {
  EXPECT_LT(std::abs(found - expected), relative * std::abs(expected))
      << found << " instead of " << expected;
}

constexpr char kSeismometer[] =
    "# 1 Hz, damping 0.7\n"
    "theoretical 1 instrument paz me\n"
    "1.0\n2\n"
    "-4.398229715025710 4.487091817449504 0 0\n-4.398229715025710 -4.487091817449504 0 "
    "0\n"
    "2\n0 0 0 0\n0 0 0 0\n";

/* H = s^2 / (s^2 + 2 h w0 s + w0^2): (2 h)^-1 at w0, with the phase 90 degrees ahead. */
TEST_F(ResponseFiles, SeismometerOfOneHertz) {
  ASSERT_TRUE(read(kSeismometer)) << problem_;
  expect_near(response_.evaluate(1.0), Complex(0.0, 1.0 / 1.4), 1e-6);
  expect_near(response_.evaluate(1000.0), 1.0, 2e-3);
  EXPECT_NEAR(std::abs(response_.evaluate(0.01)), 1e-4, 1e-7);
  EXPECT_EQ(response_.evaluate(0.0), Complex(0.0));
}

/* Velocity instruments answer to displacement with i w, to acceleration with 1 / (i w). */
TEST_F(ResponseFiles, GroundMotionOfEachDerivative) {
  ASSERT_TRUE(read(std::string(kSeismometer) + "#: units M/S V\n")) << problem_;
  const double f = 2.5, w = 2 * pi * f;
  const Complex own = response_.evaluate(f);
  Complex value;
  for (const int derivative : {0, 1, 2}) {
    ASSERT_TRUE(ground_response(response_, f, derivative, value));
    expect_near(value, own * std::pow(Complex(0, w), 1 - derivative), 1e-12);
  }
  response_.stages[0].input_unit = "nm/s";
  ASSERT_TRUE(ground_response(response_, f, 1, value));
  expect_near(value, own * 1e9, 1e-12);
  response_.stages[0].input_unit = "PA";
  EXPECT_FALSE(ground_response(response_, f, 1, value));
}

/* Gain 1 at 0 Hz; a symmetric filter of 5 delays by 2 samples, which a correction undoes. */
TEST_F(ResponseFiles, FirGainAndLinearPhase) {
  ASSERT_TRUE(
      read("theoretical 2 digitizer fir me\n100\n5\n"
           "0.1 0\n0.2 0\n0.4 0\n0.2 0\n0.1 0\n0\n"))
      << problem_;
  expect_near(response_.evaluate(0.0), 1.0, 1e-12);
  for (const double f : {0.5, 7.0, 20.0}) {
    const double amplitude =
        0.4 + 0.4 * std::cos(2 * pi * f / 100) + 0.2 * std::cos(4 * pi * f / 100);
    expect_near(response_.evaluate(f), std::polar(amplitude, -2 * pi * f * 0.02),
                1e-12);
    response_.stages[0].decimation->correction = 0.02;
    expect_near(response_.evaluate(f), amplitude, 1e-12);
    response_.stages[0].decimation->correction = 0.0;
  }
}

/* The sample rates of successive filters tell their decimation. */
TEST_F(ResponseFiles, DecimationFollowsFromTheNextRate) {
  ASSERT_TRUE(
      read("theoretical 1 d fir me\n1000\n1\n1 0\n0\n"
           "theoretical 2 d fir me\n100\n1\n1 0\n0\n"));
  EXPECT_EQ(response_.stages[0].decimation->factor, 10);
  EXPECT_EQ(response_.stages[1].decimation->factor, 1);
}

TEST_F(ResponseFiles, TableBetweenItsRows) {
  ASSERT_TRUE(
      read("measured 1 instrument fap2 me\n3\n"
           "1 1 350 0 0 7 8\n100 100 10 0 0 7 8\n1000 0 10 0 0 7 8\n"));
  EXPECT_TRUE(response_.measured);
  expect_near(response_.evaluate(10.0), 10.0, 1e-12);  // and not through 180 degrees
  expect_near(response_.evaluate(0.1), std::polar(1.0, -10 * pi / 180), 1e-12);
  EXPECT_NEAR(std::abs(response_.evaluate(316.227766)), 50.0, 1e-6);
}

constexpr char kPoleZeros[] =
    "* START : 2001-01-01T00:00:00\n* END : 2002-01-01T00:00:00\n* INPUT UNIT : NM\n"
    "ZEROS 3\n5 6\nPOLES 1\n-1 0\nCONSTANT 2\n"
    "* START : 2002-01-01T00:00:00\n* INPUT UNIT : M\n"
    "CONSTANT 3\nPOLES 1\n-1 0\nZEROS 0\n";

/* Zeros that the file does not list are 0; each epoch has its own response. */
TEST_F(ResponseFiles, SacEpochsAndMissingZeros) {
  ASSERT_TRUE(read(kPoleZeros, h2e(2001, 100, 0, 0, 0))) << problem_;
  EXPECT_EQ(response_.input_unit(), "NM");
  const Complex s(0.0, 2 * pi);
  expect_near(response_.evaluate(1.0), 2.0 * (s - Complex(5, 6)) * s * s / (s + 1.0),
              1e-12);
  ASSERT_TRUE(read(kPoleZeros)) << problem_;
  EXPECT_EQ(response_.input_unit(), "M");
  expect_near(response_.evaluate(1.0), 3.0 / (s + 1.0), 1e-12);
  EXPECT_FALSE(read(kPoleZeros, 0.0));
  EXPECT_NE(problem_.find("no response of the file holds at 1970-01-01"),
            std::string::npos);
}

const std::string kSeed =
    "#\t\t<< a reader of SEED >>\n"
    "B050F03     Station:     ABC\nB052F22     Start date:  2003,071,00:00:00.0000\n"
    "B052F23     End date:    No Ending Time\n"
    "B053F03     Transfer function type:                B [Analog (Hz)]\n"
    "B053F04     Stage sequence number:                 1\n"
    "B053F05     Response in units lookup:              M/S - Velocity\n"
    "B053F06     Response out units lookup:             V - Volts\n"
    "B053F07     A0 normalization factor:               0.5\n"
    "B053F08     Normalization frequency:               1\n"
    "B053F09     Number of zeroes:                      1\n"
    "B053F14     Number of poles:                       1\n"
    "B053F10-13    0  0.0  0.0  0.0  0.0\n"
    "B053F15-18    0 -2.0  0.5  0.0  0.0\n"
    "B058F03     Stage sequence number:                 1\n"
    "B058F04     Gain:                                  400\n"
    "B058F05     Frequency of gain:                     2.0 HZ\n"
    "B061F03     Stage sequence number:                 2\n"
    "B061F05     Symmetry code:                         B\n"
    "B061F06     Response in units lookup:              V - Volts\n"
    "B061F07     Response out units lookup:             COUNTS - Counts\n"
    "B061F08     Number of numerators:                  2\n"
    "B061F09    0  0.25\nB061F09    1  0.5\n"
    "B057F03     Stage sequence number:                 2\n"
    "B057F04     Input sample rate:                     100\n"
    "B057F05     Decimation factor:                     2\n"
    "B057F06     Decimation offset:                     0\n"
    "B057F07     Estimated delay (seconds):             0.01\n"
    "B057F08     Correction applied (seconds):          0.01\n"
    "B058F03     Stage sequence number:                 0\n"
    "B058F04     Gain:                                  77\n"
    "B058F05     Frequency of gain:                     1\n";

Complex seed_value(double f) {
  const Complex x(0.0, f);
  return 0.5 * 400.0 * x / (x - Complex(-2.0, 0.5)) *
         (0.5 + 0.5 * std::cos(2 * pi * f / 100));
}

TEST_F(ResponseFiles, SeedStages) {
  ASSERT_TRUE(read(kSeed)) << problem_;
  EXPECT_EQ(response_.input_unit(), "M/S");
  EXPECT_EQ(response_.output_unit(), "COUNTS");
  EXPECT_EQ(response_.sensitivity, 77);
  for (const double f : {0.1, 1.0, 20.0}) {
    expect_near(response_.evaluate(f), seed_value(f), 1e-12);
  }
  EXPECT_FALSE(read(kSeed, h2e(2003, 70, 0, 0, 0)));
}

/* The same response from the blockettes of a dictionary. */
TEST_F(ResponseFiles, SeedDictionary) {
  ASSERT_TRUE(
      read("B060F03  Number of Stages: 1\nB060F04  Stage sequence number: 1\n"
           "B043F05  Response type: A\nB043F06  In: M/S - v\nB043F07  Out: V\n"
           "B043F08  A0: 2\nB043F09  f: 1\nB043F10  zeroes: 1\nB043F15  poles: 0\n"
           "B043F11-14  0  -3 0 0 0\nB048F05  Gain: 10\nB048F06  f: 1 HZ\n"))
      << problem_;
  expect_near(response_.evaluate(1.0), 20.0 * Complex(3.0, 2 * pi), 1e-12);
}

/* Written files give the values back, also to a reader that knows no "#:" comments. */
TEST_F(ResponseFiles, RoundTrip) {
  ASSERT_TRUE(read(kSeed)) << problem_;
  Response all = response_;
  ResponseStage &digital = all.stages.emplace_back();
  digital.name = "two words";
  digital.filter = PoleZeroFilter{
      PoleZeroFilter::Domain::kDigital, 2.0, 0.0, {0.5}, {{0.2, 0.3}, {0.2, -0.3}}};
  digital.decimation = Decimation{50, 1, 0, 0, 0};
  ResponseStage &table = all.stages.emplace_back();
  table.filter = TableFilter{{{0.1, 3, 20, 0.5, 2}, {10, 4, 30, 0, 0}}};
  table.gain = 3;
  const std::string path = folder_ / "written";
  ASSERT_TRUE(write_response_file(path, all, problem_)) << problem_;
  Response back;
  ASSERT_TRUE(read_response_file(path, back, problem_)) << problem_;
  EXPECT_EQ(back.stages.size(), all.stages.size());
  EXPECT_EQ(back.input_unit(), "M/S");
  EXPECT_EQ(back.output_unit(), "COUNTS");
  EXPECT_EQ(back.sensitivity, 77);
  EXPECT_EQ(back.stages[0].gain, 400);
  EXPECT_EQ(back.stages[0].gain_frequency, 2);
  EXPECT_EQ(back.stages[1].decimation->factor, 2);
  EXPECT_EQ(back.stages[1].decimation->correction, 0.01);
  for (const double f : {0.05, 0.3, 2.0, 12.0}) {
    expect_near(back.evaluate(f), all.evaluate(f), 1e-12);
  }
  std::ifstream file(path);
  std::string line, plain;
  while (std::getline(file, line)) plain += line.starts_with("#") ? "" : line + "\n";
  ASSERT_TRUE(read(plain)) << problem_;
  for (const double f : {0.05, 0.3, 2.0, 12.0}) {
    EXPECT_NEAR(std::abs(response_.evaluate(f)), std::abs(all.evaluate(f)),
                1e-12 * std::abs(all.evaluate(f)));
  }
}

TEST_F(ResponseFiles, NothingIsWrittenOfAnImpossibleResponse) {
  const std::string path = write("old");
  EXPECT_FALSE(write_response_file(path, {}, problem_));
  Response bad;
  bad.stages.emplace_back().gain = std::nan("");
  EXPECT_FALSE(write_response_file(path, bad, problem_));
  bad.stages[0].gain = 1;
  bad.stages[0].filter = CoefficientFilter{{1, 2}, {}};
  EXPECT_FALSE(write_response_file(path, bad, problem_));
  std::string text;
  std::getline(std::ifstream(path), text);
  EXPECT_EQ(text, "old");
}

/* Each is refused at its line, without memory that only a count in the file asks for. */
TEST_F(ResponseFiles, FaultsAreNamedWithTheirLine) {
  const std::string head = "theoretical 1 instrument ";
  const struct {
    std::string text, problem;
  } cases[] = {
      {"", ":0: the file is not a response"},
      {"# only a comment\n", ":1: the file is not a response"},
      {std::string("\0\1\2\3\n", 5), ":1: the file is not a response"},
      {head + "paz me\n", ":1: the file ends before the normalisation a0"},
      {head + "paz me\n,\n", ":2: the file ends before the normalisation a0"},
      {head + "paz me\n1\n99999999\n-1 0\n", ":4: the file ends before a pole"},
      {head + "paz me\n1\n-4\n", ":3: the number of poles expected"},
      {head + "paz me\nnan\n", ":2: the normalisation a0 expected"},
      {head + "paz me\n1\n1\ninf 0\n", ":4: a pole expected"},
      {head + "fap me\n0\n", ":2: a table has no rows"},
      {head + "fap me\n2\n1 1 1\n1 2 3\n", ":4: frequencies do not ascend"},
      {head + "fir me\n0\n1\n1\n0\n", ":2: the sample rate is not positive"},
      {head + "fip me\n", ":1: paz, fap, fap2, fir or pazfir expected"},
      {"theoretical 1\n", ":1: a stage number, a name and a kind of response expected"},
      {"ZEROS 1\n1 1\n2 2\nCONSTANT 1\n", ":3: more zeros or poles than announced"},
      {"ZEROS 999999999\nCONSTANT 1\n", ":1: a number of zeros or poles expected"},
      {"ZEROS 1\n", ":1: ZEROS, POLES and CONSTANT make a response"},
      {"B053F09  Number of zeroes: 3\n",
       ":1: a stage number expected before this line"},
      {"B053F03  type: A\nB053F04  stage: 1\nB053F09  n: 2\nB053F10-13 0 1 1 0 0\n",
       ":4: stage 1 does not have as many zeros and poles as announced"},
      {"B054F03  type: D\nB054F04  stage: 1\nB054F07  n: 1\nB054F08-09 0 1 0\n",
       ":4: stage 1 is digital and has no sample rate"},
      {"B062F03  type: P\n",
       ":1: polynomial responses (blockette 62) are not understood"},
      {"B050F03  Station: X\n", ":1: the file ends before a response"},
  };
  for (const auto &each : cases) {
    EXPECT_FALSE(read(each.text)) << each.text;
    EXPECT_TRUE(problem_.starts_with(each.problem)) << problem_;
  }
  EXPECT_FALSE(read_response_file("/nowhere/file", response_, problem_));
  EXPECT_EQ(problem_, "/nowhere/file: No such file or directory");
  EXPECT_FALSE(read_response_file("/dev/zero", response_, problem_));
  EXPECT_EQ(problem_, "/dev/zero: is not a regular file");
}

/* The files of two stations in the tree. */
TEST(ResponseData, FilesOfStations) {
  for (const char *const name : {"CTA_BHZ.fap", "FITZ_BHZ.fap"}) {
    Response response;
    std::string problem;
    ASSERT_TRUE(read_response_file(
        std::string(KSUTIL_SOURCE_DIR "/data/response/") + name, response, problem))
        << problem;
    ASSERT_EQ(response.stages.size(), 1U);
    EXPECT_EQ(std::get<TableFilter>(response.stages[0].filter).rows.size(), 500U);
    /* Of displacement, scaled so that velocity has 1 at 1 Hz. */
    EXPECT_NEAR(std::abs(response.evaluate(1.0)), 2 * pi, 0.01);
  }
}

}  // namespace
