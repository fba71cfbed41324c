/* ksvector: points with an x value, one or more y values and an optional label, or a
 * uniformly sampled time series; addressed by the tags "vect0", "vect1", ...
 *
 * A vector whose `points` is not null is a point vector; otherwise it is time-sampled: x
 * of sample i is time + i * dt, there is one y value, and a sample above 1e30 is a gap.
 *
 * Tags: creators write one into `tag`, a buffer of KS_TAG_SIZE bytes, and keep the record
 * under it until it is freed; with a null `tag` the record is the caller's alone, no tag
 * finds it and no number is used up.  A creator that fails returns null, has freed what it
 * made, and leaves an empty tag.  Names need not be unique: they are what
 * ksvector_free_tag and ksvector_get_heap_size group by, and may be null.
 * Records may be read, and their values written, through the fields below; what a record
 * owns is allocated and freed by this family alone.  Texts and arrays passed in are copied.
 * After writing points[i].x through a record that was looked up before the last
 * ksvector_eval, call ksvector_get_vector or ksvector_resize before the next one.
 * Threads: all calls of the family from one thread at a time.
 * Errors: -1 or null, with "function: text.\n" in the error register (errno's text after
 * it when a system call or memory failed); outputs are written on success only.  An
 * unknown tag adds "function: ksvector_get_vector() error.\n". */
#ifndef KSUTIL_OBJECTS_KSVECTOR_H
#define KSUTIL_OBJECTS_KSVECTOR_H

#include <stdint.h>

#include "objects/tags.h"
#include "platform/db/db.h"
#include "platform/pf/pf.h"
#include "platform/stock/export.h"
#include "platform/stock/tbl.h"

struct KSVectorPoint {
  double x;
  double *y;    // [ny]; two points may share one after ksvector_append
  char *label;  // null: none
};

namespace ksutil {
struct Segment;  // platform/trace/segment.h
}

struct KSVectorStorage;  // private to the family

struct KSVector {
  char ident[8];          // "ksvec"
  int32_t ny;             // y values per point, at least 1; 1 when time-sampled
  int32_t npts;           // points in use
  int32_t nalloc;         // point slots, or samples, allocated
  char *name;             // the caller's name, or null
  KSVectorPoint *points;  // [nalloc]; null for a time-sampled vector
  double time;            // x of the first sample
  double dt;              // sample interval
  double *data;           // [nalloc] samples; null for a point vector
  /* sizeof(KSVector), the name with its NUL, and for each slot sizeof(KSVectorPoint) and
   * its ny y values, or its sample.  Labels are not counted. */
  int64_t heap_size;
  KSVectorStorage *storage;
};

