/* The order of sort values. */
#ifndef KSUTIL_EVENTS_CLIENT_INTERNAL_SORT_ORDER_H
#define KSUTIL_EVENTS_CLIENT_INTERNAL_SORT_ORDER_H

#include <vector>

#include "core/Table.h"
#include "events/tabs.h"

namespace ksutil::events {

/* The indexes of the values in ascending order: those without a value first (a NaN and an
 * unknown type are none), then numbers, then texts; integers among reals compare as
 * reals.  Equal ones keep their order. */
Table<int> ascending_order(const std::vector<EVClient_sort_value> &values);

}  // namespace ksutil::events
#endif
