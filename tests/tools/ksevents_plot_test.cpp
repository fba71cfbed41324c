/* Figures of catalogues with wrong numbers in them: b-values, completeness, sections that
 * stretch depth, events that are lost on the way to the picture. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "tests/tools/paths.h"
#include "tests/tools/scratch.h"
#include "tools/ksevents/plot/catalogue_figures.h"
#include "tools/ksevents/plot/magnitude_statistics.h"

namespace ksutil::tools {
namespace {

using testing::HasSubstr;

/* Magnitudes of an exponential law with this b, rounded to bins of 0.1. */
std::vector<double> random_magnitudes(double b, double mc, std::size_t count) {
  std::mt19937 random(1965);
  std::exponential_distribution<double> above(b * std::log(10.0));
  std::vector<double> magnitudes(count);
  for (double &m : magnitudes) {
    m = std::round(10.0 * (mc - 0.05 + above(random))) / 10.0;
  }
  return magnitudes;
}

}  // namespace

TEST(MagnitudeStatistics, FindTheLawBehindACatalogue) {
  for (const double b : {0.7, 1.0, 1.4}) {
    std::vector<double> magnitudes = random_magnitudes(b, 3.0, 20000);
    const auto fit = fit_frequencies(magnitudes, 3.0, 0.1);
    ASSERT_TRUE(fit);
    EXPECT_NEAR(fit->b, b, 4 * fit->error + 0.02 * b);  // bins alone cost 2 %
    EXPECT_NEAR(fit->error, b / std::sqrt(20000.0), 0.1 * fit->error);
    EXPECT_NEAR(fit->a - fit->b * 3.0, std::log10(20000.0), 1e-9);
    /* What is below completeness does not count. */
    const auto higher = fit_frequencies(magnitudes, 4.0, 0.1);
    EXPECT_NEAR(higher->b, b, 5 * higher->error + 0.02 * b);
    for (int i = 0; i < 3000; i++) magnitudes.push_back(2.0 + 0.1 * (i % 10));
    magnitudes.push_back(std::nan(""));
    EXPECT_EQ(fit_frequencies(magnitudes, 3.0, 0.1)->events, 20000);
    EXPECT_NEAR(*completeness(count_magnitudes(magnitudes, 0.1)), 3.2, 1e-9);
  }
  EXPECT_FALSE(fit_frequencies({5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5}, 5.0, 0.1));
  EXPECT_FALSE(fit_frequencies({5, 6}, 5.0, 0.1));
  EXPECT_FALSE(completeness(count_magnitudes({}, 0.1)));
  const MagnitudeCounts counts = count_magnitudes({1.0, 1.1, 1.1, 3.0, 1e30}, 0.1);
  EXPECT_EQ(counts.counts.size(), 21U);
  EXPECT_EQ(counts.at_least(1), 3);
}

TEST(CatalogueFigures, SectionsKeepDistanceDepthAndPlace) {
  /* Ten degrees of a meridian, and an event far off the plane. */
  std::vector<CatalogueEvent> events;
  for (int i = 0; i <= 10; i++)
    events.push_back({i, i, 0.0, 10.0 + i, 179.9, 50.0 * i, 5.0});
  events.push_back({11, 11, 0.0, 15.0, -170.0, 10.0, 5.0});
  plot::Figure figure;
  add_section(events, {.azimuth = 0.0, .lon = 179.9, .lat = 15.0, .half_width = 100.0},
              figure);
  const plot::Panel &panel = figure.panels.at(0);
  ASSERT_EQ(panel.points.at(0).points.size(), 11U);
  double low = 1e9, high = -1e9;
  for (const plot::Point &point : panel.points[0].points) {
    low = std::min(low, point.x);
    high = std::max(high, point.x);
    EXPECT_NEAR(point.y, 250.0 + point.x / 111.19 * 50.0, 1.0);
  }
  EXPECT_NEAR(high - low, 1111.9, 1.0);
  EXPECT_EQ(panel.aspect, 1.0);
  EXPECT_TRUE(panel.y.reverse);
}

TEST(CatalogueFigures, HistogramsCountEveryEvent) {
  std::vector<CatalogueEvent> events;
  for (int i = 0; i < 240; i++) {
    events.push_back({i, i, -86400.0 + 360.0 * i + 1.0, 0, 0, 3.0 * i, 4.0});
  }
  const auto counted = [](const plot::Figure &figure) {
    const plot::Line &line = figure.panels.at(0).lines.at(0);
    double sum = 0;
    for (std::size_t i = 1; i + 2 < line.y.size() + 1; i += 3) sum += line.y[i];
    return sum;
  };
  plot::Figure hours, depths, residuals;
  add_hours(events, hours);
  EXPECT_EQ(counted(hours), 240);
  EXPECT_EQ(hours.panels[0].lines[0].y[1], 10);
  add_depths(events, depths);
  EXPECT_EQ(counted(depths), 240);
  add_residuals({-1.0, -0.5, 0.0, 0.0, 0.1, 0.5, 1.0, 400.0}, residuals);
  EXPECT_EQ(counted(residuals), 7);
  EXPECT_THAT(residuals.subtitle, HasSubstr("1 beyond the axis"));
}

