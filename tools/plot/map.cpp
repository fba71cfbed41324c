#include <algorithm>
#include <cmath>
#include <functional>

#include "platform/geo/angle.h"
#include "platform/stock/text.h"
#include "tools/plot/coast/coast_lines.h"
#include "tools/plot/layout.h"
#include "tools/plot/projection.h"

namespace ksutil::plot {
namespace {

constexpr double kLowest = 200.0, kHighest = 620.0;  // heights of a map
constexpr double kKmPerDegree = 6371.0 * kRadiansPerDegree;
constexpr double kMargin = 1.05;    // symbols at the edge are not cut
constexpr double kPolar = 25.0;     // degrees: extents around a pole end before
constexpr double kFineSpan = 90.0;  // degrees: wider maps have the coarse coast

/* Calls visit(lon, lat) with each place of the panel's points and disks, to be changed. */
template <class Visit>
void each_place(Panel &panel, const Visit &visit) {
  for (Points &points : panel.points) {
    for (Point &point : points.points) visit(point.x, point.y);
  }
  for (Disk &disk : panel.disks) visit(disk.x, disk.y);
}

/* Where to cut the round of longitudes: opposite to the middle of what cannot be turned,
 * else in the middle of the widest stretch without points. */
double cut_of(Panel &panel, bool only_points) {
  if (!only_points) {
    Panel fixed = panel;
    fixed.points.clear();
    fixed.disks.clear();
    const Range range = x_range(fixed);
    return 0.5 * (range.low + range.high) - 180.0;
  }
  std::vector<double> longitudes;
  each_place(panel, [&](double lon, double lat) {
    if (is_missing(lon) || is_missing(lat)) return;
    longitudes.push_back(lon - 360.0 * std::floor(lon / 360.0));
  });
  if (longitudes.empty()) return -180.0;
  std::sort(longitudes.begin(), longitudes.end());
  double gap = longitudes.front() + 360.0 - longitudes.back();
  double middle = longitudes.back() + 0.5 * gap;
  for (std::size_t i = 1; i < longitudes.size(); i++) {
    if (longitudes[i] - longitudes[i - 1] <= gap) continue;
    gap = longitudes[i] - longitudes[i - 1];
    middle = longitudes[i - 1] + 0.5 * gap;
  }
  return middle;
}

void widen(Range &range, double span) {
  const double middle = 0.5 * (range.low + range.high);
  range = {middle - 0.5 * span, middle + 0.5 * span};
}

void keep_on_earth(Range &latitudes) {
  latitudes = {std::max(latitudes.low, -90.0), std::min(latitudes.high, 90.0)};
  if (latitudes.high <= latitudes.low) latitudes = {-90.0, 90.0};
}

/* A round number of km, at most this. */
double round_length(double most) {
  const double decade = std::pow(10.0, std::floor(std::log10(most)));
  for (const double step : {5.0, 2.0}) {
    if (step * decade <= most) return step * decade;
  }
  return decade;
}

/* One place, or a few beside each other, are shown with what lies around them. */
void keep_surroundings(Panel &panel, Range &x, Range &y) {
  constexpr double kLeast = 1.5;  // degrees of latitude
  Range lon{1e30, -1e30}, lat = lon;
  each_place(panel, [&](double px, double py) {
    if (is_missing(px) || is_missing(py)) return;
    lon = {std::min(lon.low, px), std::max(lon.high, px)};
    lat = {std::min(lat.low, py), std::max(lat.high, py)};
  });
  if (lon.low > lon.high || lon.high - lon.low >= kLeast ||
      lat.high - lat.low >= kLeast) {
    return;
  }
  const double across = std::max(std::cos(radians(0.5 * (lat.low + lat.high))), 0.2);
  x = lon;
  y = lat;
  widen(x, std::max(lon.high - lon.low, kLeast) * 1.3 / across);
  widen(y, kLeast);
}

/* The extent in degrees: what the map says, else that of the data. */
struct MapExtent {
  Range x, y;
};

MapExtent extent_of(Panel &panel, bool only_points) {
  const Map &map = *panel.map;
  const bool given = !is_missing(map.west) && !is_missing(map.east);
  if (given || (is_missing(panel.x.low) && is_missing(panel.x.high))) {
    const double cut = given ? 0.5 * (map.west + map.east) - 180.0 +
                                   (map.east < map.west ? 180.0 : 0.0)
                             : cut_of(panel, only_points);
    each_place(panel, [cut](double &lon, double) {
      lon -= 360.0 * std::floor((lon - cut) / 360.0);
    });
  }
  Range x = x_range(panel), y = y_range(panel);
  if (only_points) {
    widen(x, kMargin * (x.high - x.low));
    widen(y, kMargin * (y.high - y.low));
    keep_surroundings(panel, x, y);
  }
  if (!is_missing(map.west)) x.low = map.west;
  if (!is_missing(map.east)) x.high = map.east;
  while (x.high <= x.low) x.high += 360.0;
  if (x.high - x.low > 340.0) widen(x, 360.0);
  if (!is_missing(map.south)) y.low = map.south;
  if (!is_missing(map.north)) y.high = map.north;
  keep_on_earth(y);
  return {x, y};
}

/* Degrees as they are, with the aspect of the middle latitude. */
MapLayout arrange_plate_carree(Panel &panel, double width, bool only_points) {
  auto [x, y] = extent_of(panel, only_points);
  const double across = std::max(std::cos(radians(0.5 * (y.low + y.high))), 0.2);
  double height = width * (y.high - y.low) / ((x.high - x.low) * across);
  /* Too tall or too flat: show more of the world rather than a strip. */
  if (height > kHighest) {
    widen(x, std::min(360.0, (x.high - x.low) * height / kHighest));
    height = std::min(kHighest, width * (y.high - y.low) / ((x.high - x.low) * across));
  } else if (height < kLowest) {
    widen(y, (y.high - y.low) * kLowest / height);
    keep_on_earth(y);
    height = width * (y.high - y.low) / ((x.high - x.low) * across);
  }
  const double middle = 0.5 * (x.low + x.high);
  const double turn = only_points ? 360.0 * std::round(middle / 360.0) : 0.0;
  each_place(panel, [turn](double &lon, double) { lon -= turn; });
  panel.x.low = x.low - turn;
  panel.x.high = x.high - turn;
  panel.y.low = y.low;
  panel.y.high = y.high;
  panel.x.scale = panel.y.scale = Scale::kLinear;
  panel.x.form = TickForm::kLongitude;
  panel.y.form = TickForm::kLatitude;
  panel.height = height;

  MapLayout map;
  map.note = "plate carrée";
  const double span = panel.x.high - panel.x.low;
  for (const GeoLine &line : coast_lines(span < kFineSpan)) {
    if (line.border ? !panel.map->borders : !panel.map->coast) continue;
    const auto [west, east] = std::minmax_element(
        line.points.begin(), line.points.end(),
        [](const GeoPoint &a, const GeoPoint &b) { return a.lon < b.lon; });
    for (const double round : {-360.0, 0.0, 360.0}) {
      if (east->lon + round < panel.x.low || west->lon + round > panel.x.high) continue;
      MapLayout::Outline outline{line.border, {}};
      for (const GeoPoint &point : line.points) {
        outline.points.push_back({point.lon + round, point.lat});
      }
      map.coast.push_back(std::move(outline));
    }
  }
  const double km = kKmPerDegree * std::cos(radians(0.5 * (y.low + y.high)));
  if (km > 1.0 && span <= 120.0) {
    map.bar = round_length(0.25 * span * km);
    map.bar_length = map.bar / km;
  }
  return map;
}

/* A map on a plane, kilometres on both axes. */
class ProjectedMap {
 public:
  ProjectedMap(Panel &panel, double width)
      : panel_(panel),
        width_(width),
        extent_(extent_of(panel, panel.lines.empty())),
        plane_(plane_of()),
        world_(plane_.kind() == PlaneMap::Kind::kMollweide) {}

