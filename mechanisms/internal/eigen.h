/* eigen: eigenvalues and eigenvectors of symmetric 3 by 3 matrices, and small vectors. */
#ifndef KSUTIL_MECHANISMS_INTERNAL_EIGEN_H
#define KSUTIL_MECHANISMS_INTERNAL_EIGEN_H

#include <array>

namespace ksutil::mechanisms {

using Vector3 = std::array<double, 3>;

double dot(const Vector3 &a, const Vector3 &b);
Vector3 cross(const Vector3 &a, const Vector3 &b);
/* a x + b y. */
Vector3 combine(double a, const Vector3 &x, double b, const Vector3 &y);
Vector3 unit(const Vector3 &a);
inline Vector3 opposite(const Vector3 &a) { return {-a[0], -a[1], -a[2]}; }

/* x north, y east, z down: xx, yy, zz, xy, xz, yz. */
using Tensor = std::array<double, 6>;

/* From r up, t south, p east: mrr, mtt, mpp, mrt, mrp, mtp; and back. */
Tensor ned_of(const double *m);
void put_up_south_east(const Tensor &tensor, double *m);

Vector3 times(const Tensor &tensor, const Vector3 &vector);

/* Values descend; the vectors (north, east, down) are right-handed, and the first two do
 * not point up. */
struct Eigen {
  Vector3 values{};
  std::array<Vector3, 3> vectors{};
};
Eigen eigen_of(const Tensor &tensor);

}  // namespace ksutil::mechanisms
#endif
