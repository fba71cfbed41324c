/* gather_texts: gives the row texts of an event a memory of their own. */
#ifndef KSUTIL_EVENTS_RECORDS_INTERNAL_ROW_TEXTS_H
#define KSUTIL_EVENTS_RECORDS_INTERNAL_ROW_TEXTS_H

#include "events/records.h"

namespace ksutil::events {

/* Copies all row texts of an event into one block of its own, so that a few rows do not
 * keep the table's large blocks alive. */
void gather_texts(EVEvent &event);

}  // namespace ksutil::events
#endif
