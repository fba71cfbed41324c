/* The process-wide registry of fifos, and the pool of records that were once in it. */
#ifndef KSUTIL_PIPELINE_INTERNAL_PMTFIFO_REGISTRY_H
#define KSUTIL_PIPELINE_INTERNAL_PMTFIFO_REGISTRY_H

#include "pipeline/internal/pmtfifo_record.h"

namespace ksutil {

/* The mutex of the registry; also held by pmtfifo_flush.  Never held while a fifo's own
 * mutex is taken, nor the other way round. */
pthread_mutex_t &fifo_registry_mutex();

/* A record with constant fields set and all else zero, its mutex and conditions ready;
 * null when memory is short.  Records to be registered come from the pool first. */
pmtfifo *new_fifo_record(int maxsize, int registered);

/* Takes down what new_fifo_record set up, once the list is empty.  A registered record goes to
 * the pool and is never returned to the system, so that its `registered` field may be
 * read through a stale pointer for ever; another one is freed. */
void retire_fifo_record(pmtfifo *fifo);

/* Makes the registry at the first call of the process, which alone gets kJustFailed when
 * memory was short for it; later calls then get kAbsent. */
enum class Registry { kOpen, kJustFailed, kAbsent };
Registry open_fifo_registry();

/* Enters a fifo; false when memory is short. */
bool register_fifo(pmtfifo *fifo);
void deregister_fifo(pmtfifo *fifo);
bool is_registered_fifo(const pmtfifo *fifo);

}  // namespace ksutil
#endif
