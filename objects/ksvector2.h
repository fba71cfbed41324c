/* ksvector2: vectors in one contiguous array each, for callers that create and free many
 * of them: freed records are kept in a cache and serve later vectors of a similar size.
 *
 * A vector holds points (an x value, ny y values and an optional label each) or, when it
 * is time-sampled, one uniformly sampled series: sample i belongs to x = time + i * dt, and
 * a sample above 1e30 marks a gap.
 *
 * Tags are "2vect0", "2vect1", ...; a tag buffer holds KS_TAG_SIZE bytes and is left empty
 * when its function fails.  A function that creates a vector registers it when it is given
 * a tag buffer; with a null one only the caller has the record and frees it with
 * ksvector2_free_vector.
 * Ownership: a record and all behind its pointers belong to the family, and are valid until
 * the vector is freed; what is handed out through out-arguments is the caller's, to be
 * freed with free().
 * Threads: one thread at a time for the whole family.
 * Errors: -1 or null, with one message in the name of each function on the way out.
 * Out-arguments change only on success. */
#ifndef KSUTIL_OBJECTS_KSVECTOR2_H
#define KSUTIL_OBJECTS_KSVECTOR2_H

#include "objects/tags.h"
#include "platform/db/db.h"
#include "platform/pf/pf.h"
#include "platform/stock/export.h"
#include "platform/stock/tbl.h"

namespace ksutil {
struct Segment;  // platform/trace/segment.h
}

struct ksvector2 {
  char ident[8];  // "ksvec2"
  int tsamp;      // 1: time-sampled
  int ny;         // y values per point in use; 1 when time-sampled
  int npts;       // points, or samples, in use
  char name[64];  // the caller's name, cut to 63 characters; "" for none
  double time;    // time-sampled: x of the first sample, epoch seconds
  double dt;      // time-sampled: sample interval, s
  int nalloc;     // capacity in points or samples
  int nyalloc;    // y values per point that the array is laid out for
  int size;       // bytes of `data`
  double *data;   // [nalloc][nyalloc + 1]: x, then the y values; or [nalloc] samples
  char **labels;  // [nalloc], each null or a text of the vector's; null for no labels
  int heap_size;  // bytes of the record and of `data`, and the characters of all labels
};

