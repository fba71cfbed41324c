/* pmtfifo_registry: the process-wide registry of fifos, and the pool of the records
 * that have left it. */
#ifndef KSUTIL_PIPELINE_INTERNAL_PMTFIFO_REGISTRY_H
#define KSUTIL_PIPELINE_INTERNAL_PMTFIFO_REGISTRY_H

#include "pipeline/internal/pmtfifo_record.h"

namespace ksutil {

/* The mutex of the registry; pmtfifo_flush holds it too.  A thread never holds this
 * mutex and a fifo's own mutex at the same time. */
pthread_mutex_t &fifo_registry_mutex();

/* A record with constant fields set and all else zero, its mutex and conditions ready;
 * null when memory is short.  Records to be registered come from the pool first. */
pmtfifo *new_fifo_record(int maxsize, int registered);

/* Undoes new_fifo_record; the list must be empty.  A registered record goes to the pool
 * and is never returned to the system, so that its `registered` field can always be
 * read through a stale pointer; any other record is freed. */
void retire_fifo_record(pmtfifo *fifo);

/* Makes the registry at the first call in the process.  If memory is short, the first
 * call returns kJustFailed and all later calls return kAbsent. */
enum class Registry { kOpen, kJustFailed, kAbsent };
Registry open_fifo_registry();

/* Enters a fifo; false when memory is short. */
bool register_fifo(pmtfifo *fifo);

/* Removes a fifo; false when it is not there, being destroyed already. */
bool deregister_fifo(const pmtfifo *fifo);
bool is_registered_fifo(const pmtfifo *fifo);

}  // namespace ksutil
#endif
