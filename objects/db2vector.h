/* db2vector: turns the rows of a database table or view into a vector of points to
 * plot.
 *
 * Threads: those of ksvector; the names of symbols are remembered for the process under
 * the same rule. */
#ifndef KSUTIL_OBJECTS_DB2VECTOR_H
#define KSUTIL_OBJECTS_DB2VECTOR_H

#include "objects/ksvector.h"
#include "platform/db/db.h"
#include "platform/stock/export.h"

extern "C" {

/* Makes a point vector with one point for each row, in the order of the rows.
 *
 * db          a table or a view
 * x, y        expressions of real numbers on its rows: x and y[0] of the points, which
 *             have two y values; y[1] is 0
 * hue,        expressions of real numbers, or null; their smallest and largest values are
 * saturation, taken to the ends of a scale, see below
 * size
 * symbol      an expression of texts, or null: the name of the symbol of each row
 * name, tag   as for ksvector_create
 * fill        not 0: symbols are to be filled with their colour
 * maxsize     size of the points with the largest value; the smallest get 1
 * hue_centre, degrees: hues go from hue_centre - hue_range / 2 (smallest value) to
 * hue_range   hue_centre + hue_range / 2 (largest); all points have hue_centre when there
 *             is not a hue expression.  Above 360 whole degrees are taken off until it is 360
 *             or less, 360 are added below 0
 *
 * With any of the last four expressions each point gets a label
 *     { o=#rrrrggggbbbb f=#rrrrggggbbbb sz=5 sy=circle }
 * which the point owns: outline colour (with hue or saturation), fill colour (the same,
 * with fill), size (with size) and symbol (with symbol).  Colours have lightness 0.6 and
 * saturation 0.3 to 1.0, or 0.9 when there is no expression for it.  Values that all are
 * equal count as the smallest.
 * Symbols are point, cross, x, triangle, square, circle, star, diamond.  Each new name takes
 * the next of them, after the last the first again; from its second row on, in this process,
 * a name has the one that follows.
 *
 * A null field is not a failure: its number or text is used as it is.
 *
 * Returns the vector, which the caller frees as any other; null, with a message, when rows
 * cannot be counted or it cannot be made.  It has no points
 *   - when there are no rows (the expressions are not compiled then);
 *   - when expressions do not compile: each is logged "Can't compile NAME expression 'TEXT'";
 *   - when one fails on a row: logged "failed to evaluate NAME expression 'TEXT'".
 * Ends the process when memory for the values of all rows is short.
 * With verbosity on (set_verbose) a line for each label goes to standard output. */
KSUTIL_API KSVector *db2vector(Dbptr db, const char *x, const char *y, const char *hue,
                               const char *saturation, const char *size,
                               const char *symbol, const char *name, char *tag,
                               int fill, int maxsize, double hue_centre,
                               double hue_range);

}  // extern "C"
#endif