  MapLayout arrange() {
    project_data();
    find_frame();
    map_.curved = true;
    map_.note = note();
    add_coast();
    add_grid();
    const double span = panel_.x.high - panel_.x.low;
    const double stretch = scale_of_middle();
    map_.bar = round_length(0.25 * span / stretch);
    map_.bar_length = map_.bar * stretch;
    if (world_) map_.bar = 0.0;  // no length holds all over such a map
    return std::move(map_);
  }

 private:
  PlaneMap plane_of() const {
    const Map &map = *panel_.map;
    const double lon = is_missing(map.centre_lon)
                           ? 0.5 * (extent_.x.low + extent_.x.high)
                           : map.centre_lon;
    /* All around a pole: the pole is the middle. */
    const bool wide = extent_.x.high - extent_.x.low > 180.0;
    const bool north = extent_.y.low > kPolar, south = extent_.y.high < -kPolar;
    const bool polar = wide && (north || south);
    const double middle = 0.5 * (extent_.y.low + extent_.y.high);
    const double lat = !is_missing(map.centre_lat) ? map.centre_lat
                       : !polar                    ? middle
                       : north                     ? 90.0
                                                   : -90.0;
    switch (map.projection) {
      case Projection::kMercator:
        return {PlaneMap::Kind::kMercator, lon, lat};
      case Projection::kAzimuthal:
        return {PlaneMap::Kind::kAzimuthalEquidistant, lon, lat};
      default:
        break;
    }
    return {
        wide && !polar ? PlaneMap::Kind::kMollweide : PlaneMap::Kind::kLambertEqualArea,
        lon, lat};
  }

