/* tabs: shows events or origins as the rows of a sorted list, in tab lists.
 *
 * Sorting moves no record: it gives an order, from which a tab keeps two mappings.  A
 * tab does not own the records.  The caller holds the events lock while the records are
 * the server's own, or keeps the pointer from eventsList, whose const list takes a
 * const tab. */
#ifndef KSUTIL_EVENTS_TABS_H
#define KSUTIL_EVENTS_TABS_H

#include <cstdint>

#include "core/Table.h"
#include "events/records.h"

struct EVEventsTab {
  Table<EVEvent> *events = nullptr;  // the records that it shows
  Table<int> index;                  // [row]: index in events
  Table<int> rows;                   // [index in events]: row
};

struct EVOriginsTab {
  Table<EVOrigin> *origins = nullptr;  // the records that it shows
  Table<int> index;                    // [row]: index in origins
  Table<int> rows;                     // [index in origins]: row
};

/* The same over lists that may not be changed. */
struct EVConstEventsTab {
  const Table<EVEvent> *events = nullptr;
  Table<int> index;
  Table<int> rows;
};

struct EVConstOriginsTab {
  const Table<EVOrigin> *origins = nullptr;
  Table<int> index;
  Table<int> rows;
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
