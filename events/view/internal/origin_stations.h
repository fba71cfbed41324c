/* Stations as seen from an origin. */
#ifndef KSUTIL_EVENTS_VIEW_INTERNAL_ORIGIN_STATIONS_H
#define KSUTIL_EVENTS_VIEW_INTERNAL_ORIGIN_STATIONS_H

#include "events/view/internal/view_state.h"

namespace ksutil::events {

/* KSEventView::lookupStation with a reader whose sites are bound.  `station` is set unless
 * the result is negative. */
int look_up_station(ViewState &state, TreeReader &reader, KSEVOrigin &origin,
                    const char *sta, double time, KSEVOriginStation *&station);

/* Puts what is known of the station into a detection; throws std::bad_alloc. */
void locate(KSEVDetection &detection, const KSEVOriginStation &station);

}  // namespace ksutil::events
#endif
