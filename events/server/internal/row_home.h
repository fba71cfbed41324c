/* The memory of row texts. */
#ifndef KSUTIL_EVENTS_SERVER_INTERNAL_ROW_HOME_H
#define KSUTIL_EVENTS_SERVER_INTERNAL_ROW_HOME_H

#include "events/records.h"

namespace ksutil::events {

/* Copies all row texts of an event into one block of its own, so that a few rows do not
 * keep the table's large blocks alive. */
void rehome(EVEvent &event);

}  // namespace ksutil::events
#endif
