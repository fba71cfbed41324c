/* moment: checks of arguments and the planes of double couples, for the ksmoment functions. */
#ifndef KSUTIL_MECHANISMS_INTERNAL_MOMENT_H
#define KSUTIL_MECHANISMS_INTERNAL_MOMENT_H

#include <array>

#include "mechanisms/internal/eigen.h"
#include "mechanisms/ksmoment.h"

namespace ksutil::mechanisms {

/* Whether m is there and its elements are finite and in range; false with a message. */
bool is_tensor(const char *who, const double *m);
bool is_plane(const char *who, const KSMomentPlane *plane);

/* A double couple by unit vectors: the normal of a plane, which does not point down, and
 * the slip of its hanging wall. */
struct Couple {
  Vector3 normal{}, slip{};
};
Couple couple_of(const KSMomentPlane &plane);
KSMomentPlane plane_of(const Couple &couple);

/* Whether two eigenvalues differ by no more than rounding, beside the largest of all. */
bool equal_values(const Vector3 &values, std::size_t i, std::size_t j);

/* The two nodal planes of the best double couple, whose T and P axes are given. */
std::array<Couple, 2> couples_of(const Eigen &eigen);

/* A line as plunge and azimuth in degrees. */
void direction_of(const Vector3 &line, double &plunge, double &azimuth);

}  // namespace ksutil::mechanisms
#endif
