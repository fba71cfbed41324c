/* pmtcomp: runs the steps of a computation on worker threads in lock-step.
 *
 * Each worker is bound to a function and its arguments.  pmtcomp_processthreads runs
 * the function of every worker once, all at the same time, and returns when all are
 * done; the threads then wait for the next step, so a step costs two wake-ups and no
 * thread start.
 *
 * Ownership: the component owns its threads; the arguments belong to the caller and
 * must live as long as they are bound.
 * Threads: one thread controls a component: it calls all functions on it.  A step
 * function must not call a function on its own component.  Workers see what the
 * controlling thread wrote before the step, and the controlling thread sees after the
 * step what they wrote in it; apart from that, workers must synchronise what they
 * share.
 * Errors: -1 or null with a message in the error register.  A null component has no
 * threads: counting, processing and destroying it gives 0, the rest fails. */
#ifndef KSUTIL_PIPELINE_PMTCOMP_H
#define KSUTIL_PIPELINE_PMTCOMP_H

#include "platform/stock/export.h"

struct Pmtcomp;
struct PmtcompThread;

/* One step of one worker: the bound arguments, the worker itself, and the epoch seconds
 * at which the step began.  A negative result counts as failed.  It must not throw. */
typedef long (*PmtcompSub)(void *arg1, long arg2, void *arg3, PmtcompThread *self,
                           double start_time);

extern "C" {

/* A component without threads, which the caller ends with pmtcomp_destroy; null when
 * memory is short. */
KSUTIL_API Pmtcomp *pmtcomp_create(void);

/* The number of workers. */
KSUTIL_API long pmtcomp_nthreads(Pmtcomp *comp);

/* Adds and starts a worker, which waits for the next step.  Its index is the number of
 * workers added before it.
 * 0; -1 when comp_sub is null, when memory is short, and when the thread cannot be
 * started.  After the last of these, and when memory is short for the list of threads,
 * the component stays locked for good, because a step with fewer workers than were
 * asked for would give wrong results: every later call on it, pmtcomp_destroy too,
 * waits for ever.  A caller that gave a component and a function and gets -1 must
 * therefore give the component up: call nothing on it any more, leave what its workers
 * are bound to alone (they sleep, and go with the process), and create another
 * component or end the process. */
KSUTIL_API int pmtcomp_addthread(Pmtcomp *comp, PmtcompSub comp_sub, void *arg1,
                                 long arg2, void *arg3);

/* Changes the function and the arguments of a worker, from the next step on.
 *
 * index      0 to pmtcomp_nthreads - 1
 * comp_sub   null: unchanged
 * arg1       replaced, also by null; unchanged when its address, as a signed number, is
 *            negative
 * arg2       0 or less: unchanged
 * arg3       null: unchanged
 * 0, or -1 for an index out of range. */
KSUTIL_API int pmtcomp_setthread(Pmtcomp *comp, long index, PmtcompSub comp_sub,
                                 void *arg1, long arg2, void *arg3);

/* Runs one step of all workers and waits until all are done.  Returns the number of
 * workers whose result was 0 or more. */
KSUTIL_API long pmtcomp_processthreads(Pmtcomp *comp);

/* Stops and removes a worker; the indexes of later ones go down by one.  0, or -1 for
 * an index out of range. */
KSUTIL_API int pmtcomp_deletethread(Pmtcomp *comp, long index);

/* The index that the worker got when it was added; the removal of other workers does
 * not change it.  For step functions that share their arguments. */
KSUTIL_API long pmtcomp_thread_index(const PmtcompThread *thread);

/* Stops all workers and frees the component.  Returns 0. */
KSUTIL_API int pmtcomp_destroy(Pmtcomp *comp);

}  // extern "C"
#endif