TEST(KseventsPlot, DrawsEveryKindAndThePageOfAnEvent) {
  const ScratchFolder folder;
  const std::string plot =
      std::string(KSEVENTS_PROGRAM) + " plot -o " + (folder / "p.svg");
  const struct {
    const char *arguments, *shown;
  } cases[] = {
      {" --kind map --projection equal-area", "Mollweide"},
      {" --kind section --azimuth 45 --exaggeration 1", "vertical exaggeration 1<"},
      {" --kind section --azimuth 45", "vertical exaggeration 20<"},
      {" --kind frequency-magnitude", "(Aki 1965; Shi &amp; Bolt 1982)"},
      {" --kind frequency-magnitude --mc 5.0", "Mc 5.0 given"},
      {" --kind cumulative --where 'magnitude >= 5'", "magnitude &gt;= 5; 101 events"},
      {" --kind magnitude-time", "with a magnitude"},
      {" --kind hours", "hour of the day (UTC)"},
      {" --kind depths", "with a depth"},
      {" --kind residuals", ">no residuals<"},
  };
  for (const auto &[arguments, shown] : cases) {
    const ProgramRun run = run_program(plot + arguments + " " + kData + "/aug2015");
    EXPECT_EQ(run.code, 0) << arguments << run.errors;
    EXPECT_THAT(read_text(folder / "p.svg"), HasSubstr(shown)) << arguments;
  }
  const std::string ueb = " " + kData + "/ueb/ueb_test";
  EXPECT_EQ(run_program(plot + ueb + " 48836019").code, 0);
  const std::string page = read_text(folder / "p.svg");
  for (const char *shown : {"Event 48836019", "Residuals", "first P, iasp91", "Pg"}) {
    EXPECT_THAT(page, HasSubstr(shown));
  }
  ASSERT_EQ(run_program(plot + ueb + " 6353366").code, 0);
  EXPECT_THAT(read_text(folder / "p.svg"), HasSubstr("Magnitudes"));
  EXPECT_EQ(run_program(plot + ueb + " 1").code, 1);
  /* Magnitudes without those of stations, beside each other. */
  const auto magnitude = [](const std::string &value, const std::string &type) {
    return "<magnitude publicID=\"" + type + "\"><mag><value>" + value +
           "</value></mag><type>" + type + "</type><originID>o</originID></magnitude>";
  };
  const std::string quakeml = folder.write(
      "q.xml",
      "<eventParameters><event publicID=\"e\"><origin publicID=\"o\"><time><value>"
      "2016-11-13T11:02:56Z</value></time><latitude><value>-42</value></latitude>"
      "<longitude><value>173</value></longitude></origin>" +
          magnitude("5.1", "mb") + magnitude("5.4", "Mw") +
          "</event></eventParameters>");
  ASSERT_EQ(run_program(std::string(KSDB_PROGRAM) + " import -q --create css3.0 " +
                        quakeml + " " + (folder / "two"))
                .code,
            0);
  ASSERT_EQ(run_program(plot + " " + (folder / "two") + " 1").code, 0);
  EXPECT_THAT(read_text(folder / "p.svg"),
              testing::AllOf(HasSubstr("Magnitudes"), HasSubstr(">type<"),
                             HasSubstr(">mb<"), HasSubstr(">Mw<")));
  /* A parallel that leaves the left side of the map twice is named once. */
  ASSERT_EQ(run_program(plot +
                        " --projection azimuthal --centre 10,80 --extent "
                        "-150,150,-30,90 " +
                        kData + "/aug2015")
                .code,
            0);
  const std::string world = read_text(folder / "p.svg");
  const std::string parallel = ">60\xc2\xb0S<";
  const std::size_t first = world.find(parallel);
  ASSERT_NE(first, world.npos);
  EXPECT_EQ(world.find(parallel, first + 1), world.npos);
  EXPECT_EQ(run_program(plot + " --where 'evid < 0'" + ueb).code, 1);
  EXPECT_EQ(run_program(plot + " --extent 1,2,3" + ueb).code, 2);
  EXPECT_EQ(run_program(plot + " --kind section --through 1" + ueb).code, 2);
}

}  // namespace ksutil::tools
