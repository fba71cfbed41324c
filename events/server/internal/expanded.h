/* The cache of expanded events. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_EXPANDED_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_EXPANDED_H

#include "core/Array.h"
#include "events/records.h"

namespace ksutil::events {

/* Keeps the `max` events that were used last; less than 1: all. */
void purge_expanded(int max, Array<long, EVEvent> &cache);

}  // namespace ksutil::events
#endif