  std::string note() const {
    const std::string centre = degree_text(plane_.centre_lat(), TickForm::kLatitude) +
                               " " +
                               degree_text(plane_.centre_lon(), TickForm::kLongitude);
    switch (plane_.kind()) {
      case PlaneMap::Kind::kMercator:
        return "Mercator";
      case PlaneMap::Kind::kMollweide:
        return "Mollweide, equal areas";
      case PlaneMap::Kind::kLambertEqualArea:
        return "Lambert azimuthal, equal areas, centre " + centre;
      default:
        return "azimuthal equidistant, centre " + centre;
    }
  }

  static std::string degree_text(double degrees, TickForm form) {
    const double turned =
        form == TickForm::kLongitude ? std::remainder(degrees, 360.0) : degrees;
    const char *const side = form == TickForm::kLongitude ? (turned < 0 ? "W" : "E")
                                                          : (turned < 0 ? "S" : "N");
    return format_text("%.3g°%s", std::fabs(turned), side);
  }

  void project(double &x, double &y) const {
    const auto place = is_missing(x) || is_missing(y) ? std::nullopt : plane_.at(x, y);
    x = place ? place->x : kUnset;
    y = place ? place->y : kUnset;
  }

  void project_data() {
    each_place(panel_, [this](double &x, double &y) { project(x, y); });
    for (Line &line : panel_.lines) {
      if (line.x.empty()) {
        for (std::size_t i = 0; i < line.y.size(); i++) {
          line.x.push_back(line.start + line.step * static_cast<double>(i));
        }
      }
      for (std::size_t i = 0; i < line.y.size(); i++) project(line.x[i], line.y[i]);
    }
  }

