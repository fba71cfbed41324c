/* Trace databases and gaps.
 *
 * A trace database is a scratch database in memory whose rows carry their samples: the
 * table "trace" has the fields net, sta, chan, time, endtime, nsamp, samprate, calib,
 * calper, segtype, comment and data, where "data" is a pointer to malloced single-precision
 * samples that dbgetv and dbputv hand over as a pointer (float **, float *).
 * A gap in single-precision samples is one value everywhere: finite and above 1e30. */
#ifndef KSUTIL_PLATFORM_TRACE_TRACE_H
#define KSUTIL_PLATFORM_TRACE_TRACE_H

#include "platform/db/db.h"
#include "platform/stock/export.h"

extern "C" {

/* A new trace database positioned on the whole of it; dbinvalid() with a message when it
 * cannot be made.  Closed with trdestroy. */
KSUTIL_API Dbptr trnew(void);

/* Frees the samples of every "trace" row (each block once), closes the database and makes
 * the pointer invalid.  A null or an invalid pointer is no error. */
KSUTIL_API void trdestroy(Dbptr *trace);

/* Sets samples[0..n-1] to the gap value. */
KSUTIL_API void trfill_gap(float *samples, long n);

/* 1 when the value marks a gap, else 0. */
KSUTIL_API int tr_isgap(float value);

}  // extern "C"
#endif
