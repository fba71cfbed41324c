/* origin_stations: looks up the stations of an origin and predicts arrivals there. */
#ifndef KSUTIL_EVENTS_VIEW_INTERNAL_ORIGIN_STATIONS_H
#define KSUTIL_EVENTS_VIEW_INTERNAL_ORIGIN_STATIONS_H

#include "events/reading/internal/tree_reader.h"
#include "events/view/internal/view_state.h"

namespace ksutil::events {

/* KSEventView::lookupStation with a reader that has taken the sites.  `station` is set
 * unless the result is negative. */
int look_up_station(ViewState &state, TreeReader &reader, KSEVOrigin &origin,
                    const char *sta, double time, KSEVOriginStation *&station);

/* Copies site, distance and azimuth of the station into a detection, and computes its
 * residuals; throws std::bad_alloc. */
void locate(KSEVDetection &detection, const KSEVOriginStation &station);

}  // namespace ksutil::events
#endif
