/* A picture that bridges a gap, loses a spike or shifts a cell shows what is not in the
 * data, and nobody will look behind it. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <map>
#include <numbers>
#include <random>

#include "platform/elog/elog.h"
#include "platform/stock/files.h"
#include "platform/stock/memory.h"
#include "tests/tools/scratch.h"
#include "tools/plot/coast/coast_lines.h"
#include "tools/plot/draw.h"
#include "tools/plot/phase.h"
#include "tools/plot/point_label.h"
#include "tools/plot/projection.h"
#include "tools/plot/text_fit.h"
#include "tools/plot/ticks.h"

namespace ksutil::plot {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using tools::read_text;
using tools::ScratchFolder;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

std::string taken_messages() {
  const MallocPtr<char> text(elog_string(0));
  elog_clear_register(0);
  return text == nullptr ? "" : text.get();
}

std::size_t occurrences(const std::string &text, const std::string &part) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at++)
    count++;
  return count;
}

/* Axes of 0 to 100 on 0 to 100, y upward. */
AxisView across() { return AxisView({}, {0.0, 100.0}, 0.0, 100.0); }
AxisView upward() { return AxisView({}, {0.0, 100.0}, 100.0, 0.0); }

std::vector<std::size_t> stroke_sizes(const Line &line) {
  std::vector<std::size_t> sizes;
  for (const auto &stroke : strokes(line, across(), upward())) {
    sizes.push_back(stroke.size());
  }
  return sizes;
}

TEST(Strokes, AreInterruptedByGaps) {
  Line samples{.y = {1, 2, kNaN, 3, 4, 5, 1e31F, kNaN, 6}, .start = 10.0, .step = 10.0};
  EXPECT_THAT(stroke_sizes(samples), ElementsAre(2, 3, 1));
  EXPECT_THAT(strokes(samples, across(), upward())[2],
              ElementsAre(testing::FieldsAre(90.0, 94.0)));
  /* Of other lines large values are values. */
  const Line large{.x = {0, 10, kNaN, 30}, .y = {1, 1e60, 2, 3}};
  EXPECT_THAT(stroke_sizes(large), ElementsAre(2, 1));
  const AxisView log({.scale = Scale::kLog}, {1.0, 100.0}, 0.0, 100.0);
  EXPECT_EQ(strokes({.x = {1, 2, 0, 3, 4}, .y = {1, 1, 1, 1, 1}}, log, upward()).size(),
            2U);
}

/* Every column of pixels must show the lowest and the highest of its samples. */
TEST(Strokes, KeepTheExtremesOfDenseSamples) {
  std::mt19937 random(5);
  std::normal_distribution<double> noise(50.0, 9.0);
  for (const std::size_t count : {350U, 1200U, 200000U}) {
    Line line{.start = 0.0, .step = 100.0 / static_cast<double>(count)};
    for (std::size_t i = 0; i < count; i++) line.y.push_back(noise(random));
    std::map<double, std::pair<double, double>> all, kept;
    const auto note = [](auto &columns, double x, double y) {
      const auto [at, fresh] = columns.try_emplace(std::floor(x), y, y);
      at->second.first = std::min(at->second.first, y);
      at->second.second = std::max(at->second.second, y);
    };
    for (std::size_t i = 0; i < count; i++) {
      note(all, across().at(static_cast<double>(i) * line.step),
           upward().at(line.y[i]));
    }
    const auto drawn = strokes(line, across(), upward());
    ASSERT_EQ(drawn.size(), 1U);
    double before = -1.0;
    for (const Position &at : drawn[0]) {
      note(kept, at.x, at.y);
      EXPECT_GE(at.x, before);
      before = at.x;
    }
    EXPECT_EQ(all, kept);
    EXPECT_LE(drawn[0].size(), 400U);
  }
}

