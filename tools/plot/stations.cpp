#include "tools/plot/stations.h"

#include <set>
#include <utility>

#include "platform/clock/clock.h"
#include "platform/elog/elog.h"
#include "tools/common/messages.h"
#include "tools/common/table_rows.h"

namespace ksutil::plot {

bool add_stations(Dbptr site, double time, Panel &panel) {
  constexpr double kNull = -999.0;
  const Colour colour{0.30, 0.30, 0.33, 1.0};
  PointStyle triangle;
  triangle.symbol = Symbol::kTriangle;
  triangle.size = 7.0;
  triangle.fill = Colour{0.80, 0.80, 0.83, 1.0};
  Points stations{.points = {}, .name = "stations", .colour = colour};
  long count = 0;
  const tools::TableRows rows(site);
  if (!rows.good() || dbquery(site, dbq_record_count, &count) != 0) return false;
  const long today = yearday(time);
  std::set<std::pair<double, double>> places;
  for (site.record = 0; site.record < count; site.record++) {
    const ElogScope unheard;  // rows that are broken have no place
    long ondate = -1, offdate = -1;
    double lat = kNull, lon = kNull;
    if (dbgetv(site, "ondate", &ondate, "offdate", &offdate, "lat", &lat, "lon", &lon,
               static_cast<char *>(nullptr)) != 0 ||
        lat == kNull || lon == kNull || ondate > today ||
        (offdate > 0 && offdate < today) || !places.emplace(lat, lon).second) {
      continue;
    }
    stations.points.push_back({lon, lat, triangle});
  }
  if (!rows.complete()) return false;
  if (stations.points.empty()) {
    tools::complain("the table site has no station that is valid now");
    return false;
  }
  panel.points.insert(panel.points.begin(), std::move(stations));
  return true;
}

}  // namespace ksutil::plot
