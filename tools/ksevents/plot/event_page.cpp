#include "tools/ksevents/plot/event_page.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <set>
#include <vector>

#include "events/kseventview.h"
#include "platform/clock/clock.h"
#include "platform/elog/elog.h"
#include "platform/stock/owners.h"
#include "platform/stock/text.h"
#include "platform/traveltime/traveltime.h"
#include "tools/common/cells.h"
#include "tools/common/messages.h"
#include "tools/common/open_database.h"
#include "tools/plot/beachball.h"
#include "tools/plot/symbol_cycle.h"

namespace ksutil::tools {
namespace {

constexpr double kNull = -999.0;
const plot::Colour kRed{0.80, 0.16, 0.16, 1.0};

struct StationPlace {
  double lat = kNull, lon = kNull, delta = kNull;
};

class EventPage {
 public:
  explicit EventPage(plot::Figure &figure) : figure_(figure), view_(nullptr) {}
  ~EventPage() { view_.freeEvent(event_); }
  EventPage(const EventPage &) = delete;
  EventPage &operator=(const EventPage &) = delete;

  bool read(const std::string &database, long evid) {
    if (view_.configure("dbname", database.c_str(), static_cast<char *>(nullptr)) < 0) {
      return false;
    }
    database_ = database;
    event_ = view_.findEvid(evid);
    if (event_ == nullptr) {
      complain("there is no event with evid " + std::to_string(evid) + " in " +
               database);
      return false;
    }
    origin_ = static_cast<KSEVOrigin *>(
        gettbl(event_->origins, std::max<long>(event_->pref_origin, 0)));
    if (origin_ == nullptr || origin_->lat == kNull || origin_->lon == kNull) {
      complain("event " + std::to_string(evid) + " has no origin with a place");
      return false;
    }
    return view_.refreshAssociations(origin_) >= 0;
  }

  bool draw(const plot::Map &map) {
    add_titles();
    for_each<KSEVAssociation>(origin_->associations, [this](KSEVAssociation *row) {
      if (row->sta != nullptr) stations_.try_emplace(row->sta, place_of(row->sta));
      phases_.insert(phase_of(*row));
    });
    if (failed_) return false;
    looks_ = plot::looks_of(phases_);
    add_map(map);
    add_residuals();
    add_travel_times();
    return add_magnitudes();
  }

 private:
  static std::string phase_of(const KSEVAssociation &row) {
    return row.phase == nullptr || *row.phase == '\0' ? "?" : row.phase;
  }

  StationPlace place_of(const char *sta) {
    ElogScope messages;
    KSEVOriginStation *station = nullptr;
    const int result =
        messages.note(view_.lookupStation(origin_, sta, origin_->time, &station));
    if (result < 0) failed_ = true;
    if (result != 0) return {};
    return {station->lat, station->lon, station->delta};
  }

  void add_titles() {
    figure_.title = "Event " + std::to_string(event_->evid);
    if (event_->magnitude != kNull) {
      figure_.title +=
          format_text("  %s %.1f", event_->magtype == nullptr ? "M" : event_->magtype,
                      event_->magnitude);
    }
    figure_.subtitle = time_cell(origin_->time) +
                       format_text("  %.3f° %.3f°", origin_->lat, origin_->lon);
    if (origin_->depth != kNull)
      figure_.subtitle += format_text("  %.1f km", origin_->depth);
  }

  void add_map(const plot::Map &map) {
    plot::Panel &panel = figure_.panels.emplace_back();
    panel.map = map;
    plot::Points stations;
    stations.name = "stations";
    stations.colour = plot::series_colour(0);
    plot::PointStyle triangle;
    triangle.symbol = plot::Symbol::kTriangle;
    triangle.size = 8.0;
    triangle.fill = plot::series_colour(0);
    for (const auto &[sta, place] : stations_) {
      if (place.lat != kNull)
        stations.points.push_back({place.lon, place.lat, triangle});
    }
    if (!stations.points.empty()) panel.points.push_back(stations);
    plot::Disk ball;
    if (add_mechanism(ball)) {
      panel.disks.push_back(ball);
    } else {
      plot::PointStyle star;
      star.symbol = plot::Symbol::kStar;
      star.size = 16.0;
      star.fill = kRed;
      panel.points.push_back({.points = {{origin_->lon, origin_->lat, star}},
                              .name = "event",
                              .colour = kRed});
    }
    if (stations.points.empty()) {
      /* Without stations the place alone: some hundred kilometres around it. */
      constexpr double kAround = 3.0;
      plot::Map &own = *panel.map;
      if (std::isnan(own.south)) own.south = std::max(origin_->lat - kAround, -90.0);
      if (std::isnan(own.north)) own.north = std::min(origin_->lat + kAround, 90.0);
      if (std::isnan(own.west)) own.west = origin_->lon - 1.6 * kAround;
      if (std::isnan(own.east)) own.east = origin_->lon + 1.6 * kAround;
    }
  }