TEST(MeshRaster, PutsCellsAroundTheirCoordinates) {
  const Mesh mesh{.x = {10, 30, 80},
                  .y = {0, 100},
                  .values = {1, 2, kNaN, 4, 1e31, 6},
                  .nx = 3,
                  .ny = 2};
  const Raster raster = mesh_raster(mesh, {0, 0, 100, 100}, across(), upward());
  ASSERT_EQ(std::pair(raster.width, raster.height), std::pair(200, 200));
  const auto at = [&](double x, double y) {
    const auto row = static_cast<std::size_t>(2.0 * (100.0 - y));
    return raster.pixels[row * 200 + static_cast<std::size_t>(2.0 * x)];
  };
  /* Cells end at 0, 20, 55 and 105; rows at -50, 50 and 150. */
  EXPECT_EQ(at(0.6, 49.0), at(19.0, 1.0));
  EXPECT_NE(at(19.0, 1.0), at(21.0, 1.0));
  EXPECT_EQ(at(21.0, 1.0), at(54.0, 49.0));
  EXPECT_EQ(at(56.0, 10.0), 0U);
  EXPECT_EQ(at(30.0, 60.0), 0U);
  EXPECT_EQ(at(1.0, 1.0), 0xFF440154U);
  EXPECT_EQ(at(99.0, 99.0), 0xFFFDE725U);
  EXPECT_NE(at(1.0, 51.0), at(1.0, 49.0));
}

TEST(Axes, FindRangesThatAreNeverEmpty) {
  Panel panel;
  EXPECT_EQ(y_range(panel).high, 1.0);
  panel.lines.push_back({.x = {5, 5}, .y = {1e20, 1e20}});
  EXPECT_LT(x_range(panel).low, 5.0);
  EXPECT_GT(y_range(panel).high, y_range(panel).low);
  panel.y.low = 2e20;
  EXPECT_EQ(y_range(panel).low, 2e20);
  EXPECT_GT(y_range(panel).high, 2e20);
  panel.y = {.scale = Scale::kLog, .low = -1.0};
  panel.lines[0].y = {-5.0, 0.0};
  EXPECT_GT(y_range(panel).low, 0.0);
  panel.lines[0].y = {1e-299, 1e299};
  EXPECT_LT(y_range(panel).high, 1e301);
}

TEST(ColourScales, HaveTwoEndsForOneValue) {
  Figure figure;
  figure.panels.emplace_back().meshes.push_back(
      {.x = {0}, .y = {0}, .values = {-3e20}, .nx = 1, .ny = 1});
  const Range range = colour_range(figure.panels[0].meshes[0]);
  EXPECT_GT(range.high, range.low);
  EXPECT_THAT(svg_text(figure), Not(HasSubstr("nan")));
}

TEST(Maps, KeepTheAspectAndThePointsTogether) {
  Panel panel;
  panel.map.emplace();
  panel.points.emplace_back();
  for (const double lon : {170.0, 175.0, -179.0, -170.0}) {
    panel.points[0].points.push_back({lon, lon > 0.0 ? 55.0 : 65.0, {}});
  }
  arrange_map(panel, 700.0);
  EXPECT_LT(panel.x.high - panel.x.low, 60.0);
  for (const Point &point : panel.points[0].points) {
    EXPECT_TRUE(point.x > panel.x.low && point.x < panel.x.high);
  }
  const double across_degree = 700.0 / (panel.x.high - panel.x.low);
  const double up_degree = panel.height / (panel.y.high - panel.y.low);
  EXPECT_NEAR(across_degree / up_degree, 0.5, 0.02);  // cos 60
}

/* Ten percent of 142 degrees is not what lies around a place. */
TEST(Maps, ShowTheSurroundingsOfOnePlace) {
  for (const Projection projection :
       {Projection::kPlateCarree, Projection::kMercator}) {
    Panel panel;
    panel.map.emplace().projection = projection;
    panel.points.push_back({.points = {{142.0, 37.0}}});
    arrange_map(panel, 700.0);
    const bool km = projection == Projection::kMercator;
    EXPECT_LT(panel.x.high - panel.x.low, km ? 400.0 : 4.0);
    EXPECT_GT(panel.x.high - panel.x.low, km ? 100.0 : 1.0);
  }
}

