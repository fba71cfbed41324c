/* error_ellipse: turns covariances of locations into axes at a level of confidence. */
#ifndef KSUTIL_FORMATS_EXCHANGE_ERROR_ELLIPSE_H
#define KSUTIL_FORMATS_EXCHANGE_ERROR_ELLIPSE_H

#include "formats/exchange/records.h"

namespace ksutil::exchange {

/* The level of one standard deviation of one quantity, which errors without a level have. */
inline constexpr double kOneSigma = 0.6827;

/* The value that a chi-square variable of 1, 2 or 3 degrees of freedom does not exceed
 * with probability 0 < p < 1 (Abramowitz and Stegun 1964, 26.4).  0 for another p. */
double chi_square(int freedom, double p);

/* The ellipse of the epicentre at level p: the axes are k times the square roots of the
 * eigenvalues of the horizontal covariance, k^2 = chi_square(2, p) (Flinn 1965, Reviews of
 * Geophysics 3). */
struct Ellipse {
  double major = -1.0, minor = -1.0;  // km
  double strike = -1.0;               // degrees clockwise from north, 0 to 180
};
/* All -1.0 when the covariance lacks its horizontal part or it is not one. */
Ellipse ellipse_of(const Covariance &covariance, double p);

/* The covariance behind an ellipsoid at level p: half axes in km, the plunge and azimuth
 * of the longest, and the rotation about it, in degrees, as QuakeML 1.2 has them: the axes
 * north, east and down are turned about down by the azimuth, about the new east by the
 * plunge and about the major axis by the rotation; the second axis is the intermediate
 * one. */
struct Ellipsoid {
  double major = -1.0, intermediate = -1.0, minor = -1.0;
  double plunge = 0.0, azimuth = 0.0, rotation = 0.0;
};
Covariance covariance_of(const Ellipsoid &ellipsoid, double p);

}  // namespace ksutil::exchange
#endif
