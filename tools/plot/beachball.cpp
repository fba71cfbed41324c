#include "tools/plot/beachball.h"

#include <array>
#include <memory>

#include "mechanisms/ksmoment.h"
#include "platform/elog/elog.h"
#include "platform/trace/trace.h"

namespace ksutil::plot {
namespace {

struct FreeVector {
  void operator()(KSVector *vector) const { ksvector_free_vector(vector); }
};
using VectorPtr = std::unique_ptr<KSVector, FreeVector>;

/* The pieces of a vector, which gaps divide; false for no vector. */
bool take_pieces(const VectorPtr &vector, std::vector<std::vector<DiskPlace>> &pieces) {
  if (vector == nullptr) return false;
  bool fresh = true;
  for (int i = 0; i < vector->npts; i++) {
    const KSVectorPoint &point = vector->points[i];
    if (is_gap_sample(point.x)) {
      fresh = true;
      continue;
    }
    if (fresh) pieces.emplace_back();
    fresh = false;
    pieces.back().push_back({point.x, point.y[0]});
  }
  return true;
}

/* The best double couple of a tensor; the tensor itself where it has none. */
std::array<double, 6> couple_of(const double *tensor) {
  std::array<double, 6> couple{};
  std::array<KSMomentPlane, 2> planes;
  const ElogScope unheard;
  if (ksmoment_planes(tensor, planes.data()) != 0 ||
      ksmoment_from_plane(&planes[0], 1.0, couple.data()) != 0) {
    std::copy(tensor, tensor + 6, couple.begin());
  }
  return couple;
}

}  // namespace

bool beachball(const double *tensor, const BeachballStyle &style, Disk &disk) {
  const int half = style.upper ? KSMOMENT_UPPER : KSMOMENT_LOWER;
  const int form = style.stereographic ? KSMOMENT_STEREOGRAPHIC : KSMOMENT_EQUAL_AREA;
  std::array<KSMomentAxis, 3> axes;
  if (ksmoment_axes(tensor, axes.data()) != 0) return false;
  const std::array<double, 6> couple = couple_of(tensor);
  const double *const drawn = style.double_couple ? couple.data() : tensor;
  const auto curves = [&](auto *function, const double *of) {
    return VectorPtr(function(of, half, form, nullptr, nullptr));
  };
  if (!take_pieces(curves(ksmoment_outline, drawn), disk.areas) ||
      !take_pieces(curves(ksmoment_nodal_lines, drawn), disk.lines) ||
      (style.planes &&
       !take_pieces(curves(ksmoment_dc_nodal_lines, tensor), disk.lines))) {
    return false;
  }
  if (!style.axes || axes[0].value == axes[2].value) return true;
  for (const auto &[axis, letter] :
       {std::pair(axes[0], "T"), std::pair(axes[2], "P")}) {
    DiskPlace place;
    ksmoment_project(axis.azimuth, axis.plunge, half, form, &place.x, &place.y);
    disk.texts.push_back({place, letter});
  }
  return true;
}

bool row_mechanism(Dbptr row, double *tensor) {
  constexpr double kNull = -999.0;
  const ElogScope unheard;
  if (ksmoment_from_row(row, tensor) == 0) return true;
  KSMomentPlane plane;
  double moment = 0.0;
  if (dbgetv(row, "strike1", &plane.strike, "dip1", &plane.dip, "rake1", &plane.rake,
             "moment", &moment, static_cast<char *>(nullptr)) != 0 ||
      plane.strike == kNull || plane.dip == kNull || plane.rake == kNull) {
    return false;
  }
  return ksmoment_from_plane(&plane, moment > 0.0 ? moment : 1.0, tensor) == 0;
}

}  // namespace ksutil::plot