TEST(Maps, PutThePoleInTheMiddleOfWhatLiesAroundIt) {
  Panel panel;
  panel.map.emplace().projection = Projection::kEqualArea;
  for (const double lon : {-150.0, -60.0, 30.0, 120.0}) {
    panel.points.push_back({.points = {{lon, 70.0}, {lon, 85.0}}});
  }
  const MapLayout map = arrange_map(panel, 700.0);
  EXPECT_THAT(map.note, HasSubstr("centre 90°N"));
  EXPECT_FALSE(map.grid.empty());
  for (const Points &points : panel.points) {
    for (const Point &point : points.points) {
      const double half =
          (&point == points.points.data() ? 10.0 : 2.5) * std::numbers::pi / 180.0;
      EXPECT_NEAR(std::hypot(point.x, point.y), 2.0 * 6371.0 * std::sin(half), 0.1);
    }
  }
}

TEST(Texts, FitTheirPicture) {
  const std::string text = "of all events of the western ocean since the beginning";
  for (const double width : {60.0, 150.0, 1000.0}) {
    for (const std::string &line : wrapped(text, 12.0, width, 3)) {
      EXPECT_LE(text_width(line, 12.0), width);
    }
  }
  EXPECT_THAT(wrapped(text, 12.0, 1000.0, 3), ElementsAre(text));
  EXPECT_THAT(wrapped("one two", 12.0, text_width("one tw", 12.0), 3),
              ElementsAre("one", "two"));
  EXPECT_THAT(wrapped("unbreakable", 12.0, 30.0, 3),
              ElementsAre(testing::EndsWith("…")));
  EXPECT_TRUE(wrapped("", 12.0, 30.0, 3).empty());
  EXPECT_EQ(shortened("ÄÄÄÄÄÄ", 12.0, text_width("ÄÄ…", 12.0)), "ÄÄ…");
}

/* Nothing that a narrow picture says leaves it. */
TEST(Layouts, KeepAllTextsOfNarrowPicturesInside) {
  Figure figure;
  figure.width = 300.0;
  figure.title = "A title that is much longer than a picture of this width can show";
  figure.subtitle = figure.title + " " + figure.title;
  Panel &panel = figure.panels.emplace_back();
  panel.x.label = "a rather long label of a rather narrow axis, in units";
  panel.lines.push_back({.x = {0.0, 1000000.0}, .y = {0.0, 1.0}, .name = figure.title});
  const Layout layout = lay_out(figure);
  EXPECT_EQ(layout.title.size(), 2U);
  EXPECT_GT(layout.subtitle.size(), 2U);
  for (const std::string &line : layout.subtitle) {
    EXPECT_LT(layout.title_x + text_width(line, kSubtitleSize), 300.0);
  }
  const LegendItem &item = layout.panels[0].legend.at(0);
  EXPECT_LT(item.at.x + text_width(item.text, kTickSize), 300.0);
  const std::string svg = svg_text(figure);
  EXPECT_THAT(svg, Not(HasSubstr(figure.title + "</text>")));
}

