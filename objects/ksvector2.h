/* ksvector2: vectors in one contiguous array each, for callers that create and free many
 * of them: freed records are kept in a cache and serve later vectors of a similar size.
 *
 * A vector holds points (an x value, ny y values and an optional label each) or, when it
 * is time-sampled, one uniformly sampled series: sample i belongs to x = time + i * dt, and
 * a sample above 1e30 marks a gap.
 *
 * Tags are "2vect0", "2vect1", ...; a tag buffer holds KS_TAG_SIZE bytes and is left empty
 * when its function fails.  A function that creates a vector registers it when it is given
 * a tag buffer; with a null one the record belongs to the caller alone, who frees it with
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
#include "platform/stock/export.h"

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

/* Non-zero: each use of memory and of the cache is told in a line on standard output.  Off
 * at first. */
KSUTIL_API void ksvector2_set_verbose(int on);

/* How often the family has called malloc or calloc, realloc, free and strdup.  Any of them
 * may be null. */
KSUTIL_API void ksvector2_get_counters(long *mallocs, long *reallocs, long *frees,
                                       long *strdups);

/* A record with no points in use: the best of the cache, or a new one.
 *
 * npts    points, or samples, that it must have room for
 * ny      y values per point; not looked at for a time-sampled one
 * tsamp   non-zero: time-sampled
 * From the cache comes the record of the same kind (and the same nyalloc) with the least
 * room beyond npts, less than 100 000 000; the earlier of two equal ones.  A new one has
 * room for trunc(1.2 * npts) points, at least 100.  All data are zero and the name is empty;
 * but the heap_size of one from the cache still counts the labels that it had before. */
KSUTIL_API ksvector2 *ksvector2_find_space(int npts, int ny, int tsamp);

/* Frees the labels, takes the record out of the registry and puts it into the cache when
 * there is room, else frees it.  A null record, or one that is no ksvector2, is ignored; a
 * record that is in the cache already stays there.  The freed labels stay counted in
 * heap_size, and so in what the cache holds. */
KSUTIL_API void ksvector2_free_vector(ksvector2 *vector);

/* Frees the vector of a tag; an unknown one is no error and logs nothing.  Always 0. */
KSUTIL_API int ksvector2_free(const char *tag);

/* Frees all registered vectors of a name; "" means those without one.  Always 0. */
KSUTIL_API int ksvector2_free_tag(const char *name);

/* -- Vectors -- */

/* The vector of a tag, or null. */
KSUTIL_API ksvector2 *ksvector2_get_vector(const char *tag);

/* An empty vector of points.  `name` may be null. */
KSUTIL_API ksvector2 *ksvector2_create(int npts, int ny, const char *name, char *tag);

/* A time-sampled vector.
 *
 * samples    [nsamp], copied; may be null when nsamp is 0
 * time       epoch seconds of the first sample
 * samprate   samples per second, above 0 */
KSUTIL_API ksvector2 *ksvector2_create_tsamp(int nsamp, const double *samples,
                                             const char *name, char *tag, double time,
                                             double samprate);

/* A vector with the same points and labels, or samples. */
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

}  // extern "C"
#endif
