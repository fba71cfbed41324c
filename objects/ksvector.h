/* ksvector: points with an x value, one or more y values and an optional label, or a
 * uniformly sampled time series; addressed by the tags "vect0", "vect1", ... */
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
  double *y;    // [ny]
  char *label;  // null: none
};

struct KSVectorStorage;  // private to the family

struct KSVector {
  char ident[8];          // "ksvec"
  int32_t ny;             // y values per point
  int32_t npts;           // points in use
  int32_t nalloc;         // point slots, or samples, allocated
  char *name;             // the caller's name, or null
  KSVectorPoint *points;  // [nalloc]; null for a time-sampled vector
  double time;            // x of the first sample
  double dt;              // sample interval
  double *data;           // [nalloc] samples; null for a point vector
  int64_t heap_size;      // bytes owned, labels not counted
  KSVectorStorage *storage;
};

extern "C" {

KSUTIL_API KSVector *ksvector_get_vector(const char *tag);
KSUTIL_API KSVector *ksvector_create(int hint, int ny, const char *name, char *tag);
KSUTIL_API KSVector *ksvector_create_tsamp(int nsamp, const double *samples,
                                           const char *name, char *tag, double time,
                                           double samprate);
KSUTIL_API KSVector *ksvector_copy(const char *tag, const char *name, char *newtag);
KSUTIL_API KSVector *ksvector_copy_1y(const char *tag, int iy, const char *name,
                                      char *newtag);
KSUTIL_API KSVector *ksvector_create_response_fap(const char *file, const char *name,
                                                  char *tag, int *status);
KSUTIL_API KSVector *ksvector_create_from_pf(Pf *pf, const char *key, const char *name,
                                             char *tag, int *status);
KSUTIL_API KSVector *ksvector_read(const char *file, const char *name, int nskip,
                                   int xcol, int ny, const int *ycols, int labelcol,
                                   char *tag);
KSUTIL_API KSVector *ksvector_stats(Tbl *tags, const char *type, const char *name,
                                    char *tag);
KSUTIL_API int ksvector_resize(const char *tag);
KSUTIL_API int ksvector_append(const char *tag, int index, const double *y,
                               const char *label, double x);
KSUTIL_API int ksvector_get_point(const char *tag, int index, double *x, double *y,
                                  char *label);
KSUTIL_API int ksvector_eval(const char *tag, double *y, double x);
KSUTIL_API int ksvector_put(const char *tag, int index, const double *y,
                            const char *label, double x);
KSUTIL_API int ksvector_puty(const char *tag, int index, const double *y,
                             const char *label);
KSUTIL_API int ksvector_maxmin(const char *tag, int iy, double *xmin, double *xmax,
                               double *ymin, double *ymax);
KSUTIL_API int ksvector_nearest(const char *tag, int iy, double x, double y);
KSUTIL_API int ksvector_get_points(const char *tag, int *npts, int *iy, double **x,
                                   void **y, char ***labels);
KSUTIL_API int ksvector_transform_edp(const char *tag, double lat0, double lon0);
KSUTIL_API int ksvector_transform_invertx(const char *tag);
KSUTIL_API int ksvector_transform_spec(const char *tag, int power, int iy);
KSUTIL_API int ksvector_transform_ygain(const char *tag, int iy, double gain);
KSUTIL_API int ksvector_read_from_trblob(const char *file, Dbptr *trace, char *tag);
KSUTIL_API int ksvector_free(const char *tag);
KSUTIL_API int ksvector_free_tag(const char *name);
KSUTIL_API int ksvector_free_vector(KSVector *vector);
KSUTIL_API int ksvector_get_heap_size(const char *name, const char *tag, int *count,
                                      long *bytes);
KSUTIL_API void latlon2xydel(double *x, double *y, int flag, double lat0, double lon0,
                             double lat1, double lon1);

}  // extern "C"
#endif