/* Large symbols of a key lie beside each other, and the scale of a flat map has few ticks. */
TEST(Layouts, GiveKeysTheRoomTheyNeed) {
  Figure figure;
  Panel &panel = figure.panels.emplace_back();
  panel.height = 60.0;
  panel.colour_keys.push_back({.label = "time",
                               .low = 1.4e9,
                               .high = 1.41e9,
                               .map = sequential_map(),
                               .time = true});
  StyleKey &key = panel.style_keys.emplace_back();
  for (const double size : {30.0, 40.0, 50.0}) {
    PointStyle style;
    style.size = size;
    key.entries.push_back({style, "x"});
  }
  const Layout layout = lay_out(figure);
  const PanelLayout &part = layout.panels[0];
  const Bar &bar = part.bars.at(0);
  EXPECT_LE(static_cast<double>(bar.ticks.ticks.size()), bar.rect.height / 20.0);
  EXPECT_LT(part.keys_y + kRowHeight + 30.0 + 40.0 + 50.0, layout.height);
  const std::string svg = svg_text(figure);
  double end = 0.0;
  for (std::size_t at = 0; (at = svg.find("cy=\"", at)) != std::string::npos; at++) {
    const double middle = std::stod(svg.substr(at + 4));
    const double radius = std::stod(svg.substr(svg.find("r=\"", at) + 3));
    EXPECT_GT(middle - radius, end);
    end = middle + radius;
  }
  EXPECT_GT(end, 0.0);
}

TEST(Ticks, OfNumbersOfThingsAreWhole) {
  for (const Scale scale : {Scale::kLinear, Scale::kLog}) {
    for (const double high : {1.05, 2.2, 7.0, 1000.0}) {
      const Axis axis{.scale = scale, .whole = true};
      const Ticks ticks = axis_ticks(axis, 0.3, high, 8);
      EXPECT_FALSE(ticks.ticks.empty()) << high;
      for (const Tick &tick : ticks.ticks) {
        EXPECT_EQ(tick.value, std::round(tick.value));
      }
    }
  }
}

/* A phase that passes 180 degrees leaves at the edge: no streak across, and no hole. */
TEST(Phases, BeginAgainAtTheOtherEdge) {
  Line line;
  append_phase(line, 1.0, 170.0);
  append_phase(line, 100.0, 190.0);
  append_phase(line, 1000.0, 360.0);
  append_phase(line, 2000.0, kNaN);
  EXPECT_THAT(line.y, ElementsAre(170.0, 180.0, testing::IsNan(), -180.0, -170.0, 0.0,
                                  testing::IsNan()));
  EXPECT_NEAR(line.x[1], 10.0, 1e-9);
  EXPECT_EQ(phase_axis().names.size(), 5U);
}

/* A document of a hundred thousand symbols would be too large to open. */
TEST(Points, AreOneImageInADocumentWhereTheyAreMany) {
  ScratchFolder folder;
  Figure figure;
  figure.panels.emplace_back().points.emplace_back();
  std::mt19937 random(9);
  std::uniform_real_distribution<double> place(0.0, 1.0);
  PointStyle style;
  style.fill = Colour{1.0, 0.0, 0.0, 1.0};
  for (int i = 0; i < 100000; i++) {
    figure.panels[0].points[0].points.push_back({place(random), place(random), style});
  }
  const std::string svg = svg_text(figure);
  EXPECT_EQ(occurrences(svg, "<circle"), 0U);
  EXPECT_EQ(occurrences(svg, "<image"), 1U);
  EXPECT_LT(svg.size(), 4000000U);
  const Rect rect{10.0, 20.0, 30.0, 15.0};
  const Raster raster = raster_of(rect, 2.0, [](Canvas &canvas) {
    canvas.rectangle({10.0, 20.0, 15.0, 15.0}, {{}, Colour{0.0, 0.0, 1.0, 1.0}});
  });
  ASSERT_EQ(raster.pixels.size(), 60U * 30U);
  EXPECT_EQ(raster.pixels[0], 0xFF0000FFU);
  EXPECT_EQ(raster.pixels[59], 0U);
}