extern "C" {

/* -- The cache -- */

/* Makes the cache when there is none, and sets the bytes that it may hold (counted by
 * heap_size).  0, or -1.  A lower limit than what it holds frees nothing, but nothing is
 * added until enough has been taken out.  Without a cache, and with a limit of 0, each free
 * releases the memory. */
KSUTIL_API int ksvector2_set_cache(long max_bytes);

/* Non-zero: prints a line on standard output for each use of memory and of the cache.
 * Initially off. */
KSUTIL_API void ksvector2_set_verbose(int on);

/* Counts the family's calls of malloc or calloc, realloc, free and strdup.  Any pointer may
 * be null. */
KSUTIL_API void ksvector2_get_counters(long *mallocs, long *reallocs, long *frees,
                                       long *strdups);

/* A record with no points in use: the best of the cache, or a new one.
 *
 * npts    points, or samples, that it must have room for
 * ny      y values per point, 1 or more; not looked at for a time-sampled one
 * tsamp   non-zero: time-sampled
 * From the cache comes the record of the same kind (and the same nyalloc) with the least
 * room beyond npts, less than 100 000 000; the earlier of two equal ones.  A new one has
 * room for trunc(1.2 * npts) points, at least 100.  All data are zero and the name is empty;
 * but the heap_size of one from the cache still counts the labels that it had before. */
KSUTIL_API ksvector2 *ksvector2_find_space(int npts, int ny, int tsamp);

/* Frees the labels, takes the record out of the registry and puts it into the cache when
 * there is room, else frees it.  A null record, or one that is not a ksvector2, is ignored; a
 * record that is in the cache already stays there.  The freed labels stay counted in
 * heap_size, and so in what the cache holds. */
KSUTIL_API void ksvector2_free_vector(ksvector2 *vector);

/* Frees the vector of a tag; an unknown tag is not an error and logs nothing.  Always 0. */
KSUTIL_API int ksvector2_free(const char *tag);

/* Frees all registered vectors of a name; "" means those without one.  Always 0. */
KSUTIL_API int ksvector2_free_tag(const char *name);

/* -- Vectors -- */

/* The vector of a tag, or null. */
KSUTIL_API ksvector2 *ksvector2_get_vector(const char *tag);

/* An empty vector of points.  ny is 1 or more; `name` may be null. */
KSUTIL_API ksvector2 *ksvector2_create(int npts, int ny, const char *name, char *tag);

/* A time-sampled vector.
 *
 * samples    [nsamp], copied; may be null when nsamp is 0
 * time       epoch seconds of the first sample
 * samprate   samples per second, above 0 */
KSUTIL_API ksvector2 *ksvector2_create_tsamp(int nsamp, const double *samples,
                                             const char *name, char *tag, double time,
                                             double samprate);

/* A time-sampled vector of the samples of a segment, which are copied once and keep their
 * values: calib is not applied.  Null for a sample rate that is not finite and positive,
 * and for more than INT_MAX samples. */
KSUTIL_API ksvector2 *ksvector2_create_from_segment(const ksutil::Segment &segment,
                                                    const char *name, char *tag);

/* A time-sampled vector from the earliest sample of [count] segments to the latest.
 *
 * Where segments overlap, the later one in the list gives the samples, but its gaps leave
 * those of the earlier ones; samples that no segment has are gaps.  Each segment is put at
 * the samples nearest to its times, at most half a sample interval away.  As above; null
 * also without samples, for sample rates that differ by so much that a segment would be
 * more than half a sample longer or shorter, and for more than 250 000 000 samples from
 * the first to the last. */
KSUTIL_API ksvector2 *ksvector2_create_from_segments(const ksutil::Segment *segments,
                                                     int count, const char *name,
                                                     char *tag);

/* A time-sampled vector of the samples of a waveform in a database.
 *
 * row            a row of "wfdisc", whose samples are read from its file, or of "trace",
 *                whose samples are in memory; or a record of a view that has one of them
 * tstart, tend   epoch seconds: the samples from tstart to tend, both included within a
 *                hundredth of a sample interval; both 0: all samples
 * The values are those of the file or of memory, without calib (ksvector2_transform_ygain
 * multiplies by it); gaps of a trace remain gaps.  Reads the data types s4, s3, s2, i4, i2,
 * t4, t8, f4, f8, c0, a0 and b0 (see platform/trace/waveform.h).  Returns null for other
 * types, for a file that is too short, and for a row without samples in the window. */
KSUTIL_API ksvector2 *ksvector2_create_tsamp_from_db(Dbptr row, const char *name,
                                                     char *tag, double tstart,
                                                     double tend);

/* A vector of the rows of an amplitude and phase file.
 *
 * status   out: 0 read, 1 not understood, -1 not opened or memory short
 * Empty lines and lines that begin with "#" do not count.  The first line has four words or
 * more; the fourth is "fap" (rows of frequency in Hz, amplitude and phase: ny 2) or "fap2"
 * (frequency and six values: ny 6).  The second line is the number of rows; then come the
 * rows.  Rows that lack numbers are passed over, rows beyond the number not read; with
 * fewer rows than announced those that are there make the vector. */
KSUTIL_API ksvector2 *ksvector2_create_response_fap(const char *file, const char *name,
                                                    char *tag, int *status);

/* A vector of a table of a parameter file: each row is x and 1 to 10 y values, as many in
 * every row.  status as above. */
KSUTIL_API ksvector2 *ksvector2_create_from_pf(Pf *pf, const char *key,
                                               const char *name, char *tag,
                                               int *status);

/* A vector of columns of a text file.
 *
 * nskip      lines to leave out at the beginning
 * xcol       column of x; columns count from 0, between blanks, tabs and commas
 * ny,        number of y values and their columns [ny]; ny 0: one y value, column 1
 * ycols
 * labelcol   column of the label; below 0: none
 * Empty lines, and what follows "#" at the beginning of a word, are passed over; so are
 * lines without x or without any y value.  A y value that a line lacks is that of the line
 * before, 0 in the first one.  A label is seen only before the last column that is needed.
 * A word that is not a number counts as 0. */
KSUTIL_API ksvector2 *ksvector2_read(const char *file, const char *name, int nskip,
                                     int xcol, int ny, const int *ycols, int labelcol,
                                     char *tag);

/* Reads a file of traces into a trace database, and makes a time-sampled vector of each.
 *
 * file    "-": standard input.  For each trace two 4-byte big-endian integers: the bytes of
 *         a row of the table "trace" and the number of samples; the row; the samples, 4-byte
 *         big-endian floating point
 * trace   in/out: the trace database; an invalid one becomes a new one (trnew), which is
 *         the caller's even when reading fails later
 * tag     out, may be null: tag of the last vector
 * Each row gets its samples, which belong to the database, in "data", and the tag of its
 * vector, which has a copy of them, in "comment".  0 at the end of the file, or -1 with the
 * traces before the failure in place. */
KSUTIL_API int ksvector2_read_from_trblob(const char *file, Dbptr *trace, char *tag);

/* A vector with the same points and labels, or samples.  `new_tag` must not be `tag`: it is
 * emptied first. */
KSUTIL_API ksvector2 *ksvector2_copy(const char *tag, const char *name, char *new_tag);

/* Gives the record its array of labels, all null, when it has none.  0 or -1. */
KSUTIL_API int ksvector2_make_lblbuf(ksvector2 *vector);

/* Prints "index: x y ..." with three decimals for each point on standard output, each line
 * cut to 128 characters; nothing for a time-sampled vector.  0 or -1. */
KSUTIL_API int ksvector2_dump(const char *tag);

/* How many vectors there are, and the sum of their heap_size: of those of a name, else of
 * one tag, else (both null) of all that are registered.  0 or -1. */
KSUTIL_API int ksvector2_get_heap_size(const char *name, const char *tag, int *count,
                                       long *bytes);

/* -- Points and samples --
 *
 * Functions that take a tag fail with a message for one that is unknown. */

/* Doubles the capacity until there is room for one point more than npts.  0 or -1. */
KSUTIL_API int ksvector2_resize(const char *tag);

/* Changes the number of y values per point, 1 or more; not of a time-sampled vector.
 * Values that come into use are 0.  Fewer than before leave the array as it is laid out
 * (nyalloc), more than nyalloc lay it out anew.  0 or -1. */
KSUTIL_API int ksvector2_resize_y(const char *tag, int ny);

/* Inserts a point before the point `index`; any index outside 0..npts-1 appends.
 *
 * y       [ny], not of the vector's own array
 * label   copied; null or "": none
 * 0; -1 also for a time-sampled vector. */
KSUTIL_API int ksvector2_append(const char *tag, int index, const double *y,
                                const char *label, double x);

/* Overwrites point `index`, 0..npts-1: x and the y values, or (puty) the y values or the
 * sample only.  A label that is not null replaces the point's, "" removes it; a series has
 * no labels.  0; -1 also for ksvector2_put on a time-sampled vector. */
KSUTIL_API int ksvector2_put(const char *tag, int index, const double *y,
                             const char *label, double x);
KSUTIL_API int ksvector2_puty(const char *tag, int index, const double *y,
                              const char *label);

/* Copies out point `index`, 0..npts-1: x, [ny] y values, and the label, with its NUL, when
 * `label` is not null and the point has one (else the buffer is untouched).  0 or -1. */
KSUTIL_API int ksvector2_get_point(const char *tag, int index, double *x, double *y,
                                   char *label);

/* Copies out all points.
 *
 * npts     out: how many
 * iy       in/out: the column of y, 0..ny-1; below 0 all columns, and then set to ny
 * x        out: new array [npts]
 * y        out: new array double [npts]; for all columns double *[ny], each new
 * labels   out, may be null: new array [npts] of new texts, null where there is none
 * 0 or -1. */
KSUTIL_API int ksvector2_get_points(const char *tag, int *npts, int *iy, double **x,
                                    void **y, char ***labels);

/* Copies out a series: its count, the epoch seconds of its first sample, its sample rate
 * (1/s) and its samples, a new array [npts].  0; -1 also for a vector of points. */
KSUTIL_API int ksvector2_get_tsamp(const char *tag, int *npts, double *time,
                                   double *samprate, double **samples);

/* -- Values -- */

/* Interpolates between points.
 *
 * y   out: [ny] at x; of a series one value
 * Points ascending in x (the last not below the first), or else descending: on the line
 * between the neighbours of x, and beyond either end the value there.  At an x that two
 * neighbouring points share the mean of both.  One point: its values for any x.
 * Series: on the line between two samples, and a sample itself at its very time; the gap
 * value (above 1e30) beside a gap and outside the series.
 * Takes time in proportion to npts.  0; -1 also for no points. */
KSUTIL_API int ksvector2_eval(const char *tag, double *y, double x);

/* The extremes of x, and of column iy of y (below 0: of all columns).  Gap samples count
 * like others.  0; -1 also for no points and for a column that is not there. */
KSUTIL_API int ksvector2_maxmin(const char *tag, int iy, double *xmin, double *xmax,
                                double *ymin, double *ymax);

/* The same over the points with x from x0 to x1, in either order and both included, and
 * there over those that have a value: gap samples and NaN count for neither x nor y.
 * 0; 1 with the results untouched when there is no such point; -1 as above. */
KSUTIL_API int ksvector2_maxmin2(const char *tag, int iy, double x0, double x1,
                                 double *xmin, double *xmax, double *ymin,
                                 double *ymax);

/* The index of the point nearest to (x, y), distances being the roots of the sums of the
 * squares in x and in column iy of y; the first of equal ones.  In a series the sample at or
 * before x, and the first or the last when x lies outside.
 *   -1  no points      -3  no such column
 *   -2  unknown tag    -4  iy below 0, or above 0 in a series */
KSUTIL_API int ksvector2_nearest(const char *tag, int iy, double x, double y);

/* A vector of statistics, point by point, over the vectors of a list of tags (char *).
 *
 * type   "max", "min", "amax", "amin" (of absolute values) or "median"
 * The first vector, which must be one of points, gives x values and labels; others take part
 * when they have its npts and ny and exactly its x values, and are passed over otherwise.
 * With the first vector alone the result is its copy, of absolute values for "amax" and
 * "amin".  The median of an even count is the mean of the middle two; NaN counts as the
 * largest value in it.  Null also for an unknown tag. */
KSUTIL_API ksvector2 *ksvector2_stats(Tbl *tags, const char *type, const char *name,
                                      char *tag);

/* -- Transforms, in place: 0 or -1; all but ygain only of vectors of points -- */

/* Longitude in x and latitude in y[0], degrees, become degrees east and north of a point:
 * azimuthal equidistant projection, see latlon2xydel in objects/ksvector.h. */
KSUTIL_API int ksvector2_transform_edp(const char *tag, double lat0, double lon0);

/* x becomes 1/x; 0 becomes 1e30, and 1e30 becomes 0. */
KSUTIL_API int ksvector2_transform_invertx(const char *tag);

/* Multiplies column iy of y (below 0: all) by (2 pi x)^power, which differentiates a spectrum
 * over frequencies `power` times, or integrates it when below 0; the factor for x = 0 is
 * 1e30 then. */
KSUTIL_API int ksvector2_transform_spec(const char *tag, int power, int iy);

/* Multiplies column iy of y (below 0: all), or the samples, by a gain. */
KSUTIL_API int ksvector2_transform_ygain(const char *tag, int iy, double gain);

/* -- Signals: time-sampled vectors only -- */

/* Fills gaps between samples.
 *
 * method     "linear": on the straight line between the samples before and after the gap;
 *            a gap at the beginning or at the end, which has but one of them, stays.
 *            "value": with `value`, at the beginning and at the end too
 * value      finite, for "value" only
 * maxgap     gaps of more samples than this stay; 0 or less: no limit
 * Returns how many samples were filled, or -1. */
KSUTIL_API int ksvector2_fill(const char *tag, const char *method, double value,
                              int maxgap);

/* Filters the samples in place with a Butterworth filter.
 *
 * flow, fhigh   corner frequencies, Hz, between 1e-7 of the sample rate and half of it;
 *               0 or less: none.  flow alone passes what is above it, fhigh alone what
 *               is below it, both with flow < fhigh what is between them
 * order         1 to 10: poles of the low-pass prototype; a band pass has twice as many
 * zero_phase    0: causal.  The power is halved (-3.01 dB) at each corner, and beyond it
 *               falls by 6 dB per octave and order.
 *               Else forward and backward: no phase shift; -6.02 dB at the corners
 * Each run of samples between gaps (and samples that are not finite) is filtered on its
 * own; gaps stay.  A run is taken to have been constant for ever before its first sample,
 * and to stay at its last one when it is filtered backward, so that an offset makes no
 * step.
 *
 * The analogue prototype |H(f)|^2 = 1 / (1 + (f / fc)^(2 order)) becomes a high or band
 * pass by s -> w0/s or s -> (s^2 + w0^2) / (B s), and digital by the bilinear transform
 * s = (z - 1) / (z + 1) with corners w = tan(pi f dt), so that they come out exact.  It
 * runs as a cascade of second-order sections in double precision.
 * Source: Oppenheim and Schafer, Discrete-Time Signal Processing, 3rd ed. (2010), sec. 6.3,
 * 7.2 and app. B.1.
 *
 * 0; -1 with the samples unchanged. */
KSUTIL_API int ksvector2_filter(const char *tag, double flow, double fhigh, int order,
                                int zero_phase);

}  // extern "C"
#endif
