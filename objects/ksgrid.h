/* ksgrid: equally spaced frames of single-precision values over a rectilinear mesh, for
 * example a map of a quantity refreshed at a fixed rate; addressed by the tags "grid0",
 * "grid1", ...
 *
 * Forms: an operation that takes a tag looks the grid up and then does what its record
 * form does, which has the suffix _ksgrid and takes the grid in place of the tag.
 * Ownership: a grid belongs to the application until it is freed by its tag, its name or
 * its record.  Texts and arrays given to a function are copied; the arrays of a record are
 * malloced and belong to it.
 * Threads: all calls that take or give a tag come from one thread at a time.  Record forms
 * may work on different grids concurrently, and those that take a const grid on one.
 * Errors: -1 or null, with a message in the error register; out-arguments and, where
 * nothing else is said, the grid are then as they were.  A null grid is an error, except
 * where it is freed.
 * Limits: a grid holds at most INT_MAX values, and a packet at most INT_MAX bytes. */
#ifndef KSUTIL_OBJECTS_KSGRID_H
#define KSUTIL_OBJECTS_KSGRID_H

#include <stdint.h>

#include "objects/tags.h"
#include "platform/stock/export.h"

/* Texts may be null.  They and `params` are the application's: they are carried, never
 * interpreted. */
struct KSGrid {
  char *name;
  char *xname;  // of the x axis
  int32_t nx;
  float *x;  // [nx] coordinates
  char *xtext1, *xtext2;
  int32_t ny;
  float *y;  // [ny] coordinates
  char *ytext1, *ytext2;
  int32_t nframes;
  double time;    // of the first frame, epoch seconds
  double dt;      // frame interval, s
  float *data;    // [nframes][ny][nx]: value (ix, iy) of a frame at ix + nx * iy
  float gapval;   // marks a node without a value
  int32_t ndata;  // nframes * nx * ny
  char *text1, *text2;
  int32_t order;  // non-zero: axes are put in ascending order after each store
  double params[20];
};

/* Axes that ksgrid_d2slow converts. */
enum { KSGRID_X = 1, KSGRID_Y = 2 };