  bool add_mechanism(plot::Disk &ball) const {
    const auto *moment = static_cast<KSEVMoment *>(
        gettbl(origin_->moments, std::max(origin_->pref_moment, 0)));
    const OpenDatabase database(database_, "r");
    if (moment == nullptr || !database) return false;
    Dbptr row = database.table("mt");
    row.record = moment->recno_mt;
    std::array<double, 6> tensor;
    if (!plot::row_mechanism(row, tensor.data())) return false;
    ball.x = origin_->lon;
    ball.y = origin_->lat;
    ball.size = 54.0;
    ball.fill = kRed;
    return plot::beachball(tensor.data(), {}, ball);
  }

  /* Points of the associations, a series for each phase; value() tells y, NaN for none. */
  template <class Value>
  bool add_phases(plot::Panel &panel, const Value &value) {
    std::map<std::string, plot::Points> series;
    for_each<KSEVAssociation>(origin_->associations, [&](KSEVAssociation *row) {
      if (row->sta == nullptr) return;
      const StationPlace &place = stations_[row->sta];
      const double y = value(*row);
      if (place.delta == kNull || std::isnan(y)) return;
      const std::string phase = phase_of(*row);
      const plot::Look &look = looks_[phase];
      plot::PointStyle style;
      style.symbol = look.symbol;
      style.colour = look.colour;
      if (row->defining != 0) style.fill = look.colour;
      plot::Points &points = series[phase];
      points.name = phase;
      points.colour = look.colour;
      points.points.push_back({place.delta, y, style});
    });
    for (auto &[phase, points] : series) panel.points.push_back(std::move(points));
    return !panel.points.empty();
  }

  void add_residuals() {
    plot::Panel panel;
    panel.title = "Residuals";
    panel.x.label = "distance (degrees)";
    panel.y.label = "time residual (s)";
    const bool any = add_phases(panel, [](const KSEVAssociation &row) {
      return row.timeres == kNull ? plot::kUnset : row.timeres;
    });
    if (any) figure_.panels.push_back(std::move(panel));
  }

  void add_travel_times() {
    plot::Panel panel;
    panel.title = "Travel times";
    panel.x.label = "distance (degrees)";
    panel.y.label = "time after the origin (min)";
    const bool any = add_phases(panel, [this](const KSEVAssociation &row) {
      return row.time > kNullTime ? (row.time - origin_->time) / 60.0 : plot::kUnset;
    });
    if (!any) return;
    double farthest = 1.0;
    for (const auto &[sta, place] : stations_)
      farthest = std::max(farthest, place.delta);
    const double depth = origin_->depth == kNull ? 0.0 : std::max(origin_->depth, 0.0);
    for (const auto wave : {traveltime::Wave::kP, traveltime::Wave::kS}) {
      plot::Line line;
      line.name = wave == traveltime::Wave::kP ? "first P, iasp91" : "first S, iasp91";
      line.colour = plot::Colour{0.45, 0.45, 0.48, 1.0};
      line.dashed = wave == traveltime::Wave::kS;
      constexpr int kSteps = 400;
      constexpr double kJump = 1.0;  // min, in a step
      const ElogScope unheard;
      for (int i = 0; i <= kSteps; i++) {
        const double delta = std::min(1.05 * farthest, 180.0) * i / kSteps;
        traveltime::Arrival arrival;
        const bool good = traveltime::first_arrival(traveltime::Model::kIasp91, wave,
                                                    delta, depth, arrival);
        /* From the last wave along the core to the first through it there is no line. */
        const bool jump =
            good && !line.y.empty() && arrival.time / 60.0 - line.y.back() > kJump;
        if (jump) {
          line.x.push_back(delta);
          line.y.push_back(plot::kUnset);
        }
        line.x.push_back(delta);
        line.y.push_back(good ? arrival.time / 60.0 : plot::kUnset);
      }
      panel.lines.push_back(std::move(line));
    }
    figure_.panels.push_back(std::move(panel));
  }

