/* ksmoment: seismic moment tensors and double couples.
 *
 * A tensor m is six numbers in N m, in the order mrr, mtt, mpp, mrt, mrp, mtp, in the local
 * system r up, t south, p east.  A double couple is one of its two nodal planes: strike, dip
 * and rake in degrees (Aki & Richards 2002, fig. 4.20), the strike clockwise from north
 * with the plane dipping to its right, the rake the direction in which the hanging wall
 * moves, measured in the plane from the strike, positive up-dip.
 *
 * Any six finite numbers of at most 1e150 are a tensor: explosions and zero as well.
 * Where eigenvalues are equal, or a plane is horizontal, directions are not determined; the
 * functions then give one of the possible answers, always the same for the same tensor.
 * Results: 0, or -1 with a message in the error register and the outputs unchanged: an
 * argument is null, not finite or out of its range.  Functions that give a number give NaN
 * instead.
 * Threads: safe from any thread, but for those that make vectors (see ksvector.h) and
 * those that take a Dbptr (see db.h).
 *
 * Sources: Aki & Richards, Quantitative Seismology, 2nd ed. (2002), sec. 4.2 to 4.4 and
 * box 4.4; Jost & Herrmann, Seism. Res. Lett. 60 (1989), 37-57; Kagan, Geophys. J. Int.
 * 106 (1991), 709-716; IASPEI, Summary of Magnitude Working Group recommendations (2013). */
#ifndef KSUTIL_MECHANISMS_KSMOMENT_H
#define KSUTIL_MECHANISMS_KSMOMENT_H

#include "objects/ksvector.h"
#include "platform/db/db.h"
#include "platform/stock/export.h"

/* A principal axis as a line: which of its two directions points down. */
struct KSMomentAxis {
  double value;   // eigenvalue, N m
  double plunge;  // degrees down from horizontal, 0 to 90
  double
      azimuth;  // of the end that points down, degrees clockwise from north, [0, 360)
};

struct KSMomentPlane {
  double strike;  // degrees, [0, 360)
  double dip;     // degrees from horizontal, 0 to 90
  double rake;    // degrees, (-180, 180]
};

/* Shares of the parts of a tensor, in percent; |iso| + |clvd| + dc = 100.  All are 0 for
 * the zero tensor. */
struct KSMomentParts {
  double iso;   // -100 to 100, positive for explosions
  double dc;    // 0 to 100
  double clvd;  // -100 to 100, positive when the tension axis dominates
};

/* Which half of the focal sphere is seen from above, and how it is laid on the unit disk:
 * with equal areas (Lambert) or with equal angles (stereographic). */
enum { KSMOMENT_LOWER = 0, KSMOMENT_UPPER = 1 };
enum { KSMOMENT_EQUAL_AREA = 0, KSMOMENT_STEREOGRAPHIC = 1 };