  /* What the extent covers on the plane. */
  void find_frame() {
    Range x{1e30, -1e30}, y{1e30, -1e30};
    const auto add = [&](double lon, double lat) {
      const auto place = plane_.at(lon, lat);
      if (!place) return;
      x = {std::min(x.low, place->x), std::max(x.high, place->x)};
      y = {std::min(y.low, place->y), std::max(y.high, place->y)};
    };
    constexpr int kSteps = 60;
    Range lon = extent_.x, lat = extent_.y;
    if (world_) lat = {-90.0, 90.0};
    if (world_) lon = {plane_.centre_lon() - 179.99, plane_.centre_lon() + 179.99};
    if (plane_.kind() == PlaneMap::Kind::kMercator) {
      lat = {std::max(lat.low, -84.0), std::min(lat.high, 84.0)};
      if (lon.high - lon.low > 359.9) {
        lon = {plane_.centre_lon() - 179.99, plane_.centre_lon() + 179.99};
      }
    }
    for (int i = 0; i <= kSteps; i++) {
      for (int j = 0; j <= kSteps; j++) {
        add(lon.low + (lon.high - lon.low) * i / kSteps,
            lat.low + (lat.high - lat.low) * j / kSteps);
      }
    }
    if (!(x.high > x.low) || !(y.high > y.low)) x = y = {-100.0, 100.0};
    double height = width_ * (y.high - y.low) / (x.high - x.low);
    if (height > kHighest) {
      grown_x_ = height / kHighest;
      widen(x, (x.high - x.low) * grown_x_);
      height = kHighest;
    } else if (height < kLowest) {
      grown_y_ = kLowest / height;
      widen(y, (y.high - y.low) * grown_y_);
      height = kLowest;
    }
    panel_.x = {.label = panel_.x.label, .low = x.low, .high = x.high};
    panel_.y = {.label = panel_.y.label, .low = y.low, .high = y.high};
    panel_.height = height;
  }

  /* Plane kilometres for a kilometre in the middle of the map. */
  double scale_of_middle() const {
    const double lon = 0.5 * (extent_.x.low + extent_.x.high);
    const double lat = std::clamp(0.5 * (extent_.y.low + extent_.y.high), -80.0, 80.0);
    const auto a = plane_.at(lon - 0.01, lat), b = plane_.at(lon + 0.01, lat);
    if (!a || !b) return 1.0;
    return std::hypot(b->x - a->x, b->y - a->y) /
           (0.02 * kKmPerDegree * std::cos(radians(lat)));
  }

  bool shows(const Position &place) const {
    const double mx = 0.2 * (panel_.x.high - panel_.x.low),
                 my = 0.2 * (panel_.y.high - panel_.y.low);
    return place.x > panel_.x.low - mx && place.x < panel_.x.high + mx &&
           place.y > panel_.y.low - my && place.y < panel_.y.high + my;
  }

  /* Cuts a line of the Earth into the pieces that the map shows, and takes them. */
  void trace(std::size_t count, const std::function<GeoPoint(std::size_t)> &point,
             const std::function<void(std::vector<Position>)> &take) const {
    std::vector<Position> piece;
    const auto end = [&] {
      if (piece.size() > 1) take(std::move(piece));
      piece.clear();
    };
    for (std::size_t i = 0; i < count; i++) {
      const GeoPoint here = point(i);
      const auto place = plane_.at(here.lon, here.lat);
      if (!place || !shows(*place)) {
        end();
        continue;
      }
      if (!piece.empty() && plane_.cut_between(point(i - 1).lon, here.lon)) end();
      piece.push_back(*place);
    }
    end();
  }

  void add_coast() {
    const double span = extent_.x.high - extent_.x.low;
    for (const GeoLine &line : coast_lines(span < kFineSpan)) {
      if (line.border ? !panel_.map->borders : !panel_.map->coast) continue;
      trace(
          line.points.size(), [&](std::size_t i) { return line.points[i]; },
          [&](std::vector<Position> piece) {
            map_.coast.push_back({line.border, std::move(piece)});
          });
    }
  }