TEST(Maps, TurnPointsToTheMesh) {
  Panel panel;
  panel.map.emplace();
  panel.meshes.push_back(
      {.x = {170, 190}, .y = {-10, 10}, .values = {1, 2, 3, 4}, .nx = 2, .ny = 2});
  panel.points.push_back({.points = {{-175.0, 5.0}, {175.0, -5.0}}});
  arrange_map(panel, 700.0);
  EXPECT_EQ(panel.points[0].points[0].x, 185.0);
  EXPECT_EQ(panel.points[0].points[1].x, 175.0);
  EXPECT_LT(panel.x.high - panel.x.low, 80.0);
}

TEST(Maps, ProjectAsTheirFormulaeSay) {
  /* Numerical examples of Snyder (1987) for spheres of radius 1 and 3. */
  constexpr double kEarth = 6371.0;
  const auto mercator = PlaneMap(PlaneMap::Kind::kMercator, -180, 0).at(-75, 35);
  EXPECT_NEAR(mercator->x / kEarth, 1.8325957, 1e-6);
  EXPECT_NEAR(mercator->y / kEarth, 0.6528366, 1e-6);
  const auto equal = PlaneMap(PlaneMap::Kind::kLambertEqualArea, -100, 40).at(100, -20);
  EXPECT_NEAR(equal->x / kEarth * 3.0, -4.2339303, 1e-6);
  EXPECT_NEAR(equal->y / kEarth * 3.0, 4.0257775, 1e-6);
  const auto distant =
      PlaneMap(PlaneMap::Kind::kAzimuthalEquidistant, -100, 40).at(100, -20);
  EXPECT_NEAR(distant->x / kEarth * 3.0, -5.8311398, 1e-6);
  EXPECT_NEAR(distant->y / kEarth * 3.0, 5.5444634, 1e-6);
  const auto world = PlaneMap(PlaneMap::Kind::kMollweide, -90, 0).at(-75, -50);
  EXPECT_NEAR(world->x / kEarth, 0.1788845, 1e-6);
  EXPECT_NEAR(world->y / kEarth, -0.9208758, 1e-6);
  EXPECT_FALSE(PlaneMap(PlaneMap::Kind::kMercator, 0, 0).at(0, 89.9));
  EXPECT_FALSE(PlaneMap(PlaneMap::Kind::kLambertEqualArea, 0, 0).at(180, 0));
}

TEST(Maps, ShowTheirDataInEveryProjection) {
  for (const Projection projection :
       {Projection::kMercator, Projection::kEqualArea, Projection::kAzimuthal}) {
    for (const double span : {0.01, 3.0, 60.0, 300.0}) {
      Panel panel;
      panel.map = Map{.projection = projection};
      panel.points.emplace_back();
      panel.disks.emplace_back(Disk{.x = 178.0, .y = -12.0});
      for (const double part : {-0.5, 0.1, 0.5}) {
        panel.points[0].points.push_back(
            {178.0 + part * span, -12.0 + part * span / 6, {}});
      }
      const MapLayout map = arrange_map(panel, 700.0);
      for (const Point &point : panel.points[0].points) {
        EXPECT_TRUE(point.x >= panel.x.low && point.x <= panel.x.high) << span;
        EXPECT_TRUE(point.y >= panel.y.low && point.y <= panel.y.high) << span;
      }
      EXPECT_TRUE(panel.disks[0].x > panel.x.low && panel.disks[0].x < panel.x.high);
      EXPECT_FALSE(map.note.empty());
      EXPECT_FALSE(map.grid.empty());
      for (const MapLayout::Outline &outline : map.coast) {
        for (std::size_t i = 1; i < outline.points.size(); i++) {
          const double step = std::hypot(outline.points[i].x - outline.points[i - 1].x,
                                         outline.points[i].y - outline.points[i - 1].y);
          EXPECT_LT(step, 0.3 * (panel.x.high - panel.x.low) + 3000) << span;
        }
      }
    }
  }
}