extern "C" {

/* ---- Registry ---- */

/* The grid under a tag; null with a message when there is none. */
KSUTIL_API KSGrid *ksgrid_get_grid(const char *tag);

/* Enters a grid under a new tag, written to `tag` (KS_TAG_SIZE bytes).  A grid may have
 * several tags; it loses all when it is freed.  `tag` is "" on failure. */
KSUTIL_API int ksgrid_register_grid(KSGrid *grid, char *tag);

/* A new grid without frames: time and dt 0, order 1, the platform's gap value.
 *
 * nx, ny    1 or more
 * x, y      [nx], [ny] coordinates, rising or falling throughout where they are ordered
 * name      of the grid, for ksgrid_free_tag; like all texts it may be null
 * tag       null: the grid is not registered; else as for ksgrid_register_grid */
KSUTIL_API KSGrid *ksgrid_create(const char *xname, int nx, const float *x,
                                 const char *xtext1, const char *xtext2, int ny,
                                 const float *y, const char *ytext1, const char *ytext2,
                                 const char *text1, const char *text2, const char *name,
                                 char *tag);

/* A new grid with the contents of another, under another name and a new tag, which may be
 * written to the place of `tag`. */
KSUTIL_API KSGrid *ksgrid_copy(const char *tag, const char *name, char *newtag);
KSUTIL_API KSGrid *ksgrid_copy_ksgrid(const KSGrid *grid, const char *name,
                                      char *newtag);

/* Free the grid under a tag (an unknown tag is not an error and leaves no message), all
 * registered grids of a name, or a record (null: nothing).  Always 0; when memory is short
 * the grids of a name stay, with a message. */
KSUTIL_API int ksgrid_free(const char *tag);
KSUTIL_API int ksgrid_free_tag(const char *name);
KSUTIL_API int ksgrid_free_ksgrid(KSGrid *grid);

/* ---- Frames ---- */

/* Replaces all frames.
 *
 * nframes   0 or more; 0 leaves the grid without frames
 * frames    [nframes][ny][nx], may be the grid's own
 * time, dt  of the first frame and between frames, s
 * With `order` set the grid is then ordered: when that fails the new frames are stored
 * and the result is -1. */
KSUTIL_API int ksgrid_put(const char *tag, int nframes, const float *frames,
                          double time, double dt);
KSUTIL_API int ksgrid_put_ksgrid(KSGrid *grid, int nframes, const float *frames,
                                 double time, double dt);

/* Replaces all frames by the greatest values of each `decimation` consecutive ones, the
 * last of them of what is left; the interval becomes dt * decimation.
 * The greatest value is at least 0: lower ones, and NaN, count as 0.  A gap is greater
 * than all values, so it wins.  This holds for a decimation of 1 too.
 * With decimation < 1, or dt that is not positive, this is ksgrid_put. */
KSUTIL_API int ksgrid_putanddecimate(const char *tag, int nframes, const float *frames,
                                     int decimation, double time, double dt);
KSUTIL_API int ksgrid_putanddecimate_ksgrid(KSGrid *grid, int nframes,
                                            const float *frames, int decimation,
                                            double time, double dt);

/* Adds a frame, [ny][nx] outside the grid's own data, after the last of at least one.
 * With `order` set the grid is then ordered, as after ksgrid_put. */
KSUTIL_API int ksgrid_append_sample(const char *tag, const float *frame);
KSUTIL_API int ksgrid_append_sample_ksgrid(KSGrid *grid, const float *frame);

/* Drops the oldest frames so that at most `keep` (0 or more) remain; the time becomes
 * that of the first frame kept. */
KSUTIL_API int ksgrid_trim(const char *tag, int keep);
KSUTIL_API int ksgrid_trim_ksgrid(KSGrid *grid, int keep);

/* Sets `order`; orders nothing before the next store. */
KSUTIL_API int ksgrid_set_order(const char *tag, int flag);
KSUTIL_API int ksgrid_set_order_ksgrid(KSGrid *grid, int flag);

/* Puts both axes in ascending order: a descending axis is reversed, with the data of
 * every frame along it.  Equal neighbours are allowed; an axis that both rises and falls
 * is refused.
 * An axis is reversed once, so frames stored later are expected in ascending order. */
KSUTIL_API int ksgrid_order(KSGrid *grid);

/* ---- Values ---- */

/* Locates a value on one grid axis.
 *
 * coords    [n], n >= 1, ascending; equal neighbours are allowed
 * value     in the unit of `coords`; NaN gives result 0 with i0 = i1 = 0
 * i0, i1    out: lower and upper neighbour, 0 <= i0 <= i1 < n
 * c0        out: coords[i0]
 * width     out: coords[i1] - coords[i0] in the unit of `coords`, 0 off the axis
 *
 * Returns -1 below coords[0], 1 above coords[n-1], else 0.  A value on an interior
 * coordinate belongs to the interval below it, the lowest one among equal coordinates.
 * With n < 1 the result is -1 and all outputs are 0.
 * Accuracy: comparisons are exact; width carries one single-precision rounding.
 * Reads only its arguments, allocates and logs nothing: safe from any thread.
 * Source: Press et al., Numerical Recipes, 3rd ed. (2007), sec. 3.1 and 3.6. */
KSUTIL_API int ksgrid_find_interval(int n, const float *coords, int *i0, int *i1,
                                    float *c0, float *width, float value);

/* Evaluates one frame at points.
 *
 * frame         0 to nframes - 1
 * x, y          [npoints], in the units of the axes
 * interp_mode   "block": the nearest node, the lower one in the middle between two;
 *               "bilinear": linear along x on both rows, then along y
 * extrap_mode   "none", the only one: the gap value for points off the mesh
 * out           in and out: null, or a malloced array of *nout values; it is made or
 *               grown to hold npoints, and the caller frees it; what stands behind the
 *               results becomes 0
 * nout          in and out: its size, raised when it is made or grown
 *
 * Bilinear values need all four nodes around the point: beside a gap they are gaps, and
 * so they are for a coordinate that equals the gap value.  Between equal coordinates the
 * result is the mean.  A coordinate that is NaN counts as the first of its axis.
 * The axes must be ascending; on others, which only grids with `order` 0 have, points are
 * looked for in the first rising interval.
 * Accuracy: computed in double precision and rounded once.
 * Source: Press et al., Numerical Recipes, 3rd ed. (2007), sec. 3.6. */
KSUTIL_API int ksgrid_eval(const char *tag, int frame, int npoints, const float *x,
                           const float *y, const char *interp_mode,
                           const char *extrap_mode, float **out, int *nout);
KSUTIL_API int ksgrid_eval_ksgrid(const KSGrid *grid, int frame, int npoints,
                                  const float *x, const float *y,
                                  const char *interp_mode, const char *extrap_mode,
                                  float **out, int *nout);

/* Extremes of the axes and of the values of one frame, or of all with frame < 0.  Gaps
 * and NaN are skipped; -1 when nothing else is there.  Outputs may be null. */
KSUTIL_API int ksgrid_maxmin(const char *tag, int frame, float *xmin, float *xmax,
                             float *ymin, float *ymax, float *vmin, float *vmax);
KSUTIL_API int ksgrid_maxmin_ksgrid(const KSGrid *grid, int frame, float *xmin,
                                    float *xmax, float *ymin, float *ymax, float *vmin,
                                    float *vmax);

/* ---- From distance to slowness ----
 *
 * Horizontal slowness (s/degree) is the slope of the travel time of the first P-type
 * arrival over epicentral distance (degrees).
 *
 * model   "iasp91" or "ak135"; null: iasp91
 * depth   of the source, km, 0 to 700 (down to -10 counts as 0)
 * Slowness keeps the sign of the distance, and at distance 0 it is 0: there is no
 * direction.  It falls with distance from a surface source and steps at the core phases
 * (near 114 and 145 degrees); from a deep one it first rises. */

/* Converts distances of -180 to 180 degrees; `slownesses` [n] may be `distances` [n]. */
KSUTIL_API int ksgrid_coords_d2slow(const char *model, double depth, int n,
                                    const float *distances, float *slownesses);

/* Converts the coordinates of axes (KSGRID_X, KSGRID_Y or both, added) from distances to
 * slownesses and, with `order` set, orders the grid.  An axis on which slowness both rises
 * and falls is refused. */
KSUTIL_API int ksgrid_d2slow(const char *tag, const char *model, double depth,
                             int axes);
KSUTIL_API int ksgrid_d2slow_ksgrid(KSGrid *grid, const char *model, double depth,
                                    int axes);

/* Evaluates a grid over slowness (x east, y north) at points x degrees east and y degrees
 * north of its centre: a point stands for the slowness vector of a wave that comes from
 * its direction and its distance sqrt(x^2 + y^2).  Arguments and results are those of
 * ksgrid_eval; a point more than 180 degrees away, or NaN, has the gap value. */
KSUTIL_API int ksgrid_eval_d2slow(const char *tag, const char *model, double depth,
                                  int frame, int npoints, const float *x,
                                  const float *y, const char *interp_mode,
                                  const char *extrap_mode, float **out, int *nout);
KSUTIL_API int ksgrid_eval_d2slow_ksgrid(const KSGrid *grid, const char *model,
                                         double depth, int frame, int npoints,
                                         const float *x, const float *y,
                                         const char *interp_mode,
                                         const char *extrap_mode, float **out,
                                         int *nout);

/* ---- Packets ----
 *
 * All numbers are big-endian, in this order: nx, ny, nframes (4-byte integers), time, dt,
 * the 20 params (8-byte IEEE floats), x, y, data (4-byte IEEE floats), then name, xname,
 * xtext1, xtext2, ytext1, ytext2, text1 and text2, each ended by a zero byte.  A null text
 * is written as an empty one, and an empty one is read as null.  gapval and order are not
 * part of a packet. */

/* Makes the packet of a grid.
 *
 * packet      in and out: null, or a malloced buffer of *allocated bytes; it is made or
 *             grown as needed, and the caller frees it
 * nbytes      out: bytes of the packet
 * allocated   in and out: bytes of the buffer */
KSUTIL_API int ksgrid_stuff(const char *tag, char **packet, int *nbytes,
                            int *allocated);
KSUTIL_API int ksgrid_stuff_ksgrid(const KSGrid *grid, char **packet, int *nbytes,
                                   int *allocated);

/* Fills a record from the nbytes of a packet.  A grid loses its contents and keeps its
 * tags, gapval and order; a zeroed record (from calloc, when ksgrid_free_ksgrid is to free
 * it) becomes a grid like those of ksgrid_create, without a tag.  A packet whose counts
 * and texts do not fill nbytes exactly is refused before memory is taken. */
KSUTIL_API int ksgrid_unstuff(const char *packet, int nbytes, KSGrid *grid);

/* Writes the bytes of the grid's packet as a 4-byte integer in the host's order, then the
 * packet, to a file, pipe or socket.  Transfers go on after signals and short writes, and
 * wait where a descriptor does not block.  A reader that has gone raises SIGPIPE: ignore
 * that signal to get -1 instead.  On failure part of the packet may have been written. */
KSUTIL_API int ksgrid_write_fd(const char *tag, int fd);
KSUTIL_API int ksgrid_write_fd_ksgrid(const KSGrid *grid, int fd);

/* Reads what ksgrid_write_fd wrote into a record, as ksgrid_unstuff does.
 * Returns the bytes of the packet, 0 at the end of the file before it, -1 on an error.
 * Memory grows with what arrives, not with the count that announces it. */
KSUTIL_API int ksgrid_read_fd(int fd, KSGrid *grid);

}  // extern "C"
#endif
