/* Tab lists: events or origins as the rows of a sorted list.  Sorting moves no record: it
 * gives an order, from which a tab keeps two mappings.  The caller holds the events lock
 * while the records are the server's own. */
#ifndef KSUTIL_EVENTS_TABS_H
#define KSUTIL_EVENTS_TABS_H

#include <cstdint>

#include "core/Table.h"
#include "events/records.h"

struct EVEventsTab {
  Table<EVEvent> *events = nullptr;  // what it shows; not owned
  Table<int> index;                  // [row]: index in events
  Table<int> rows;                   // [index in events]: row
};

struct EVOriginsTab {
  Table<EVOrigin> *origins = nullptr;  // what it shows; not owned
  Table<int> index;                    // [row]: index in origins
  Table<int> rows;                     // [index in origins]: row
};

/* The key by which a record is sorted. */
struct EVClient_sort_value {
  int32_t status = 1;  // 0: there is a value
  int32_t type = 0;    // an EVValueType
  union {
    int64_t i;
    double d;
    char text[32] = {};  // the first 32 bytes; a longer text has no end here
  };
};

#endif
