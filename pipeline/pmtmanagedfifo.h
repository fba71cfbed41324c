/* pmtmanagedfifo: a named channel from many producers to many consumers.
 *
 * Every item that is pushed reaches every consumer, each of which reads from a pmtfifo
 * of its own at its own pace; the slowest consumer with a capacity paces all
 * producers.  Consumers get copies that they own, made by the copy function that came
 * with the item.  When the last named producer has ended, every consumer gets the end
 * mark, once, behind all items.
 *
 * Ownership: an item's data is one malloc block.  The fifo owns it from a successful
 * push on and frees it when the last consumer has popped the item.
 * Threads: any number of threads may push, end producers and pop at the same time, with
 * one or several readers for each consumer; consumers and producers may be added at any
 * time.  During pmtmanagedfifo_destroy no thread may be inside a call on the fifo.  The
 * copy function runs on the pushing and the popping threads, under no lock, possibly on
 * the same data at the same time; it must not throw.
 * Names: a fifo's name is cut at 63 characters, and the cut name is the one that is
 * known; names of consumers and producers have any length.  A name once given to a
 * fifo, or to a consumer or producer of it, is never free again.
 * Errors: -1 or null with a message in the error register.  A null fifo is not an error
 * where 0 is the answer to it. */
#ifndef KSUTIL_PIPELINE_PMTMANAGEDFIFO_H
#define KSUTIL_PIPELINE_PMTMANAGEDFIFO_H

#include "pipeline/pmtfifo.h"
#include "platform/stock/export.h"

struct pmtmanagedfifo;

/* A new malloc block with a copy of the data, or null. */
typedef void *(*PmtmanagedfifoCopy)(void *data);

/* What the consumers' fifos hold; a null item there is the end mark. */
struct PmtmanagedfifoData {
  void *data;     // the producer's block, or the copy made at push time
  long sequence;  // from 0, one number for each push
  int references;  // consumer fifos that got the item and whose reader has not dropped it
  PmtmanagedfifoCopy copyproc;
};

extern "C" {

/* The fifo of a name, destroyed ones included; null when there is none (no message).
 * The first call in a process ends it through elog_die when memory is short. */
KSUTIL_API pmtmanagedfifo *pmtmanagedfifo_get(const char *name);

/* Creates a fifo without consumers and producers; null when the name is in use or null,
 * or memory is short.  The caller ends it with pmtmanagedfifo_destroy. */
KSUTIL_API pmtmanagedfifo *pmtmanagedfifo_create(const char *name);

/* Adds a consumer, which gets all items pushed from now on.
 *
 * maxsize   items held before producers wait; 0 or less: no limit
 * block     reader mode of pmtfifo_create; its time-out may be set on the result
 * Returns the consumer's fifo, which belongs to the managed fifo: read it with
 * pmtmanagedfifo_pop, release its readers with pmtfifo_release_block.  Null when the
 * name is in use, the fifo is null or destroyed, or memory is short. */
KSUTIL_API pmtfifo *pmtmanagedfifo_set_consumer(pmtmanagedfifo *fifo, const char *name,
                                                int maxsize, int block);

/* The fifo of a consumer; null when there is none (no message). */
KSUTIL_API pmtfifo *pmtmanagedfifo_get_consumer(pmtmanagedfifo *fifo, const char *name);

/* Adds a producer; the end mark is sent when all producers have ended.  0; -1 when the
 * fifo or the name is null, when the name is in use (a producer that has ended keeps
 * its name), and when memory is short. */
KSUTIL_API int pmtmanagedfifo_set_producer(pmtmanagedfifo *fifo, const char *name);

/* Sends an item to all consumers, waiting until each of them has room.
 *
 * data       one malloc block that copyproc takes
 * copyproc   makes the consumers' copies; must be given
 * copy       0: the block itself goes in and is the fifo's; else a copy of it does, and
 *            the block stays the caller's
 * 0, also for a null fifo.  -1 without copy function, when memory is short, and when
 * copyproc gives null; then the block stays the caller's, with one exception: after
 * "pmtfifo_push() error" consumers before the one that failed have the item and free
 * it, and if there are none its data is not freed.
 * With no consumer the item goes nowhere, takes its sequence number, and neither it nor
 * its data is ever freed: add the consumers first. */
KSUTIL_API int pmtmanagedfifo_push(pmtmanagedfifo *fifo, void *data,
                                   PmtmanagedfifoCopy copyproc, int copy);

/* Ends a producer; the last one to end sends the end mark to every consumer, waiting
 * for room like a push.
 *
 * producer   null: the mark is sent at once, even while producers are live.  An unknown
 *            name, or one that has ended before, sends a further mark once no producer is
 *            live.
 * 0, or -1 when memory is short (the message names pmtmanagedfifo_push). */
KSUTIL_API int pmtmanagedfifo_push_eof(pmtmanagedfifo *fifo, const char *producer);

/* Takes a consumer's oldest item.
 *
 * data       out: the consumer's own copy of the data, which it frees; null for every
 *            result but 1, and for 1 when the copy function gave null
 * sequence   may be null; out, for result 1 only: the item's number
 *    1  an item was taken        2, 3, 0  no item, as of pmtfifo_pop
 *    4  end of the stream        -1       unknown consumer (logged)
 * A null fifo gives 0. */
KSUTIL_API int pmtmanagedfifo_pop(pmtmanagedfifo *fifo, const char *consumer,
                                  void **data, long *sequence);

/* Frees an item (PmtmanagedfifoData *) and its data, whatever its references; a null
 * item is accepted.  For a consumer's fifo that is flushed by hand while it is the only
 * one. */
KSUTIL_API void pmtmanagedfifo_free_data(void *item);

/* Drops all items that consumers have not read and frees the consumers' fifos.  The
 * record and its name stay: the fifo has no consumers any more and takes none, and its
 * name can not be created again.  Returns 0. */
KSUTIL_API int pmtmanagedfifo_destroy(pmtmanagedfifo *fifo);

/* Prints the names of a fifo's consumers and producers, ended producers included, to
 * standard error through elog_notify, which also prints and clears the error register.
 *
 * prefix   begins each line; may be null
 * fifo     null: all fifos of the process
 * 0, or -1 when memory is short. */
KSUTIL_API int pmtmanagedfifo_display(const char *prefix, pmtmanagedfifo *fifo);

}  // extern "C"
#endif