TEST(CoastLines, AreWholeAndOnEarth) {
  for (const bool fine : {false, true}) {
    std::size_t points = 0, borders = 0;
    for (const GeoLine &line : coast_lines(fine)) {
      ASSERT_GE(line.points.size(), 2U);
      points += line.points.size();
      borders += line.border ? 1 : 0;
      for (std::size_t i = 0; i < line.points.size(); i++) {
        const GeoPoint &at = line.points[i];
        EXPECT_TRUE(std::fabs(at.lon) <= 180.005F && std::fabs(at.lat) <= 90.0F);
        const float before = line.points[i > 0 ? i - 1 : 0].lon;
        EXPECT_LT(std::fabs(at.lon - before), 100.0F);
      }
    }
    EXPECT_GT(points, fine ? 40000U : 4000U);
    EXPECT_GT(borders, 100U);
  }
}

TEST(PointLabels, TellLooks) {
  PointStyle style;
  ASSERT_TRUE(
      parse_point_label("{ o=#ffff00000000 f=#0000ffff0000 sz=3 sy=star }", style));
  EXPECT_EQ(style.colour, (Colour{1.0, 0.0, 0.0, 1.0}));
  EXPECT_EQ(style.fill, (Colour{0.0, 1.0, 0.0, 1.0}));
  EXPECT_EQ(style.size, label_size(3));
  EXPECT_EQ(style.symbol, Symbol::kStar);
  for (const char *bad : {"", "ANMO", "{ sz=x }", "{ o=red }", "{ sy=hexagon }",
                          "{ sz }", "{ o=#12345 }", "{"}) {
    EXPECT_FALSE(parse_point_label(bad, style)) << bad;
  }
  EXPECT_EQ(style.symbol, Symbol::kStar);
  EXPECT_TRUE(parse_point_label("{ sz=999999999 new=1 }", style));
  EXPECT_EQ(style.size, label_size(100));
}

/* Two panels with all that a figure can hold. */
Figure full_figure() {
  Figure figure;
  figure.title = "P < S & \"Q\"";
  figure.shared_x = true;
  for (int i = 0; i < 2; i++) {
    Panel &panel = figure.panels.emplace_back();
    panel.title = "panel " + std::to_string(i);
    panel.x.scale = Scale::kTime;
    panel.y.label = std::string("counts\x01\xff");
    panel.lines.push_back({.y = {1, 2, 4, kNaN, 5, 6},
                           .start = 1439366400.0,
                           .step = 60.0,
                           .name = "trace"});
    panel.markers.push_back({.x = 1439366460.0, .label = "PKP"});
    panel.markers.push_back({.x = 0.0, .label = "outside"});
  }
  Points points;
  for (int i = 0; i < kSymbolCount; i++) {
    points.points.push_back(
        {1439366400.0 + 30 * i, 3.0, {static_cast<Symbol>(i), 8.0, {}, {}}});
  }
  figure.panels[1].points.push_back(points);
  figure.panels[1].colour_keys.push_back({"depth", 0.0, 700.0, sequential_map()});
  return figure;
}

TEST(Svg, HoldsItsTextsAndShapes) {
  const std::string svg = svg_text(full_figure());
  EXPECT_THAT(svg, HasSubstr(">P &lt; S &amp; &quot;Q&quot;</text>"));
  EXPECT_THAT(svg, HasSubstr(">counts?"
                             "?</text>"));
  EXPECT_EQ(occurrences(svg, ">trace</text>"), 2U);
  EXPECT_EQ(occurrences(svg, ">PKP</text>"), 2U);
  EXPECT_THAT(svg, Not(HasSubstr("outside")));
  EXPECT_EQ(occurrences(svg, ">2015-08-12</text>"), 1U);  // under the last panel alone
  EXPECT_THAT(svg, HasSubstr(">600</text>"));
  EXPECT_EQ(occurrences(svg, "<circle"), 2U);  // point and circle
  EXPECT_EQ(occurrences(svg, "<g"), occurrences(svg, "</g>"));
  EXPECT_EQ(occurrences(svg, "nan") + occurrences(svg, "inf"), 0U);
}