extern "C" {

/* The record under a tag.  Null with one of "ksvector_get_vector: No vectors defined",
 * "ksvector_get_vector: Cannot find %s" and "ksvector_get_vector: Wrong ident for %s".
 * Because the caller may write x values through the record, the next ksvector_eval looks
 * at all points anew. */
KSUTIL_API KSVector *ksvector_get_vector(const char *tag);

/* An empty point vector with zeroed slots: a fifth more than `hint`, 100 for a hint of 0
 * or less.  Fails when ny is below 1. */
KSUTIL_API KSVector *ksvector_create(int hint, int ny, const char *name, char *tag);

/* A time-sampled vector.
 *
 * samples     [nsamp], may be null when nsamp is 0 or less; there is room for a fifth more,
 *             for 1000 when nsamp is 0 or less
 * time        x of the first sample
 * samprate    samples for each unit of x, finite and above 0 */
KSUTIL_API KSVector *ksvector_create_tsamp(int nsamp, const double *samples,
                                           const char *name, char *tag, double time,
                                           double samprate);

/* A time-sampled vector of the samples of a segment, which are copied once and keep their
 * values: calib is not applied.  Fails for a sample rate that is not finite and positive,
 * and for more than INT_MAX samples. */
KSUTIL_API KSVector *ksvector_create_from_segment(const ksutil::Segment &segment,
                                                  const char *name, char *tag);

/* A copy of the same form under another name and tag; `newtag` may be `tag`. */
KSUTIL_API KSVector *ksvector_copy(const char *tag, const char *name, char *newtag);

/* A copy with x, the y values of column iy and the labels.  iy below 0 copies all, and so
 * does any iy for a time-sampled vector. */
KSUTIL_API KSVector *ksvector_copy_1y(const char *tag, int iy, const char *name,
                                      char *newtag);

/* Reads an instrument response of frequency, amplitude and phase.
 *
 * The first line that is neither empty nor begins with "#" has four words or more, the
 * second a number and the fourth "fap" or "fap2"; the next such line begins with the
 * number of rows n; each further one is a row of three ("fap": x is the frequency, ny 2)
 * or seven ("fap2": ny 6) numbers, what follows them is ignored.  Rows with fewer numbers
 * are left out, rows after the n-th are not read, fewer than n are not an error.  Of a
 * line only the first 1023 bytes are read: numbers beyond them are lost without a message.
 * A longer line with a null byte is not text and cannot be read.
 * *status     0; 1 what the file says cannot be parsed; -1 it cannot be read, or memory or
 *             the registry failed */
KSUTIL_API KSVector *ksvector_create_response_fap(const char *file, const char *name,
                                                  char *tag, int *status);

/* Reads a table of a parameter file: in each row x, then one to ten y values, as many in
 * every row; what follows the numbers is ignored.
 * *status     0; 1 no such table, an empty table, or a row that does not fit; -1 memory or
 *             the registry failed */
KSUTIL_API KSVector *ksvector_create_from_pf(Pf *pf, const char *key, const char *name,
                                             char *tag, int *status);

/* Reads a text table with a point in each line, the columns separated by blanks, commas
 * and tabs and counted from 0.
 *
 * nskip       lines to skip at first; after them empty lines and those that begin with
 *             "#" are skipped, and a word that begins with "#" ends its line
 * xcol        column of x
 * ny, ycols   [ny] columns of y; with ny 0 the one y value is in column 1
 * labelcol    column of the labels, -1 for none
 * tag         must not be null
 *
 * A column may serve several purposes.  A word that is not a number counts as 0.  A line
 * without x, or without any y value, is left out.  A line is read only until x and all y
 * values are found: a label behind them is not seen.  A y column that a line lacks keeps
 * the value of the line before, 0 in the first.  Of a line 1023 bytes are read; a longer
 * line with a null byte is an error. */
KSUTIL_API KSVector *ksvector_read(const char *file, const char *name, int nskip,
                                   int xcol, int ny, const int *ycols, int labelcol,
                                   char *tag);

/* A copy of the first of several point vectors (tags in a list of char *), each of whose y
 * values becomes a statistic over those of all at the same point and column.  Vectors with
 * other x values, npts or ny, and time-sampled ones, are left out.
 *
 * type        "max", "min", "median" (the mean of the middle two of an even number), or
 *             "amax" and "amin", of absolute values
 * `tag` may be one of `tags`.  An unknown tag and a time-sampled first vector are reported
 * in ksvector_append's name, with the result's tag. */
KSUTIL_API KSVector *ksvector_stats(Tbl *tags, const char *type, const char *name,
                                    char *tag);

/* Doubles nalloc until it exceeds npts; new slots are zeroed.  Also makes ksvector_eval
 * look at all x values anew. */
KSUTIL_API int ksvector_resize(const char *tag);

/* Inserts a point (y is [ny]) before point `index`; at the end for an index outside
 * 0..npts.  A null or an empty label is none.
 * After an insertion before the end, points index and index + 1 share one y array, which
 * holds the new values: the y values of the point that made room are lost, and whatever
 * scales y afterwards scales the shared values twice. */
KSUTIL_API int ksvector_append(const char *tag, int index, const double *y,
                               const char *label, double x);

/* Copies out point `index`: y is [ny]; `label` (may be null) must have room for the label,
 * and stays untouched when there is none. */
KSUTIL_API int ksvector_get_point(const char *tag, int index, double *x, double *y,
                                  char *label);

/* The y values at x, into y[ny], by linear interpolation.
 *
 * Points: of those in ascending order (the last x not below the first) the first one with
 * x_i >= x and the one before it; before the first and behind the last point their values
 * hold.  Of points in descending order the same, counted from the last.  When x is that of
 * the point found and of its neighbour (after it in the order of counting), the mean of
 * both.  The rule holds for x values in any order.
 * Samples: between the two around x; a gap value (finite, above 1e30, a single-precision
 * number) outside the series and when a sample that is needed is a gap.
 * With one point or sample, its values for every x; with none, an error.
 *
 * Time: the first evaluation after a change or after ksvector_get_vector takes a time in
 * proportion to npts, later ones in proportion to its logarithm.  They search an index of
 * the x values and check the point that they find, and the one before it, against the
 * record.  This check finds every x value that was written at these two points or leaves
 * all points in order; it misses an x value out of order elsewhere.  Hence the rule at the
 * top: call ksvector_get_vector after writing points[i].x through an older pointer. */
KSUTIL_API int ksvector_eval(const char *tag, double *y, double x);

/* Overwrites x, all y values and, unless `label` is null, the label (an empty one removes
 * it) of point `index`; not for time-sampled vectors. */
KSUTIL_API int ksvector_put(const char *tag, int index, const double *y,
                            const char *label, double x);

/* Overwrites the y values and the label in the same way; of a time-sampled vector the
 * sample. */
KSUTIL_API int ksvector_puty(const char *tag, int index, const double *y,
                             const char *label);

/* Extremes of x and of column iy, of all columns for iy below 0.  Gaps count as values. */
KSUTIL_API int ksvector_maxmin(const char *tag, int iy, double *xmin, double *xmax,
                               double *ymin, double *ymax);

/* The index of the point with the least distance sqrt((x - x_i)^2 + (y - y_i)^2), of
 * equal ones the first, 0 when none is below 9e99; for a time-sampled vector that of the
 * sample at or before x, 0 and npts - 1 beyond the ends, 0 for NaN.
 * -1 no points, -2 unknown tag, -3 iy beyond the columns of a point vector, -4 iy below 0,
 * or above 0 for a time-sampled vector. */
KSUTIL_API int ksvector_nearest(const char *tag, int iy, double x, double y);

/* Copies that the caller frees with free, each array and each label.
 *
 * *npts       out: points
 * *iy         in: column; below 0 all of them, and then out: ny
 * *x          out: [npts]
 * *y          out: double [npts], of one column; for all, double *[ny], each [npts]
 * *labels     out: char *[npts], null where there is no label; `labels` may be null */
KSUTIL_API int ksvector_get_points(const char *tag, int *npts, int *iy, double **x,
                                   void **y, char ***labels);

/* Projects points with the longitude in x and the latitude in y[0], in degrees, around a
 * point: x becomes the east, y[0] the north component that latlon2xydel gives. */
KSUTIL_API int ksvector_transform_edp(const char *tag, double lat0, double lon0);

/* x becomes 1/x; 0 becomes 1e30 and 1e30 becomes 0.  Point vectors only. */
KSUTIL_API int ksvector_transform_invertx(const char *tag);

/* Multiplies column iy (below 0: all) by (2 pi x)^power, 1e30 where x is 0 and the power
 * negative.  Power 0 does nothing.  Exact as repeated multiplication or division gives it
 * up to 100,000 of them.  Point vectors only. */
KSUTIL_API int ksvector_transform_spec(const char *tag, int power, int iy);

/* Multiplies column iy (below 0: all), or the samples, by `gain`; 1 does nothing. */
KSUTIL_API int ksvector_transform_ygain(const char *tag, int iy, double gain);

/* Reads the traces of a blob file ("-": standard input) into a trace database and makes a
 * time-sampled vector, without a name, of each.
 *
 * Each trace is two 4-byte big-endian integers, the length of a record of table "trace"
 * and the number of samples, then that record, then the samples as 4-byte big-endian
 * floats.  The record's "data" becomes a copy of the samples that the database owns, its
 * "comment" the tag of the vector; the address in the file's record is not used.
 * *trace      in/out: the database; dbinvalid() for a new one, which the caller destroys
 *             with trdestroy, also when a later trace fails
 * tag         receives the tag of the last vector, empty when there is none; may be null
 * 0, or -1: the traces before the fault then stay, in the database and as vectors.  A file
 * that ends within the first 8 bytes of a trace ends there without an error. */
KSUTIL_API int ksvector_read_from_trblob(const char *file, Dbptr *trace, char *tag);

/* Free the vector under a tag, a record (registered or not; null accepted) and all vectors
 * of a name.  They always return 0; an unknown tag or name is not an error and leaves
 * no message. */
KSUTIL_API int ksvector_free(const char *tag);
KSUTIL_API int ksvector_free_tag(const char *name);
KSUTIL_API int ksvector_free_vector(KSVector *vector);

/* Counts vectors and sums their heap_size: those of a name; for a null name the one under
 * `tag`; with both null all registered ones.  0; -1 with both outputs 0. */
KSUTIL_API int ksvector_get_heap_size(const char *name, const char *tag, int *count,
                                      long *bytes);

/* The equidistant projection of point 1 around point 0: the great-circle distance in
 * degrees along the azimuth at point 0, split into *x (east) and *y (north); both 0 for
 * equal points.
 *
 * flag             reserved, 0
 * lat0 .. lon1     degrees
 * Source: J. P. Snyder, Map Projections: A Working Manual, USGS Professional Paper 1395
 * (1987), p. 191-202 (azimuthal equidistant). */
KSUTIL_API void latlon2xydel(double *x, double *y, int flag, double lat0, double lon0,
                             double lat1, double lon1);

}  // extern "C"
#endif
