/* focal_sphere: curves on the half of a sphere that is seen from above, as pieces on the unit
 * disk. */
#ifndef KSUTIL_MECHANISMS_INTERNAL_FOCAL_SPHERE_H
#define KSUTIL_MECHANISMS_INTERNAL_FOCAL_SPHERE_H

#include <vector>

#include "mechanisms/internal/eigen.h"

namespace ksutil::mechanisms {

/* Which half, and how it is laid on the disk. */
struct View {
  bool upper = false;
  bool stereographic = false;
};

struct DiskPoint {
  double x = 0.0, y = 0.0;  // east, north
};
using Piece = std::vector<DiskPoint>;

/* Where a direction (north, east, down; of unit length) lies; one in the other half is
 * replaced by the opposite one. */
DiskPoint on_disk(Vector3 direction, View view);

/* The lines on which a tensor with these axes radiates no P. */
std::vector<Piece> nodal_lines(const Eigen &eigen, View view);
/* The two planes of its best double couple; none when all values are equal. */
std::vector<Piece> plane_lines(const Eigen &eigen, View view);
/* The edges of the area where P is positive, each closed; even-odd. */
std::vector<Piece> positive_areas(const Eigen &eigen, View view);

}  // namespace ksutil::mechanisms
#endif