TEST(Svg, StaysSmallForLongSeismograms) {
  Figure figure;
  Line line;
  for (int i = 0; i < 300000; i++) line.y.push_back(std::sin(i * 0.7) * i);
  figure.panels.emplace_back().lines.push_back(line);
  EXPECT_LT(svg_text(figure).size(), 60000U);
}

/* The 4 bytes of a PNG's header at `at`, most significant first. */
unsigned png_number(const std::string &png, std::size_t at) {
  unsigned number = 0;
  for (std::size_t i = at; i < at + 4; i++) {
    number = number << 8 | static_cast<unsigned char>(png.at(i));
  }
  return number;
}

TEST(Png, HasTwicePixelsOfTheSvg) {
  const ScratchFolder folder;
  Figure figure = full_figure();
  Mesh mesh{.x = {0, 1}, .y = {0, 1}, .values = {1, 2, 3, kNaN}, .nx = 2, .ny = 2};
  figure.panels.emplace_back().meshes.push_back(mesh);
  ASSERT_EQ(write_figure(figure, folder / "a.PNG"), 0) << taken_messages();
  ASSERT_EQ(write_figure(figure, folder / "a.svg"), 0) << taken_messages();
  const std::string png = read_text(folder / "a.PNG"),
                    svg = read_text(folder / "a.svg");
  EXPECT_EQ(png.substr(0, 8), "\x89PNG\r\n\x1a\n");
  EXPECT_THAT(svg, HasSubstr("width=\"" + std::to_string(png_number(png, 16) / 2) +
                             "\" height=\"" + std::to_string(png_number(png, 20) / 2)));
  EXPECT_THAT(svg, HasSubstr("data:image/png;base64,iVBORw0KGgo"));
}

TEST(Png, OfManyPanelsHasFewerPixels) {
  const ScratchFolder folder;
  Figure figure;
  figure.width = 200.0;
  figure.panels.resize(190);
  ASSERT_EQ(write_figure(figure, folder / "long.png"), 0) << taken_messages();
  EXPECT_LE(png_number(read_text(folder / "long.png"), 20), 32767U);
}

TEST(WriteFigure, TellsWhatItCannotDraw) {
  const ScratchFolder folder;
  Figure figure;
  EXPECT_EQ(write_figure(figure, folder / "a.svg"), -1);
  EXPECT_THAT(taken_messages(), HasSubstr("nothing to draw"));
  figure.panels.emplace_back().meshes.push_back({.x = {1}, .y = {1}, .nx = 5, .ny = 1});
  EXPECT_EQ(write_figure(figure, folder / "a.svg"), -1);
  EXPECT_THAT(taken_messages(), HasSubstr("do not fit"));
  figure.panels[0].meshes.clear();
  EXPECT_EQ(write_figure(figure, folder / "a.jpg"), -1);
  EXPECT_THAT(taken_messages(), HasSubstr("a.jpg"));
  EXPECT_EQ(write_figure(figure, folder / "none/a.svg"), -1);
  EXPECT_THAT(taken_messages(), HasSubstr("No such file"));
  figure.width = kNaN;
  EXPECT_EQ(write_figure(figure, folder / "a.svg"), -1);
}

TEST(WriteFigure, LeavesNoHalfOfAPicture) {
  const ScratchFolder folder;
  FileCalls calls = system_file_calls();
  calls.write = [](int, const void *, std::size_t) -> ssize_t {
    errno = ENOSPC;
    return -1;
  };
  const ScopedFileCalls full_disk(calls);
  EXPECT_EQ(write_figure(full_figure(), folder / "a.svg"), -1);
  EXPECT_THAT(taken_messages(), HasSubstr("No space left"));
  EXPECT_NE(access((folder / "a.svg").c_str(), F_OK), 0);
}

}  // namespace
}  // namespace ksutil::plot
