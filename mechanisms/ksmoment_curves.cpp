#include <cmath>
#include <vector>

#include "mechanisms/internal/focal_sphere.h"
#include "mechanisms/internal/moment.h"
#include "mechanisms/ksmoment.h"
#include "platform/elog/failure.h"
#include "platform/geo/angle.h"
#include "platform/trace/trace.h"

using ksutil::at_boundary;
using ksutil::fail;
using ksutil::radians;
using namespace ksutil::mechanisms;

namespace {

bool view_of(const char *who, int hemisphere, int projection, View &view) {
  if ((hemisphere != KSMOMENT_LOWER && hemisphere != KSMOMENT_UPPER) ||
      (projection != KSMOMENT_EQUAL_AREA && projection != KSMOMENT_STEREOGRAPHIC)) {
    fail(who, "Unknown hemisphere %d or projection %d", hemisphere, projection);
    return false;
  }
  view = {hemisphere == KSMOMENT_UPPER, projection == KSMOMENT_STEREOGRAPHIC};
  return true;
}

KSVector *vector_of(const std::vector<Piece> &pieces, const char *name, char *tag) {
  float gap = 0.0F;
  trfill_gap(&gap, 1);
  std::vector<DiskPoint> points;
  for (const Piece &piece : pieces) {
    if (!points.empty()) points.push_back({gap, gap});
    points.insert(points.end(), piece.begin(), piece.end());
  }
  KSVector *const vector =
      ksvector_create(static_cast<int>(points.size()), 1, name, tag);
  if (vector == nullptr) return nullptr;
  for (std::size_t i = 0; i < points.size(); i++) {
    vector->points[i].x = points[i].x;
    vector->points[i].y[0] = points[i].y;
  }
  vector->npts = static_cast<int>(points.size());
  return vector;
}

using Curves = std::vector<Piece>(const Eigen &, View);

KSVector *draw(const char *who, Curves *curves, const double *m, int hemisphere,
               int projection, const char *name, char *tag) {
  return at_boundary(who, [&]() -> KSVector * {
    if (tag != nullptr) *tag = '\0';
    View view;
    if (!is_tensor(who, m) || !view_of(who, hemisphere, projection, view)) {
      return nullptr;
    }
    return vector_of(curves(eigen_of(ned_of(m)), view), name, tag);
  });
}

}  // namespace

int ksmoment_project(double azimuth, double plunge, int hemisphere, int projection,
                     double *x, double *y) {
  constexpr const char *kWho = "ksmoment_project";
  View view;
  if (!view_of(kWho, hemisphere, projection, view)) return -1;
  if (!std::isfinite(azimuth) || !(plunge >= -90.0 && plunge <= 90.0)) {
    return fail(kWho, "Azimuth %g or plunge %g is out of range", azimuth, plunge);
  }
  if (x == nullptr || y == nullptr) return fail(kWho, "No place for the result");
  const double a = radians(azimuth), p = radians(plunge);
  const DiskPoint point = on_disk(
      {std::cos(p) * std::cos(a), std::cos(p) * std::sin(a), std::sin(p)}, view);
  *x = point.x;
  *y = point.y;
  return 0;
}

KSVector *ksmoment_nodal_lines(const double *m, int hemisphere, int projection,
                               const char *name, char *tag) {
  return draw("ksmoment_nodal_lines", nodal_lines, m, hemisphere, projection, name,
              tag);
}

KSVector *ksmoment_dc_nodal_lines(const double *m, int hemisphere, int projection,
                                  const char *name, char *tag) {
  return draw("ksmoment_dc_nodal_lines", plane_lines, m, hemisphere, projection, name,
              tag);
}

KSVector *ksmoment_outline(const double *m, int hemisphere, int projection,
                           const char *name, char *tag) {
  return draw("ksmoment_outline", positive_areas, m, hemisphere, projection, name, tag);
}
