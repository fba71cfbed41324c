/* trace: makes trace databases and marks gaps.
 *
 * A trace database is a scratch database in memory whose rows carry their samples: the
 * table "trace" has the fields net, sta, chan, time, endtime, nsamp, samprate, calib,
 * calper, segtype, comment and data, where "data" is a pointer to malloced single-precision
 * samples that dbgetv and dbputv hand over as a pointer (void **, void *).
 * A gap in single-precision samples is one value everywhere: finite and above 1e30.
 *
 * Ownership: samples that a row points to belong to the database from then on; putting
 * another pointer over them does not free them.  Rows may share a block.  A row added from
 * the text of another process (dbadd) has an address of that process in "data": put a null
 * pointer there before anything else can fail.
 * Threads: different databases from different threads, one database from one at a time.
 * The gap functions are safe from any thread. */
#ifndef KSUTIL_PLATFORM_TRACE_TRACE_H
#define KSUTIL_PLATFORM_TRACE_TRACE_H

#include "platform/db/db.h"
#include "platform/stock/export.h"

extern "C" {

/* A new trace database positioned on the whole of it; dbinvalid() with a message when it
 * cannot be made.  Closed with trdestroy. */
KSUTIL_API Dbptr trnew(void);

/* Frees the samples of every "trace" row (each block once), closes the database and makes
 * the pointer invalid.  Samples that only the scratch record points to stay the caller's.
 * A null or an invalid pointer is not an error.  When memory is short the samples stay
 * allocated, with a message. */
KSUTIL_API void trdestroy(Dbptr *trace);

/* Sets samples[0..n-1] to the gap value; n of 0 or less does nothing. */
KSUTIL_API void trfill_gap(float *samples, long n);

/* 1 when the value marks a gap, which is any above 1e30, so that a gap that was scaled by
 * a calibration remains one; else 0, also for NaN. */
KSUTIL_API int tr_isgap(float value);

}  // extern "C"

namespace ksutil {

/* Samples above it are gaps, in every precision. */
inline constexpr double kGapLimit = 1e30;

/* tr_isgap for a double-precision sample. */
inline bool is_gap_sample(double value) { return value > kGapLimit; }

}  // namespace ksutil
#endif
