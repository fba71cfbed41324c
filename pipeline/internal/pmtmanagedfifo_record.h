/* pmtmanagedfifo_record: the record behind a pmtmanagedfifo, and the process-wide
 * registry of these records. */
#ifndef KSUTIL_PIPELINE_INTERNAL_PMTMANAGEDFIFO_RECORD_H
#define KSUTIL_PIPELINE_INTERNAL_PMTMANAGEDFIFO_RECORD_H

#include <memory>
#include <mutex>

#include "pipeline/pmtmanagedfifo.h"
#include "platform/stock/memory.h"
#include "platform/stock/owners.h"

/* Locks are taken in the order push_mutex, state_mutex, producers_mutex.  A record is
 * never freed: its registry entry outlives pmtmanagedfifo_destroy. */
struct pmtmanagedfifo : ksutil::SeamAllocated {
  char name[64] = {};     // constant
  std::mutex push_mutex;  // held for a whole push, so that consumers see one order
  std::mutex
      state_mutex;  // guards consumers, consumer_map, sequence, items' references
  ksutil::TblPtr consumers;     // their fifos, oldest first; null once destroyed
  ksutil::ArrPtr consumer_map;  // name to fifo; null once destroyed
  long sequence = 0;            // of the next item
  std::mutex producers_mutex;   // leaf; guards the two fields below
  ksutil::ArrPtr producers;  // name to a copy of it, to null once ended; null: none yet
  long live_producers = 0;
};

namespace ksutil {

/* Enters a new fifo under its name; the registry must be open.  kTaken when another
 * thread has entered a fifo of this name first. */
enum class Entry { kEntered, kTaken, kNoMemory };
Entry register_managed_fifo(pmtmanagedfifo *fifo);

/* The names of all fifos, which live as long as the process; null when memory is short.
 * *open: whether the registry exists. */
TblPtr managed_fifo_names(bool *open);

/* Drops one reference to an item; the caller holds the state mutex.  The last reference
 * frees the item with its data.  A null item is accepted. */
void drop_managed_item(void *item);

}  // namespace ksutil
#endif