  /* Meridians and parallels over the extent and somewhat beyond, with labels where they
   * leave the frame below and at the left. */
  void add_grid() {
    const double round = extent_.x.high - extent_.x.low;
    Range lon = extent_.x, lat = extent_.y;
    widen(lon, std::min(360.0, 2.0 * round * grown_x_));
    widen(lat, 2.0 * (lat.high - lat.low) * grown_y_);
    keep_on_earth(lat);
    if (world_) lon = {plane_.centre_lon() - 179.9, plane_.centre_lon() + 179.9};
    const Ticks meridians = degree_ticks(lon.low, lon.high, 12, TickForm::kLongitude);
    const Ticks parallels =
        degree_ticks(lat.low, lat.high, world_ ? 7 : 12, TickForm::kLatitude);
    constexpr std::size_t kSteps = 200;
    const auto along = [](const Range &range, std::size_t i) {
      return static_cast<float>(range.low + (range.high - range.low) *
                                                static_cast<double>(i) / kSteps);
    };
    for (const Tick &tick : meridians.ticks) {
      if (tick.label.empty()) continue;
      const auto value = static_cast<float>(tick.value);
      trace(
          kSteps + 1,
          [&](std::size_t i) {
            return GeoPoint{value, along(lat, i)};
          },
          [&](std::vector<Position> piece) { add_grid_line(piece, tick.label, true); });
    }
    for (const Tick &tick : parallels.ticks) {
      if (tick.label.empty()) continue;
      const auto value = static_cast<float>(tick.value);
      trace(
          kSteps + 1,
          [&](std::size_t i) {
            return GeoPoint{along(lon, i), value};
          },
          [&](std::vector<Position> piece) {
            add_grid_line(piece, tick.label, false);
          });
    }
    drop_second_labels();
    if (!world_) return;
    constexpr int kRim = 360;
    const double edge = 2.0 * std::numbers::sqrt2 * 6371.0;
    for (int i = 0; i <= kRim; i++) {
      const double angle = 2.0 * std::numbers::pi * i / kRim;
      map_.rim.push_back({edge * std::cos(angle), 0.5 * edge * std::sin(angle)});
    }
  }

  void add_grid_line(const std::vector<Position> &piece, const std::string &label,
                     bool meridian) {
    map_.grid.push_back(piece);
    if (world_) {
      if (!meridian && !label.starts_with("90"))
        map_.labels.push_back({piece.front(), label, false});
      return;
    }
    for (std::size_t i = 1; i < piece.size(); i++) {
      const Position &a = piece[i - 1], &b = piece[i];
      const double from = meridian ? a.y - panel_.y.low : a.x - panel_.x.low;
      const double to = meridian ? b.y - panel_.y.low : b.x - panel_.x.low;
      if ((from < 0.0) == (to < 0.0)) continue;
      const double part = from / (from - to);
      const Position at{a.x + part * (b.x - a.x), a.y + part * (b.y - a.y)};
      const bool inside = meridian ? at.x > panel_.x.low && at.x < panel_.x.high
                                   : at.y > panel_.y.low && at.y < panel_.y.high;
      if (inside) map_.labels.push_back({at, label, meridian});
    }
  }

  /* A line that leaves the frame twice on one side has its label where it is nearer to the
   * middle of that side. */
  void drop_second_labels() {
    const double middle_x = 0.5 * (panel_.x.low + panel_.x.high);
    const double middle_y = 0.5 * (panel_.y.low + panel_.y.high);
    const auto off = [&](const MapLayout::Label &label) {
      return label.below ? std::fabs(label.at.x - middle_x)
                         : std::fabs(label.at.y - middle_y);
    };
    std::stable_sort(map_.labels.begin(), map_.labels.end(),
                     [&](const auto &a, const auto &b) { return off(a) < off(b); });
    std::vector<MapLayout::Label> kept;
    for (MapLayout::Label &label : map_.labels) {
      if (std::none_of(kept.begin(), kept.end(), [&](const MapLayout::Label &other) {
            return other.below == label.below && other.text == label.text;
          })) {
        kept.push_back(std::move(label));
      }
    }
    map_.labels = std::move(kept);
  }

  Panel &panel_;
  const double width_;
  const MapExtent extent_;
  const PlaneMap plane_;
  const bool world_;
  double grown_x_ = 1.0, grown_y_ = 1.0;  // the frame over the extent
  MapLayout map_;
};

}  // namespace

MapLayout arrange_map(Panel &panel, double width) {
  const bool only_points = panel.meshes.empty() && panel.lines.empty();
  if (panel.map->projection == Projection::kPlateCarree || !panel.meshes.empty()) {
    return arrange_plate_carree(panel, width, only_points);
  }
  return ProjectedMap(panel, width).arrange();
}

}  // namespace ksutil::plot
