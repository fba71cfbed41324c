/* geo: distance and azimuth on the sphere, and colours.  Pure functions: safe from any
 * thread. */
#ifndef KSUTIL_PLATFORM_GEO_GEO_H
#define KSUTIL_PLATFORM_GEO_GEO_H

#include "platform/stock/export.h"

extern "C" {

/* Great-circle distance and azimuth between two points on a sphere.
 *
 * lat1 .. lon2   radians, north and east positive; longitudes may be outside +-pi
 * delta          out: distance in radians, 0 to pi
 * azimuth        out: direction at point 1 towards point 2, radians clockwise from
 *                north, in [0, 2 pi); 0 for points that coincide (within 1e-15)
 * Either output may be null.  Accurate to 1e-12 rad relative for points a metre apart,
 * at the poles and at antipodes (Vincenty's special case of the sphere: T. Vincenty,
 * Survey Review 23 (1975), 88-93).  Arguments that are not finite give NaN. */
KSUTIL_API void dist(double lat1, double lon1, double lat2, double lon2, double *delta,
                     double *azimuth);

/* Hue, lightness and saturation to red, green and blue.
 *
 * h         degrees, 0 red, 120 green, 240 blue; taken modulo 360
 * l, s      0 to 1, clamped
 * r, g, b   out: 0 to 1
 * Source: Foley et al., Computer Graphics: Principles and Practice, 2nd ed. (1990),
 * sec. 13.3.5. */
KSUTIL_API void hls2rgb(double h, double l, double s, double *r, double *g, double *b);

}  // extern "C"

namespace ksutil {

/* The distance, and the azimuth at point 1 in [0, 360), of dist; all values in
 * degrees. */
KSUTIL_API double distance_degrees(double lat1, double lon1, double lat2, double lon2);
KSUTIL_API double azimuth_degrees(double lat1, double lon1, double lat2, double lon2);

}  // namespace ksutil
#endif
