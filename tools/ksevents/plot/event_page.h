/* event_page: one event as a figure: stations on a map with its mechanism, residuals and
 * travel times by distance, magnitudes by station. */
#ifndef KSUTIL_TOOLS_KSEVENTS_PLOT_EVENT_PAGE_H
#define KSUTIL_TOOLS_KSEVENTS_PLOT_EVENT_PAGE_H

#include <string>

#include "tools/plot/figure.h"

namespace ksutil::tools {

/* The page of an event's preferred origin.  Panels for which the database has nothing are
 * left out.  False, with messages, when there is no such event or it cannot be read. */
bool make_event_page(const std::string &database, long evid, const plot::Map &map,
                     plot::Figure &figure);

}  // namespace ksutil::tools
#endif
