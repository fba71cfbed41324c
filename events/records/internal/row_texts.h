/* row_texts: moves the row texts of an event into memory of their own. */
#ifndef KSUTIL_EVENTS_RECORDS_INTERNAL_ROW_TEXTS_H
#define KSUTIL_EVENTS_RECORDS_INTERNAL_ROW_TEXTS_H

#include "events/records.h"

namespace ksutil::events {

/* Copies all row texts of the event into one block, so that a few rows do not keep the
 * large blocks of the tables alive. */
void gather_texts(EVEvent &event);

}  // namespace ksutil::events
#endif