extern "C" {

/* To and from the system x north, y east, z down.
 *
 * ned   [6]: mxx, myy, mzz, mxy, mxz, myz; may be the same array as m
 * mxx = mtt, myy = mpp, mzz = mrr, mxy = -mtp, mxz = mrt, myz = -mrp (Aki & Richards,
 * box 4.4). */
KSUTIL_API int ksmoment_to_ned(const double *m, double *ned);
KSUTIL_API int ksmoment_from_ned(const double *ned, double *m);

/* Eigenvalues and unit eigenvectors (Jacobi rotations; Golub & Van Loan, Matrix
 * Computations, sec. 8.5).
 *
 * values    out: [3], N m, descending
 * vectors   out: [3][3], vector i at vectors + 3 i in r, t, p; right-handed, the first two
 *           do not point up */
KSUTIL_API int ksmoment_eigen(const double *m, double *values, double *vectors);

/* axes   out: [3], the axes T (of the largest eigenvalue), N and P */
KSUTIL_API int ksmoment_axes(const double *m, KSMomentAxis *axes);

/* The scalar moment in N m: the square root of half the sum of the squares of all nine
 * elements (Silver & Jordan, Geophys. J. R. astr. Soc. 70 (1982), 755-787); for a double
 * couple its moment. */
KSUTIL_API double ksmoment_moment(const double *m);
/* The moment in N m of the best double couple: half the difference of the largest and the
 * smallest eigenvalue, which the global CMT catalogue calls the scalar moment (Dziewonski,
 * Chou & Woodhouse, J. Geophys. Res. 86 (1981), 2825-2852). */
KSUTIL_API double ksmoment_dc_moment(const double *m);
/* Mw = (log10 M0 - 9.1) / 1.5 of a moment in N m above 0, and back (IASPEI 2013). */
KSUTIL_API double ksmoment_magnitude(double moment);
KSUTIL_API double ksmoment_moment_of_magnitude(double magnitude);

/* With the deviatoric eigenvalue of the smallest size over that of the largest,
 * epsilon = -m_small / |m_large|: the isotropic share is tr(m) / 3 over |tr(m) / 3| +
 * |m_large|; of the rest 2 |epsilon| is CLVD with the sign of epsilon (Jost & Herrmann
 * 1989, eq. 21; Vavrycuk, J. Geophys. Res. 106 (2001), 16339-16355). */
KSUTIL_API int ksmoment_parts(const double *m, KSMomentParts *parts);

/* The nodal planes of the best double couple.
 *
 * planes   out: [2]; the first is the one that dips less, or, when both dip alike, the one
 *          with the smaller strike
 * -1 also for a tensor without a double couple: all eigenvalues are equal. */
KSUTIL_API int ksmoment_planes(const double *m, KSMomentPlane *planes);
/* The other nodal plane of a double couple; both arguments may be one. */
KSUTIL_API int ksmoment_other_plane(const KSMomentPlane *plane, KSMomentPlane *other);
/* The tensor of a double couple: moment in N m, 0 or above; any finite strike and rake, dip
 * 0 to 90 degrees. */
KSUTIL_API int ksmoment_from_plane(const KSMomentPlane *plane, double moment,
                                   double *m);
/* The unit vectors of a double couple in north, east, down.
 *
 * normal   out: [3], of the plane, not pointing down: from the foot wall to the hanging wall
 * slip     out: [3], of the hanging wall
 * either may be null. */
KSUTIL_API int ksmoment_slip(const KSMomentPlane *plane, double *normal, double *slip);

/* The least angle in degrees, 0 to 120, of a rotation that takes the axes of the best
 * double couple of one tensor to those of the other (Kagan 1991). */
KSUTIL_API double ksmoment_rotation(const double *m, const double *other);

/* The far-field radiation of P, SV and SH in N m along a ray that leaves at an azimuth
 * (degrees clockwise from north) and a take-off angle (degrees from straight down, 0 to
 * 180): the tensor times the ray, along the directions of Aki & Richards, eq. 4.88.  P is
 * positive away from the source, SV in the direction in which the take-off angle grows, SH
 * clockwise seen from above.
 * p, sv, sh   out; each may be null */
KSUTIL_API int ksmoment_radiation(const double *m, double azimuth, double takeoff,
                                  double *p, double *sv, double *sh);

/* Where a direction lies on the unit disk, x east, y north.
 *
 * azimuth, plunge   degrees; plunge -90 to 90, positive down.  A direction in the other
 *                   half of the sphere is replaced by the opposite one
 * x, y              out */
KSUTIL_API int ksmoment_project(double azimuth, double plunge, int hemisphere,
                                int projection, double *x, double *y);

/* Curves on the focal sphere as new point vectors: x east, y north on the unit disk, pieces
 * separated by a point whose x and y are gaps (see tr_isgap).  A vector may have no points.
 * Null with a message on failure; name and tag as for ksvector_create.
 *
 * ksmoment_nodal_lines: where the tensor radiates no P.  No points when P has one sign
 *   everywhere, as for explosions, and for the zero tensor; else one closed curve, or two
 *   from rim to rim.
 * ksmoment_dc_nodal_lines: the two nodal planes of the best double couple, each from rim to
 *   rim; a horizontal plane is the rim.  No points when all eigenvalues are equal.
 * ksmoment_outline: the edge of the area with compressional (outward) first motion, closed
 *   pieces whose last point repeats the first.  A piece inside another one is a hole: fill
 *   by the even-odd rule.  The whole rim for an explosion; no points for an implosion and
 *   for the zero tensor. */
KSUTIL_API KSVector *ksmoment_nodal_lines(const double *m, int hemisphere,
                                          int projection, const char *name, char *tag);
KSUTIL_API KSVector *ksmoment_dc_nodal_lines(const double *m, int hemisphere,
                                             int projection, const char *name,
                                             char *tag);
KSUTIL_API KSVector *ksmoment_outline(const double *m, int hemisphere, int projection,
                                      const char *name, char *tag);

/* The tensor in a record of mt, or of a view with one.  -1 also when an element is null. */
KSUTIL_API int ksmoment_from_row(Dbptr row, double *m);
/* Writes the tensor and all that follows from it (moment, mw, both planes, the axes and the
 * shares of the parts) into a record of mt, or its scratch record, in one write. */
KSUTIL_API int ksmoment_to_row(const double *m, Dbptr row);

}  // extern "C"
#endif