  /* All magnitudes of the origin: those of stations by distance, the magnitude made of them
   * as a line, and so are those without stations. */
  bool add_magnitudes() {
    plot::Panel panel;
    panel.title = "Magnitudes";
    panel.y.label = "magnitude";
    std::vector<const KSEVMagnitude *> shown;
    bool good = true;
    for_each<KSEVMagnitude>(origin_->magnitudes, [&](KSEVMagnitude *row) {
      if (row->magnitude == kNull) return;
      if (row->recno_netmag >= 0 && view_.refreshStamags(row) < 0) good = false;
      shown.push_back(row);
    });
    if (!good) return false;
    if (shown.empty()) return true;
    double near = 1e30, far = -1e30;
    for (std::size_t i = 0; i < shown.size(); i++) {
      plot::Points points = station_magnitudes(*shown[i], i);
      if (points.points.empty()) continue;
      for (const plot::Point &point : points.points) {
        near = std::min(near, point.x);
        far = std::max(far, point.x);
      }
      panel.points.push_back(std::move(points));
    }
    if (far < near) {
      if (shown.size() == 1) return true;  // the title has it
      compare_types(shown, panel);
    } else {
      panel.x.label = "distance (degrees)";
      if (near == far) near -= 0.5, far += 0.5;
      for (std::size_t i = 0; i < shown.size(); i++) {
        panel.lines.push_back(
            {.x = {near, far},
             .y = {shown[i]->magnitude, shown[i]->magnitude},
             .name = format_text("%s %.2f", type_of(*shown[i]), shown[i]->magnitude),
             .colour = plot::series_colour(i)});
      }
    }
    figure_.panels.push_back(std::move(panel));
    return true;
  }

  static const char *type_of(const KSEVMagnitude &magnitude) {
    return magnitude.magtype == nullptr ? "M" : magnitude.magtype;
  }

  plot::Points station_magnitudes(const KSEVMagnitude &magnitude, std::size_t series) {
    plot::Points points;
    points.colour = plot::series_colour(series);
    plot::PointStyle style;
    style.fill = points.colour;
    for_each<KSEVStamag>(magnitude.stamags, [&](KSEVStamag *row) {
      if (row->sta == nullptr || row->magnitude == kNull) return;
      const auto [found, fresh] = stations_.try_emplace(row->sta);
      if (fresh) found->second = place_of(row->sta);
      if (found->second.delta == kNull) return;
      points.points.push_back({found->second.delta, row->magnitude, style});
    });
    return points;
  }

  /* Without any station the magnitudes stand beside each other. */
  static void compare_types(const std::vector<const KSEVMagnitude *> &shown,
                            plot::Panel &panel) {
    plot::Points points;
    points.colour = plot::series_colour(0);
    plot::PointStyle style;
    style.fill = points.colour;
    constexpr double kHeight = 150.0;
    panel.height = kHeight;
    panel.x.label = "type";
    panel.x.low = -0.5;
    panel.x.high = static_cast<double>(shown.size()) - 0.5;
    for (std::size_t i = 0; i < shown.size(); i++) {
      const auto place = static_cast<double>(i);
      points.points.push_back({place, shown[i]->magnitude, style});
      panel.x.names.push_back({place, type_of(*shown[i])});
    }
    panel.points.push_back(std::move(points));
  }

  plot::Figure &figure_;
  std::string database_;
  KSEventView view_;
  KSEVEvent *event_ = nullptr;
  KSEVOrigin *origin_ = nullptr;
  std::map<std::string, StationPlace> stations_;
  bool failed_ = false;  // a station could not be looked up
  std::set<std::string> phases_;
  std::map<std::string, plot::Look> looks_;
};

}  // namespace

bool make_event_page(const std::string &database, long evid, const plot::Map &map,
                     plot::Figure &figure) {
  EventPage page(figure);
  return page.read(database, evid) && page.draw(map);
}

}  // namespace ksutil::tools
