/* pmtfifo: a first-in-first-out queue of untyped pointers between threads.
 *
 * Ownership: the fifo never owns the items.  An item belongs to the thread that popped it,
 * or to the free function given to pmtfifo_flush or pmtfifo_destroy.
 * Threads: push, unpop, pop and release may run concurrently.  A flush must not overlap
 * a push or a pop, except pushes that already wait for room; and no thread may be inside
 * a call during pmtfifo_destroy.
 * Errors: -1 or null, with a message in the error register.  A null fifo is not an error. */
#ifndef KSUTIL_PIPELINE_PMTFIFO_H
#define KSUTIL_PIPELINE_PMTFIFO_H

#include "platform/stock/export.h"

struct pmtfifo;
typedef void (*PmtfifoFree)(void *);

extern "C" {

/* Creates an empty fifo, which the caller frees with pmtfifo_destroy.
 *
 * maxsize   items held before pushers wait; 0 or less: no limit
 * block     reader mode: 0 never waits, 1 waits without limit, 2 waits for the
 *           time-out, which is 0 s until pmtfifo_set_timeout gives one
 * reg       non-zero: later calls on the destroyed fifo are refused with a message
 *           until its memory serves another registered fifo; that memory is never
 *           returned to the system
 * The first fifo of a process must exist before threads create others. */
KSUTIL_API pmtfifo *pmtfifo_create(int maxsize, int block, int reg);

/* Changes the reader mode: below 0 readers wait without limit, above 0 (or NaN) at most
 * `timeout` seconds, 0 never.  A reader that waits under a mode that ends is released
 * (its pop gives 0), except when the new mode waits without limit.  0, or -1 when the
 * fifo was registered and no longer exists. */
KSUTIL_API int pmtfifo_set_timeout(pmtfifo *fifo, double timeout);

/* Appends an item, waiting for room when there is a limit; unpop puts it before all
 * others.
 *    0  the item was taken; also 0, with the item not taken, when a flush ended the wait.
 *       A flush that found no waiting pusher stays pending and ends the next wait.
 *   -1  memory is short, or the fifo no longer exists.  The item stays the caller's.  The
 *       messages of both functions name pmtfifo_push.
 * After an unpop for which memory was short the fifo stays locked for good, so that no
 * later item overtakes the one that could not go back: every later call on it but
 * pmtfifo_flush waits for ever, and it must not be destroyed.  Give it up: create another
 * fifo for its readers and pushers before they call again (flush the old one first to get
 * at its items), or end the process.  A failed pmtfifo_push leaves the fifo in use. */
KSUTIL_API int pmtfifo_push(pmtfifo *fifo, void *data);
KSUTIL_API int pmtfifo_unpop(pmtfifo *fifo, void *data);

/* Takes the oldest item; *data is null for every result but 1.
 *    1  an item was taken                    0  released while waiting
 *    2  timed out with the fifo empty       -1  registered, but destroyed (logged)
 *    3  empty in mode 0, or a null fifo
 * The time-out starts again after each wake-up that finds the fifo empty, so a timed
 * reader among several may wait longer than the time it was given. */
KSUTIL_API int pmtfifo_pop(pmtfifo *fifo, void **data);

/* The number of items held; 0 for a null fifo. */
KSUTIL_API int pmtfifo_data_available(pmtfifo *fifo);

/* Sends one waiting reader away without data (its pop gives 0); 0.  If no reader waits,
 * the release is kept for the next pop that has to wait, and a pop that finds data cancels
 * it.  release_blocks also ends waiting for good: later pops return at once, but other
 * readers that already wait are not woken.  To stop several readers, call release_block
 * again and again until all have left, then release_blocks. */
KSUTIL_API int pmtfifo_release_block(pmtfifo *fifo);
KSUTIL_API int pmtfifo_release_blocks(pmtfifo *fifo);

/* Drops all items, each through the free function when there is one, and sends one
 * waiting pusher away; 0.  The lock that all registered fifos share is held during the
 * call: the free function must not call a pmtfifo function. */
KSUTIL_API int pmtfifo_flush(pmtfifo *fifo, PmtfifoFree free_function);

/* Drops all items in the same way, but without a lock and without waking a pusher, and
 * frees the fifo; 0.  Of a registered fifo that is destroyed already it does nothing. */
KSUTIL_API int pmtfifo_destroy(pmtfifo *fifo, PmtfifoFree free_function);

}  // extern "C"
#endif
