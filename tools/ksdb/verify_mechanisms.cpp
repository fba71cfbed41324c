#include "tools/ksdb/verify_mechanisms.h"

#include <array>
#include <cmath>

#include "mechanisms/ksmoment.h"
#include "platform/elog/elog.h"
#include "platform/geo/angle.h"
#include "platform/stock/text.h"

namespace ksutil::tools {
namespace {

constexpr double kNull = -999.0;
constexpr double kMostDegrees = 5.0;       // catalogues give whole degrees
constexpr double kMostOfMoment = 0.1;      // of either definition in use
constexpr double kMostOfMagnitude = 0.15;  // constants of 9.05 to 9.1 are in use
constexpr double kDistinct = 0.05;  // eigenvalues nearer than this leave axes undecided

struct MtRow {
  std::array<double, 6> tensor{};
  double moment = kNull, mw = kNull;
  std::array<KSMomentPlane, 2> planes{};
  std::array<KSMomentAxis, 3> axes{};
};

bool read_row(Dbptr row, MtRow &mt) {
  auto &[first, second] = mt.planes;
  auto &[t, n, p] = mt.axes;
  return ksmoment_from_row(row, mt.tensor.data()) == 0 &&
         dbgetv(row, "moment", &mt.moment, "mw", &mt.mw, "strike1", &first.strike,
                "dip1", &first.dip, "rake1", &first.rake, "strike2", &second.strike,
                "dip2", &second.dip, "rake2", &second.rake, "tplunge", &t.plunge,
                "tazim", &t.azimuth, "nplunge", &n.plunge, "nazim", &n.azimuth,
                "pplunge", &p.plunge, "pazim", &p.azimuth,
                static_cast<char *>(nullptr)) == 0;
}

std::array<double, 3> direction(const KSMomentAxis &axis) {
  const double p = radians(axis.plunge), a = radians(axis.azimuth);
  return {std::cos(p) * std::cos(a), std::cos(p) * std::sin(a), std::sin(p)};
}

/* Between two lines, degrees. */
double angle_between(const KSMomentAxis &a, const KSMomentAxis &b) {
  const auto [x, y, z] = direction(a);
  const auto [u, v, w] = direction(b);
  return degrees(std::acos(std::min(1.0, std::fabs(x * u + y * v + z * w))));
}

void verify_size(const MtRow &mt, long record, const Report &report) {
  const double *const m = mt.tensor.data();
  const double moment = ksmoment_moment(m), couple = ksmoment_dc_moment(m);
  const auto far_from = [&](double other) {
    return std::fabs(mt.moment - other) > kMostOfMoment * other;
  };
  if (mt.moment != kNull && far_from(moment) && far_from(couple)) {
    report("moments that do not fit their tensor", record,
           format_text("moment is %.3e, the tensor's %.3e", mt.moment, moment));
  }
  if (mt.mw == kNull || !(moment > 0.0)) return;
  const double mw = ksmoment_magnitude(moment);
  if (std::fabs(mt.mw - mw) > kMostOfMagnitude) {
    report("moment magnitudes that do not fit their tensor", record,
           format_text("mw is %.2f, the tensor's %.2f", mt.mw, mw));
  }
}

void verify_directions(const MtRow &mt, long record, const Report &report) {
  const double *const m = mt.tensor.data();
  std::array<KSMomentAxis, 3> axes;
  if (ksmoment_axes(m, axes.data()) != 0) return;
  const auto &[t, n, p] = axes;
  const double size = std::max(std::fabs(t.value), std::fabs(p.value));
  if (std::min(t.value - n.value, n.value - p.value) <= kDistinct * size) return;
  for (std::size_t i = 0; i < 3; i++) {
    if (mt.axes[i].plunge == kNull || mt.axes[i].azimuth == kNull) continue;
    const double angle = angle_between(mt.axes[i], axes[i]);
    if (angle > kMostDegrees) {
      report("axes that do not fit their tensor", record,
             format_text("axis %c is %.0f degrees off", "tnp"[i], angle));
    }
  }
  for (std::size_t i = 0; i < 2; i++) {
    const KSMomentPlane &plane = mt.planes[i];
    std::array<double, 6> couple;
    if (plane.strike == kNull || plane.dip == kNull || plane.rake == kNull ||
        ksmoment_from_plane(&plane, 1.0, couple.data()) != 0) {
      continue;
    }
    const double angle = ksmoment_rotation(m, couple.data());
    if (angle > kMostDegrees) {
      report("nodal planes that do not fit their tensor", record,
             format_text("plane %zu is turned by %.0f degrees", i + 1, angle));
    }
  }
}

}  // namespace

void verify_mechanisms(Dbptr mt, const Report &report) {
  long count = 0;
  if (dbquery(mt, dbq_record_count, &count) < 0) return;
  for (mt.record = 0; mt.record < count; mt.record++) {
    const ElogScope unheard;  // rows without a tensor cannot be compared
    MtRow row;
    if (!read_row(mt, row)) continue;
    verify_size(row, mt.record, report);
    verify_directions(row, mt.record, report);
  }
}

}  // namespace ksutil::tools
