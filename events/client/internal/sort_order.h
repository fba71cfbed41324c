/* sort_order: puts sort values in order. */
#ifndef KSUTIL_EVENTS_CLIENT_INTERNAL_SORT_ORDER_H
#define KSUTIL_EVENTS_CLIENT_INTERNAL_SORT_ORDER_H

#include <vector>

#include "core/Table.h"
#include "events/tabs.h"

namespace ksutil::events {

/* The indexes of the values in ascending order: first those without a value (NaN and an
 * unknown type count as none), then numbers, then texts.  Integers among reals compare
 * as reals.  Equal values keep their order. */
Table<int> ascending_order(const std::vector<EVClient_sort_value> &values);

}  // namespace ksutil::events
#endif
